// fuzz_mutator.cpp - the mutator of every target: libFuzzer's own mutations,
// and now and then a part of the input repeated many times where it stands.
// libFuzzer grows inputs a few bytes at a time, so that long texts, many
// attributes or names, and wide or deep content models take it hours to
// reach; a repetition makes them in one step. The last run of digits in a
// repeated part is replaced by the number of the copy: ' a1="x"' repeated
// gives ' a1="x" a2="x" a3="x" ...', distinct names. Two parts may be
// repeated together, the second with its copies in the reverse order, which
// nests them: '<a1>' and '</a1>' give '<a1><a2>...</a2></a1>', '(' and ')'
// a deep group.
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <random>
#include <string>

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

bool IsDigit(uint8_t c) { return c >= '0' && c <= '9'; }

// Appends the n bytes at part with their last run of digits replaced by k.
void AppendCopy(std::string& out, const uint8_t* part, size_t n, size_t k) {
    size_t end = n;
    while (end > 0 && !IsDigit(part[end - 1]))
        --end;
    size_t begin = end;
    while (begin > 0 && IsDigit(part[begin - 1]))
        --begin;
    out.append(reinterpret_cast<const char*>(part), begin);
    if (end > 0)
        out += std::to_string(k);
    out.append(reinterpret_cast<const char*>(part) + end, n - end);
}

}  // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned int seed) {
    std::minstd_rand rng(seed);
    if (size == 0 || size >= maxSize || rng() % 8 != 0)
        return LLVMFuzzerMutate(data, size, maxSize);
    // A part of up to 64 bytes, and maybe a second one of up to 16 behind it.
    const size_t a = rng() % size;
    const size_t an = 1 + rng() % std::min<size_t>(size - a, 64);
    size_t b = a + an, bn = 0;
    if (b < size && rng() % 3 == 0) {
        b += rng() % (size - b);
        bn = 1 + rng() % std::min<size_t>(size - b, 16);
    }
    // Copies in all, spread evenly over the orders of magnitude that fit; a
    // number of copies adds at most ten digits to a copy.
    const size_t most = (maxSize - size) / (an + bn + 20) + 1;
    size_t count = 2;
    if (most > 2) {
        const unsigned bits = 1 + rng() % (64 - unsigned(__builtin_clzll(most)));
        count = std::min<size_t>(most, 2 + rng() % (size_t(1) << bits));
    }
    std::string out(reinterpret_cast<const char*>(data), a);
    for (size_t k = 1; k <= count; ++k)
        AppendCopy(out, data + a, an, k);
    out.append(reinterpret_cast<const char*>(data) + a + an, b - a - an);
    for (size_t k = count; bn && k >= 1; --k)
        AppendCopy(out, data + b, bn, k);
    out.append(reinterpret_cast<const char*>(data) + b + bn, size - b - bn);
    const size_t n = std::min(out.size(), maxSize);
    memcpy(data, out.data(), n);
    return n;
}

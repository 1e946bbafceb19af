// alloc - the allocator under load: small malloc/free mixes on one and two
// threads, and the parsing of many small documents.
//
//   ozmbench_nocount alloc mix [--threads N] [--ops M]     M operations per thread
//   ozmbench_nocount alloc docs [--count N] [--kb K] [--repeat R]
//
// The measure uses whatever malloc and operator new the process has: run it
// as it is for the C library's allocator, and with
// LD_PRELOAD=libozmxmlapi_malloc.so for the front, and compare the two
// whole-process times. Hence it runs only in ozmbench_nocount, whose
// operator new is not the counting one of ozmbench.
//
// mix: each thread keeps a window of 4096 blocks and, M times, frees a block
// at a random place of it and allocates a new one of 8 to 256 bytes there,
// writing its first and last byte. Threads work on their own windows, so on
// two threads the time stays that of one when the allocator scales.
//
// docs: N generated documents of about K kilobytes each (different seeds),
// decoded once; then R passes each parse every document into a new document
// object and destroy it.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "harness.h"

namespace ozmbench {
namespace {

void MixThread(long ops, uint64_t seed, unsigned long* checksum) {
    constexpr size_t kWindow = 4096;
    std::vector<unsigned char*> window(kWindow, nullptr);
    uint64_t x = seed;
    unsigned long sum = 0;
    for (long i = 0; i < ops; ++i) {
        x ^= x << 13;
        x ^= x >> 7;
        x ^= x << 17;
        size_t slot = x % kWindow;
        size_t size = 8 + (x >> 20) % 249;
        if (window[slot])
            sum += window[slot][0];
        std::free(window[slot]);
        auto* p = static_cast<unsigned char*>(std::malloc(size));
        if (!p)
            std::abort();
        p[0] = static_cast<unsigned char>(x);
        p[size - 1] = 1;
        window[slot] = p;
    }
    for (unsigned char* p : window)
        std::free(p);
    *checksum = sum;
}

int Mix(int threads, long ops) {
    std::vector<unsigned long> sums(threads);
    Timing t;
    t.Time([&] {
        std::vector<std::thread> pool;
        for (int i = 0; i < threads; ++i)
            pool.emplace_back(MixThread, ops, 0x9E3779B97F4A7C15ull + i, &sums[i]);
        for (auto& th : pool)
            th.join();
    });
    const double s = t.Best();
    unsigned long sum = 0;
    for (unsigned long v : sums)
        sum += v;
    std::printf("mix: %d thread(s) x %ld ops in %.3f s: %.1f ns per op per thread, %.1f Mops/s in all (checksum %lu)\n",
                threads, ops, s, s * 1e9 / double(ops), double(ops) * threads / s / 1e6, sum);
    return 0;
}

int Docs(int count, int kb, int repeat) {
    std::vector<UCString> texts(count);
    size_t bytes = 0;
    for (int i = 0; i < count; ++i) {
        const std::string utf8 = GenerateDocument(size_t(kb) * 1000, kDefaultSeed + uint64_t(i));
        bytes += utf8.size();
        Decode(utf8, texts[i]);
    }
    size_t parsed = 0;
    Timing t;
    t.Time([&] {
        for (int r = 0; r < repeat; ++r)
            for (const UCString& text : texts) {
                XmlDocument doc;
                CheckParse(doc, doc.ParseString(text));
                parsed += doc.RootElement() != nullptr;
            }
    });
    const double s = t.Best();
    std::printf("docs: %d documents of %.1f KB on average, %d passes, %zu parsed in %.3f s: %.1f MB/s\n", count,
                double(bytes) / count / 1000, repeat, parsed, s, Rate(bytes * repeat, s));
    return 0;
}

}  // namespace

int AllocCommand(int argc, char** argv) {
    int threads = 1, count = 2000, kb = 8, repeat = 5;
    long ops = 20000000;
    const std::string mode = argc > 1 ? argv[1] : "";
    ParseOptions(argc, argv, 2,
                 {Number("--threads", threads), Number("--ops", ops), Number("--count", count), Number("--kb", kb),
                  Number("--repeat", repeat)});
    if (mode != "mix" && mode != "docs")
        Usage("alloc");
    if (NewCounted())
        Fail("alloc: this build counts operator new in front of the allocator; run ozmbench_nocount alloc");
    return mode == "mix" ? Mix(threads, ops) : Docs(count, kb, repeat);
}

}  // namespace ozmbench

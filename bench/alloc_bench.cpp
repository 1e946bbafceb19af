// alloc_bench - the allocator under load: small malloc/free mixes on one and
// two threads, and the parsing of many small documents.
//
//   alloc_bench mix [--threads N] [--ops M]     M operations per thread
//   alloc_bench docs [--count N] [--kb K] [--repeat R]
//
// The program uses whatever malloc the process has: run it as it is for the
// C library's allocator, and with LD_PRELOAD=libozmxmlapi_malloc.so for the
// front, and compare the two whole-process times.
//
// mix: each thread keeps a window of 4096 blocks and, M times, frees a block
// at a random place of it and allocates a new one of 8 to 256 bytes there,
// writing its first and last byte. Threads work on their own windows, so on
// two threads the time stays that of one when the allocator scales.
//
// docs: N generated documents of about K kilobytes each (different seeds),
// decoded once; then R passes each parse every document into a new document
// object and destroys it.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "gendoc.h"
#include "xmlapi.h"

namespace {

double Seconds(std::chrono::steady_clock::time_point since) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
}

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
    auto start = std::chrono::steady_clock::now();
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back(MixThread, ops, 0x9E3779B97F4A7C15ull + t, &sums[t]);
    for (auto& th : pool)
        th.join();
    double s = Seconds(start);
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
        std::string utf8 = ozmbench::GenerateDocument(size_t(kb) * 1000, ozmbench::kDefaultSeed + uint64_t(i));
        bytes += utf8.size();
        OzmGlob::DecodeUTF8(reinterpret_cast<const unsigned char*>(utf8.data()), utf8.size(), texts[i]);
    }
    auto start = std::chrono::steady_clock::now();
    size_t elements = 0;
    for (int r = 0; r < repeat; ++r) {
        for (const UCString& text : texts) {
            XmlDocument doc;
            if (doc.ParseString(text) != errNone) {
                std::printf("PARSE FAILED\n");
                return 1;
            }
            elements += doc.RootElement() != nullptr;
        }
    }
    double s = Seconds(start);
    std::printf("docs: %d documents of %.1f KB on average, %d passes, %zu parsed in %.3f s: %.1f MB/s\n", count,
                double(bytes) / count / 1000, repeat, elements, s, double(bytes) * repeat / s / 1e6);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr,
                     "usage: alloc_bench mix [--threads N] [--ops M]\n"
                     "       alloc_bench docs [--count N] [--kb K] [--repeat R]\n");
        return 2;
    }
    std::string mode = argv[1];
    int threads = 1, count = 2000, kb = 8, repeat = 5;
    long ops = 20000000;
    for (int i = 2; i + 1 < argc; i += 2) {
        std::string a = argv[i];
        long v = std::atol(argv[i + 1]);
        if (v <= 0) {
            std::fprintf(stderr, "alloc_bench: %s needs a positive number\n", a.c_str());
            return 2;
        }
        if (a == "--threads")
            threads = int(v);
        else if (a == "--ops")
            ops = v;
        else if (a == "--count")
            count = int(v);
        else if (a == "--kb")
            kb = int(v);
        else if (a == "--repeat")
            repeat = int(v);
        else {
            std::fprintf(stderr, "alloc_bench: unknown option %s\n", a.c_str());
            return 2;
        }
    }
    if (mode == "mix")
        return Mix(threads, ops);
    if (mode == "docs")
        return Docs(count, kb, repeat);
    std::fprintf(stderr, "alloc_bench: unknown mode %s\n", mode.c_str());
    return 2;
}

// front_stress_test.cpp - several threads allocate, hand blocks to each other
// and free what others allocated, for a few seconds, checking that no block
// is handed out twice or changed while it is in use. Built against the front
// without its standard names too, to run under ThreadSanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <thread>
#include <vector>

#include "shell/ozmfront.h"

namespace {

struct Exchange {
    std::mutex lock;
    std::vector<void*> blocks;
};

// A block carries its size and a filler byte, so the taker can check it.
void* Make(uint64_t& rng, unsigned tag) {
    rng = rng * 6364136223846793005ull + 1442695040888963407ull;
    size_t size = 16 + (rng >> 33) % ((rng >> 60) == 0 ? 200000 : 600);
    auto* p = static_cast<unsigned char*>((rng >> 40) % 8 == 0 ? OzmFrontAligned(64, size) : OzmFrontMalloc(size));
    if (!p)
        return nullptr;
    std::memcpy(p, &size, sizeof size);
    std::memset(p + sizeof size, int(tag & 0xFF), size - sizeof size);
    return p;
}

bool Intact(void* block) {
    auto* p = static_cast<unsigned char*>(block);
    size_t size;
    std::memcpy(&size, p, sizeof size);
    if (size < 16 || OzmFrontMsize(p) < size)
        return false;
    for (size_t i = sizeof size + 1; i < size; ++i)
        if (p[i] != p[sizeof size])
            return false;
    return true;
}

TEST(FrontStress, BlocksFreedByOtherThreads) {
    constexpr int kThreads = 4;
    Exchange exchange[kThreads];
    std::atomic<bool> stop{false};
    std::atomic<long> bad{0}, moved{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            uint64_t rng = 0x9E3779B97F4A7C15ull * (t + 1);
            std::vector<void*> own;
            unsigned tag = unsigned(t) * 64;
            while (!stop.load(std::memory_order_relaxed)) {
                for (int i = 0; i < 64; ++i)
                    if (void* p = Make(rng, ++tag))
                        own.push_back(p);
                // Half goes to the next thread; blocks from the previous one
                // are checked and freed here, and some of our own are freed.
                {
                    std::lock_guard<std::mutex> g(exchange[(t + 1) % kThreads].lock);
                    auto& out = exchange[(t + 1) % kThreads].blocks;
                    out.insert(out.end(), own.begin() + own.size() / 2, own.end());
                }
                moved += long(own.size() - own.size() / 2);
                own.resize(own.size() / 2);
                std::vector<void*> in;
                {
                    std::lock_guard<std::mutex> g(exchange[t].lock);
                    in.swap(exchange[t].blocks);
                }
                for (void* p : in) {
                    bad += !Intact(p);
                    OzmFrontFree(p);
                }
                while (own.size() > 256) {
                    bad += !Intact(own.back());
                    OzmFrontFree(own.back());
                    own.pop_back();
                }
                if (!own.empty()) {
                    size_t size = 300;
                    if (auto* q = static_cast<unsigned char*>(OzmFrontRealloc(own.back(), size))) {
                        std::memcpy(q, &size, sizeof size);
                        std::memset(q + sizeof size, int(++tag & 0xFF), size - sizeof size);
                        own.back() = q;
                    }
                }
            }
            for (void* p : own)
                OzmFrontFree(p);
        });
    }
    std::this_thread::sleep_for(std::chrono::seconds(3));
    stop = true;
    for (auto& th : threads)
        th.join();
    for (auto& e : exchange)
        for (void* p : e.blocks) {
            bad += !Intact(p);
            OzmFrontFree(p);
        }
    EXPECT_EQ(bad.load(), 0);
    EXPECT_GT(moved.load(), 10000);
}

}  // namespace

// The replaced operator new of the test program (see test_alloc.h).
#include "test_alloc.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<long> g_failIn{0};
std::atomic<uint64_t> g_count{0};
std::atomic<size_t> g_live{0};
std::atomic<size_t> g_peak{0};

void* Allocate(size_t n) noexcept {
    g_count.fetch_add(1, std::memory_order_relaxed);
    long left = g_failIn.load(std::memory_order_relaxed);
    if (left > 0 && g_failIn.fetch_sub(1) == 1)
        return nullptr;
    void* p = std::malloc(n ? n : 1);
    if (p) {
        const size_t live = g_live.fetch_add(malloc_usable_size(p)) + malloc_usable_size(p);
        size_t peak = g_peak.load(std::memory_order_relaxed);
        while (live > peak && !g_peak.compare_exchange_weak(peak, live))
            ;
    }
    return p;
}

void Free(void* p) noexcept {
    if (p) {
        g_live.fetch_sub(malloc_usable_size(p));
        std::free(p);
    }
}
}  // namespace

void TestAlloc::FailAt(long n) { g_failIn = n; }
bool TestAlloc::Armed() { return g_failIn > 0; }
uint64_t TestAlloc::Count() { return g_count; }
void TestAlloc::ResetPeak() { g_peak = g_live.load(); }
size_t TestAlloc::PeakBytes() { return g_peak; }
size_t TestAlloc::HeldBytes() { return g_live; }

void* operator new(size_t n) {
    if (void* p = Allocate(n))
        return p;
    throw std::bad_alloc();
}
void* operator new[](size_t n) { return operator new(n); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return Allocate(n); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return Allocate(n); }
void operator delete(void* p) noexcept { Free(p); }
void operator delete[](void* p) noexcept { Free(p); }
void operator delete(void* p, size_t) noexcept { Free(p); }
void operator delete[](void* p, size_t) noexcept { Free(p); }

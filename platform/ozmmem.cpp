// Allocation front with fault injection for tests of out-of-memory paths.
#include "platform/ozmmem.h"

#include <atomic>
#include <cstdlib>

namespace {
std::atomic<long> g_allowed{-1};
}

void* OzmMemAlloc(size_t size) {
    long left = g_allowed.load(std::memory_order_relaxed);
    while (left > 0 && !g_allowed.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
    }
    if (left == 0)
        return nullptr;
    return std::malloc(size == 0 ? 1 : size);
}

// A block the library takes from its own cache instead of OzmMemAlloc
// passes the same switch (tree/xmlblockcache.cpp).
bool OzmMemMayAllocate() {
    long left = g_allowed.load(std::memory_order_relaxed);
    while (left > 0 && !g_allowed.compare_exchange_weak(left, left - 1, std::memory_order_relaxed)) {
    }
    return left != 0;
}

void OzmMemFree(void* p) { std::free(p); }

void OzmMemFailAfter(long count) { g_allowed.store(count < 0 ? -1 : count, std::memory_order_relaxed); }

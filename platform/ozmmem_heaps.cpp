// ozmmem_heaps.cpp - the multi-heap allocator: size classes, heaps that cut
// blocks out of their own regions, large blocks as single mappings, thread
// numbers and the spin lock. Built into the static library ozmmem, never
// into ozmxmlapi: it is what serves malloc when the front is in use, so it
// must not call malloc itself.
#include "ozmmem.h"

#include <cerrno>
#include <new>

#include <sched.h>
#include <sys/mman.h>

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#define OZM_PAUSE() _mm_pause()
#else
#define OZM_PAUSE() ((void)0)
#endif

OzmMemAllocator* g_ozmMemAllocator = nullptr;

namespace {

constexpr size_t kPage = 4096;
constexpr size_t kRegionBytes = size_t(4) << 20;    // what a heap maps at a time
constexpr size_t kCutBytes = size_t(64) << 10;      // what a bin takes of it at a time
constexpr size_t kCacheLimit = size_t(64) << 20;    // freed large mappings kept at most

// The owner of a large block: the first bytes of its own mapping.
struct MappedOwner {
    OzmMemOwner m_owner;
    size_t m_length;
};
constexpr size_t kMappedLead = 32;  // owner, then the block header
static_assert(sizeof(MappedOwner) + sizeof(OzmMemBlockHeader) <= kMappedLead, "lead of a mapping");

constexpr uint32_t UsableOf(int c) {
    if (c < 8)
        return uint32_t(16 * (c + 1));
    int b = 7 + (c - 8) / 4;
    int q = (c - 8) % 4;
    return uint32_t((uint64_t(1) << b) + uint64_t(q + 1) * (uint64_t(1) << (b - 2)));
}

struct SizeTable {
    uint32_t v[kOzmMemClasses];
    constexpr SizeTable() : v() {
        for (int c = 0; c < kOzmMemClasses; ++c)
            v[c] = UsableOf(c);
    }
};
constexpr SizeTable kSizes;
static_assert(kSizes.v[kOzmMemClasses - 1] == kOzmMemLargest, "largest class");
static_assert(kSizes.v[kOzmMemFirstMapped - 1] == (1u << 20), "last carved class");

void* MapPages(size_t bytes) {
    void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) {
        errno = ENOMEM;
        return nullptr;
    }
    return p;
}

std::atomic<int> g_nextThreadNumber{0};
// Initial-exec: the number is read on every allocation, without a call into
// the dynamic loader. The library is linked or preloaded, never opened late.
__thread int t_threadNumber __attribute__((tls_model("initial-exec"))) = -1;

}  // namespace

const uint32_t g_ozmMemUsableSizes[kOzmMemClasses] = {
#define OZM_ROW(c) kSizes.v[c], kSizes.v[c + 1], kSizes.v[c + 2], kSizes.v[c + 3]
    OZM_ROW(0),  OZM_ROW(4),  OZM_ROW(8),  OZM_ROW(12), OZM_ROW(16), OZM_ROW(20), OZM_ROW(24),
    OZM_ROW(28), OZM_ROW(32), OZM_ROW(36), OZM_ROW(40), OZM_ROW(44), OZM_ROW(48), OZM_ROW(52),
    OZM_ROW(56), OZM_ROW(60), OZM_ROW(64), OZM_ROW(68), OZM_ROW(72), OZM_ROW(76), OZM_ROW(80),
    OZM_ROW(84), OZM_ROW(88), OZM_ROW(92), OZM_ROW(96), OZM_ROW(100), kSizes.v[104], kSizes.v[105],
    kSizes.v[106]
#undef OZM_ROW
};

int OzmMemSizeClass(size_t size) {
    if (size <= 128)
        return size == 0 ? 0 : int((size - 1) >> 4);
    if (size > kOzmMemLargest)
        return kOzmMemClasses;
    size_t n = size - 1;
    int b = 63 - __builtin_clzll(n);
    return 8 + (b - 7) * 4 + int((n >> (b - 2)) & 3);
}

int OzmMemHeapCount() {
    cpu_set_t set;
    CPU_ZERO(&set);
    int n = sched_getaffinity(0, sizeof(set), &set) == 0 ? CPU_COUNT(&set) : 1;
    return n < 1 ? 1 : n > 64 ? 64 : n;
}

int OzmMemThreadNumber() {
    int n = t_threadNumber;
    if (__builtin_expect(n < 0, 0)) {
        n = g_nextThreadNumber.fetch_add(1, std::memory_order_relaxed) & 0x7FFFFFFF;
        t_threadNumber = n;
    }
    return n;
}

void OzmMemLockTake(OzmMemLock* lock) {
    if (lock->m_state.exchange(1, std::memory_order_acquire) == 0)
        return;
    for (unsigned spins = 0;; ++spins) {
        if (lock->m_state.load(std::memory_order_relaxed) == 0 &&
            lock->m_state.exchange(1, std::memory_order_acquire) == 0)
            return;
        if (spins < 64)
            OZM_PAUSE();
        else
            sched_yield();
    }
}

void OzmMemLockPrepare(OzmMemLock* lock) { lock->m_state.store(0, std::memory_order_release); }

void OzmMemLockGive(OzmMemLock* lock) { lock->m_state.store(0, std::memory_order_release); }

void* OzmMemStorage(size_t size) { return MapPages((size + kPage - 1) & ~(kPage - 1)); }

// ---------------------------------------------------------------------------
// Heaps

void* OzmMemHeap::Alloc(size_t size) {
    int c = OzmMemSizeClass(size);
    if (c >= kOzmMemFirstMapped) {
        if (c == kOzmMemClasses) {
            errno = ENOMEM;
            return nullptr;
        }
        return g_ozmMemAllocator->AllocMapped(c);
    }
    OzmMemBin& bin = m_bins[c];
    OzmMemLockTake(&m_lock);
    void* p = bin.m_free;
    if (p) {
        bin.m_free = *static_cast<void**>(p);
    } else if (bin.m_next != bin.m_end) {
        auto* h = reinterpret_cast<OzmMemBlockHeader*>(bin.m_next);
        h->m_offset = 0;
        h->m_owner = &bin.m_owner;
        p = h + 1;
        bin.m_next += sizeof(OzmMemBlockHeader) + kSizes.v[c];
    } else {
        p = Cut(bin);
    }
    OzmMemLockGive(&m_lock);
    return p;
}

// Gives the bin a new piece of the heap's region, mapping a new region when
// the current one is short, and returns the first block of the piece. Called
// with the heap's lock held.
void* OzmMemHeap::Cut(OzmMemBin& bin) {
    size_t stride = sizeof(OzmMemBlockHeader) + kSizes.v[bin.m_owner.m_sizeClass];
    size_t count = stride >= kCutBytes ? 1 : kCutBytes / stride;
    size_t bytes = stride * count;
    if (size_t(m_regionEnd - m_region) < bytes) {
        size_t regionBytes = bytes > kRegionBytes ? (bytes + kPage - 1) & ~(kPage - 1) : kRegionBytes;
        char* region = static_cast<char*>(MapPages(regionBytes));
        if (!region)
            return nullptr;
        m_region = region;
        m_regionEnd = region + regionBytes;
    }
    bin.m_next = m_region;
    bin.m_end = m_region + bytes;
    m_region += bytes;
    auto* h = reinterpret_cast<OzmMemBlockHeader*>(bin.m_next);
    h->m_offset = 0;
    h->m_owner = &bin.m_owner;
    bin.m_next += stride;
    return h + 1;
}

// ---------------------------------------------------------------------------
// The allocator object

OzmMemAllocator* OzmMemAllocator::Make(void* storage) {
    if (!storage)
        return nullptr;
    auto* a = new (storage) OzmMemAllocator;
    for (OzmMemHeap& heap : a->m_heaps) {
        for (int c = 0; c < kOzmMemFirstMapped; ++c) {
            OzmMemBin& bin = heap.m_bins[c];
            bin.m_owner.m_sizeClass = uint32_t(c);
            bin.m_heap = &heap;
            bin.m_free = nullptr;
            bin.m_next = bin.m_end = nullptr;
        }
    }
    g_ozmMemAllocator = a;
    return a;
}

void OzmMemAllocator::Free(void* p) {
    if (!p)
        return;
    OzmMemBlockHeader* h = OzmMemHeaderOf(p);
    if (h->m_offset) {
        p = static_cast<char*>(p) - h->m_offset;
        h = OzmMemHeaderOf(p);
    }
    OzmMemOwner* owner = h->m_owner;
    if (owner->m_sizeClass >= uint32_t(kOzmMemFirstMapped)) {
        FreeMapped(owner);
        return;
    }
    auto* bin = reinterpret_cast<OzmMemBin*>(owner);
    OzmMemHeap* heap = bin->m_heap;
    OzmMemLockTake(&heap->m_lock);
    *static_cast<void**>(p) = bin->m_free;
    bin->m_free = p;
    OzmMemLockGive(&heap->m_lock);
}

void* OzmMemAllocator::AllocMapped(int sizeClass) {
    OzmMemLockTake(&m_mapLock);
    for (void*& slot : m_cache) {
        auto* m = static_cast<MappedOwner*>(slot);
        if (m && m->m_owner.m_sizeClass == uint32_t(sizeClass)) {
            slot = nullptr;
            m_cacheBytes -= m->m_length;
            OzmMemLockGive(&m_mapLock);
            return reinterpret_cast<char*>(m) + kMappedLead;
        }
    }
    OzmMemLockGive(&m_mapLock);
    size_t length = (kMappedLead + kSizes.v[sizeClass] + kPage - 1) & ~(kPage - 1);
    auto* m = static_cast<MappedOwner*>(MapPages(length));
    if (!m)
        return nullptr;
    m->m_owner.m_sizeClass = uint32_t(sizeClass);
    m->m_length = length;
    char* p = reinterpret_cast<char*>(m) + kMappedLead;
    OzmMemHeaderOf(p)->m_offset = 0;
    OzmMemHeaderOf(p)->m_owner = &m->m_owner;
    return p;
}

void OzmMemAllocator::FreeMapped(OzmMemOwner* owner) {
    auto* m = reinterpret_cast<MappedOwner*>(owner);
    OzmMemLockTake(&m_mapLock);
    if (m_caching && m_cacheBytes + m->m_length <= kCacheLimit) {
        for (void*& slot : m_cache) {
            if (!slot) {
                slot = m;
                m_cacheBytes += m->m_length;
                OzmMemLockGive(&m_mapLock);
                return;
            }
        }
    }
    OzmMemLockGive(&m_mapLock);
    munmap(m, m->m_length);
}

void OzmMemAllocator::Finish() {
    OzmMemLockTake(&m_mapLock);
    m_caching = false;
    for (void*& slot : m_cache) {
        if (slot)
            munmap(slot, static_cast<MappedOwner*>(slot)->m_length);
        slot = nullptr;
    }
    m_cacheBytes = 0;
    OzmMemLockGive(&m_mapLock);
}

void OzmMemAllocator::Block() {
    OzmMemLockTake(&m_mapLock);
    for (OzmMemHeap& heap : m_heaps)
        OzmMemLockTake(&heap.m_lock);
}

void OzmMemAllocator::Unblock() {
    for (OzmMemHeap& heap : m_heaps)
        OzmMemLockGive(&heap.m_lock);
    OzmMemLockGive(&m_mapLock);
}

// ozmmem_heaps.cpp - the multi-heap allocator: size classes, heaps that cut
// blocks out of their own regions, the threads' caches of small blocks, large
// blocks as single mappings, thread numbers and the spin lock. Built into the static library ozmmem, never
// into ozmxmlapi: it is what serves malloc when the front is in use, so it
// must not call malloc itself.
#include "platform/ozmmem.h"
#include "platform/units/ozmunits.h"

#include <cerrno>
#include <new>

#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>


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

// ---------------------------------------------------------------------------
// The threads' caches. A thread keeps, per cached size class, a list of free
// blocks linked through their first word with the room left in it, and at
// most one spare list, full. Frees push onto the list and allocations pop from
// it. A full list becomes the spare, and the spare it replaces goes to a bin
// whole; an empty list takes the spare, or a whole list from the bin, or new
// blocks. So blocks move between a thread and the bins a list at a time, and
// moving a list costs the same whatever its length.
//
// A thread starts with no room, so its first free of a class goes the slow
// way, which registers the thread's exit handler and gives it room; a thread
// that is ending, or whose handler could not be registered, has no room and
// uses the locked bins. A cached block keeps its header and owner. The lists
// may mix blocks of several heaps (a thread frees what others allocated): a
// whole list goes to the bin of the heap that owns its first block, and later
// single frees of its blocks go back to their own heaps.

// Blocks in a list: about 8 KB of each class, at least 2 and at most 64.
constexpr uint8_t BatchOf(int c) {
    uint32_t n = (8u << 10) / UsableOf(c);
    return uint8_t(n < 2 ? 2 : n > 64 ? 64 : n);
}

struct Batches {
    uint8_t v[kOzmMemCachedClasses];
    constexpr Batches() : v() {
        for (int c = 0; c < kOzmMemCachedClasses; ++c)
            v[c] = BatchOf(c);
    }
};
constexpr Batches kBatch;
static_assert(kOzmMemCachedClasses <= kOzmMemFirstMapped, "cached classes are carved");

enum CacheState : int { kCacheUnset, kCacheStarting, kCacheOn, kCacheOff };

struct ThreadCache {
    void* m_head[kOzmMemCachedClasses];
    uint8_t m_room[kOzmMemCachedClasses];
    int m_state;
    void* m_spare[kOzmMemCachedClasses];
};
__thread ThreadCache t_cache __attribute__((tls_model("initial-exec")));

pthread_key_t g_cacheKey;
bool g_cacheKeyMade = false;

void EndThreadCache(void*) { OzmMemFlushThreadCache(); }

// Registers the exit handler of the calling thread and gives its cache room.
// Registration may allocate (the C library keeps a thread's later keys in
// a block of its own); until it is done the thread uses the locked bins.
void StartThreadCache(ThreadCache& tc) {
    tc.m_state = kCacheStarting;
    if (!g_cacheKeyMade || pthread_setspecific(g_cacheKey, &tc) != 0) {
        tc.m_state = kCacheOff;
        return;
    }
    for (int c = 0; c < kOzmMemCachedClasses; ++c)
        tc.m_room[c] = kBatch.v[c];
    tc.m_state = kCacheOn;
}

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
    if (size > kOzmMemLargestRequest)
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
            OzmSpinPause();
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
    if (c < kOzmMemCachedClasses) {
        ThreadCache& tc = t_cache;
        void* p = tc.m_head[c];
        if (__builtin_expect(p != nullptr, 1)) {
            void* next = *static_cast<void**>(p);
            // A block that has been free for a while is out of the cache, and
            // the next allocation's first act is to read it: start fetching
            // it now, while the caller works with this block.
            __builtin_prefetch(next, 1);
            tc.m_head[c] = next;
            ++tc.m_room[c];
            return p;
        }
        return Refill(c);
    }
    return AllocLarger(c);
}

// Classes no thread caches, apart so that the path of the cached ones saves
// no registers.
__attribute__((noinline)) void* OzmMemHeap::AllocLarger(int c) {
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

// The calling thread's list of class c is empty: it takes the spare list, or
// a whole list from this heap's bin, or up to a list's worth of blocks from
// the bin, under one lock, and returns one (just the one when the thread
// keeps no cache).
__attribute__((noinline)) void* OzmMemHeap::Refill(int c) {
    ThreadCache& tc = t_cache;
    if (tc.m_state == kCacheUnset)
        StartThreadCache(tc);
    bool caching = tc.m_state == kCacheOn;
    if (caching && tc.m_spare[c]) {
        void* p = tc.m_spare[c];
        tc.m_spare[c] = nullptr;
        tc.m_head[c] = *static_cast<void**>(p);
        tc.m_room[c] = 1;
        return p;
    }
    OzmMemBin& bin = m_bins[c];
    OzmMemLockTake(&m_lock);
    if (void* list = bin.m_batches) {
        bin.m_batches = static_cast<void**>(list)[1];
        void* rest = *static_cast<void**>(list);
        if (caching) {
            OzmMemLockGive(&m_lock);
            tc.m_head[c] = rest;
            tc.m_room[c] = 1;
            return list;
        }
        // No cache to take the rest: it joins the single blocks.
        if (rest) {
            void* last = rest;
            while (*static_cast<void**>(last))
                last = *static_cast<void**>(last);
            *static_cast<void**>(last) = bin.m_free;
            bin.m_free = rest;
        }
        OzmMemLockGive(&m_lock);
        return list;
    }
    int want = caching ? kBatch.v[c] : 1;
    size_t stride = sizeof(OzmMemBlockHeader) + kSizes.v[c];
    // The blocks are linked in the order they are taken, so that new blocks
    // are handed out at rising addresses.
    void* first = nullptr;
    void** link = &first;
    int got = 0;
    while (got < want) {
        void* p = bin.m_free;
        if (p) {
            bin.m_free = *static_cast<void**>(p);
        } else if (bin.m_next != bin.m_end) {
            auto* h = reinterpret_cast<OzmMemBlockHeader*>(bin.m_next);
            h->m_offset = 0;
            h->m_owner = &bin.m_owner;
            p = h + 1;
            bin.m_next += stride;
        } else if (got == 0) {
            p = Cut(bin);
            if (!p)
                break;
        } else {
            break;
        }
        *link = p;
        link = static_cast<void**>(p);
        ++got;
    }
    *link = nullptr;
    OzmMemLockGive(&m_lock);
    if (got > 1) {
        tc.m_head[c] = *static_cast<void**>(first);
        tc.m_room[c] = uint8_t(want - (got - 1));
    }
    return first;
}

// Gives the blocks of a list back to the bins that own them, one by one,
// each heap's lock taken once for a run of blocks of that heap.
void OzmMemHeap::GiveBack(void* list) {
    OzmMemHeap* held = nullptr;
    while (list) {
        void* p = list;
        list = *static_cast<void**>(p);
        auto* bin = reinterpret_cast<OzmMemBin*>(OzmMemHeaderOf(p)->m_owner);
        if (bin->m_heap != held) {
            if (held)
                OzmMemLockGive(&held->m_lock);
            held = bin->m_heap;
            OzmMemLockTake(&held->m_lock);
        }
        *static_cast<void**>(p) = bin->m_free;
        bin->m_free = p;
    }
    if (held)
        OzmMemLockGive(&held->m_lock);
}

// Gives a full list to the bin that owns its first block, whole.
void OzmMemHeap::GiveList(void* list) {
    auto* bin = reinterpret_cast<OzmMemBin*>(OzmMemHeaderOf(list)->m_owner);
    OzmMemLockTake(&bin->m_heap->m_lock);
    static_cast<void**>(list)[1] = bin->m_batches;
    bin->m_batches = list;
    OzmMemLockGive(&bin->m_heap->m_lock);
}

void OzmMemFlushThreadCache() {
    ThreadCache& tc = t_cache;
    bool cached = tc.m_state == kCacheOn;
    tc.m_state = kCacheOff;
    for (int c = 0; cached && c < kOzmMemCachedClasses; ++c) {
        if (tc.m_spare[c])
            OzmMemHeap::GiveList(tc.m_spare[c]);
        if (tc.m_room[c] == 0)
            OzmMemHeap::GiveList(tc.m_head[c]);
        else
            OzmMemHeap::GiveBack(tc.m_head[c]);
        tc.m_spare[c] = nullptr;
        tc.m_head[c] = nullptr;
        tc.m_room[c] = 0;
    }
}

int OzmMemCachedBlocks() {
    const ThreadCache& tc = t_cache;
    int n = 0;
    for (int c = 0; c < kOzmMemCachedClasses; ++c) {
        for (void* p = tc.m_head[c]; p; p = *static_cast<void**>(p))
            ++n;
        for (void* p = tc.m_spare[c]; p; p = *static_cast<void**>(p))
            ++n;
    }
    return n;
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
    // Creating a key takes no memory; if there is none to be had, threads
    // keep no cache.
    g_cacheKeyMade = pthread_key_create(&g_cacheKey, EndThreadCache) == 0;
    for (OzmMemHeap& heap : a->m_heaps) {
        for (int c = 0; c < kOzmMemFirstMapped; ++c) {
            OzmMemBin& bin = heap.m_bins[c];
            bin.m_owner.m_sizeClass = uint32_t(c);
            bin.m_heap = &heap;
            bin.m_free = nullptr;
            bin.m_batches = nullptr;
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
    uint32_t c = owner->m_sizeClass;
    if (c < uint32_t(kOzmMemCachedClasses)) {
        ThreadCache& tc = t_cache;
        if (__builtin_expect(tc.m_room[c] != 0, 1)) {
            *static_cast<void**>(p) = tc.m_head[c];
            tc.m_head[c] = p;
            --tc.m_room[c];
            return;
        }
        FreeUncached(p, int(c));
        return;
    }
    FreeLarger(p, owner);
}

__attribute__((noinline)) void OzmMemAllocator::FreeLarger(void* p, OzmMemOwner* owner) {
    if (owner->m_sizeClass >= uint32_t(kOzmMemFirstMapped)) {
        FreeMapped(owner);
        return;
    }
    *static_cast<void**>(p) = nullptr;
    OzmMemHeap::GiveBack(p);
}

// A block of a cached class when the thread's list has no room: the list is
// full, and becomes the spare (the spare it replaces goes to a bin); or the
// thread has no cache yet, and gets one; or it keeps none, and the block goes
// straight to its bin.
__attribute__((noinline)) void OzmMemAllocator::FreeUncached(void* p, int c) {
    ThreadCache& tc = t_cache;
    if (tc.m_state == kCacheUnset)
        StartThreadCache(tc);
    if (tc.m_state != kCacheOn) {
        *static_cast<void**>(p) = nullptr;
        OzmMemHeap::GiveBack(p);
        return;
    }
    if (tc.m_room[c] == 0) {
        if (tc.m_spare[c])
            OzmMemHeap::GiveList(tc.m_spare[c]);
        tc.m_spare[c] = tc.m_head[c];
        tc.m_head[c] = nullptr;
        tc.m_room[c] = kBatch.v[c];
    }
    *static_cast<void**>(p) = tc.m_head[c];
    tc.m_head[c] = p;
    --tc.m_room[c];
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
    OzmMemFlushThreadCache();
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

// ozmmem.h - the memory library.
//
// Two things stand here. First, the allocator the library takes large blocks
// from, with a switch that makes allocations fail on purpose, so that callers
// can test their out-of-memory paths (OzmMemAlloc and its friends, part of
// ozmxmlapi). Second, the multi-heap allocator that the allocation front of
// ozmxmlapi_malloc is built on (static library ozmmem): a set of heaps, one of
// which serves each allocation by the calling thread's number, blocks with a
// two-word header that names their owner, and one free operation that takes
// a block back from any thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "ozmutil.h"

// Returns null when the memory cannot be had (never throws).
OZM_API void* OzmMemAlloc(size_t size);
OZM_API void OzmMemFree(void* p);
// After count further successful allocations, every allocation fails until
// the next call; a negative count turns failures off.
OZM_API void OzmMemFailAfter(long count);

// ---------------------------------------------------------------------------
// The multi-heap allocator. Nothing in it allocates through malloc: all of
// its memory comes from the system's page mappings.

// Number of heaps in an allocator object. The front takes a heap index from
// the thread number and a mask, so a heap count of at most 64 keeps every
// index inside the table.
constexpr int kOzmMemHeaps = 128;

// Size classes: usable sizes 16 to 128 by 16, then four classes between each
// power of two and the next, up to 3.5 GB (the largest a 32-bit entry of the
// size table holds). Classes below kOzmMemFirstMapped are carved out of the
// heaps' own regions; the classes from there on are single system mappings.
constexpr int kOzmMemClasses = 107;
constexpr int kOzmMemFirstMapped = 60;  // usable sizes above 1 MB
constexpr size_t kOzmMemLargest = 0xE0000000u;
// The largest request served: the largest class, and no more than a pointer
// difference spans (2 GB with 32-bit words), as the C library's malloc.
constexpr size_t kOzmMemLargestRequest = kOzmMemLargest < size_t(PTRDIFF_MAX) ? kOzmMemLargest : size_t(PTRDIFF_MAX);

// Classes below kOzmMemCachedClasses (usable sizes up to 8 KB) are also kept
// in a cache of each thread: a thread's frees push onto its own lists and its
// allocations pop from them, without a lock; blocks move between a thread
// and the heaps' locked bins a whole list at a time.
constexpr int kOzmMemCachedClasses = 32;

// The owner of a block. Its first word is the block's size class.
struct OzmMemOwner {
    uint32_t m_sizeClass;
};

// The two words in front of every block. m_offset is 0 for a block as a heap
// hands it out; a block placed at a stricter alignment inside a larger one
// carries its distance from the start of that one. With 32-bit words the
// header is padded to 16 bytes all the same, the alignment malloc gives.
struct alignas(16) OzmMemBlockHeader {
    uintptr_t m_offset;
    OzmMemOwner* m_owner;
};
static_assert(sizeof(OzmMemBlockHeader) == 16, "blocks stay 16-byte aligned");

inline OzmMemBlockHeader* OzmMemHeaderOf(void* p) { return static_cast<OzmMemBlockHeader*>(p) - 1; }

// The usable size of each size class, in bytes.
extern OZM_API const uint32_t g_ozmMemUsableSizes[kOzmMemClasses];

// The size class that serves a request; kOzmMemClasses when none does.
int OzmMemSizeClass(size_t size);

// A lock that is free when zero, so that one in static storage can be taken
// before anything has prepared it.
struct OzmMemLock {
    std::atomic<int> m_state{0};
};

// The count the front derives its heap mask from: the number of processors,
// at least 1 and at most 64.
OZM_API int OzmMemHeapCount();
// A number for the calling thread, given out in the order in which threads
// first ask for one.
OZM_API int OzmMemThreadNumber();
void OzmMemLockTake(OzmMemLock* lock);
void OzmMemLockPrepare(OzmMemLock* lock);
void OzmMemLockGive(OzmMemLock* lock);
// Zeroed storage of size bytes for an allocator object, or null.
void* OzmMemStorage(size_t size);

class OzmMemHeap;

// Gives every block the calling thread keeps in its cache back to the bin
// that owns it, and keeps none from then on (the thread's later frees and
// allocations take the heaps' locked path). Runs by itself when a thread
// ends, and from the allocator's last call for the thread making it.
OZM_API void OzmMemFlushThreadCache();
// The number of blocks the calling thread keeps in its cache.
OZM_API int OzmMemCachedBlocks();

// The blocks of one size class in one heap: blocks given back, and the rest
// of the piece of region that new blocks are cut from. A bin is the owner of
// its blocks, so its first member is the size class.
struct OzmMemBin {
    OzmMemOwner m_owner;
    OzmMemHeap* m_heap;
    void* m_free;    // blocks given back, linked through their first word
    void* m_batches; // full lists given back whole by the threads' caches,
                     // linked through the second word of their first block
    char* m_next;    // header of the next new block
    char* m_end;
};

// One heap: a lock, a region it cuts blocks out of, and a bin per size class
// below kOzmMemFirstMapped. Heaps sit on their own cache lines, so that
// threads working on different heaps do not disturb each other.
class alignas(64) OzmMemHeap {
public:
    // A heap owns its lock, regions and free lists: it lives in its
    // allocator and is never copied.
    OzmMemHeap() = default;
    OzmMemHeap(const OzmMemHeap&) = delete;
    OzmMemHeap& operator=(const OzmMemHeap&) = delete;

    // A block of at least size usable bytes, or null (errno ENOMEM) when the
    // request is too large or the system has no more memory.
    OZM_API void* Alloc(size_t size);

private:
    friend class OzmMemAllocator;
    friend void OzmMemFlushThreadCache();
    void* Cut(OzmMemBin& bin);
    void* Refill(int sizeClass);
    void* AllocLarger(int sizeClass);
    static void GiveBack(void* list);
    static void GiveList(void* list);

    OzmMemLock m_lock;
    char* m_region = nullptr;
    char* m_regionEnd = nullptr;
    OzmMemBin m_bins[kOzmMemFirstMapped];
};

// The allocator object: some members of its own, then the table of heaps.
class OzmMemAllocator {
public:
    OzmMemAllocator(const OzmMemAllocator&) = delete;
    OzmMemAllocator& operator=(const OzmMemAllocator&) = delete;

    // Builds the allocator in storage from OzmMemStorage(sizeof(OzmMemAllocator)).
    static OzmMemAllocator* Make(void* storage);
    // Takes back a block of any heap, from any thread; null is ignored.
    void Free(void* p);
    // The last call, when the process lets go of the allocator: gives the
    // calling thread's cached blocks back to their bins, returns the cached
    // large mappings to the system and keeps no more of them. The
    // allocator still serves and frees blocks afterwards, since other
    // libraries' clean-up may run later.
    void Finish();
    // Takes every lock, so that a fork sees no heap in the middle of a
    // change; Unblock gives them back.
    void Block();
    void Unblock();

    OzmMemHeap& Heap(unsigned index) { return m_heaps[index]; }

private:
    OzmMemAllocator() = default;
    void* AllocMapped(int sizeClass);
    void FreeMapped(OzmMemOwner* owner);
    static void FreeUncached(void* p, int sizeClass);
    void FreeLarger(void* p, OzmMemOwner* owner);
    friend class OzmMemHeap;

    OzmMemLock m_mapLock;                  // guards the cache of mappings
    static constexpr int kCacheSlots = 8;
    void* m_cache[kCacheSlots] = {};       // freed large mappings kept for reuse
    size_t m_cacheBytes = 0;
    bool m_caching = true;
    OzmMemHeap m_heaps[kOzmMemHeaps];
};

// The allocator every heap hands its large requests to; set by Make.
extern OZM_API OzmMemAllocator* g_ozmMemAllocator;

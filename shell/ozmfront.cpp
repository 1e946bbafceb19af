// ozmfront.cpp - the allocation front: malloc and its family, and operator
// new and delete in all their forms, served by the heaps of ozmmem.
//
// The allocator object is made at the first allocation of any thread, under
// the one lock of the front. After that an allocation costs a test, the
// thread number and a mask on top of the heap's own work; the heap's lock is
// the heap's business, and threads on different heaps never share one.
#include "shell/ozmfront.h"

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>

#include <malloc.h>
#include <pthread.h>

#include "platform/ozmmem.h"

namespace {

OzmMemAllocator* g_allocator = nullptr;
std::atomic<int> g_allocatorReady{0};
OzmMemLock g_allocatorLock;
std::atomic<int> g_heapCount{0};
std::atomic<unsigned> g_heapMask{0};

// The first-use path: makes the allocator, and with it works out the heap
// mask, so that the path every later allocation takes tests one flag.
__attribute__((noinline)) OzmMemAllocator* MakeAllocator() {
    OzmMemLockTake(&g_allocatorLock);
    if (!g_allocatorReady.load(std::memory_order_acquire)) {
        int count = OzmMemHeapCount();
        g_heapCount.store(count, std::memory_order_relaxed);
        g_heapMask.store(OzmHeapMaskFor(count), std::memory_order_relaxed);
        g_allocator = OzmMemAllocator::Make(OzmMemStorage(sizeof(OzmMemAllocator)));
        if (g_allocator)
            g_allocatorReady.store(1, std::memory_order_release);
    }
    OzmMemLockGive(&g_allocatorLock);
    return g_allocator;
}

inline OzmMemHeap& ChooseHeap(OzmMemAllocator* a) {
    return a->Heap(unsigned(OzmMemThreadNumber()) & g_heapMask.load(std::memory_order_relaxed));
}

// The allocator's last call, registered as an exit handler.
void LastCall() {
    if (g_allocatorReady.load(std::memory_order_acquire))
        g_allocator->Finish();
}

// A fork must not copy a heap in the middle of a change: all locks are taken
// around it.
void BeforeFork() {
    OzmMemLockTake(&g_allocatorLock);
    if (g_allocatorReady.load(std::memory_order_relaxed))
        g_allocator->Block();
}

void AfterFork() {
    if (g_allocatorReady.load(std::memory_order_relaxed))
        g_allocator->Unblock();
    OzmMemLockGive(&g_allocatorLock);
}

// The static initialiser: prepares the lock and registers the last call.
struct FrontStart {
    FrontStart() {
        OzmMemLockPrepare(&g_allocatorLock);
        OzmOnExit(LastCall);
        pthread_atfork(BeforeFork, AfterFork, AfterFork);
    }
} g_frontStart;

}  // namespace

unsigned OzmHeapMaskFor(int count) {
    int k = 0;
    while ((1L << k) < count)
        ++k;
    return (2u << k) - 1;
}

void* OzmFrontMalloc(size_t size) {
    OzmMemAllocator* a;
    if (__builtin_expect(g_allocatorReady.load(std::memory_order_acquire) != 0, 1)) {
        a = g_allocator;
    } else if (!(a = MakeAllocator())) {
        errno = ENOMEM;
        return nullptr;
    }
    return ChooseHeap(a).Alloc(size);
}

void OzmFrontFree(void* p) {
    // A block can only be the allocator's once the allocator exists.
    if (p && g_allocatorReady.load(std::memory_order_acquire))
        g_allocator->Free(p);
}

void* OzmFrontCalloc(size_t count, size_t size) {
    size_t bytes;
    if (__builtin_mul_overflow(count, size, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    void* p = OzmFrontMalloc(bytes);
    if (p)
        std::memset(p, 0, bytes);
    return p;
}

size_t OzmFrontMsize(void* p) {
    if (!p)
        return 0;
    OzmMemBlockHeader* h = OzmMemHeaderOf(p);
    return g_ozmMemUsableSizes[h->m_owner->m_sizeClass] - h->m_offset;
}

void* OzmFrontRealloc(void* p, size_t size) {
    if (!p)
        return OzmFrontMalloc(size);
    if (size == 0) {
        OzmFrontFree(p);
        return nullptr;
    }
    void* n = OzmFrontMalloc(size);
    if (!n)
        return nullptr;  // the old block stays as it was
    size_t old = OzmFrontMsize(p);
    std::memcpy(n, p, old < size ? old : size);
    OzmFrontFree(p);
    return n;
}

void* OzmFrontAligned(size_t align, size_t size) {
    if (align <= alignof(std::max_align_t))
        return OzmFrontMalloc(size);
    if (size > kOzmMemLargestRequest || align > kOzmMemLargestRequest - size) {
        errno = ENOMEM;
        return nullptr;
    }
    // Over-allocate and place the block at the first multiple of align. A
    // block that moved gets a header of its own, with the distance back to
    // the start of the one it lies in, which is what free and _msize follow.
    char* p = static_cast<char*>(OzmFrontMalloc(size + align));
    if (!p)
        return nullptr;
    uintptr_t q = (reinterpret_cast<uintptr_t>(p) + align - 1) & ~uintptr_t(align - 1);
    if (q == reinterpret_cast<uintptr_t>(p))
        return p;
    OzmMemBlockHeader* h = OzmMemHeaderOf(reinterpret_cast<void*>(q));
    h->m_offset = q - reinterpret_cast<uintptr_t>(p);
    h->m_owner = OzmMemHeaderOf(p)->m_owner;
    return reinterpret_cast<void*>(q);
}

#ifndef OZM_FRONT_INTERNAL_ONLY
// ---------------------------------------------------------------------------
// The standard names. A program that links this library or preloads it has
// all of its allocations served here, the C library's own included.

namespace {
inline bool IsPowerOfTwo(size_t n) { return n != 0 && (n & (n - 1)) == 0; }
constexpr size_t kPageSize = 4096;
}  // namespace

extern "C" {

OZM_API void* malloc(size_t size) noexcept { return OzmFrontMalloc(size); }
OZM_API void free(void* p) noexcept { OzmFrontFree(p); }
OZM_API void* calloc(size_t count, size_t size) noexcept { return OzmFrontCalloc(count, size); }
OZM_API void* realloc(void* p, size_t size) noexcept { return OzmFrontRealloc(p, size); }
OZM_API size_t _msize(void* p) { return OzmFrontMsize(p); }
OZM_API size_t _msize_base(void* p) { return OzmFrontMsize(p); }
OZM_API size_t malloc_usable_size(void* p) noexcept { return OzmFrontMsize(p); }

OZM_API void* reallocarray(void* p, size_t count, size_t size) noexcept {
    size_t bytes;
    if (__builtin_mul_overflow(count, size, &bytes)) {
        errno = ENOMEM;
        return nullptr;
    }
    return OzmFrontRealloc(p, bytes);
}

OZM_API int posix_memalign(void** out, size_t align, size_t size) noexcept {
    if (!IsPowerOfTwo(align) || align % sizeof(void*) != 0)
        return EINVAL;
    int saved = errno;
    void* p = OzmFrontAligned(align, size);
    errno = saved;  // the result carries the error, errno stays as it was
    if (!p)
        return ENOMEM;
    *out = p;
    return 0;
}

OZM_API void* aligned_alloc(size_t align, size_t size) noexcept {
    if (!IsPowerOfTwo(align)) {
        errno = EINVAL;
        return nullptr;
    }
    return OzmFrontAligned(align, size);
}

OZM_API void* memalign(size_t align, size_t size) noexcept {
    // Like the C library's: an alignment that is no power of two is rounded up.
    if (align > SIZE_MAX / 2 + 1) {  // no power of two of size_t above it
        errno = EINVAL;
        return nullptr;
    }
    size_t a = 1;
    while (a < align)
        a <<= 1;
    return OzmFrontAligned(a, size);
}

OZM_API void* valloc(size_t size) noexcept { return OzmFrontAligned(kPageSize, size); }

OZM_API void* pvalloc(size_t size) noexcept {
    if (size > SIZE_MAX - kPageSize) {
        errno = ENOMEM;
        return nullptr;
    }
    return OzmFrontAligned(kPageSize, (size + kPageSize - 1) & ~(kPageSize - 1));
}

}  // extern "C"

// ---------------------------------------------------------------------------
// operator new and delete. The throwing forms call the new-handler until
// memory comes and throw std::bad_alloc when there is none; the nothrow
// forms give null instead.

namespace {

void* NewOrThrow(size_t size, size_t align) {
    for (;;) {
        void* p = OzmFrontAligned(align, size);
        if (__builtin_expect(p != nullptr, 1))
            return p;
        std::new_handler handler = std::get_new_handler();
        if (!handler)
            throw std::bad_alloc();
        handler();
    }
}

void* NewOrNull(size_t size, size_t align) noexcept {
    try {
        return NewOrThrow(size, align);
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

OZM_API void* operator new(size_t size) {
    void* p = OzmFrontMalloc(size);
    return __builtin_expect(p != nullptr, 1) ? p : NewOrThrow(size, 1);
}
OZM_API void* operator new[](size_t size) { return operator new(size); }
OZM_API void* operator new(size_t size, const std::nothrow_t&) noexcept {
    void* p = OzmFrontMalloc(size);
    return p ? p : NewOrNull(size, 1);
}
OZM_API void* operator new[](size_t size, const std::nothrow_t&) noexcept { return operator new(size, std::nothrow); }
OZM_API void* operator new(size_t size, std::align_val_t align) { return NewOrThrow(size, size_t(align)); }
OZM_API void* operator new[](size_t size, std::align_val_t align) { return NewOrThrow(size, size_t(align)); }
OZM_API void* operator new(size_t size, std::align_val_t align, const std::nothrow_t&) noexcept {
    return NewOrNull(size, size_t(align));
}
OZM_API void* operator new[](size_t size, std::align_val_t align, const std::nothrow_t&) noexcept {
    return NewOrNull(size, size_t(align));
}

OZM_API void operator delete(void* p) noexcept { OzmFrontFree(p); }
OZM_API void operator delete[](void* p) noexcept { OzmFrontFree(p); }
OZM_API void operator delete(void* p, size_t) noexcept { OzmFrontFree(p); }
OZM_API void operator delete[](void* p, size_t) noexcept { OzmFrontFree(p); }
OZM_API void operator delete(void* p, const std::nothrow_t&) noexcept { OzmFrontFree(p); }
OZM_API void operator delete[](void* p, const std::nothrow_t&) noexcept { OzmFrontFree(p); }
OZM_API void operator delete(void* p, std::align_val_t) noexcept { OzmFrontFree(p); }
OZM_API void operator delete[](void* p, std::align_val_t) noexcept { OzmFrontFree(p); }
OZM_API void operator delete(void* p, size_t, std::align_val_t) noexcept { OzmFrontFree(p); }
OZM_API void operator delete[](void* p, size_t, std::align_val_t) noexcept { OzmFrontFree(p); }
OZM_API void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { OzmFrontFree(p); }
OZM_API void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { OzmFrontFree(p); }
#endif  // OZM_FRONT_INTERNAL_ONLY

// countnew.cpp - the count of operator new (harness.h). Built with
// OZM_COUNT_NEW into ozmbench, it replaces the global allocation functions
// (all overloads); built without, into ozmbench_nocount, it counts nothing.
// The measures that count are single-threaded, so plain counters do.
#include <malloc.h>

#include <cstdlib>
#include <new>

#include "harness.h"

#ifdef OZM_COUNT_NEW

namespace {

size_t g_liveBytes = 0;
size_t g_liveBlocks = 0;
bool g_count = true;

void* CountedAlloc(size_t size, size_t align) noexcept {
    if (size == 0)
        size = 1;
    void* p = nullptr;
    if (align > __STDCPP_DEFAULT_NEW_ALIGNMENT__) {
        if (posix_memalign(&p, align, size) != 0)
            p = nullptr;
    } else {
        p = std::malloc(size);
    }
    if (p && g_count) {
        g_liveBytes += malloc_usable_size(p);
        ++g_liveBlocks;
    }
    return p;
}

// operator new semantics: call the new-handler until memory comes or there
// is no handler; then throw.
void* NewOrThrow(size_t size, size_t align) {
    for (;;) {
        void* p = CountedAlloc(size, align);
        if (p)
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

void CountedFree(void* p) noexcept {
    if (!p)
        return;
    if (g_count) {
        g_liveBytes -= malloc_usable_size(p);
        --g_liveBlocks;
    }
    std::free(p);
}

constexpr size_t kPlain = __STDCPP_DEFAULT_NEW_ALIGNMENT__;

}  // namespace

void* operator new(size_t n) { return NewOrThrow(n, kPlain); }
void* operator new[](size_t n) { return NewOrThrow(n, kPlain); }
void* operator new(size_t n, const std::nothrow_t&) noexcept { return NewOrNull(n, kPlain); }
void* operator new[](size_t n, const std::nothrow_t&) noexcept { return NewOrNull(n, kPlain); }
void* operator new(size_t n, std::align_val_t a) { return NewOrThrow(n, size_t(a)); }
void* operator new[](size_t n, std::align_val_t a) { return NewOrThrow(n, size_t(a)); }
void* operator new(size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return NewOrNull(n, size_t(a)); }
void* operator new[](size_t n, std::align_val_t a, const std::nothrow_t&) noexcept { return NewOrNull(n, size_t(a)); }

void operator delete(void* p) noexcept { CountedFree(p); }
void operator delete[](void* p) noexcept { CountedFree(p); }
void operator delete(void* p, size_t) noexcept { CountedFree(p); }
void operator delete[](void* p, size_t) noexcept { CountedFree(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { CountedFree(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { CountedFree(p); }
void operator delete(void* p, std::align_val_t) noexcept { CountedFree(p); }
void operator delete[](void* p, std::align_val_t) noexcept { CountedFree(p); }
void operator delete(void* p, size_t, std::align_val_t) noexcept { CountedFree(p); }
void operator delete[](void* p, size_t, std::align_val_t) noexcept { CountedFree(p); }
void operator delete(void* p, std::align_val_t, const std::nothrow_t&) noexcept { CountedFree(p); }
void operator delete[](void* p, std::align_val_t, const std::nothrow_t&) noexcept { CountedFree(p); }

namespace ozmbench {
bool NewCounted() { return true; }
NewCount LiveNew() { return {g_liveBytes, g_liveBlocks}; }
void CountNew(bool on) { g_count = on; }
}  // namespace ozmbench

#else

namespace ozmbench {
bool NewCounted() { return false; }
NewCount LiveNew() { return {}; }
void CountNew(bool) {}
}  // namespace ozmbench

#endif

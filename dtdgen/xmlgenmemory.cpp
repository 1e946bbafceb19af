// xmlgenmemory.cpp - GenMemory: the allocations of generation's working data,
// counted and, on a test's demand, made to fail.
#include "dtdgen/xmlgenmemory.h"

#include <cstdlib>

namespace {

// The accounting of the generation that runs on this thread.
thread_local GenMemory* t_current = nullptr;

// Counts an allocation about to be made; false when it is to fail.
bool Admit(GenMemory* m) {
    if (!m || m->allocationsLeft < 0)
        return true;
    if (m->allocationsLeft == 0)
        return false;
    --m->allocationsLeft;
    return true;
}

void Count(GenMemory* m, size_t freed, size_t taken) {
    if (!m)
        return;
    m->bytes = m->bytes - freed + taken;
    m->peak = std::max(m->peak, m->bytes);
}

}  // namespace

GenMemory::Scope::Scope(GenMemory& memory) : m_previous(t_current) { t_current = &memory; }

GenMemory::Scope::~Scope() { t_current = m_previous; }

void* GenMemory::Allocate(size_t size) {
    GenMemory* m = t_current;
    void* p = Admit(m) ? std::malloc(size ? size : 1) : nullptr;
    if (!p)
        throw std::bad_alloc();
    Count(m, 0, size);
    return p;
}

void* GenMemory::Reallocate(void* p, size_t oldSize, size_t newSize) {
    GenMemory* m = t_current;
    void* q = Admit(m) ? std::realloc(p, newSize ? newSize : 1) : nullptr;
    if (!q)
        throw std::bad_alloc();
    Count(m, p ? oldSize : 0, newSize);
    return q;
}

void GenMemory::Free(void* p, size_t size) noexcept {
    if (!p)
        return;
    std::free(p);
    Count(t_current, size, 0);
}

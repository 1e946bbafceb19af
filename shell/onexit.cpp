// onexit.cpp - the table of exit handlers that the library runs when the
// process lets go of it, last-registered first.
//
// The table's own block does not come from the front: the front's last call
// is one of the handlers, so the table is kept in blocks of a small runtime
// allocator of its own, page mappings with the requested size in front.
#include "shell/ozmfront.h"

#include <cstring>

#include <pthread.h>
#include <sys/mman.h>

namespace {

// Guards every registration, like the runtime's lock around its own table.
pthread_mutex_t g_exitLock = PTHREAD_MUTEX_INITIALIZER;

struct RtHead {
    size_t m_bytes;   // as requested: what RtSize gives
    size_t m_length;  // of the mapping
    size_t m_pad[2];
};

void* RtAlloc(size_t bytes) {
    size_t length = (sizeof(RtHead) + bytes + 4095) & ~size_t(4095);
    void* m = mmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED)
        return nullptr;
    RtHead* h = static_cast<RtHead*>(m);
    h->m_bytes = bytes;
    h->m_length = length;
    return h + 1;
}

void RtFree(void* p) {
    if (p) {
        RtHead* h = static_cast<RtHead*>(p) - 1;
        munmap(h, h->m_length);
    }
}

size_t RtSize(void* p) { return p ? (static_cast<RtHead*>(p) - 1)->m_bytes : 0; }

void* RtRealloc(void* p, size_t bytes) {
    void* n = RtAlloc(bytes);
    if (n && p) {
        size_t keep = RtSize(p);
        std::memcpy(n, p, keep < bytes ? keep : bytes);
        RtFree(p);
    }
    return n;
}

}  // namespace

OzmExitFn* g_exitTable = nullptr;
OzmExitFn* g_exitEnd = nullptr;

bool OzmExitTableOpen(OzmExitFn*& table, OzmExitFn*& end) {
    table = static_cast<OzmExitFn*>(RtAlloc(kOzmExitFirstRoom * sizeof(OzmExitFn)));
    end = table;
    if (!table)
        return false;
    table[0] = nullptr;
    return true;
}

OzmExitFn OzmExitTableAdd(OzmExitFn*& table, OzmExitFn*& end, OzmExitFn fn) {
    pthread_mutex_lock(&g_exitLock);
    if (!table) {
        pthread_mutex_unlock(&g_exitLock);
        return nullptr;
    }
    size_t used = size_t(end - table);
    if (RtSize(table) < (used + 1) * sizeof(OzmExitFn)) {
        auto* grown = static_cast<OzmExitFn*>(RtRealloc(table, (used + kOzmExitGrowth) * sizeof(OzmExitFn)));
        if (!grown) {
            pthread_mutex_unlock(&g_exitLock);
            return nullptr;
        }
        table = grown;
        end = grown + used;
    }
    *end++ = fn;
    pthread_mutex_unlock(&g_exitLock);
    return fn;
}

void OzmExitTableRun(OzmExitFn*& table, OzmExitFn*& end) {
    if (!table)
        return;
    // A handler may register another one, which may move the table: the
    // position is kept as a count and the table re-read after each call.
    for (size_t i = size_t(end - table); i-- > 0;) {
        OzmExitFn fn = table[i];
        if (fn)
            fn();
    }
    RtFree(table);
    table = end = nullptr;
}

size_t OzmExitTableRoom(OzmExitFn* table) { return RtSize(table) / sizeof(OzmExitFn); }

OzmExitFn OzmOnExit(OzmExitFn fn) { return OzmExitTableAdd(g_exitTable, g_exitEnd, fn); }

int OzmAtExit(OzmExitFn fn) { return OzmOnExit(fn) ? 0 : -1; }

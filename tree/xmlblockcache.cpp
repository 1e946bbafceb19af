// XmlBlockCache: lists of kept blocks by size, under one lock.
#include "tree/xmlblockcache.h"

#include <mutex>
#include <new>

#include "platform/ozmmem.h"
#include "xmldocument.h"

namespace {

// The sizes kept: the slab and the text chunks of 4 to 64 KiB.
constexpr size_t kSizes[] = {sizeof(XmlElementBlock), 4096, 8192, 16384, 32768, 65536};
constexpr int kClasses = int(sizeof kSizes / sizeof kSizes[0]);
constexpr int kSlab = 0;  // from OzmMemAlloc; the chunks come from operator new
// The most the cache keeps, whatever the last document held.
constexpr size_t kMaxBytes = size_t(256) << 20;

int ClassOf(size_t bytes) {
    for (int i = 0; i < kClasses; ++i)
        if (kSizes[i] == bytes)
            return i;
    return -1;
}

struct Kept {
    Kept* next;
};

struct Cache {
    std::mutex lock;
    Kept* lists[kClasses] = {};
    size_t bytes = 0;  // all kept
};

// Never destroyed: documents in static storage may go after it would.
Cache& TheCache() {
    static Cache* cache = new Cache;
    return *cache;
}

thread_local int t_releases = 0;      // Release objects standing on this thread
thread_local size_t t_given = 0;      // bytes they were given

}  // namespace

void* XmlBlockCache::Take(size_t bytes) {
    const int c = ClassOf(bytes);
    if (c < 0)
        return nullptr;
    Cache& cache = TheCache();
    Kept* block;
    {
        std::lock_guard<std::mutex> hold(cache.lock);
        block = cache.lists[c];
        // A slab taken here counts as an allocation of OzmMemAlloc, so that
        // its failure switch fails it as it would a new one.
        if (!block || (c == kSlab && !OzmMemMayAllocate()))
            return nullptr;
        cache.lists[c] = block->next;
        cache.bytes -= bytes;
    }
    return block;
}

bool XmlBlockCache::Give(void* block, size_t bytes) {
    const int c = t_releases ? ClassOf(bytes) : -1;
    if (c < 0)
        return false;
    Cache& cache = TheCache();
    std::lock_guard<std::mutex> hold(cache.lock);
    if (cache.bytes + bytes > kMaxBytes)
        return false;
    Kept* k = static_cast<Kept*>(block);
    k->next = cache.lists[c];
    cache.lists[c] = k;
    cache.bytes += bytes;
    t_given += bytes;
    return true;
}

XmlBlockCache::Release::Release() {
    if (t_releases++ == 0)
        t_given = 0;
}

XmlBlockCache::Release::~Release() {
    if (--t_releases != 0)
        return;
    Cache& cache = TheCache();
    Kept* drop[kClasses] = {};
    {
        std::lock_guard<std::mutex> hold(cache.lock);
        for (int c = 0; c < kClasses && cache.bytes > t_given; ++c) {
            while (cache.lists[c] && cache.bytes > t_given) {
                Kept* k = cache.lists[c];
                cache.lists[c] = k->next;
                cache.bytes -= kSizes[c];
                k->next = drop[c];
                drop[c] = k;
            }
        }
    }
    for (int c = 0; c < kClasses; ++c) {
        while (Kept* k = drop[c]) {
            drop[c] = k->next;
            if (c == kSlab)
                OzmMemFree(k);
            else
                ::operator delete(k);
        }
    }
}

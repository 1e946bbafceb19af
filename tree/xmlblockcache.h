// xmlblockcache.h - the slabs and text chunks of documents that went, kept
// for the next document of the process.
//
// A tree is made of large blocks only. When a document goes, the C library
// would return them to the system as soon as they join the free top of its
// heap, and a program that makes a new document for every large file would
// fault every page of the next tree in again. The blocks given back while a
// document is cleared or destroyed are kept here instead, by size, and new
// documents take them first. What is kept is bounded by what the last
// document given back held (after a large document, the next one that goes
// leaves only its own blocks here) and by 256 MiB in all.
#pragma once

#include <cstddef>

namespace XmlBlockCache {

// A kept block of exactly bytes bytes, or null.
void* Take(size_t bytes);

// While one of these stands on a thread, Give keeps the blocks that the
// document being cleared or destroyed gives back; when the outermost goes,
// the cache is cut down to what they came to.
class Release {
public:
    Release();
    ~Release();
    Release(const Release&) = delete;
    Release& operator=(const Release&) = delete;
};

// Keeps a block of bytes bytes when a Release stands and the size is one the
// cache keeps; false, and the caller frees it, otherwise.
bool Give(void* block, size_t bytes);

}  // namespace XmlBlockCache

// The allocation switch of OzmMemAlloc (platform/ozmmem.cpp): whether one
// more allocation may succeed, counted as one, so that a block taken from the
// cache fails where an allocation would.
bool OzmMemMayAllocate();

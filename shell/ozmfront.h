// ozmfront.h - the allocation front of ozmxmlapi_malloc, its exit-handler
// table and its entry. The front serves malloc and operator new from the
// heaps of ozmmem; the standard names are defined in ozmfront.cpp, and the
// functions below are what they call, under names of their own.
#pragma once

#include <cstddef>

#include "ozmdefs.h"

// The allocation functions. Failures give null with errno ENOMEM.
OZM_API void* OzmFrontMalloc(size_t size);
OZM_API void OzmFrontFree(void* p);
// Null when count x size overflows.
OZM_API void* OzmFrontCalloc(size_t count, size_t size);
// Null p allocates; size 0 frees p and gives null; anything else moves the
// block, keeping the smaller of size and the old usable size.
OZM_API void* OzmFrontRealloc(void* p, size_t size);
// Usable size of a block; 0 for null.
OZM_API size_t OzmFrontMsize(void* p);
// A block at a multiple of align, a power of two.
OZM_API void* OzmFrontAligned(size_t align, size_t size);

// The heap mask for a heap count: 2^(k+1) - 1, k the smallest number with
// 2^k >= count (0 for a count of 0 or 1).
OZM_API unsigned OzmHeapMaskFor(int count);

#ifndef OZM_FRONT_INTERNAL_ONLY
extern "C" {
OZM_API size_t _msize(void* p);
OZM_API size_t _msize_base(void* p);
}
#endif

// ---------------------------------------------------------------------------
// Exit handlers, run last-registered first when the library is unloaded.

typedef void (*OzmExitFn)();

// Room for 32 handlers at first; growth by 4 at a time.
constexpr size_t kOzmExitFirstRoom = 32;
constexpr size_t kOzmExitGrowth = 4;

// Registers fn with the library's table: gives fn, or null when the table
// cannot grow.
OZM_API OzmExitFn OzmOnExit(OzmExitFn fn);
// The same, giving 0 on success and -1 on failure.
OZM_API int OzmAtExit(OzmExitFn fn);

// The operations on a table given by its start and its end (one past the
// last entry). The library's table is one such pair; tests make their own.
OZM_API bool OzmExitTableOpen(OzmExitFn*& table, OzmExitFn*& end);
OZM_API OzmExitFn OzmExitTableAdd(OzmExitFn*& table, OzmExitFn*& end, OzmExitFn fn);
OZM_API void OzmExitTableRun(OzmExitFn*& table, OzmExitFn*& end);
// Entries the table's block has room for.
OZM_API size_t OzmExitTableRoom(OzmExitFn* table);

// The library's entry: kOzmProcessAttach opens the exit table (1, or 0 when
// it cannot be had), kOzmProcessDetach runs it (0 when there was no attach).
constexpr int kOzmProcessDetach = 0;
constexpr int kOzmProcessAttach = 1;
OZM_API int OzmLibMain(int reason);

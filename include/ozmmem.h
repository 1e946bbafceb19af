// ozmmem.h - the allocator the library takes large blocks from, with a switch
// that makes allocations fail on purpose, so that callers can test their
// out-of-memory paths.
#pragma once

#include <cstddef>

#include "ozmutil.h"

// Returns null when the memory cannot be had (never throws).
OZM_API void* OzmMemAlloc(size_t size);
OZM_API void OzmMemFree(void* p);
// After count further successful allocations, every allocation fails until
// the next call; a negative count turns failures off.
OZM_API void OzmMemFailAfter(long count);

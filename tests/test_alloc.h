// Allocation hooks of the test program: operator new is replaced so that
// tests can make an allocation fail and count what is allocated.
#pragma once

#include <cstddef>
#include <cstdint>

namespace TestAlloc {
// The n-th allocation from now on throws std::bad_alloc (a nothrow one
// returns null), once; 0 disarms.
void FailAt(long n);
// Whether the allocation FailAt asked to fail is still to come.
bool Armed();
// Allocations made since the program started.
uint64_t Count();
// The most bytes that were held at once since the last ResetPeak.
void ResetPeak();
size_t PeakBytes();
// The bytes held now.
size_t HeldBytes();
}  // namespace TestAlloc

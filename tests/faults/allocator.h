// SPDX-License-Identifier: MIT
//
// Takes the place of malloc and its kin, and so of operator new, in the program that it is linked
// into: counts, fails on request, and fills what was never written. For the C library of GNU.
#pragma once

#include <cstdint>

namespace corvane::faults {

// Asked for every allocation while a thread has faults armed; false lets it fail.
using AllocationGate = bool (*)();

// The gate of this thread; null for none.
void SetAllocationGate(AllocationGate gate);

// Fresh and freed memory is filled with this byte; negative leaves it alone. calloc stays zero.
void FillMemoryWith(int byte);

// Blocks that are allocated and not yet freed, of all threads.
std::int64_t LiveBlocks();

}  // namespace corvane::faults

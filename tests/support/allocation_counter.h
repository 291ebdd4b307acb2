// Counts and refuses the allocations of a test program that links the library vorlen_allocation_counter, which replaces
// the global operator new.
#pragma once

#include <atomic>

namespace vorlen_test {

extern std::atomic<long> allocations;   // so far
extern std::atomic<long> refused_from;  // number of the allocation that fails, with all behind it; negative: none

}  // namespace vorlen_test

// Counts and refuses the allocations of a test program that links the library vorlen_allocation_counter. It stands in
// for malloc, and so sees what C and C++ libraries allocate too; under a sanitizer, which has a malloc of its own, it
// stands in for the global operator new and does not follow what is given back.
#pragma once

#include <atomic>
#include <cstddef>

#include "support/sanitizer.h"

namespace vorlen_test {

#if defined(VORLEN_ADDRESS_SANITIZER) || defined(VORLEN_THREAD_SANITIZER)
inline constexpr bool LIVE_BLOCKS_KNOWN = false;
#else
inline constexpr bool LIVE_BLOCKS_KNOWN = true;
#endif

extern std::atomic<long> allocations;    // so far
extern std::atomic<long> live_blocks;    // not given back, where that is known
extern std::atomic<long> live_bytes;     // their usable bytes
extern std::atomic<long> peak_bytes;     // largest live_bytes since the test has set it
extern std::atomic<long> refused_from;   // number of the first allocation that fails; negative: none
extern std::atomic<long> refused_count;  // how many fail from that one on

}  // namespace vorlen_test

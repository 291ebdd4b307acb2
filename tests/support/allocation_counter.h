// Counts the allocations of a test program that links the library vorlen_allocation_counter, and makes some of them
// fail. It replaces malloc, so that allocations of C and C++ libraries are included. A sanitizer replaces malloc
// itself; then only the global operator new is replaced, and deallocations are not tracked.
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
extern std::atomic<long> live_blocks;    // not freed yet, where deallocations are tracked
extern std::atomic<long> live_bytes;     // their usable bytes
extern std::atomic<long> peak_bytes;     // largest live_bytes since the test set it
extern std::atomic<long> refused_from;   // number of the first allocation that fails; negative: none
extern std::atomic<long> refused_count;  // how many fail from that one on

}  // namespace vorlen_test

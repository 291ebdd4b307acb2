// Processor time of the calling thread, which other processes on the machine affect less than wall time.
#pragma once

#include <ctime>

namespace vorlen::bench {

inline double processor_seconds() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

}  // namespace vorlen::bench

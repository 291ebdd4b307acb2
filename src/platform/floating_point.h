// The floating-point state of a thread: rounding mode, traps, flush-to-zero mode, precision of the x87 unit, flags.
#pragma once

namespace vorlen {

// The calling thread has the default floating-point state while this object exists, then its former one again. So the
// host's rounding mode does not change the numbers, and its traps do not end the process.
class DefaultFloatingPoint {
 public:
  DefaultFloatingPoint();
  ~DefaultFloatingPoint();
  DefaultFloatingPoint(const DefaultFloatingPoint&) = delete;
  DefaultFloatingPoint& operator=(const DefaultFloatingPoint&) = delete;

 private:
  alignas(16) unsigned char host_[64];
};

}  // namespace vorlen

// What interrupts the command-line tool: Ctrl-C, the end of its terminal, a request to end.
#pragma once

namespace platform {

// Interruptions do not end the program during the lifetime of this object, they are recorded. Those that were ignored
// before (nohup) stay ignored. A pipe that nobody reads does not end the program either: messages may get lost, files
// may not.
class RecordedInterruptions {
 public:
  RecordedInterruptions();
  ~RecordedInterruptions();
  RecordedInterruptions(const RecordedInterruptions&) = delete;
  RecordedInterruptions& operator=(const RecordedInterruptions&) = delete;
};

// The number of the signal that was recorded last, SIGINT for Ctrl-C; 0 if there was none.
int recorded_interruption();

// Interruptions wait during the lifetime of this object.
class HeldInterruptions {
 public:
  HeldInterruptions();
  ~HeldInterruptions();
  HeldInterruptions(const HeldInterruptions&) = delete;
  HeldInterruptions& operator=(const HeldInterruptions&) = delete;
};

// A pipe that nobody reads does not end the program during the lifetime of this object.
class IgnoredBrokenPipes {
 public:
  IgnoredBrokenPipes();
  ~IgnoredBrokenPipes();
  IgnoredBrokenPipes(const IgnoredBrokenPipes&) = delete;
  IgnoredBrokenPipes& operator=(const IgnoredBrokenPipes&) = delete;

 private:
  void (*old_)(int) = nullptr;
};

}  // namespace platform

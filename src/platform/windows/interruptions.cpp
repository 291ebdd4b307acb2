// Console events. The system calls the handler in a separate thread; an event that it does not accept ends the
// program.
#include "platform/interruptions.h"

#include <windows.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <mutex>

#include "platform/windows/console.h"

namespace platform {

namespace {

std::atomic<bool> recording = false;
std::atomic<bool> left_to_others = false;
std::atomic<int> recorded = 0;
std::recursive_mutex held;

struct OutputMode {
  DWORD stream;
  DWORD mode = 0;
  bool changed = false;
};
OutputMode modes[] = {{STD_OUTPUT_HANDLE}, {STD_ERROR_HANDLE}};
UINT code_page = 0;  // 0: unchanged

void restore_console() {
  for (const OutputMode& output : modes) {
    if (output.changed) SetConsoleMode(GetStdHandle(output.stream), output.mode);
  }
  if (code_page != 0) SetConsoleOutputCP(code_page);
}

BOOL WINAPI handle_event(DWORD event) {
  const bool is_key = event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT;
  if (left_to_others && is_key) return TRUE;
  if (recording) {
    recorded = is_key ? SIGINT : SIGTERM;
    // After the end of this function the system ends the program, unless the event is a key.
    if (!is_key) Sleep(INFINITE);
    return TRUE;
  }
  held.lock();
  restore_console();
  return FALSE;
}

}  // namespace

void prepare_console() {
  SetConsoleCtrlHandler(handle_event, TRUE);
  const UINT old_code_page = GetConsoleOutputCP();  // 0 without a console
  if (old_code_page != 0 && old_code_page != CP_UTF8 && SetConsoleOutputCP(CP_UTF8)) code_page = old_code_page;
  for (OutputMode& output : modes) {
    const HANDLE handle = GetStdHandle(output.stream);
    if (!GetConsoleMode(handle, &output.mode)) continue;
    output.changed = SetConsoleMode(handle, output.mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
  }
  std::atexit(restore_console);
}

void leave_interruptions_to_others() { left_to_others = true; }

RecordedInterruptions::RecordedInterruptions() {
  recorded = 0;
  recording = true;
}

RecordedInterruptions::~RecordedInterruptions() { recording = false; }

int recorded_interruption() { return recorded; }

HeldInterruptions::HeldInterruptions() { held.lock(); }

HeldInterruptions::~HeldInterruptions() { held.unlock(); }

// Writing to such a pipe is an error like others.
IgnoredBrokenPipes::IgnoredBrokenPipes() = default;
IgnoredBrokenPipes::~IgnoredBrokenPipes() = default;

}  // namespace platform

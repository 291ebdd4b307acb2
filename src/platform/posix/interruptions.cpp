// Signals.
#include "platform/interruptions.h"

#include <signal.h>

#include <array>
#include <cstddef>

namespace platform {

namespace {

constexpr std::array<int, 3> INTERRUPTING_SIGNALS = {SIGINT, SIGTERM, SIGHUP};

volatile sig_atomic_t interrupting_signal = 0;

void note_signal(int signal) { interrupting_signal = signal; }

// While interruptions are recorded: how they and broken pipes were handled before.
std::array<struct sigaction, INTERRUPTING_SIGNALS.size()> old_actions{};
void (*old_pipe)(int) = SIG_DFL;

// While interruptions are held: how often, and what was blocked before.
int held = 0;
sigset_t old_blocked{};

}  // namespace

RecordedInterruptions::RecordedInterruptions() {
  old_pipe = signal(SIGPIPE, SIG_IGN);
  interrupting_signal = 0;
  for (std::size_t i = 0; i < old_actions.size(); ++i) {
    sigaction(INTERRUPTING_SIGNALS[i], nullptr, &old_actions[i]);
    if (old_actions[i].sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_handler = note_signal;
    sigaction(INTERRUPTING_SIGNALS[i], &action, nullptr);
  }
}

RecordedInterruptions::~RecordedInterruptions() {
  for (std::size_t i = 0; i < old_actions.size(); ++i) sigaction(INTERRUPTING_SIGNALS[i], &old_actions[i], nullptr);
  signal(SIGPIPE, old_pipe);
}

int recorded_interruption() { return interrupting_signal; }

HeldInterruptions::HeldInterruptions() {
  if (held++ > 0) return;
  sigset_t ending;
  sigemptyset(&ending);
  for (const int number : INTERRUPTING_SIGNALS) sigaddset(&ending, number);
  sigprocmask(SIG_BLOCK, &ending, &old_blocked);
}

HeldInterruptions::~HeldInterruptions() {
  if (--held == 0) sigprocmask(SIG_SETMASK, &old_blocked, nullptr);
}

IgnoredBrokenPipes::IgnoredBrokenPipes() : old_(signal(SIGPIPE, SIG_IGN)) {}

IgnoredBrokenPipes::~IgnoredBrokenPipes() { signal(SIGPIPE, old_); }

}  // namespace platform

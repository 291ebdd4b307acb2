// Processes of the command-line tool: children that run a task of this program, and programs of others.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "platform/files.h"

namespace platform {

// What a child does: gets words that describe the work, returns the bytes of its report. The same function runs whether
// a child is a copy of this process or this program started again.
using Task = std::string (*)(const std::vector<std::string>& words);
struct NamedTask {
  const char* name;
  Task run;
};

// The child part of a program that is started again: call it at the start of main with all tasks. If the arguments are
// those of a child, it runs the task and returns true with the exit status of the process.
bool run_as_child(const std::vector<std::string>& arguments, const std::vector<NamedTask>& tasks, int& exit_status);

struct ChildProcess;
using Child = std::shared_ptr<ChildProcess>;

// Starts a child. It ends when this process does, and does not react to interruptions.
ErrorCode start_child(const NamedTask& task, const std::vector<std::string>& words, Child& child);

// The positions of the children that have reported or ended, after at most timeout [ms]; may be empty before that.
std::vector<std::size_t> wait_for_children(const std::vector<Child>& children, int timeout);

// Waits until the child has ended. report: its bytes. Returns how it has ended: "exit status 1", "signal 9, Killed".
std::string collect_child(const Child& child, std::string& report);

// Ends the child at once and waits until it has ended.
void kill_child(const Child& child);

// Runs a program, which is looked for in PATH, without its output. Returns its exit status; -1 if it can't be started
// or crashes.
int run_silently(const std::vector<std::string>& words);

// Continues as another program with the streams of this one. While it starts, Ctrl-C waits. Returns only if the program
// can't be started.
ErrorCode continue_as(const std::vector<std::string>& words);

}  // namespace platform

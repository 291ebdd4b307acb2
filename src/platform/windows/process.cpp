// Windows has no fork: a child is this program started again, with a hidden first argument. It reports on its standard
// output. All children are in a job that ends them when the last handle of it is closed, by the end of this process at
// the latest. A thread for each child reads its report, because pipes can't be waited for.
#include "platform/process.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <mutex>
#include <thread>

#include "platform/program.h"
#include "platform/windows/console.h"
#include "platform/windows/wide_text.h"

namespace platform {

namespace {

constexpr const char* CHILD_WORD = "__task";

std::mutex mutex_of_children;
std::condition_variable a_child_has_ended;

ErrorCode last_error() { return static_cast<ErrorCode>(GetLastError()); }

// A word of a command line so that CommandLineToArgvW() gives it back: backslashes count only before quotes.
std::wstring quoted(const std::string& word) {
  std::wstring text = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : wide_of(word)) {
    if (c == L'"') text.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    text += c;
  }
  return text.append(backslashes, L'\\') + L'"';
}

std::wstring command_line(const std::vector<std::string>& words) {
  std::wstring line;
  for (const std::string& word : words) line += (line.empty() ? L"" : L" ") + quoted(word);
  return line;
}

// The file of a program, which is looked for in PATH unless word is a path; empty if there is none. Windows itself
// would look in the current folder first.
std::wstring program_file(const std::string& word) {
  if (word.find_first_of("\\/:") != std::string::npos) return wide_of(word);
  const std::wstring path = wide_of(environment("PATH").value_or(""));
  const std::wstring name = wide_of(word);
  const auto find = [&](wchar_t* file, DWORD size) {
    return SearchPathW(path.c_str(), name.c_str(), L".exe", size, file, nullptr);
  };
  std::wstring file(find(nullptr, 0), L'\0');
  if (!file.empty()) file.resize(find(file.data(), static_cast<DWORD>(file.size())));
  return file;
}

// The job of the children; null if there can be none.
HANDLE job_of_children() {
  static const HANDLE job = []() -> HANDLE {
    const HANDLE created = CreateJobObjectW(nullptr, nullptr);
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (SetInformationJobObject(created, JobObjectExtendedLimitInformation, &limits, sizeof limits)) return created;
    CloseHandle(created);
    return nullptr;
  }();
  return job;
}

// Starts a program with the given standard streams. It inherits all inheritable handles. One that can't be in the job
// does not run, because it might outlive this process.
ErrorCode start(const std::wstring& file, const std::vector<std::string>& words, DWORD flags,
                const std::array<HANDLE, 3>& streams, HANDLE& process) {
  if (file.empty()) return ERROR_FILE_NOT_FOUND;
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = streams[0];
  startup.hStdOutput = streams[1];
  startup.hStdError = streams[2];
  PROCESS_INFORMATION started{};
  std::wstring line = command_line(words);
  if (!CreateProcessW(file.c_str(), line.data(), nullptr, nullptr, TRUE, flags | CREATE_SUSPENDED, nullptr, nullptr,
                      &startup, &started)) {
    return last_error();
  }
  const bool in_job = AssignProcessToJobObject(job_of_children(), started.hProcess) != 0;
  const ErrorCode error = in_job ? 0 : last_error();
  if (in_job) {
    ResumeThread(started.hThread);
    process = started.hProcess;
  } else {
    TerminateProcess(started.hProcess, 1);  // it has not run yet
    CloseHandle(started.hProcess);
  }
  CloseHandle(started.hThread);
  return error;
}

DWORD wait_for_end(HANDLE process) {
  WaitForSingleObject(process, INFINITE);
  DWORD status = 1;
  GetExitCodeProcess(process, &status);
  CloseHandle(process);
  return status;
}

std::array<HANDLE, 3> own_streams() {
  return {GetStdHandle(STD_INPUT_HANDLE), GetStdHandle(STD_OUTPUT_HANDLE), GetStdHandle(STD_ERROR_HANDLE)};
}

}  // namespace

struct ChildProcess {
  HANDLE process = nullptr;
  HANDLE pipe = nullptr;  // its read end
  std::string report;
  bool ended = false;  // guarded by mutex_of_children; the report is complete then
  std::thread reader;

  void read() {
    std::array<char, 65536> block{};
    DWORD count = 0;
    while (ReadFile(pipe, block.data(), static_cast<DWORD>(block.size()), &count, nullptr) && count > 0) {
      report.append(block.data(), count);
    }
    WaitForSingleObject(process, INFINITE);
    const std::lock_guard<std::mutex> lock(mutex_of_children);
    ended = true;
    a_child_has_ended.notify_all();
  }
};

bool run_as_child(const std::vector<std::string>& arguments, const std::vector<NamedTask>& tasks, int& exit_status) {
  if (arguments.size() < 2 || arguments[0] != CHILD_WORD) return false;
  const auto task =
      std::find_if(tasks.begin(), tasks.end(), [&](const NamedTask& each) { return each.name == arguments[1]; });
  if (task == tasks.end()) return false;
  const std::string report = task->run({arguments.begin() + 2, arguments.end()});
  const auto output = reinterpret_cast<File>(GetStdHandle(STD_OUTPUT_HANDLE));
  exit_status = write_all(output, report.data(), report.size()) == 0 ? 0 : 1;
  return true;
}

ErrorCode start_child(const NamedTask& task, const std::vector<std::string>& words, Child& child) {
  const std::string program = own_path();
  std::vector<std::string> line = {program, CHILD_WORD, task.name};
  line.insert(line.end(), words.begin(), words.end());
  HANDLE read_end = nullptr;
  HANDLE write_end = nullptr;
  if (!CreatePipe(&read_end, &write_end, nullptr, 0)) return last_error();
  // Only until the child has started, so that no other child inherits it.
  SetHandleInformation(write_end, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  // Without a console: Ctrl-C does not reach it.
  HANDLE process = nullptr;
  const ErrorCode error = start(wide_of(program), line, DETACHED_PROCESS, {nullptr, write_end, nullptr}, process);
  CloseHandle(write_end);
  if (error != 0) {
    CloseHandle(read_end);
    return error;
  }
  child = std::make_shared<ChildProcess>();
  child->process = process;
  child->pipe = read_end;
  child->reader = std::thread([started = child.get()] { started->read(); });
  return 0;
}

std::vector<std::size_t> wait_for_children(const std::vector<Child>& children, int timeout) {
  std::unique_lock<std::mutex> lock(mutex_of_children);
  const auto has_ended = [](const Child& child) { return child->ended; };
  a_child_has_ended.wait_for(lock, std::chrono::milliseconds(timeout),
                             [&] { return std::any_of(children.begin(), children.end(), has_ended); });
  std::vector<std::size_t> ready;
  for (std::size_t i = 0; i < children.size(); ++i) {
    if (has_ended(children[i])) ready.push_back(i);
  }
  return ready;
}

std::string collect_child(const Child& child, std::string& report) {
  child->reader.join();
  CloseHandle(child->pipe);
  report = child->report;
  const DWORD status = wait_for_end(child->process);
  constexpr DWORD FIRST_EXCEPTION = 0x80000000;
  if (status < FIRST_EXCEPTION) return "exit status " + std::to_string(status);
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "exception 0x%08lX", status);
  return text.data();
}

void kill_child(const Child& child) {
  TerminateProcess(child->process, 1);
  std::string ignored;
  collect_child(child, ignored);
}

int run_silently(const std::vector<std::string>& words) {
  SECURITY_ATTRIBUTES inheritable{sizeof(SECURITY_ATTRIBUTES), nullptr, TRUE};
  const HANDLE nothing = CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                     OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  HANDLE process = nullptr;
  const ErrorCode error = start(program_file(words[0]), words, 0, {own_streams()[0], nothing, nothing}, process);
  CloseHandle(nothing);
  return error == 0 ? static_cast<int>(wait_for_end(process)) : -1;
}

ErrorCode continue_as(const std::vector<std::string>& words) {
  leave_interruptions_to_others();
  HANDLE process = nullptr;
  const ErrorCode error = start(program_file(words[0]), words, 0, own_streams(), process);
  if (error != 0) return error;
  std::exit(static_cast<int>(wait_for_end(process)));
}

}  // namespace platform

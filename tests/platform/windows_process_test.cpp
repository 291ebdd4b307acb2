// AssignProcessToJobObject() of this program is replaced, because systems on which it fails are rare.
#include <gtest/gtest.h>
#include <windows.h>

#include "platform/process.h"

namespace {

bool assigns = true;

BOOL WINAPI assign(HANDLE, HANDLE) {
  if (!assigns) SetLastError(ERROR_ACCESS_DENIED);
  return assigns;
}

}  // namespace

// By the linker's option --wrap: the entry of the function in the table of imported ones.
extern "C" const decltype(&AssignProcessToJobObject) __wrap___imp_AssignProcessToJobObject = assign;

namespace vorlen_test {
namespace {

TEST(WindowsProcess, AProgramThatMightOutliveThisOneDoesNotRun) {
  const std::vector<std::string> program = {"hostname"};
  ASSERT_EQ(0, platform::run_silently(program));
  assigns = false;
  ASSERT_EQ(-1, platform::run_silently(program));
  EXPECT_EQ(ERROR_ACCESS_DENIED, platform::continue_as(program));  // otherwise it does not return
  assigns = true;
}

}  // namespace
}  // namespace vorlen_test

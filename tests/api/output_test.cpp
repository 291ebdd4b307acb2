// Result files that cannot be opened or completely written. One that cannot be opened gives a text and no run. Errors
// while it is written are not reported: the run ends as it would without a file.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>

#include "api/run_support.h"
#include "support/child_process.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

class Output : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, chmod(folder.path().c_str(), 0755));  // for another user too
    recipe = RecipeBuilder({.stress_model = "relax"}).write(folder.path("recipe.xml"));
    ASSERT_EQ(0, call_library(recipe, folder.path("whole.txt")).result);
    ASSERT_LT(TINY, std::filesystem::file_size(folder.path("whole.txt"))) << "too short a result to fill the disk";
  }
  // Result and text of a call with this output path.
  std::string call(const std::string& output) const {
    const CallOutcome got = call_library(recipe, output);
    if (!got.guarded || got.untouched == got.terminated) return "the buffer is damaged";
    return std::to_string(got.result) + " " + got.text;
  }
  static std::string open_error(const std::string& output) {
    return "1 Unable to open file " + output + " for writing";
  }

  static constexpr std::uintmax_t TINY = 8192;  // size of a disk that is too small, bytes
  const TempFolder folder;
  std::string recipe;
};

TEST_F(Output, AFolderWithoutWritePermissionAndAReadOnlyFileAreReported) {
  const std::string closed = folder.path("closed");
  ASSERT_TRUE(std::filesystem::create_directory(closed));
  ASSERT_EQ(0, chmod(closed.c_str(), 0555));
  const std::string old = write_file(folder.path("old.txt"), "earlier result");
  ASSERT_EQ(0, chmod(old.c_str(), 0444));
  const std::string new_file = closed + "/out.txt";
  EXPECT_EQ(open_error(new_file) + "\n" + open_error(old), text_from_child([&] {
              if (!become_nobody()) return std::string("no right to become another user");
              return call(new_file) + "\n" + call(old);
            }));
  EXPECT_FALSE(std::filesystem::exists(new_file));
  EXPECT_EQ("earlier result", read_file(old));
}

TEST_F(Output, AFolderADanglingLinkAndALongPathAreReported) {
  EXPECT_EQ(open_error(folder.path()), call(folder.path()));
  EXPECT_EQ(open_error(folder.path() + "/"), call(folder.path() + "/"));
  const std::string link = folder.path("link.txt");
  ASSERT_EQ(0, symlink("none/out.txt", link.c_str()));
  EXPECT_EQ(open_error(link), call(link));
  const std::string path(5000, 'x');
  EXPECT_EQ(open_error(path).substr(0, 2 + 2047), call(path));
  EXPECT_EQ(open_error(recipe + "/out.txt"), call(recipe + "/out.txt"));
}

TEST_F(Output, ALinkToAFileThatDoesNotExistYetCreatesIt) {
  ASSERT_EQ(0, symlink("new.txt", folder.path("link.txt").c_str()));
  EXPECT_EQ("0 ", call(folder.path("link.txt")));
  EXPECT_EQ(read_file(folder.path("whole.txt")), read_file(folder.path("new.txt")));
}

TEST_F(Output, AFullDeviceIsNotReported) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full here";
  EXPECT_EQ("0 ", call("/dev/full"));
}

// A small file system in memory that only the child process sees. The start of the complete result fills it to the last
// byte.
TEST_F(Output, ADiskThatFillsUpTruncatesTheResultAndIsNotReported) {
  const std::string disk = folder.path("disk");
  ASSERT_TRUE(std::filesystem::create_directory(disk));
  const std::string got = text_from_child([&]() -> std::string {
    const std::string size = "size=" + std::to_string(TINY);
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tmpfs", disk.c_str(), "tmpfs", 0, size.c_str()) != 0) {
      return std::string("no mount: ") + std::strerror(errno);
    }
    struct statvfs capacity {};
    if (statvfs(disk.c_str(), &capacity) != 0) return "the size of the disk is not known";
    const std::string outcome = call(disk + "/out.txt");
    return outcome + "\n" + std::to_string(capacity.f_blocks * capacity.f_frsize) + "\n" + read_file(disk + "/out.txt");
  });
  if (got.starts_with("no mount: ")) GTEST_SKIP() << "a file system can't be mounted here: " << got;
  const std::string whole = read_file(folder.path("whole.txt"));
  std::istringstream lines(got);
  std::string outcome;
  std::size_t capacity = 0;
  std::getline(lines, outcome);
  lines >> capacity;
  ASSERT_EQ(std::string("0 "), outcome);
  ASSERT_GE(capacity, TINY);
  ASSERT_LT(capacity, whole.size()) << "the result fits on the smallest disk that there is";
  EXPECT_EQ(whole.substr(0, capacity), got.substr(static_cast<std::size_t>(lines.tellg()) + 1));
}

}  // namespace
}  // namespace vorlen_test

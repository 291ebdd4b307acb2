// Kinds of files and rights that only POSIX has: pipes, devices, links, files of the kernel.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <thread>

#include "recipe/read_outcome.h"
#include "support/child_process.h"

namespace vorlen_test {
namespace {

std::string unreadable(const std::string& path) { return "Error reading file " + path + "\nFailed to open file"; }

void expect_refused_file(const std::string& path, const std::string& error) {
  const ReadOutcome outcome = read_recipe_file(path);
  EXPECT_EQ(-1, outcome.status);
  EXPECT_EQ(error, outcome.error);
}

TEST(PosixFiles, APipeOrADeviceReadsLikeAMissingFile) {
  const TempFolder folder;
  const std::string pipe = folder.path("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  for (const std::string& path : {pipe, std::string("/dev/zero"), std::string("/dev/null"), std::string("/dev/full")}) {
    expect_refused_file(path, unreadable(path));
  }
}

// A process that waits to write into the pipe continues to wait: the pipe has not been opened.
TEST(PosixFiles, APipeIsNotOpened) {
  const TempFolder folder;
  const std::string pipe = folder.path("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  bool opened = false;
  std::thread writer([&] {
    const int descriptor = open(pipe.c_str(), O_WRONLY);  // returns when a reader comes
    close(descriptor);
    opened = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  expect_refused_file(pipe, unreadable(pipe));
  EXPECT_FALSE(opened);
  const int reader = open(pipe.c_str(), O_RDONLY);
  writer.join();
  close(reader);
}

// A file of the kernel that reports size 0, and blocks or never ends when it is read.
TEST(PosixFiles, AFileOfTheKernelHasTheSizeThatItReports) {
  for (const std::string& path : {std::string("/proc/self/mem"), std::string("/proc/kmsg")}) {
    if (!std::filesystem::exists(path) || access(path.c_str(), R_OK) != 0) continue;
    expect_refused_file(path, "Error reading file " + path + "\nError document empty.");
  }
}

TEST(PosixFiles, ADanglingLinkAndALinkToItselfReadLikeAMissingFile) {
  const TempFolder folder;
  for (const char* target : {"none.xml", "link.xml"}) {
    const std::string link = folder.path("link.xml");
    ASSERT_EQ(0, symlink(target, link.c_str()));
    expect_refused_file(link, unreadable(link));
    unlink(link.c_str());
  }
}

TEST(PosixFiles, ALinkToARecipeIsRead) {
  const TempFolder folder;
  RecipeBuilder().write(folder.path("recipe.xml"));
  ASSERT_EQ(0, symlink("recipe.xml", folder.path("link.xml").c_str()));
  EXPECT_EQ(0, read_recipe_file(folder.path("link.xml")).status);
}

TEST(PosixFiles, AFileWithoutTheRightToReadReadsLikeAMissingFile) {
  const TempFolder folder;
  ASSERT_EQ(0, chmod(folder.path().c_str(), 0755));
  const std::string open_file = RecipeBuilder().write(folder.path("open.xml"));
  const std::string closed_file = RecipeBuilder().write(folder.path("closed.xml"));
  ASSERT_EQ(0, chmod(open_file.c_str(), 0644));
  ASSERT_EQ(0, chmod(closed_file.c_str(), 0000));
  const std::string got = text_from_child([&] {
    if (!become_nobody()) return std::string("no right to become another user");
    const ReadOutcome good = read_recipe_file(open_file);
    const ReadOutcome bad = read_recipe_file(closed_file);
    return std::to_string(good.status) + good.error + "\n" + std::to_string(bad.status) + bad.error;
  });
  EXPECT_EQ("0\n-1" + unreadable(closed_file), got);
}

}  // namespace
}  // namespace vorlen_test

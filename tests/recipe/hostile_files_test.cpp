// Files that are not recipes, or are recipes made to do harm: each is read, or quickly rejected with a message.
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

// The parser's own text, line and column for a file with this content.
void expect_parser_fault(const std::string& text, const std::string& fault) {
  const TempFolder folder;
  const std::string path = write_file(folder.path("recipe.xml"), text);
  expect_refused_file(path, "Error reading file " + path + "\n" + fault);
}

std::string utf16(const std::string& ascii, bool big_endian) {
  std::string text = big_endian ? "\xFE\xFF" : "\xFF\xFE";
  for (char c : ascii) text += big_endian ? std::string{'\0', c} : std::string{c, '\0'};
  return text;
}

TEST(HostileFiles, APipeOrADeviceReadsLikeAMissingFile) {
  const TempFolder folder;
  const std::string pipe = folder.path("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  for (const std::string& path : {pipe, std::string("/dev/zero"), std::string("/dev/null"), std::string("/dev/full")}) {
    expect_refused_file(path, unreadable(path));
  }
}

// A process that waits to write into the pipe continues to wait: the pipe has not been opened.
TEST(HostileFiles, APipeIsNotOpened) {
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
TEST(HostileFiles, AFileOfTheKernelHasTheSizeThatItReports) {
  for (const std::string& path : {std::string("/proc/self/mem"), std::string("/proc/kmsg")}) {
    if (!std::filesystem::exists(path) || access(path.c_str(), R_OK) != 0) continue;
    expect_refused_file(path, "Error reading file " + path + "\nError document empty.");
  }
}

TEST(HostileFiles, ADanglingLinkAndALinkToItselfReadLikeAMissingFile) {
  const TempFolder folder;
  for (const char* target : {"none.xml", "link.xml"}) {
    const std::string link = folder.path("link.xml");
    ASSERT_EQ(0, symlink(target, link.c_str()));
    expect_refused_file(link, unreadable(link));
    unlink(link.c_str());
  }
}

TEST(HostileFiles, ALinkToARecipeIsRead) {
  const TempFolder folder;
  RecipeBuilder().write(folder.path("recipe.xml"));
  ASSERT_EQ(0, symlink("recipe.xml", folder.path("link.xml").c_str()));
  EXPECT_EQ(0, read_recipe_file(folder.path("link.xml")).status);
}

TEST(HostileFiles, APathOf5000BytesReadsLikeAMissingFile) {
  for (const std::string& path : {std::string(5000, 'x'), "/" + std::string(4999, '/') + "etc"}) {
    expect_refused_file(path, unreadable(path));
  }
}

TEST(HostileFiles, AFileWithoutTheRightToReadReadsLikeAMissingFile) {
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

// What the parser makes of the bytes: TinyXML 2.6.2.
TEST(HostileFiles, ZerosEndTheText) {
  const std::string recipe = RecipeBuilder().text();
  const TempFolder folder;
  const std::string with_rest = recipe + std::string(10, '\0') + "<<<";
  EXPECT_EQ(0, read_recipe_file(write_file(folder.path("r.xml"), with_rest)).status);
  expect_parser_fault(std::string(1000, '\0'), "Error document empty.");
  expect_parser_fault('\0' + recipe, "Error document empty.");
  const std::size_t inside = recipe.find("<chemistry") + 4;
  const ReadOutcome cut = read_text(std::string(recipe).replace(inside, 1, 1, '\0'));
  EXPECT_EQ(-1, cut.status);
}

TEST(HostileFiles, Utf16IsRejected) {
  for (bool big_endian : {false, true}) {
    expect_parser_fault(utf16(RecipeBuilder().text(), big_endian), "Error document empty.");
    // Without the mark the text ends at its first zero.
    const std::string bare = utf16(RecipeBuilder().text(), big_endian).substr(2);
    EXPECT_NE(0, read_text(bare).status);
  }
}

TEST(HostileFiles, AByteOrderMarkAloneIsAnEmptyDocument) {
  expect_parser_fault("\xEF\xBB\xBF", "Error document empty.");
  EXPECT_EQ(0, read_text("\xEF\xBB\xBF" + RecipeBuilder().text()).status);
}

TEST(HostileFiles, ThingsWithoutAnEndAreReported) {
  const std::string open = "<NonstSurfChem>";
  const std::string many(1 << 20, 'x');
  // What is not closed includes all that follows: the file ends within the element.
  expect_parser_fault(open + "<!--" + many, "Error reading Element value.");
  expect_parser_fault(open + "<![CDATA[" + many, "Error reading Element value.");
  EXPECT_EQ(-1, read_text(open + "<a b=\"" + many).status);
  EXPECT_EQ(-1, read_text(open + "<!DOCTYPE " + many).status);
  EXPECT_EQ(-1, read_text(open + many).status);
  EXPECT_EQ(-1, read_text("<" + many).status);
  EXPECT_EQ("Element NonstSurfChem is not found", read_text("<!--" + many).error);
  EXPECT_EQ("Element NonstSurfChem is not found", read_text("<?xml version=\"" + many).error);
}

// A sparse file uses no space on the disk, and its zeros end the text.
TEST(HostileFiles, AboveASizeAFileIsRejectedUnread) {
  constexpr std::uintmax_t MAX = std::uintmax_t{64} << 20;
  const TempFolder folder;
  const std::string path = RecipeBuilder().write(folder.path("large.xml"));
  std::filesystem::resize_file(path, MAX);
  EXPECT_EQ(0, read_recipe_file(path).status);
  for (const std::uintmax_t size : {MAX + 1, std::uintmax_t{500000000}, std::uintmax_t{1} << 40}) {
    std::error_code not_possible;
    std::filesystem::resize_file(path, size, not_possible);
    if (not_possible) continue;  // no sparse files of that size here
    expect_refused_file(path, "Error reading file " + path + "\nFile is larger than 64 MiB");
  }
}

TEST(HostileFiles, MoreThan100AttributesAreRejected) {
  const auto with = [](int count) {
    std::string text = "<NonstSurfChem";
    for (int i = 0; i < count; ++i) text += " a" + std::to_string(i) + "=\"\"";
    return text + "/>";
  };
  EXPECT_EQ("Element NonstSurfChem:material is not found", read_text(with(100)).error);
  const TempFolder folder;
  // Compared each with each, these would take a minute.
  const std::string path = write_file(folder.path("r.xml"), with(300000));
  expect_refused_file(path, "Error reading file " + path + "\nAn element has more than 100 attributes");
}

}  // namespace
}  // namespace vorlen_test

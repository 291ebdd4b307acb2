// Files that are not recipes, or are recipes made to do harm: each is read, or quickly rejected with a message.
#include <gtest/gtest.h>

#include <filesystem>

#include "recipe/read_outcome.h"

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

TEST(HostileFiles, APathOf5000BytesReadsLikeAMissingFile) {
  for (const std::string& path : {std::string(5000, 'x'), "/" + std::string(4999, '/') + "etc"}) {
    expect_refused_file(path, unreadable(path));
  }
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

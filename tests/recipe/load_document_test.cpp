// The XML file as a document: the same as the XML library's own way of reading a file gives, text and faults alike.
#include "recipe/load_document.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

// What became of a file: the document printed, or the fault with its place.
std::string outcome_of(const TiXmlDocument& document) {
  if (document.Error()) {
    return std::string(document.ErrorDesc()) + " " + std::to_string(document.ErrorRow()) + " " +
           std::to_string(document.ErrorCol());
  }
  TiXmlPrinter printer;
  document.Accept(&printer);
  return printer.Str();
}

void expect_the_same(const std::string& path) {
  TiXmlDocument by_library;
  by_library.LoadFile(path.c_str());
  TiXmlDocument document;
  std::string error;
  EXPECT_EQ(!by_library.Error(), vorlen::load_document(path.c_str(), document, error)) << path;
  EXPECT_EQ(by_library.Error(), !error.empty()) << path;
  EXPECT_EQ(outcome_of(by_library), outcome_of(document)) << path;
}

TEST(LoadDocument, ReadsTheStoredRecipesLikeTheLibrary) {
  int files = 0;
  for (const char* folder : {VORLEN_TEST_DATA "/bad", VORLEN_TEST_DATA "/recipes", VORLEN_EXAMPLES}) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() != ".xml") continue;
      expect_the_same(entry.path().string());
      ++files;
    }
  }
  EXPECT_GT(files, 100);
}

TEST(LoadDocument, ReadsLineEndsZerosAndFaultsLikeTheLibrary) {
  using namespace std::string_literals;
  const TempFolder folder;
  const std::vector<std::string> texts = {
      "",
      "\n",
      "\r",
      "plain",
      "<a>\r\n<b c=\"1\r\n2\"/>\r\r\n \r</a>\r\n",
      "<a>\n\r<b>x\ry\r\nz</b>\n\n</a>",
      "\r\n\r\n<a b=c d>\r\n</a>",
      "<a>\r\n<b>\r\n</a>",
      "<a/>\0<b>"s,
      "<a>\0</a>"s,
      "\0"s,
      "\xEF\xBB\xBF<a>\xC3\xA4</a>",
      "<?xml version=\"1.0\" encoding=\"latin1\"?><a>\xE4</a>",
      "<!-- endless",
      "<a><![CDATA[<b>]]></a>",
  };
  for (const std::string& text : texts) expect_the_same(write_file(folder.path("text.xml"), text));
}

// Blocks of the size in which the file is read, and one byte more and less.
TEST(LoadDocument, ReadsFilesOfAnyLength) {
  const TempFolder folder;
  for (const std::size_t length : {65535u, 65536u, 65537u, 131072u, 200000u}) {
    expect_the_same(write_file(folder.path("text.xml"), "<a>" + std::string(length - 7, 'x') + "</a>"));
  }
}

}  // namespace
}  // namespace vorlen_test

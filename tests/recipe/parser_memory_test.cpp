// The XML parser survives a failed allocation. It takes less memory than the check before it requires, so that a recipe
// that does not fit in memory is rejected before it is parsed. The memory of the reader has a limit.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <new>
#include <string>

#include "api/vorlen_solver.h"
#include "recipe/load_document.h"
#include "recipe/read_outcome.h"
#include "support/allocation_counter.h"
#include "support/recipe_builder.h"
#include "support/sanitizer.h"

#ifdef VORLEN_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace vorlen_test {
namespace {

std::string repeated(const std::string& piece, int times) {
  std::string text;
  for (int i = 0; i < times; ++i) text += piece;
  return text;
}

// An allocation that fails inside the parser ends it with std::bad_alloc and leaves a document that can be destroyed.
// Names and values are too long for the buffer inside a string object. The texts contain one of each kind of node, the
// deepest nesting that is parsed, a blank text and a repeated attribute, which the parser itself deletes.
TEST(ParserMemory, AFailedAllocationLeavesADocumentThatCanBeDestroyed) {
#ifdef VORLEN_ADDRESS_SANITIZER
  const __lsan::ScopedDisabler the_parser_leaks;
#endif
  const std::string word(40, 'w');
  const std::string things = "<a " + word + "='" + word + "' b=\"1\" c=d/>" + word + "<!--" + word + "--><!" + word +
                             " x><![CDATA[" + word + "]]><" + word + ">&lt;</" + word + ">";
  for (const std::string& text :
       {"<?xml version='1.0' encoding='" + word + "'?><r>" + things + "</r>",
        repeated("<n m='1'>", 100) + things + repeated("</n>", 100), std::string("<r>&#32;<a b='1' b='2'></a></r>")}) {
    long failures = 0;
    for (bool failed = true; failed; failures += failed) {
      TiXmlDocument document;
      refused_count = 1;
      refused_from = allocations + failures;
      failed = false;
      try {
        document.Parse(text.c_str());
      } catch (const std::bad_alloc&) {
        failed = true;
      }
      refused_from = -1;
    }
    EXPECT_GE(failures, 4) << "at least one for each element and attribute";
  }
}

void expect_within_limit(const std::string& text) {
  const long limit = static_cast<long>(vorlen::tree_size_max(text));
  TiXmlDocument document;
  const long before = live_bytes;
  peak_bytes = before;
  document.Parse(text.c_str());
  EXPECT_LE(peak_bytes - before, limit) << text.substr(0, 100);
}

TEST(ParserMemory, StaysBelowTheLimitForTheStoredRecipes) {
  if (!LIVE_BLOCKS_KNOWN) GTEST_SKIP() << "the sanitizer has its own allocator";
  for (const char* folder : {VORLEN_TEST_DATA "/bad", VORLEN_TEST_DATA "/recipes", VORLEN_EXAMPLES}) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() == ".xml") expect_within_limit(read_file(entry.path().string()));
    }
  }
}

// Texts with as many nodes as possible for their length: the smallest elements, attributes and pieces of text, every
// other kind of tag, and names and values of lengths around those at which a string doubles its capacity.
TEST(ParserMemory, StaysBelowTheLimitForTextsWithManyNodes) {
  if (!LIVE_BLOCKS_KNOWN) GTEST_SKIP() << "the sanitizer has its own allocator";
  expect_within_limit("");
  expect_within_limit("x");
  expect_within_limit("<a");
  for (const char* piece : {"<a/>", "<a></a>", "<a>b</a>", "b<a/>", "<a b=''/>", "<!---->", "<!>", "<?x?>",
                            "<![CDATA[]]>", "<a>&#1;</a>", "<a b=c/>"}) {
    expect_within_limit("<r>" + repeated(piece, 1000) + "</r>");
    expect_within_limit(repeated(piece, 1000));
  }
  std::string attributes = "<r";
  for (int i = 0; i < 1000; ++i) attributes += " a" + std::to_string(i) + "=''";
  expect_within_limit(attributes + "/>");
  expect_within_limit(repeated("<a>", 90) + repeated("</a>", 90));
  for (const int length : {14, 15, 16, 17, 30, 31, 32, 61, 1000, 1025, 100000}) {
    const std::string word(static_cast<std::size_t>(length), 'w');
    expect_within_limit("<" + word + " " + word + "='" + word + "'>" + word + "</" + word + ">");
    expect_within_limit("<r>" + repeated("<" + word + "/>", 100) + "</r>");
    expect_within_limit("<!--" + word + "--><?" + word + "?><!" + word + "><![CDATA[" + word + "]]>");
  }
}

long virtual_size() {
  long pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * sysconf(_SC_PAGESIZE);
}

TEST(ParserMemory, IsNotTakenForARecipeThatIsTooLarge) {
  if (!LIVE_BLOCKS_KNOWN) GTEST_SKIP() << "the sanitizer has its own allocator";
  const TempFolder folder;
  const std::string text =
      "<NonstSurfChem>" + repeated("<stage><tau val=\"1\"/></stage>\n", 50000) + "</NonstSurfChem>";
  const std::string input = write_file(folder.path("large.xml"), text);
  char error[VORLEN_ERROR_BUFFER_SIZE] = "";

  rlimit before{};
  ASSERT_EQ(0, getrlimit(RLIMIT_AS, &before));
  rlimit tight = before;
  tight.rlim_cur = static_cast<rlim_t>(virtual_size()) + vorlen::tree_size_max(text) / 8;
  ASSERT_EQ(0, setrlimit(RLIMIT_AS, &tight));
  const long blocks = live_blocks;
  const long bytes = live_bytes;
  peak_bytes = bytes;
  int rejected = 0;
  for (int i = 0; i < 20; ++i) {
    if (runSurfChem(input.c_str(), "", error) == 1 && std::string(error) == "Out of memory") ++rejected;
  }
  const long left = live_blocks - blocks;
  const long peak = peak_bytes;
  ASSERT_EQ(0, setrlimit(RLIMIT_AS, &before));
  EXPECT_EQ(20, rejected) << error;
  EXPECT_EQ(0, left);
  EXPECT_LT(peak - bytes, 4 * static_cast<long>(text.size())) << "more than the text, whose string grows once";
  EXPECT_EQ(1, runSurfChem(input.c_str(), "", error));
  EXPECT_STREQ("Element NonstSurfChem:material is not found", error);
}

// The largest number of stages with the longest names: 268435456 bytes / 1000000 = 268.4. While the list grows to 2^20
// records of 512 bytes, its old block of half the size exists as well: 0.81e9 bytes together. Half of the names exist
// at that time, 0.13e9 bytes, plus a few bytes of the allocator for each.
TEST(ReaderMemory, OfOneMillionStagesWithTheLongestNamesIsOneGigabyte) {
  const auto named = [](std::size_t length) {
    RecipeBuilder recipe;
    recipe.make_periodic(1, 1000000, 1).set("process_stages/stage_1/stage_1_1/name", std::string(length, 'x'));
    return recipe;
  };
  const long before = live_bytes;
  peak_bytes = before;
  const ReadOutcome outcome = read(named(268));
  const long peak = peak_bytes;
  EXPECT_EQ(0, outcome.status) << outcome.error;
  EXPECT_EQ(1000000u, outcome.recipe.active_stages.size());
  if (LIVE_BLOCKS_KNOWN) {
    EXPECT_GE(1'000'000'000, peak - before);
    EXPECT_LE(800'000'000, peak - before) << "the memory is not counted";
  }
  expect_refused(named(269), "Names of all periods take more than 256 MiB: NonstSurfChem:process_stages:stage_1");
}

}  // namespace
}  // namespace vorlen_test

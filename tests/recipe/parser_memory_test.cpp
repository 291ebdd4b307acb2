// When memory runs out, at any allocation, the parser frees everything that it has allocated. It allocates less than
// what is reserved before the call, so a recipe too large for the memory is rejected before anything is built. The
// memory for what the reader makes of a recipe is limited.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <new>
#include <string>

#include "api/vorlen_solver.h"
#include "recipe/load_document.h"
#include "recipe/parse_document.h"
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

// How many allocations can fail under the text. None of them leaves a block.
long failing_allocations(const std::string& text) {
  long failures = 0;
  for (bool failed = true; failed; failures += failed) {
    failed = false;
    const long blocks = live_blocks;
    {
      TiXmlDocument document;
      refused_from = allocations + failures;
      refused_count = 1;
      try {
        vorlen::parse_document(text.c_str(), document);
      } catch (const std::bad_alloc&) {
        failed = true;
        EXPECT_EQ(nullptr, document.FirstChild());
      }
      refused_from = -1;
    }
    EXPECT_EQ(blocks, live_blocks) << "allocation " << failures;
  }
#ifdef VORLEN_ADDRESS_SANITIZER
  EXPECT_EQ(0, __lsan_do_recoverable_leak_check());
#endif
  return failures;
}

// Names and values are too long for the room in a string object.
TEST(ParserMemory, IsFreedWhicheverAllocationFails) {
  const std::string word(40, 'w');
  const std::string things = "<a " + word + "='" + word + "' b=\"1\" c=d/>" + word + "<!--" + word + "--><!" + word +
                             " x><![CDATA[" + word + "]]><" + word + ">&lt;</" + word + ">";
  EXPECT_GE(failing_allocations(things), 6) << "three attributes and the element, its name, a text";
  EXPECT_GE(failing_allocations("<?xml version='1.0' encoding='" + word + "'?><r>" + things + "<r>" + things +
                                "</r></r>" + things),
            3 * 6);
}

TEST(ParserMemory, IsFreedAtTheDeepestLevel) {
  const std::string word(40, 'w');
  const std::string text = repeated("<n m='1'>", 100) + "<a b='" + word + "'/>t" + repeated("</n>", 100);
  EXPECT_GE(failing_allocations(text), 101 * 2 + 2) << "an element and an attribute on each level, a value, a text";
}

// The parser deletes a text of blanks itself.
TEST(ParserMemory, IsFreedOnce) {
  EXPECT_GE(failing_allocations("<r>&#32;<a/></r>"), 3) << "two elements and a text";
  EXPECT_GE(failing_allocations("<r><a b='1' b='2'></a></r>"), 4) << "two elements and two attributes";
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
  if (!LIVE_BLOCKS_KNOWN) GTEST_SKIP() << "the sanitizer has its own memory";
  for (const char* folder : {VORLEN_TEST_DATA "/bad", VORLEN_TEST_DATA "/recipes", VORLEN_EXAMPLES}) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() == ".xml") expect_within_limit(read_file(entry.path().string()));
    }
  }
}

// Texts that have as much tree as possible for their length: the smallest elements, attributes and pieces of text,
// names and values of lengths around the doubling of a string, and each other kind of tag.
TEST(ParserMemory, StaysBelowTheLimitForTextsThatAreAllTree) {
  if (!LIVE_BLOCKS_KNOWN) GTEST_SKIP() << "the sanitizer has its own memory";
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
  if (!LIVE_BLOCKS_KNOWN) GTEST_SKIP() << "the sanitizer has its own memory";
  const TempFolder folder;
  const std::string text =
      "<NonstSurfChem>" + repeated("<stage><tau val=\"1\"/></stage>\n", 50000) + "</NonstSurfChem>";
  const std::string input = write_file(folder.path("large.xml"), text);
  char told[VORLEN_ERROR_BUFFER_SIZE] = "";

  rlimit before{};
  ASSERT_EQ(0, getrlimit(RLIMIT_AS, &before));
  rlimit tight = before;
  tight.rlim_cur = static_cast<rlim_t>(virtual_size()) + vorlen::tree_size_max(text) / 8;
  ASSERT_EQ(0, setrlimit(RLIMIT_AS, &tight));
  const long blocks = live_blocks;
  const long bytes = live_bytes;
  peak_bytes = bytes;
  int refused = 0;
  for (int i = 0; i < 20; ++i) {
    if (runSurfChem(input.c_str(), "", told) == 1 && std::string(told) == "Out of memory") ++refused;
  }
  const long left = live_blocks - blocks;
  const long peak = peak_bytes;
  ASSERT_EQ(0, setrlimit(RLIMIT_AS, &before));
  EXPECT_EQ(20, refused) << told;
  EXPECT_EQ(0, left);
  EXPECT_LT(peak - bytes, 4 * static_cast<long>(text.size())) << "more than the text, which grows once";
  EXPECT_EQ(1, runSurfChem(input.c_str(), "", told));
  EXPECT_STREQ("Element NonstSurfChem:material is not found", told);
}

// As many stages as there may be, with names as long as there may be: 268435456 bytes / 1000000 = 268.4. A growing list
// of 2^20 records of 512 bytes lies beside its old self of half the size, 0.81e9 bytes; half of the names are there
// then, 0.13e9, and some bytes of the allocator with each.
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

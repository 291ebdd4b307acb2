// Whichever allocation of a run fails, the call returns "Out of memory" and closes its files, and the next call gives
// the same result as in a fresh process. Every block is freed, except when the allocation fails inside the XML parser,
// which leaks the part of the document that it is building.
//
// Each failure is tested in a separate process that has made no call before, so that allocations made only once are
// included.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <thread>

#include "api/run_support.h"
#include "recipe/load_document.h"
#include "support/allocation_counter.h"
#include "support/recipe_builder.h"
#include "support/sanitizer.h"

#ifdef VORLEN_ADDRESS_SANITIZER
#include <sanitizer/lsan_interface.h>
#endif

namespace vorlen_test {
namespace {

constexpr long ALL = 1L << 60;

struct Case {
  std::string name;
  RecipeBuilder recipe;
  std::int32_t result;
  std::string text;
};

// Short runs that reach all parts of the library. LongRun grows the lists of the history beyond their initial 1024
// entries.
Case recipe_case(const std::string& name) {
  const auto of_duration = [](const char* tau, const RecipeOptions& options) {
    RecipeBuilder recipe(options);
    recipe.set("process_stages/stage_1/tau", tau);
    return recipe;
  };
  const RecipeOptions stress_off = {.stress_model = "relax", .n_post_stages = 1};
  if (name == "StressOff") return {name, of_duration("0.01", stress_off), 0, ""};
  if (name == "VDislocation") return {name, of_duration("0.01", {.n_post_stages = 1}), 0, ""};
  if (name == "Staged") {
    RecipeBuilder recipe = of_duration("0.01", {.n_stages = 2, .n_post_stages = 1});
    return {name, recipe.set("integration/scheme", "staged").set("process_stages/stage_2/tau", "0.02"), 0, ""};
  }
  // In this one V-defects open.
  if (name == "StagedLongRun") {
    return {name, of_duration("200", {}).set("integration/scheme", "staged"), 0, ""};
  }
  if (name == "LongRun") return {name, of_duration("11000", stress_off), 0, ""};
  if (name == "Faulty") {
    RecipeBuilder recipe = of_duration("0.01", stress_off).remove("post_stages");
    return {name, recipe, 1, "Element NonstSurfChem:post_stages is not found"};
  }
  RecipeBuilder recipe = of_duration("0.01", stress_off);
  recipe.set("pre_stages/pre_stage_1/dislocations/disl_model", "inherited");
  return {name, recipe, 1, "Cannot inherit dislocation density for first pre-stage"};
}

long open_descriptors() {
  const std::filesystem::directory_iterator entries("/proc/self/fd");
  return std::distance(begin(entries), end(entries));
}

// Runs body in a child process and returns what it has written to the descriptor that it is given.
template <class Body>
std::string in_child(const Body& body) {
  int ends[2];
  if (pipe(ends) != 0) return "no pipe";
  const pid_t child = fork();
  if (child == 0) {
    close(ends[0]);
    body(ends[1]);
    _exit(0);
  }
  close(ends[1]);
  std::string said;
  char block[4096];
  for (ssize_t n = 0; (n = read(ends[0], block, sizeof block)) > 0;) said.append(block, static_cast<std::size_t>(n));
  close(ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) said += "the process has died, status " + std::to_string(status);
  return said;
}

void say(int descriptor, const std::string& text) {
  [[maybe_unused]] const ssize_t written = write(descriptor, text.data(), text.size());
}

// The allocations of a call that the XML parser makes, by their numbers: from first up to, not including, end.
struct ParserAllocations {
  long first = 0;
  long end = 0;
};

// A call allocates nothing before load_document, and load_document nothing after the parser.
ParserAllocations parser_allocations(const std::string& input) {
  const auto count = [](const auto& body) {
    const long before = allocations;
    body();
    return allocations - before;
  };
  const std::string text = read_file(input);
  const long of_parser = count([&] { TiXmlDocument().Parse(text.c_str()); });
  const long of_document = count([] { TiXmlDocument(); });
  const long of_loading = count([&] {
    TiXmlDocument document;
    std::string error;
    vorlen::load_document(input.c_str(), document, error);
  });
  return {of_loading - (of_parser - of_document), of_loading};
}

class OutOfMemory : public testing::TestWithParam<const char*> {
 protected:
  // Makes a call in which count allocations fail, starting with the given one, and then another call. Writes what is
  // wrong to answer.
  void fail_and_call_again(long number, long count, int answer) const {
    char text[VORLEN_ERROR_BUFFER_SIZE] = "";
    const long descriptors = open_descriptors();
    const long blocks = live_blocks;
    const bool in_parser = number >= of_parser.first && number < of_parser.end;
#ifdef VORLEN_ADDRESS_SANITIZER
    if (in_parser) __lsan_disable();
#endif
    refused_count = count;
    refused_from = allocations + number;
    const std::int32_t result = runSurfChem(input.c_str(), output.c_str(), text);
    refused_from = -1;
#ifdef VORLEN_ADDRESS_SANITIZER
    if (in_parser) __lsan_enable();
#endif
    const long left = live_blocks - blocks;

    const std::string at = "allocation " + std::to_string(number) + " of " + std::to_string(count) + ": ";
    if (result != 1 || std::string(text) != "Out of memory") say(answer, at + std::to_string(result) + text + "\n");
    const long may_leak = in_parser ? number - of_parser.first : 0;
    if (left < 0 || left > may_leak) say(answer, at + std::to_string(left) + " blocks are not freed\n");
    if (open_descriptors() != descriptors) say(answer, at + "a file is left open\n");

    const CallOutcome again = call_library(input, output);
    if (again.result != tested.result || (again.result == 1 && again.text != tested.text)) {
      say(answer, at + "the next call ends with " + again.text + "\n");
    }
    if (read_file(output) != expected) say(answer, at + "the next call gives another file\n");
  }

  const TempFolder folder;
  const Case tested = recipe_case(GetParam());
  const std::string input = tested.recipe.write(folder.path("recipe.xml"));
  const std::string output = folder.path("out.txt");
  std::string expected;
  ParserAllocations of_parser;
};

TEST_P(OutOfMemory, EndsTheCallWhicheverAllocationFails) {
  const std::string said = in_child([&](int answer) {
    char text[VORLEN_ERROR_BUFFER_SIZE] = "";
    const long before = allocations;
    const long blocks = live_blocks;
    const std::int32_t result = runSurfChem(input.c_str(), output.c_str(), text);
    const long left = live_blocks - blocks;
    const std::string lost = left == 0 ? "" : ", blocks not freed: " + std::to_string(left);
    say(answer, std::to_string(allocations - before) + " " + std::to_string(result) + text + lost);
  });
  ASSERT_EQ(std::to_string(tested.result) + tested.text, said.substr(said.find(' ') + 1));
  const long of_a_run = std::stol(said);
  ASSERT_GT(of_a_run, 100);
  expected = read_file(output);
  const std::string range = in_child([&](int answer) {
    const ParserAllocations found = parser_allocations(input);
    say(answer, std::to_string(found.first) + " " + std::to_string(found.end));
  });
  of_parser = {std::stol(range), std::stol(range.substr(range.find(' ')))};
  ASSERT_LT(0, of_parser.first);
  ASSERT_LT(of_parser.first + 50, of_parser.end) << "an element or attribute is one allocation at least";
  ASSERT_LT(of_parser.end, of_a_run);
  // The allocations before its lists grow are those of the short run.
  const long first = tested.name == "LongRun" ? of_a_run - 30 : 0;

  const auto fail_all = [&](const auto& attempt) {
    for (long number = first; number < of_a_run; ++number) {
      for (const long count : {1L, ALL}) attempt(number, count);
    }
  };
  std::string wrong;
  if (LIVE_BLOCKS_KNOWN) {
    fail_all([&](long number, long count) {
      wrong += in_child([&](int answer) { fail_and_call_again(number, count, answer); });
    });
  } else {
    wrong = in_child([&](int answer) {
      fail_all([&](long number, long count) { fail_and_call_again(number, count, answer); });
#ifdef VORLEN_ADDRESS_SANITIZER
      if (__lsan_do_recoverable_leak_check() != 0) say(answer, "memory is leaked\n");
#endif
    });
  }
  EXPECT_EQ("", wrong);
}

INSTANTIATE_TEST_SUITE_P(Recipe, OutOfMemory,
                         testing::Values("StressOff", "VDislocation", "Staged", "StagedLongRun", "LongRun", "Faulty",
                                         "Rejected"),
                         [](const auto& instance) { return std::string(instance.param); });

// A host may open the library late and call it on a new thread: the library's thread-local records must not be
// allocated then.
TEST(OutOfMemoryOnAThread, EndsTheCallOfALibraryOpenedLate) {
  const TempFolder folder;
  const std::string input = recipe_case("VDislocation").recipe.write(folder.path("recipe.xml"));
  std::string said;
  long number = 0;
  for (; number < 1000 && said != "0"; ++number) {
    said = in_child([&](int answer) {
      void* const library = dlopen(VORLEN_LIBRARY, RTLD_NOW);
      if (library == nullptr) return say(answer, "not opened");
      const auto run = reinterpret_cast<decltype(&runSurfChem)>(dlsym(library, "runSurfChem"));
      std::thread([&] {
        char text[VORLEN_ERROR_BUFFER_SIZE] = "";
        refused_count = ALL;
        refused_from = allocations + number;
        const std::int32_t result = run(input.c_str(), "", text);
        refused_from = -1;
        say(answer, std::to_string(result) + text);
      }).join();
    });
    if (said != "0") {
      ASSERT_EQ("1Out of memory", said) << "allocation " << number;
    }
  }
  EXPECT_EQ("0", said) << "no call without a failure";
  EXPECT_GT(number, 100);
}

}  // namespace
}  // namespace vorlen_test

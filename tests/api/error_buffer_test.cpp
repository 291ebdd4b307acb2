// The error buffer, for texts of every length: texts that fit are complete, longer ones are cut, and no byte outside
// the buffer is touched.
#include "api/error_buffer.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

#include "api/run_support.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

constexpr std::size_t BUFFER_SIZE = VORLEN_ERROR_BUFFER_SIZE;
constexpr std::size_t LENGTH_MAX = 5000;  // of the texts; more than twice the buffer

// Neighbouring characters differ, so that a shifted copy is noticed.
std::string text_of(std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('a' + i % 26);
  return text;
}

TEST(ErrorBuffer, TextsOfEveryLengthAreCopiedOrCut) {
  for (std::size_t length = 0; length <= LENGTH_MAX; ++length) {
    const std::string text = text_of(length);
    std::string block(GUARD + BUFFER_SIZE + GUARD, FILL);
    vorlen::copy_error_text(text.c_str(), block.data() + GUARD);
    const std::string shown = text.substr(0, BUFFER_SIZE - 1);
    std::string expected(GUARD + BUFFER_SIZE + GUARD, FILL);
    expected.replace(GUARD, shown.size() + 1, shown.c_str(), shown.size() + 1);
    ASSERT_EQ(expected, block) << length;
  }
}

TEST(ErrorBuffer, ANullBufferIsIgnored) { vorlen::copy_error_text("text", nullptr); }

// "Error reading file " + path + line feed + "Failed to open file": 39 bytes longer than the path.
TEST(ErrorBuffer, TextsOfEveryLengthAreReturnedByTheCall) {
  const std::size_t frame = std::string("Error reading file \nFailed to open file").size();
  for (std::size_t length = frame; length <= LENGTH_MAX; ++length) {
    const std::string path = text_of(length - frame);
    const CallOutcome got = call_library(path, "");
    ASSERT_EQ(1, got.result) << length;
    ASSERT_TRUE(got.terminated && got.guarded) << length;
    ASSERT_EQ(("Error reading file " + path + "\nFailed to open file").substr(0, BUFFER_SIZE - 1), got.text);
  }
}

TEST(ErrorBuffer, ALongTextFromTheRecipeIsCut) {
  const TempFolder folder;
  for (const std::size_t length : {std::size_t{0}, std::size_t{2000}, BUFFER_SIZE, LENGTH_MAX}) {
    const std::string material = text_of(length);
    const CallOutcome got =
        call_library(RecipeBuilder().set("material", material).write(folder.path("recipe.xml")), "");
    EXPECT_EQ(1, got.result);
    EXPECT_TRUE(got.terminated && got.guarded);
    EXPECT_EQ(("Material \"" + material + "\" is not recognized").substr(0, BUFFER_SIZE - 1), got.text);
  }
}

}  // namespace
}  // namespace vorlen_test

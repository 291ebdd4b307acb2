// Every text that the library can hand to its host is explained in docs/messages.md, and the recipe that
// docs/recipe-format.md shows is a valid one.
//
// The string literals of the sources are compared with the page: a literal that holds words is a message or a piece of
// one and must stand there. Texts of the result file are none: src/results is left out.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>

#include "recipe/read_outcome.h"

namespace vorlen_test {
namespace {

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" :\n");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" :\n") - first + 1);
}

// Two words with something between them, a blank among it: a message or a piece of one, not a name or a key.
bool holds_words(const std::string& text) {
  if (text.find(' ') == std::string::npos) return false;
  int words = 0;
  int letters = 0;
  for (char c : text + " ") {
    if (std::isalpha(static_cast<unsigned char>(c)) != 0) {
      ++letters;
      continue;
    }
    if (letters >= 2) ++words;
    letters = 0;
  }
  return words >= 2;
}

// The string literals of one source file that hold words, neighbouring ones joined; comments and includes do not count.
std::set<std::string> messages_of(const std::string& source) {
  std::set<std::string> messages;
  std::string text;  // of the literals since the last code between them
  const auto finish = [&] {
    if (holds_words(text)) messages.insert(trimmed(text));
    text.clear();
  };
  for (std::size_t i = 0; i < source.size(); ++i) {
    const char c = source[i];
    if (source.compare(i, 2, "//") == 0 || source.compare(i, 8, "#include") == 0) {
      i = std::min(source.find('\n', i), source.size());
    } else if (c == '\'' && i + 2 < source.size()) {
      i += source[i + 1] == '\\' ? 3 : 2;  // a character, which may be a quote
    } else if (c == '"') {
      for (++i; i < source.size() && source[i] != '"'; ++i) {
        if (source[i] == '\\') ++i;
        text += source[i - 1] == '\\' && source[i] == 'n' ? '\n' : source[i];
      }
    } else if (std::isspace(static_cast<unsigned char>(c)) == 0) {
      finish();
    }
  }
  finish();
  return messages;
}

TEST(Messages, TheScanFindsMessagesAndOnlyThose) {
  const std::set<std::string> found = messages_of(
      "#include \"a b/c d.h\"\n// \"not a message\"\nerror = \"Number of stages\"\n    \" is zero\";\n"
      "c = '\"'; d = '\\n'; error = \"Element \" + name + \" is not found\";\nkeyword(\"thick_GaN\"); e = \"say "
      "\\\"yes\\\" now\";");
  EXPECT_EQ(found, (std::set<std::string>{"Number of stages is zero", "is not found", "say \"yes\" now"}));
}

TEST(Messages, EveryTextOfTheSourcesStandsInTheDocumentation) {
  const std::string page = read_file(VORLEN_SOURCE "/docs/messages.md");
  ASSERT_FALSE(page.empty()) << "docs/messages.md is missing";
  std::size_t n_messages = 0;
  for (const char* folder : {"api", "integrator", "model", "recipe", "strain"}) {
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(VORLEN_SOURCE "/src/" + std::string(folder))) {
      const std::string extension = entry.path().extension().string();
      if (extension != ".cpp" && extension != ".h") continue;
      for (const std::string& message : messages_of(read_file(entry.path().string()))) {
        ++n_messages;
        EXPECT_NE(page.find(message), std::string::npos)
            << "\"" << message << "\" of " << entry.path() << " is not explained";
      }
    }
  }
  EXPECT_GT(n_messages, 50u) << "the scan has lost its sources";
}

TEST(RecipeFormatPage, ItsCompleteRecipeIsRead) {
  const std::string page = read_file(VORLEN_SOURCE "/docs/recipe-format.md");
  const std::size_t begin = page.find("<?xml");
  ASSERT_NE(begin, std::string::npos);
  ReadOutcome outcome = read_text(page.substr(begin, page.find("```", begin) - begin));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.error, "");
  EXPECT_TRUE(outcome.recipe.validate_recipe(outcome.error)) << outcome.error;
}

}  // namespace
}  // namespace vorlen_test

// Every text that the library can hand to its host is explained in docs/messages.md, and the recipe that
// docs/recipe-format.md shows is a valid one.
//
// The string literals of the sources are compared with the page: a literal of several words is a message or a piece of
// one, and the page must contain it. src/results is left out, as its texts are those of the result file, and so is the
// table of the recipe, whose messages are taken from its rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>

#include "recipe/read_outcome.h"
#include "recipe/recipe_table.h"

namespace vorlen_test {
namespace {

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(" :\n");
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(" :\n") - first + 1);
}

// Two words with a blank between them: a message or a piece of one, not a name or a key.
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

// The string literals of several words in one source file, adjacent ones joined; without comments and includes.
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

// The parts of a row's text between what is filled in.
std::set<std::string> pieces_of(const std::string& rejection) {
  std::set<std::string> pieces;
  std::string rest = rejection;
  for (std::size_t open = rest.find('{'); !rest.empty(); open = rest.find('{')) {
    const std::string piece = rest.substr(0, open);
    if (holds_words(piece)) pieces.insert(trimmed(piece));
    rest = open == std::string::npos ? "" : rest.substr(rest.find('}') + 1);
  }
  return pieces;
}

TEST(Messages, PiecesOfARowAreTheTextsBetweenTheBraces) {
  EXPECT_EQ(pieces_of("Output detail \"{value}\" is not recognized"),
            (std::set<std::string>{"Output detail \"", "\" is not recognized"}));
  EXPECT_EQ(pieces_of("Number of stages is zero"), (std::set<std::string>{"Number of stages is zero"}));
}

TEST(Messages, EveryTextOfTheTableIsInTheDocumentation) {
  const std::string page = read_file(VORLEN_SOURCE "/docs/messages.md");
  std::size_t n_messages = 0;
  for (const vorlen::recipe::Row& row : vorlen::recipe::rows()) {
    for (const char* rejection : {row.rejection, row.rejection_above}) {
      for (const std::string& piece : pieces_of(rejection == nullptr ? "" : rejection)) {
        ++n_messages;
        EXPECT_NE(page.find(piece), std::string::npos) << "\"" << piece << "\" is not explained";
      }
    }
  }
  EXPECT_GT(n_messages, 30u);
}

TEST(Messages, EveryTextOfTheSourcesIsInTheDocumentation) {
  const std::string page = read_file(VORLEN_SOURCE "/docs/messages.md");
  ASSERT_FALSE(page.empty()) << "docs/messages.md is missing";
  std::size_t n_messages = 0;
  for (const char* folder : {"api", "integrator", "model", "recipe", "strain"}) {
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(VORLEN_SOURCE "/src/" + std::string(folder))) {
      const std::string extension = entry.path().extension().string();
      if ((extension != ".cpp" && extension != ".h") || entry.path().stem() == "recipe_table" ||
          entry.path().stem() == "vorlen_radau") {
        continue;  // the names of the results of vorlen_radau are for its own callers
      }
      for (const std::string& message : messages_of(read_file(entry.path().string()))) {
        ++n_messages;
        EXPECT_NE(page.find(message), std::string::npos)
            << "\"" << message << "\" of " << entry.path() << " is not explained";
      }
    }
  }
  EXPECT_GT(n_messages, 30u) << "the scan has lost its sources";
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

// The locale that POSIX lets a thread have.
#include <gtest/gtest.h>
#include <locale.h>

#include "recipe/read_outcome.h"

namespace vorlen_test {
namespace {

// A locale with a comma as decimal separator, or an empty string when this machine has none.
std::string comma_locale() {
  for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "ru_RU.UTF-8", "nl_NL.UTF-8"}) {
    const locale_t candidate = newlocale(LC_ALL_MASK, name, nullptr);
    if (candidate != nullptr) {
      freelocale(candidate);
      return name;
    }
  }
  return "";
}

TEST(ReadFileLocale, ThePointSeparatesWhateverTheThreadHasSetAndTheThreadsLocaleReturnsOnEveryPath) {
  const std::string name = comma_locale();
  if (name.empty()) GTEST_SKIP() << "no locale with a decimal comma is installed (de_DE.UTF-8, package locales)";
  const TempFolder folder;
  const std::string good = RecipeBuilder().write(folder.path("good.xml"));
  const std::string bad = RecipeBuilder().remove("material").write(folder.path("bad.xml"));
  const std::string malformed = write_file(folder.path("malformed.xml"), "<NonstSurfChem");
  const std::string incomplete =
      RecipeBuilder().set("pre_stages/pre_stage_1/stress_state", "0.5").write(folder.path("incomplete.xml"));
  const locale_t comma = newlocale(LC_ALL_MASK, name.c_str(), nullptr);
  ASSERT_NE(comma, nullptr);

  struct Path {
    std::string file;
    std::int32_t status;
  };
  for (const Path& path : {Path{good, 0}, Path{bad, 1}, Path{malformed, -1}, Path{folder.path("none.xml"), -1},
                           Path{folder.path(), -1}, Path{incomplete, 0}}) {
    const locale_t before = uselocale(comma);
    const ReadOutcome outcome = read_recipe_file(path.file);
    const locale_t left = uselocale(before);
    EXPECT_EQ(left, comma) << path.file;
    EXPECT_EQ(outcome.status, path.status) << path.file;
    if (path.file == good) {
      EXPECT_EQ(outcome.recipe.active_stages.at(0).delta, 0.008);
    }
  }
  freelocale(comma);
}

TEST(ReadFileLocale, AThreadWithoutItsOwnLocaleKeepsTheGlobalOne) {
  read(RecipeBuilder());
  read(RecipeBuilder().remove("material"));
  read_recipe_file("");
  EXPECT_EQ(uselocale(nullptr), LC_GLOBAL_LOCALE);
}

}  // namespace
}  // namespace vorlen_test

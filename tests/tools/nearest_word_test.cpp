// Edit distances counted manually, and the word that a misspelt one is taken for.
#include "check/nearest_word.h"

#include <gtest/gtest.h>

namespace vorlen_test {
namespace {

TEST(EditDistance, CountsInsertionsDeletionsAndReplacements) {
  EXPECT_EQ(edit_distance("", ""), 0);
  EXPECT_EQ(edit_distance("", "tau"), 3);
  EXPECT_EQ(edit_distance("tau", ""), 3);
  EXPECT_EQ(edit_distance("tau", "taus"), 1);
  EXPECT_EQ(edit_distance("TMGa", "TEGa"), 1);
  EXPECT_EQ(edit_distance("kitten", "sitting"), 3);  // k-s, e-i, and a g more
}

TEST(EditDistance, CountsNeighboursThatChangedPlacesOnce) {
  EXPECT_EQ(edit_distance("tua", "tau"), 1);
  EXPECT_EQ(edit_distance("dletai", "delta"), 2);
}

TEST(EditDistance, IgnoresTheCaseOfLetters) { EXPECT_EQ(edit_distance("tmga", "TMGa"), 0); }

TEST(NearestWord, IsTheCandidateWithTheLeastDistance) {
  EXPECT_EQ(nearest_word("TMG", {"TMIn", "TMGa", "TMAl"}), "TMGa");
  EXPECT_EQ(nearest_word("V_dislocations", {"V_dislocation"}), "V_dislocation");
  EXPECT_EQ(nearest_word("t", {"tau", "T", "P"}), "T");
}

TEST(NearestWord, IsNothingWhenMoreThanAThirdDiffers) {
  EXPECT_EQ(nearest_word("GaAs", {"InGaN", "AlGaN"}), "");
  EXPECT_EQ(nearest_word("x", {"T", "P"}), "");
  EXPECT_EQ(nearest_word("none", {"V_dislocation"}), "");
  EXPECT_EQ(nearest_word("tau", {}), "");
}

TEST(NearestWord, IsTheSameFormulaInAnotherOrder) {
  const std::vector<std::string_view> alloys = {"InGaN", "AlGaN", "AlInN", "AlInGaN"};
  EXPECT_EQ(nearest_word("AlGaInN", alloys), "AlInGaN");
  EXPECT_EQ(nearest_word("GaInN", alloys), "InGaN");
  EXPECT_EQ(nearest_word("GaAlN", alloys), "AlGaN");
  EXPECT_EQ(nearest_word("InAlN", alloys), "AlInN");
}

TEST(SameSymbols, AreThoseOfFormulasOnly) {
  EXPECT_TRUE(same_symbols("GaInN", "InGaN"));
  EXPECT_FALSE(same_symbols("InGaN", "AlGaN"));
  EXPECT_FALSE(same_symbols("GaN", "GaNN"));
  EXPECT_FALSE(same_symbols("tau", "uta"));
  EXPECT_FALSE(same_symbols("Inherited", "Given"));
  EXPECT_FALSE(same_symbols("", ""));
}

TEST(NearestWord, DoesNotSearchAmongOverlongWords) { EXPECT_EQ(nearest_word(std::string(1000000, 'x'), {"tau"}), ""); }

}  // namespace
}  // namespace vorlen_test

// Look-up and conversion of elements and attributes, and the comparison of keywords.
#include "recipe/xml_lookup.h"

#include <gtest/gtest.h>

#include "recipe/keywords.h"

namespace vorlen {
namespace {

// A document parsed from text.
struct Parsed {
  TiXmlDocument document;
  const TiXmlElement* root;

  explicit Parsed(const std::string& text) : document("folder/file.xml") {
    document.Parse(text.c_str());
    root = document.RootElement();
  }
};

TEST(ElementFullName, JoinsTheNamesFromTheRootWithoutTheDocument) {
  const Parsed xml("<NonstSurfChem><process_stages><stage_2><T/></stage_2></process_stages></NonstSurfChem>");
  const TiXmlElement* T =
      xml.root->FirstChildElement("process_stages")->FirstChildElement("stage_2")->FirstChildElement("T");
  EXPECT_EQ(element_full_name(T), "NonstSurfChem:process_stages:stage_2:T");
  EXPECT_EQ(element_full_name(xml.root), "NonstSurfChem");
  EXPECT_EQ(element_full_name(nullptr), "");
}

TEST(RequireChild, FindsTheFirstOfThatNameOrTellsTheFullName) {
  const Parsed xml("<a><c x='1'/><b><d/></b><c x='2'/></a>");
  std::string error;
  const TiXmlElement* c = require_child(*xml.root, "c", error);
  ASSERT_NE(c, nullptr);
  EXPECT_STREQ(c->Attribute("x"), "1");
  EXPECT_EQ(error, "");
  EXPECT_EQ(require_child(*xml.root, "d", error), nullptr) << "not a grandchild";
  EXPECT_EQ(error, "Element a:d is not found");
  EXPECT_EQ(require_child(*xml.root, "C", error), nullptr) << "names are matched with case";
  EXPECT_EQ(error, "Element a:C is not found");
  EXPECT_EQ(require_child(xml.document, "e", error), nullptr);
  EXPECT_EQ(error, "Element e is not found");
}

TEST(RequireAttribute, GivesItsTextOrTellsItsName) {
  const Parsed xml("<a><b val=''/></a>");
  const TiXmlElement& b = *xml.root->FirstChildElement("b");
  std::string error;
  EXPECT_STREQ(require_attribute(b, "val", error), "");
  EXPECT_EQ(error, "");
  EXPECT_EQ(require_attribute(b, "Val", error), nullptr);
  EXPECT_EQ(error, "Attribute Val of element a:b is not found");
}

TEST(ReadReal, TakesLeadingBlanksAndTrailingCharacters) {
  const Parsed xml("<a x='  12abc' y='1e-3 K' z='1,5' w='0x10'/>");
  double out = 0.0;
  std::string error;
  EXPECT_TRUE(read_real(*xml.root, "x", out, error));
  EXPECT_EQ(out, 12.0);
  EXPECT_TRUE(read_real(*xml.root, "y", out, error));
  EXPECT_EQ(out, 1e-3);
  EXPECT_TRUE(read_real(*xml.root, "z", out, error));
  EXPECT_EQ(out, 1.0) << "a comma ends the number";
  EXPECT_TRUE(read_real(*xml.root, "w", out, error));
  EXPECT_EQ(out, 16.0) << "hexadecimal, as the pattern %lf takes it";
  EXPECT_EQ(error, "");
}

TEST(ReadReal, LeavesTheValueAloneOnFailure) {
  const Parsed xml("<a><b x='abc' y=''/></a>");
  const TiXmlElement& b = *xml.root->FirstChildElement("b");
  double out = 7.0;
  std::string error;
  EXPECT_FALSE(read_real(b, "x", out, error));
  EXPECT_EQ(error, "Failed to get real number from value \"abc\" of attribute x in element a:b");
  EXPECT_FALSE(read_real(b, "y", out, error));
  EXPECT_EQ(error, "Failed to get real number from value \"\" of attribute y in element a:b");
  EXPECT_FALSE(read_real(b, "z", out, error));
  EXPECT_EQ(error, "Attribute z of element a:b is not found");
  EXPECT_EQ(out, 7.0);
}

TEST(ReadInteger, TakesTheLeadingDigits) {
  const Parsed xml("<a x='12.9' y=' -3abc' z='abc'/>");
  std::int32_t out = 0;
  std::string error;
  EXPECT_TRUE(read_integer(*xml.root, "x", out, error));
  EXPECT_EQ(out, 12);
  EXPECT_TRUE(read_integer(*xml.root, "y", out, error));
  EXPECT_EQ(out, -3);
  EXPECT_EQ(error, "");
  EXPECT_FALSE(read_integer(*xml.root, "z", out, error));
  EXPECT_EQ(error, "Failed to get integer number from value \"abc\" of attribute z in element a");
  EXPECT_FALSE(read_integer(*xml.root, "w", out, error));
  EXPECT_EQ(error, "Attribute w of element a is not found");
  EXPECT_EQ(out, -3);
}

TEST(ReadBoolean, KnowsTrueYes1AndFalseNo0) {
  std::string error;
  for (const char* word : {"true", "yes", "1"}) {
    bool out = false;
    EXPECT_TRUE(read_boolean(*Parsed(std::string("<a x='") + word + "'/>").root, "x", out, error)) << word;
    EXPECT_TRUE(out) << word;
  }
  for (const char* word : {"false", "no", "0"}) {
    bool out = true;
    EXPECT_TRUE(read_boolean(*Parsed(std::string("<a x='") + word + "'/>").root, "x", out, error)) << word;
    EXPECT_FALSE(out) << word;
  }
  EXPECT_EQ(error, "");
}

TEST(ReadBoolean, TellsWhatIsNoBoolean) {
  const Parsed xml("<a><b x='perhaps'/></a>");
  const TiXmlElement& b = *xml.root->FirstChildElement("b");
  bool out = true;
  std::string error;
  EXPECT_FALSE(read_boolean(b, "x", out, error));
  EXPECT_EQ(error, "Failed to get boolean number from value \"perhaps\" of attribute x in element a:b");
  EXPECT_FALSE(read_boolean(b, "y", out, error));
  EXPECT_EQ(error, "Attribute y of element a:b is not found");
  EXPECT_TRUE(out);
}

TEST(ReadRealRange, ReadsValBeforeEnd) {
  const Parsed xml("<a><r val='1' end='2'/><bad val='x' end='y'/><half val='3'/></a>");
  ValueRange out;
  std::string error;
  EXPECT_TRUE(read_real_range(*xml.root, "r", out, error));
  EXPECT_EQ(out.val, 1.0);
  EXPECT_EQ(out.end, 2.0);
  EXPECT_FALSE(read_real_range(*xml.root, "bad", out, error));
  EXPECT_EQ(error, "Failed to get real number from value \"x\" of attribute val in element a:bad");
  EXPECT_FALSE(read_real_range(*xml.root, "half", out, error));
  EXPECT_EQ(error, "Attribute end of element a:half is not found");
  EXPECT_FALSE(read_real_range(*xml.root, "none", out, error));
  EXPECT_EQ(error, "Element a:none is not found");
}

TEST(ReadArrhenius, ReadsAThenTaThenTn) {
  const Parsed xml("<a><k A='1' Ta='2' Tn='3'/><none/></a>");
  double A = 0.0, Ta = 0.0, Tn = 0.0;
  std::string error;
  EXPECT_TRUE(read_arrhenius(*xml.root, "k", A, Ta, Tn, error));
  EXPECT_EQ(A, 1.0);
  EXPECT_EQ(Ta, 2.0);
  EXPECT_EQ(Tn, 3.0);
  EXPECT_FALSE(read_arrhenius(*xml.root, "none", A, Ta, Tn, error));
  EXPECT_EQ(error, "Attribute A of element a:none is not found");
}

TEST(Keywords, AreComparedWithoutRegardToTheCaseOfAToZ) {
  EXPECT_TRUE(equal_ignoring_case("InGaN_GR_X", "INGAN_gr_x"));
  EXPECT_TRUE(equal_ignoring_case("", ""));
  EXPECT_FALSE(equal_ignoring_case("InGaN_GR", "InGaN_GR_X"));
  EXPECT_FALSE(equal_ignoring_case("InGaN_GR_X", "InGaN_GR"));
  // '@' and '`', '[' and '{' are 32 apart as well, but are no letters.
  EXPECT_FALSE(equal_ignoring_case("@", "`"));
  EXPECT_FALSE(equal_ignoring_case("[", "{"));
  EXPECT_FALSE(equal_ignoring_case("\xC4", "\xE4")) << "no letter outside of A to Z has a second case";
}

TEST(Keywords, AnUnknownWordLeavesTheValueAlone) {
  constexpr Keyword TABLE[] = {{"one", 1}, {"two", 2}};
  std::int32_t value = 7;
  EXPECT_FALSE(find_keyword(TABLE, "three", value));
  EXPECT_FALSE(find_keyword(TABLE, " one", value)) << "blanks count";
  EXPECT_EQ(value, 7);
  EXPECT_TRUE(find_keyword(TABLE, "TWO", value));
  EXPECT_EQ(value, 2);
}

}  // namespace
}  // namespace vorlen

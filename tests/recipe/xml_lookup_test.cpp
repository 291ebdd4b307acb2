// Lookup of elements, their names in messages, and the comparison of keywords.
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

TEST(ChildFullName, NamesAChildThatNeedNotExist) {
  const Parsed xml("<a><b/></a>");
  EXPECT_EQ(child_full_name(*xml.root->FirstChildElement("b"), "c"), "a:b:c");
  EXPECT_EQ(child_full_name(*xml.root, "b"), "a:b");
  EXPECT_EQ(child_full_name(xml.document, "a"), "a");
}

TEST(ChildIndex, FindsTheFirstChildOfAName) {
  const Parsed xml("<a>text<c x='1'/><b><d/></b><!-- c --><c x='2'/></a>");
  const ChildIndex index(*xml.root);
  ASSERT_NE(index.find("c"), nullptr);
  EXPECT_STREQ(index.find("c")->Attribute("x"), "1");
  EXPECT_NE(index.find("b"), nullptr);
  EXPECT_EQ(index.find("d"), nullptr) << "not a grandchild";
  EXPECT_EQ(index.find("C"), nullptr) << "names are case-sensitive";
  EXPECT_EQ(index.find(""), nullptr);
}

TEST(Keywords, AreComparedWithoutRegardToTheCaseOfAToZ) {
  EXPECT_TRUE(equal_ignoring_case("InGaN_GR_X", "INGAN_gr_x"));
  EXPECT_TRUE(equal_ignoring_case("", ""));
  EXPECT_FALSE(equal_ignoring_case("InGaN_GR", "InGaN_GR_X"));
  EXPECT_FALSE(equal_ignoring_case("InGaN_GR_X", "InGaN_GR"));
  // '@' and '`', '[' and '{' are 32 apart as well, but are not letters.
  EXPECT_FALSE(equal_ignoring_case("@", "`"));
  EXPECT_FALSE(equal_ignoring_case("[", "{"));
  EXPECT_FALSE(equal_ignoring_case("\xC4", "\xE4")) << "letters outside of A to Z have one case";
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

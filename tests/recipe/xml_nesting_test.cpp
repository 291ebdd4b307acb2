// Recipes that are nested too deeply are refused before the parser, which works by recursion, meets them.
#include "recipe/xml_nesting.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>

#include <string>

#include "recipe/read_recipe.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

using vorlen::nesting_exceeds;

std::string repeated(int count, const std::string& text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

std::string nested(int depth, const std::string& inside = "") {
  return repeated(depth, "<a b=\"1\">") + inside + repeated(depth, "</a>");
}

TEST(XmlNesting, TheLimitItselfPasses) {
  EXPECT_FALSE(nesting_exceeds(nested(5), 5));
  EXPECT_TRUE(nesting_exceeds(nested(6), 5));
}

TEST(XmlNesting, SiblingsAndEmptyElementsDoNotCount) {
  EXPECT_FALSE(nesting_exceeds(repeated(1000, nested(2)), 5));
  EXPECT_FALSE(nesting_exceeds(nested(5, repeated(1000, "<c d='2' />")), 5));
}

TEST(XmlNesting, WhatStandsInCommentsTextAndQuotesIsNoElement) {
  EXPECT_FALSE(nesting_exceeds(nested(5, "<!-- <b> <b> -- > -->"), 5));
  EXPECT_FALSE(nesting_exceeds(nested(5, "<![CDATA[<b><b>]]>"), 5));
  EXPECT_FALSE(nesting_exceeds(nested(4, "<b c='<d><d>' e=\"<f>'\"></b>"), 5));
  EXPECT_FALSE(nesting_exceeds(nested(5, "<!DOCTYPE a>"), 5));
  EXPECT_FALSE(nesting_exceeds("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + nested(5), 5));
}

// Each of these pretends to close elements that stay open.
TEST(XmlNesting, EndTagsThatAreNoneDoNotHideElements) {
  const std::string opens = repeated(6, "<a>");
  for (const std::string& fake : {std::string("<!-- </a></a></a> -->"), std::string("<![CDATA[</a></a></a>]]>"),
                                  std::string("<b c=\"</a></a></a>\"/>"), std::string("<b c='\"</a>\"</a></a>'/>"),
                                  std::string("<! </a >"), std::string("<?xml version=\"></a></a></a>\"?>"),
                                  std::string("<b c=\xEF\xBB\xBF\"></a></a></a>\"/>"), std::string("<b c=x></b>")}) {
    std::string text;
    for (int i = 0; i < 6; ++i) text += "<a>" + fake;
    EXPECT_TRUE(nesting_exceeds(text + opens, 8)) << fake;
  }
}

TEST(XmlNesting, TextsWithoutElementsPass) {
  for (const char* text : {"", "<", "<<<<", "</a></a>", "plain", "<a", "<a b", "<a b=", "<a b=\"", "<!--", "<![CDATA[",
                           "<?", "<!", "<a/b><a><a>"}) {
    EXPECT_FALSE(nesting_exceeds(text, 1)) << text;
  }
}

struct ThreadCall {
  std::string path;
  std::int32_t status = 0;
  std::string error;
};

void* read_on_thread(void* argument) {
  ThreadCall& call = *static_cast<ThreadCall*>(argument);
  vorlen::ProcessRecipe recipe;
  call.status = vorlen::read_recipe(call.path.c_str(), recipe, call.error);
  return nullptr;
}

TEST(XmlNesting, ADeepFileIsRefusedOnAThreadWithASmallStack) {
  const TempFolder folder;
  pthread_attr_t attributes;
  ASSERT_EQ(0, pthread_attr_init(&attributes));
  ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, 256 * 1024));
  const auto on_thread = [&](const std::string& text) {
    ThreadCall call{write_file(folder.path("deep.xml"), text), 0, ""};
    pthread_t thread;
    EXPECT_EQ(0, pthread_create(&thread, &attributes, read_on_thread, &call));
    EXPECT_EQ(0, pthread_join(thread, nullptr));
    return call;
  };
  const ThreadCall deep = on_thread(nested(200000));
  EXPECT_EQ(-1, deep.status);
  EXPECT_EQ("Error reading file " + deep.path + "\nElements are nested deeper than 100 levels", deep.error);
  // At the limit the parser itself has room enough.
  EXPECT_EQ("Element NonstSurfChem is not found", on_thread(nested(100)).error);
  pthread_attr_destroy(&attributes);
}

TEST(XmlNesting, AnElementBelowTheLimitThatNobodyReadsIsIgnored) {
  const TempFolder folder;
  std::string text = RecipeBuilder().text();
  text.insert(text.find("<material"), nested(90));
  vorlen::ProcessRecipe recipe;
  std::string error;
  EXPECT_EQ(0, vorlen::read_recipe(write_file(folder.path("r.xml"), text).c_str(), recipe, error)) << error;
}

TEST(ReadRecipe, APipeOrADeviceReadsLikeAMissingFile) {
  const TempFolder folder;
  const std::string pipe = folder.path("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  for (const std::string& path : {pipe, std::string("/dev/zero"), std::string("/dev/null")}) {
    vorlen::ProcessRecipe recipe;
    std::string error;
    EXPECT_EQ(-1, vorlen::read_recipe(path.c_str(), recipe, error)) << path;
    EXPECT_EQ("Error reading file " + path + "\nFailed to open file", error);
  }
}

}  // namespace
}  // namespace vorlen_test

// Recipes that are nested too deeply are rejected before the parser, which works by recursion, reads them. The expected
// depths follow from the rules of the parser, TinyXML 2.6.2, on where a quote ends and what a blank is.
#include "recipe/xml_nesting.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <string>

#include "recipe/read_recipe.h"
#include "support/recipe_builder.h"

namespace vorlen_test {
namespace {

std::string repeated(int count, const std::string& text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text;
  return all;
}

std::string nested(int depth, const std::string& inside = "") {
  return repeated(depth, "<a b=\"1\">") + inside + repeated(depth, "</a>");
}

int nesting_of(const std::string& text) { return vorlen::shape_of_xml(text + std::string(4, '\0')).nesting; }
int attributes_of(const std::string& text) { return vorlen::shape_of_xml(text + std::string(4, '\0')).attributes; }

const std::string MARK = "\xEF\xBB\xBF";  // byte order mark; inside of a UTF-8 text the parser takes it for a blank
const std::string UTF8 = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
const std::string LATIN1 = "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>";

TEST(XmlNesting, IsTheMostElementsThatAreOpenAtOnce) {
  EXPECT_EQ(5, nesting_of(nested(5)));
  EXPECT_EQ(5, nesting_of(nested(3) + nested(5) + nested(4)));
  EXPECT_EQ(2, nesting_of("<r>" + repeated(1000, nested(1)) + "</r>"));
}

TEST(XmlNesting, EndsWithTheFirstLevelAboveTheLimit) {
  EXPECT_EQ(vorlen::NESTING_MAX, nesting_of(nested(vorlen::NESTING_MAX)));
  EXPECT_EQ(vorlen::NESTING_MAX + 1, nesting_of(nested(200000)));
}

TEST(XmlNesting, EmptyElementsDoNotCount) { EXPECT_EQ(5, nesting_of(nested(5, repeated(1000, "<c d='2' />")))); }

TEST(XmlNesting, CommentsTextAndQuotesContainNoElements) {
  EXPECT_EQ(5, nesting_of(nested(5, "<!-- <b> <b> -- > -->")));
  EXPECT_EQ(5, nesting_of(nested(5, "<![CDATA[<b><b>]]>")));
  EXPECT_EQ(5, nesting_of(nested(4, "<b c='<d><d>' e=\"<f>'\"></b>")));
  EXPECT_EQ(5, nesting_of(nested(5, "<!DOCTYPE a>")));
  EXPECT_EQ(5, nesting_of(UTF8 + "\n" + nested(5)));
  EXPECT_EQ(5, nesting_of(MARK + nested(5, "<?xml version='<b>'?>")));
}

// Each of these pretends to close elements that stay open.
TEST(XmlNesting, FalseEndTagsDoNotHideElements) {
  for (const std::string& fake : {std::string("<!-- </a></a></a> -->"), std::string("<![CDATA[</a></a></a>]]>"),
                                  std::string("<b c=\"</a></a></a>\"/>"), std::string("<b c='\"</a>\"</a></a>'/>"),
                                  std::string("<! </a >"), std::string("<?xml version=\"></a></a></a>\"?>"),
                                  "<b c=" + MARK + "\"></a></a></a>\"/>", std::string("<b c=x></b>")}) {
    for (const std::string& head : {std::string(), MARK, UTF8, LATIN1}) {
      // In a text not known to be UTF-8 the mark is not a blank, and the tags after it are tags.
      if (fake.find(MARK) != std::string::npos && (head.empty() || head == LATIN1)) continue;
      EXPECT_LE(12, nesting_of(head + repeated(6, "<a>" + fake) + repeated(6, "<a>"))) << head << fake;
    }
  }
}

// Each of these opens a quote where the parser has none, or none where the parser has one, for who reads the text byte
// by byte: the parser takes a mark for a blank, and a quote that follows the first byte of a long character for a part
// of it.
TEST(XmlNesting, BlanksThatCannotBeSeenAndLongCharactersHideNoElements) {
  const std::string opens = repeated(50, "<x>");
  EXPECT_EQ(50, nesting_of(MARK + repeated(50, "<" + MARK + " x>")));
  EXPECT_EQ(51, nesting_of(UTF8 + "<a b=" + MARK + "\"x y='\">" + opens));
  EXPECT_EQ(51, nesting_of(UTF8 + "<a b=\"\xC3\" c='\">" + opens));
  EXPECT_EQ(51, nesting_of(LATIN1 + "<a b=\"\xC3\">" + opens));
  EXPECT_EQ(51, nesting_of("<?xml version='1.0' encoding='&#85;TF-8'?><a b=\"\xC3\" c='\">" + opens));
  EXPECT_EQ(51, nesting_of(LATIN1 + UTF8 + "<a b=\"\xC3\">" + opens)) << "the first declaration counts";
  EXPECT_EQ(51, nesting_of("<a>" + UTF8 + "<b c=\"\xC3\"/>" + opens)) << "inside of an element none counts";
}

TEST(XmlNesting, TextsWithoutElementsWithContentHaveNone) {
  for (const char* text :
       {"", "<", "<<<<", "</a></a>", "plain", "<a", "<a b", "<a b=", "<a b=\"", "<a b=\"\xF0", "<!--", "<![CDATA[",
        "<?", "<?xml", "<?xml version=", "<!", "text<a>", "<a/ >", "<\xEF\xBB\xBF"}) {
    EXPECT_EQ(0, nesting_of(text)) << text;
    EXPECT_EQ(0, nesting_of(MARK + text)) << text;
  }
}

TEST(XmlNesting, TheMostAttributesOfOneElementAreCountedToTheLimit) {
  std::string attributes;
  for (int i = 0; i < vorlen::ATTRIBUTES_MAX; ++i) attributes += " a" + std::to_string(i) + "='1'";
  EXPECT_EQ(0, attributes_of("<a></a>"));
  EXPECT_EQ(3, attributes_of("<a b='1'><c d='2' e='3' f='4'/></a>"));
  EXPECT_EQ(vorlen::ATTRIBUTES_MAX, attributes_of("<a" + attributes + "/>"));
  EXPECT_EQ(vorlen::ATTRIBUTES_MAX + 1, attributes_of("<a" + attributes + attributes + "/>"));
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

// The outcome of reading a file with this text on a thread with a stack of 256 KiB.
ThreadCall read_on_small_stack(const TempFolder& folder, const std::string& text) {
  pthread_attr_t attributes;
  EXPECT_EQ(0, pthread_attr_init(&attributes));
  EXPECT_EQ(0, pthread_attr_setstacksize(&attributes, 256 * 1024));
  ThreadCall call{write_file(folder.path("deep.xml"), text), 0, ""};
  pthread_t thread;
  EXPECT_EQ(0, pthread_create(&thread, &attributes, read_on_thread, &call));
  EXPECT_EQ(0, pthread_join(thread, nullptr));
  pthread_attr_destroy(&attributes);
  return call;
}

constexpr int DEEP = 200000;

TEST(DeepFiles, AreRejectedOnAThreadWithASmallStack) {
  const TempFolder folder;
  const std::string opens = repeated(DEEP, "<x>");
  for (const std::string& text :
       {nested(DEEP), opens, UTF8 + nested(DEEP), "<!DOCTYPE a>" + opens, "<!-- <a b='> --><![CDATA[<b c=\"]]>" + opens,
        MARK + repeated(DEEP, "<" + MARK + " a>"), UTF8 + "<a b=\"\xC3\" c='\">" + opens,
        UTF8 + "<a b=" + MARK + "\"x y='\">" + opens}) {
    const ThreadCall call = read_on_small_stack(folder, text);
    EXPECT_EQ(-1, call.status);
    EXPECT_EQ("Error reading file " + call.path + "\nElements are nested deeper than 100 levels", call.error);
  }
}

TEST(DeepFiles, AtTheLimitTheParserHasRoomEnoughOnASmallStack) {
  const TempFolder folder;
  EXPECT_EQ("Element NonstSurfChem is not found", read_on_small_stack(folder, nested(100)).error);
}

// A character cut off at the end leads the parser up to three bytes past the end. There it must find neither what the
// line ends have left in the buffer, nor what follows a zero in the file.
TEST(DeepFiles, ACharacterCutOffAtTheEndLeadsTheParserNowhere) {
  const TempFolder folder;
  const std::string tail = "<a b='>" + repeated(DEEP, "<x>") + "\xF0";
  const ThreadCall call = read_on_small_stack(folder, MARK + repeated(static_cast<int>(tail.size()), "\r\n") + tail);
  EXPECT_EQ(-1, call.status);
  EXPECT_EQ("Error reading file " + call.path + "\nError parsing Element.Line:" + std::to_string(tail.size() + 1) +
                "\nColumn:4\n",
            call.error);
  const std::string behind_zero = MARK + "<a b=\"\xF0" + std::string(3, '\0') + "\">" + repeated(DEEP, "<x>");
  const ThreadCall zero = read_on_small_stack(folder, behind_zero);
  EXPECT_EQ(-1, zero.status);
  EXPECT_EQ("Error reading file " + zero.path + "\nError parsing Element.Line:1\nColumn:4\n", zero.error);
}

TEST(DeepFiles, AnUnknownElementBelowTheLimitIsIgnored) {
  const TempFolder folder;
  std::string text = RecipeBuilder().text();
  text.insert(text.find("<material"), nested(90));
  vorlen::ProcessRecipe recipe;
  std::string error;
  EXPECT_EQ(0, vorlen::read_recipe(write_file(folder.path("r.xml"), text).c_str(), recipe, error)) << error;
}

}  // namespace
}  // namespace vorlen_test

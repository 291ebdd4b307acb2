// Recipes with one error each, and some good ones: result, text and state of the result file, compared with values
// computed independently of this code. tests/data/bad/expected.json lists id, error, file, kind of output path, result,
// text (with {INPUT} and {OUTPUT} for the two paths, or as bytes in hexadecimal) and state of the result file.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "api/run_support.h"
#include "support/recipe_builder.h"
#include "support/result_compare.h"

namespace vorlen_test {
namespace {

using nlohmann::json;

const std::string FOLDER = std::string(VORLEN_TEST_DATA) + "/bad/";

std::map<std::string, std::vector<json>> cases_by_category() {
  std::ifstream file(FOLDER + "expected.json");
  std::map<std::string, std::vector<json>> cases;
  for (const json& one : json::parse(file)) cases[one.at("category").get<std::string>()].push_back(one);
  return cases;
}

const std::map<std::string, std::vector<json>>& cases() {
  static const auto all = cases_by_category();
  return all;
}

std::vector<std::string> categories() {
  std::vector<std::string> names;
  for (const auto& [name, list] : cases()) names.push_back(name);
  return names;
}

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

std::string from_hexadecimal(const std::string& digits) {
  std::string bytes;
  for (std::size_t i = 0; i < digits.size(); i += 2)
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  return bytes;
}

class StoredCases : public testing::TestWithParam<std::string> {};

TEST_P(StoredCases, GiveTheirResultTextAndFile) {
  const TempFolder folder;
  for (const json& one : cases().at(GetParam())) {
    const std::string id = one.at("id");
    SCOPED_TRACE(id + ": " + one.at("what").get<std::string>());
    const std::string file = one.at("file");
    const std::string input = file.empty() ? "" : FOLDER + file;
    const std::string kind = one.at("output");
    const std::string output = kind == "file"   ? folder.path(id + ".txt")
                               : kind == "none" ? ""
                                                : folder.path("none/out.txt");

    const CallOutcome got = call_library(input, output);

    EXPECT_EQ(one.at("ret").get<int>(), got.result);
    EXPECT_TRUE(got.guarded);
    if (one.contains("text") && one.at("text").is_null()) {
      EXPECT_TRUE(got.untouched) << got.text;
    } else {
      const std::string text =
          one.contains("text") ? one.at("text").get<std::string>() : from_hexadecimal(one.at("text_hex"));
      EXPECT_TRUE(got.terminated);
      EXPECT_EQ(replaced(replaced(text, "{INPUT}", input), "{OUTPUT}", output), got.text);
    }
    const bool exists = !output.empty() && std::filesystem::exists(output);
    const std::string state = !exists ? "absent" : std::filesystem::file_size(output) == 0 ? "empty" : "written";
    EXPECT_EQ(one.at("result_file").get<std::string>(), state);
    if (state == "written") {
      EXPECT_TRUE(same_result(read_file(FOLDER + "golden/" + id + ".txt"), read_file(output)));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Category, StoredCases, testing::ValuesIn(categories()),
                         [](const testing::TestParamInfo<std::string>& param) { return param.param; });

}  // namespace
}  // namespace vorlen_test

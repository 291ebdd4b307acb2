// vorlen live [RECIPE]: the live page with a recipe. The page is one file (live/page), made by the build; its element
// "recipe" has the name of the recipe and the bytes of its file, whatever their encoding is.
#include <cstddef>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "help/embedded_texts.h"
#include "platform/digest.h"
#include "platform/files.h"
#include "platform/program.h"
#include "platform/read_file.h"
#include "terminal/files.h"
#include "terminal/option_values.h"
#include "terminal/output.h"

namespace {

constexpr std::size_t SIZE_MAX_OF_FILE = std::size_t{64} << 20;  // bytes, as in the library
constexpr std::string_view PLACE = "<script id=\"recipe\" type=\"application/json\">null</script>";
constexpr const char* EXAMPLE = "ingan_gan_mqw";

struct LiveOptions {
  std::string recipe;  // empty: the example
  std::string page;    // empty: beside the recipe
};

struct PageRecipe {
  std::string name;
  std::string bytes;
};

// The recipe as the page expects it. Nothing in it can end the element: base64 has no "<", and in the name it is
// escaped.
std::string json_of(const PageRecipe& recipe) {
  using nlohmann::ordered_json;
  const ordered_json json = {{"name", recipe.name}, {"base64", platform::base64_of(recipe.bytes)}};
  std::string text = json.dump(-1, ' ', true, ordered_json::error_handler_t::replace);
  for (std::size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at))
    text.replace(at, 1, "\\u003c");
  return text;
}

bool read_whole(const std::string& path, std::string& bytes, std::string& error) {
  switch (vorlen::read_file(path.c_str(), SIZE_MAX_OF_FILE, bytes)) {
    case vorlen::FileResult::read:
      return true;
    case vorlen::FileResult::too_large:
      error = path + " is larger than 64 MiB";
      return false;
    case vorlen::FileResult::no_memory:
      error = "Out of memory";
      return false;
    case vorlen::FileResult::unreadable:
      break;
  }
  error = platform::file_state(path).kind != platform::FileKind::NONE ? path + " can't be read"
                                                                      : "recipe not found: " + path;
  return false;
}

// The live page of the build folder that the tool is in, of its installation, or beside the tool, as in the archive for
// Windows.
std::string page_without_recipe(std::string& file) {
  const std::filesystem::path folder = platform::path_of(platform::own_path()).parent_path();
  for (const char* place : {"../wasi/live/live.html", VORLEN_DATA_FROM_TOOL "/live.html", "live.html"}) {
    std::string html;
    file = platform::text_of(folder / place);
    if (vorlen::read_file(file.c_str(), SIZE_MAX_OF_FILE, html) == vorlen::FileResult::read) return html;
  }
  return "";
}

bool read_recipe_of(const LiveOptions& options, PageRecipe& recipe, std::string& error) {
  if (!options.recipe.empty()) {
    recipe.name = platform::text_of(platform::path_of(options.recipe).filename());
    return read_whole(options.recipe, recipe.bytes, error);
  }
  for (const EmbeddedRecipe& each : embedded_recipes()) {
    if (std::string_view(each.kind) == EXAMPLE) recipe = {std::string(EXAMPLE) + ".xml", each.text};
  }
  return true;
}

std::string default_page(const std::string& recipe) {
  if (recipe.empty()) return std::string(EXAMPLE) + ".live.html";
  return platform::text_of(platform::path_of(recipe).replace_extension(".live.html"));
}

int write_page(const LiveOptions& options) {
  const std::string page = options.page.empty() ? default_page(options.recipe) : options.page;
  PageRecipe recipe;
  std::string error;
  if (!read_recipe_of(options, recipe, error)) return fail(error);
  if (!options.recipe.empty() && platform::is_same_file(page, options.recipe)) return fail(page + " is the recipe");
  std::string source;
  std::string html = page_without_recipe(source);
  const std::size_t place = html.find(PLACE);
  if (place == std::string::npos) {
    return fail(
        "this build of vorlen has no live page: run \"scripts/setup.sh run\", which installs a compiler for "
        "WebAssembly, and build again");
  }
  if (platform::is_same_file(page, source)) return fail(page + " is the page that recipes are put into");
  const std::size_t begin = place + PLACE.find("null");
  html.replace(begin, std::string_view("null").size(), json_of(recipe));
  if (!write_file(page, html, error)) return fail(error);
  return print_out(page + "\n");
}

}  // namespace

void add_live_command(CLI::App& app, int& status) {
  const auto options = std::make_shared<LiveOptions>();
  CLI::App* live = app.add_subcommand("live", "Write a page with a recipe that runs in the browser as it is changed");
  live->add_option("RECIPE", options->recipe, "Recipe, an XML file (default: the quantum wells of \"vorlen new\")")
      ->type_name("")
      ->check(not_empty());
  live->add_option("-o,--output", options->page, "Page to write (default: the recipe's name with .live.html)")
      ->type_name("PAGE")
      ->check(not_empty());
  live->footer("Example:\n  vorlen live ingan_gan_mqw.xml -o wells.html");
  live->callback([options, &status] { status = write_page(*options); });
}

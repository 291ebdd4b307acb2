// Valid recipes with realistic constants, built in memory and changed element by element.
#include "support/recipe_builder.h"

#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

namespace vorlen_test {

TempFolder::TempFolder() {
  std::random_device random;
  do {
    folder_ = std::filesystem::temp_directory_path() / ("vorlen_test_" + std::to_string(random()));
  } while (!std::filesystem::create_directory(folder_));
  std::filesystem::permissions(folder_, std::filesystem::perms::owner_all);
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

std::string TempFolder::path(const std::string& name) const {
  return name.empty() ? folder_.string() : (folder_ / name).string();
}

std::string write_file(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  file.close();
  if (!file) throw std::runtime_error("cannot write " + path);
  return path;
}

std::string read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

RecipeBuilder::RecipeBuilder(const RecipeOptions& options) : options_(options) {
  // Desorption and incorporation constants that grow GaN, InGaN, AlGaN and AlInN at realistic rates.
  struct Constant {
    const char* name;
    const char* A;
    const char* Ta;
  };
  constexpr Constant CONSTANTS[] = {{"Kd_In", "1e13", "23200"}, {"K_InN_plus", "5e20", "26700"},
                                    {"Kd_Ga", "1e13", "32500"}, {"K_GaN_plus", "1e18", "22000"},
                                    {"Kd_Al", "1e13", "39500"}, {"K_AlN_plus", "1e18", "22000"},
                                    {"Kd_N2", "5e20", "19700"}, {"Kd_H2", "5e20", "13900"}};

  document_.LinkEndChild(new TiXmlElement("NonstSurfChem"));
  set("material", options.material);
  set("chemistry/vacancy_model", "vacancy_In");
  for (const Constant& constant : CONSTANTS) {
    const std::string path = std::string("chemistry/") + constant.name;
    set(path, "A", constant.A).set(path, "Ta", constant.Ta).set(path, "Tn", "0");
  }
  set("stress/model", options.stress_model);
  if (options.stress_model == "V_dislocation") {
    set("stress/cut_angle", "0").set("stress/V_angle_05", "17").set("stress/X_ref", "0.1");
  }
  set("transport/model", options.transport_model);
  if (options.transport_model == "thick_GaN") {
    const std::string parameters = "transport/parameters/";
    set(parameters + "reactor", options.reactor);
    set(parameters + "GR_ref", "0.5").set(parameters + "P_ref", "20000").set(parameters + "T_ref", "1300");
    if (options.reactor == "TDR") set(parameters + "omega_TDR_ref", "800");
    set(parameters + "Q_ref/N2", "1000").set(parameters + "Q_ref/H2", "8000");
    set(parameters + "Q_ref/NH3", "5000").set(parameters + "Q_ref/TMGa", "1");
  }
  set("pre_stages/t0", "0").set("pre_stages/n_pre_stages", std::to_string(options.n_pre_stages));
  for (int i = 1; i <= options.n_pre_stages; ++i) {
    fill_layer("pre_stages/pre_stage_" + std::to_string(i), i == 1 ? "3.189" : "0");
  }
  set("process_stages/n_stages", std::to_string(options.n_stages));
  for (int i = 1; i <= options.n_stages; ++i) fill_stage("process_stages/stage_" + std::to_string(i));
  set("post_stages/n_post_stages", std::to_string(options.n_post_stages));
  for (int i = 1; i <= options.n_post_stages; ++i) fill_layer("post_stages/post_stage_" + std::to_string(i), "0");
}

void RecipeBuilder::fill_stage(const std::string& path) {
  const bool gan = options_.transport_model == "thick_GaN";
  set(path + "/name", "layer").set(path + "/tau", "10");
  set_range(path + "/T", gan ? "1300" : "1030", gan ? "1300" : "1030");
  set_range(path + "/P", gan ? "20000" : "40000", gan ? "20000" : "40000");
  if (options_.stress_model != "V_dislocation") {
    set(path + "/dislocations/disl_model", "given").set_range(path + "/dislocations/rho_D", "5e8", "5e8");
  }
  if (options_.transport_model == "fixed_thickness") set(path + "/delta", "0.008");
  if (gan && options_.reactor == "TDR") set_range(path + "/omega_TDR", "800", "800");
  if (options_.transport_model == "InGaN_GR" || options_.transport_model == "InGaN_GR_X") {
    set(path + "/GR_average", "0.05");
  }
  if (options_.transport_model == "InGaN_GR_X") set(path + "/XIn_average", "0.19").set(path + "/XAl_average", "1e-10");
  const std::string flows = path + "/gas_species/Q/";
  const auto flow = [&](const char* species, const char* value) { set_range(flows + species, value, value); };
  flow("TMIn", gan ? "0" : "0.2");
  flow("TMGa", gan ? "1" : "0");
  flow("TEGa", gan ? "0" : "0.5");
  flow("TMAl", "0");
  flow("N2", gan ? "1000" : "8000");
  flow("NH3", gan ? "5000" : "8000");
  flow("H2", gan ? "8000" : "0");
}

void RecipeBuilder::fill_layer(const std::string& path, const std::string& stress_state) {
  set(path + "/name", "GaN").set(path + "/tau", "10").set(path + "/GR_average", "36").set(path + "/thickness", "100");
  set(path + "/X_In_average", "0").set(path + "/X_Ga_average", "1").set(path + "/X_Al_average", "0");
  set(path + "/dislocations/disl_model", "given").set(path + "/dislocations/rho_D", "5e8");
  set(path + "/stress_state", stress_state);
}

TiXmlElement* RecipeBuilder::find(const std::string& path, bool create) {
  TiXmlElement* element = document_.RootElement();
  std::istringstream names(path);
  for (std::string name; std::getline(names, name, '/');) {
    TiXmlElement* child = element->FirstChildElement(name);
    if (child == nullptr) {
      if (!create) throw std::runtime_error("the recipe has no element " + path);
      child = new TiXmlElement(name);
      element->LinkEndChild(child);
    }
    element = child;
  }
  return element;
}

RecipeBuilder& RecipeBuilder::set(const std::string& path, const std::string& attribute, const std::string& value) {
  find(path, true)->SetAttribute(attribute, value);
  return *this;
}

RecipeBuilder& RecipeBuilder::set_range(const std::string& path, const std::string& val, const std::string& end) {
  return set(path, "val", val).set(path, "end", end);
}

RecipeBuilder& RecipeBuilder::remove(const std::string& path) {
  TiXmlElement* element = find(path, false);
  element->Parent()->RemoveChild(element);
  return *this;
}

RecipeBuilder& RecipeBuilder::remove_attribute(const std::string& path, const std::string& attribute) {
  TiXmlElement* element = find(path, false);
  if (element->Attribute(attribute) == nullptr) {
    throw std::runtime_error("the recipe's element " + path + " has no attribute " + attribute);
  }
  element->RemoveAttribute(attribute);
  return *this;
}

RecipeBuilder& RecipeBuilder::add_text(const std::string& path, const std::string& text) {
  find(path, false)->LinkEndChild(new TiXmlText(text));
  return *this;
}

RecipeBuilder& RecipeBuilder::make_periodic(int number, int n_periods, int n_sub_stages) {
  const std::string label = "stage_" + std::to_string(number);
  const std::string path = "process_stages/" + label;
  find(path, false)->Clear();
  set(path + "/type", "periodic");
  set(path + "/n_periods", std::to_string(n_periods)).set(path + "/n_stages", std::to_string(n_sub_stages));
  for (int m = 1; m <= n_sub_stages; ++m) fill_stage(path + "/" + label + "_" + std::to_string(m));
  return *this;
}

std::string RecipeBuilder::text() const {
  TiXmlPrinter printer;
  document_.Accept(&printer);
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n" + printer.Str();
}

}  // namespace vorlen_test

// Recipes whose integration fails or almost fails.
#pragma once

#include <string>

#include "support/recipe_builder.h"

namespace vorlen_test {

// The only active stage of such a recipe, on GaN.
struct Breakdown {
  const char* name;
  const char* stress_model;
  double tau;  // s
  const char* T_begin;
  const char* T_end;  // K
  const char* P;      // Pa
  const char* delta;  // m
  const char* TMGa;   // sccm, like the other flows
  const char* TMAl;
  const char* NH3;
  const char* H2;
  const char* N2;
};

inline RecipeBuilder breakdown_recipe(const Breakdown& b) {
  RecipeBuilder recipe({.stress_model = b.stress_model});
  const std::string stage = "process_stages/stage_1/";
  recipe.set(stage + "tau", std::to_string(b.tau)).set(stage + "delta", b.delta);
  recipe.set_range(stage + "T", b.T_begin, b.T_end).set_range(stage + "P", b.P, b.P);
  const auto flow = [&](const char* species, const char* value) {
    recipe.set_range(stage + "gas_species/Q/" + species, value, value);
  };
  flow("TMIn", "0");
  flow("TEGa", "0");
  flow("TMGa", b.TMGa);
  flow("TMAl", b.TMAl);
  flow("NH3", b.NH3);
  flow("H2", b.H2);
  flow("N2", b.N2);
  return recipe;
}

// Aluminium alone on GaN with little ammonia: no first step is small enough.
inline constexpr Breakdown ALUMINIUM_FIRST = {.name = "AluminiumFirst",
                                              .stress_model = "relax",
                                              .tau = 10,
                                              .T_begin = "1126.9419594288745",
                                              .T_end = "1126.9419594288745",
                                              .P = "6021.061094735668",
                                              .delta = "0.005595952022925276",
                                              .TMGa = "0",
                                              .TMAl = "0.00018088328048065282",
                                              .NH3 = "66.51720439535025",
                                              .H2 = "8000",
                                              .N2 = "8000"};

}  // namespace vorlen_test

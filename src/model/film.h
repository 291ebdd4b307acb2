// The film as it lies under the surface: composition and state of the relaxation at each depth that was grown and has
// not evaporated since.
//
// Lists of knots from below. z never falls along the list; two knots of one z are an abrupt interface. Between knots
// composition and h are linear in depth, and the integrals the cubics that have values and slopes of both knots. The
// first knot lies at the start of growth, or as deep as the film has evaporated. Under it are the pre-stages.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "model/candidate_blocks.h"
#include "recipe/process_recipe.h"

namespace vorlen {

// One depth of the film. What follows the fractions is that of the model when this depth was the surface; 0 without
// relaxation.
struct FilmPoint {
  double z = 0.0;     // m
  double x_In = 0.0;  // fractions of the solid; gallium is the rest
  double x_Al = 0.0;
  double h = 0.0;  // thickness grown in tension, m
  double I0 = 0.0, I1 = 0.0, J0_0 = 0.0, J0_1 = 0.0;
  double w = 0.0;  // thickness grown outside tension, m
  double R = 0.0;  // slope of I0 by z; that of I1 is w R
  double S = 0.0;  // slope of J0_1; that of J0_0 is w S
};

struct Film {
  std::vector<double> z, x_In, x_Al;
  std::vector<double> h, I0, I1, J0_0, J0_1, w, R, S;  // empty without relaxation
  std::vector<FilmPoint> below;      // interfaces of the pre-stages from below; two knots for each layer
  CandidateBlocks candidate_blocks;  // of the knots, for the search of z0
  std::size_t compressed_from = 0;   // the first knot with R below 0; the number of knots if there is none
  bool relaxes = false;
};

// An empty film on the pre-stages [thickness in nm], whose top is at z_start [m]. Without pre-stages it lies on GaN.
Film film_on(const std::vector<PrePostStageRecord>& pre_stages, double z_start, bool relaxes);

// Height of the film, m; that of the pre-stages before the first knot.
double film_top(const Film& film);

// The film at height z [m]. Above the top: as at the top. Of two knots at z: the lower one.
FilmPoint film_at(const Film& film, double z);

// Slope of h by z just under height z, a number from 0 to 1; 1 in the pre-stages. 0 without relaxation.
double film_tension(const Film& film, double z);

// Puts a knot on top; its z is not below the top.
void film_add(Film& film, const FilmPoint& point);

// Puts a knot on top after growth from one state of the surface to another. Where the surface differs from the top of
// the film, as after evaporation, an abrupt interface comes between.
void film_grow(Film& film, const FilmPoint& from, const FilmPoint& to);

// Removes the knots from number kept on.
void film_truncate(Film& film, std::size_t kept);

// Removes everything above height z; a knot at z remains on top.
void film_cut(Film& film, double z);

}  // namespace vorlen

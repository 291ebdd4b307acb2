// The film under the surface as lists of knots: interpolation between knots, lookup by height, growth and evaporation.
#include "model/film.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

#include "model/constants.h"

namespace vorlen {

namespace {

// The lists of a relaxing film, and the members of a point that they hold.
struct RelaxationList {
  std::vector<double> Film::*list;
  double FilmPoint::*member;
};
constexpr RelaxationList RELAXATION[] = {{&Film::h, &FilmPoint::h},       {&Film::I0, &FilmPoint::I0},
                                         {&Film::I1, &FilmPoint::I1},     {&Film::J0_0, &FilmPoint::J0_0},
                                         {&Film::J0_1, &FilmPoint::J0_1}, {&Film::w, &FilmPoint::w},
                                         {&Film::R, &FilmPoint::R},       {&Film::S, &FilmPoint::S}};

FilmPoint knot(const Film& film, std::size_t i) {
  FilmPoint p{.z = film.z[i], .x_In = film.x_In[i], .x_Al = film.x_Al[i]};
  if (film.relaxes) {
    for (const RelaxationList& r : RELAXATION) p.*r.member = (film.*r.list)[i];
  }
  return p;
}

// The cubic through value and slope at both ends of an interval of length dz, at a share of it.
double cubic(double share, double dz, double from, double slope_from, double to, double slope_to) {
  const double rest = 1.0 - share;
  const double rise = to - from;
  return from + share * share * (3.0 - 2.0 * share) * rise + share * rest * dz * (rest * slope_from - share * slope_to);
}

FilmPoint between(const Film& film, const FilmPoint& a, const FilmPoint& b, double z) {
  const double dz = b.z - a.z;
  const double share = dz > 0.0 ? (z - a.z) / dz : 0.0;
  const auto linear = [share](double from, double to) { return from + (to - from) * share; };
  FilmPoint p{.z = z, .x_In = linear(a.x_In, b.x_In), .x_Al = linear(a.x_Al, b.x_Al)};
  if (!film.relaxes) return p;
  p.h = linear(a.h, b.h);
  p.w = linear(a.w, b.w);
  p.R = linear(a.R, b.R);
  p.S = linear(a.S, b.S);
  p.I0 = cubic(share, dz, a.I0, a.R, b.I0, b.R);
  p.I1 = cubic(share, dz, a.I1, a.w * a.R, b.I1, b.w * b.R);
  p.J0_1 = cubic(share, dz, a.J0_1, a.S, b.J0_1, b.S);
  p.J0_0 = cubic(share, dz, a.J0_0, a.w * a.S, b.J0_0, b.w * b.S);
  return p;
}

// The pre-stages at height z. Below the first one its composition continues. Thickness counts from their top: under it
// h is below 0, so that w is 0.
FilmPoint below_at(const Film& film, double z) {
  const auto above = std::find_if(film.below.begin(), film.below.end(), [z](const FilmPoint& p) { return p.z >= z; });
  FilmPoint p = above == film.below.begin() ? film.below.front()
                : above == film.below.end() ? film.below.back()
                                            : between(film, *std::prev(above), *above, z);
  p.z = z;
  if (film.relaxes) p.h = std::min(z - film.below.back().z, 0.0);
  return p;
}

// Number of the first knot that is not below z.
std::size_t first_not_below(const Film& film, double z) {
  return static_cast<std::size_t>(std::lower_bound(film.z.begin(), film.z.end(), z) - film.z.begin());
}

}  // namespace

Film film_on(const std::vector<PrePostStageRecord>& pre_stages, double z_start, bool relaxes) {
  Film film;
  film.relaxes = relaxes;
  double bottom = 0.0;
  for (const PrePostStageRecord& stage : pre_stages) {
    const double sum = stage.X_In_average + stage.X_Ga_average + stage.X_Al_average;
    const double top = &stage == &pre_stages.back() ? z_start : bottom + stage.thickness * NM;
    for (double z : {bottom, top}) {
      film.below.push_back({.z = z, .x_In = stage.X_In_average / sum, .x_Al = stage.X_Al_average / sum});
    }
    bottom = top;
  }
  if (film.below.empty()) film.below.push_back({.z = z_start});
  return film;
}

double film_top(const Film& film) { return film.z.empty() ? film.below.back().z : film.z.back(); }

FilmPoint film_at(const Film& film, double z) {
  const std::size_t above = first_not_below(film, z);
  if (film.z.empty() || (above == 0 && z < film.z.front())) return below_at(film, z);
  if (above == 0) return knot(film, 0);
  if (above == film.z.size()) return knot(film, above - 1);
  return between(film, knot(film, above - 1), knot(film, above), z);
}

double film_tension(const Film& film, double z) {
  if (!film.relaxes) return 0.0;
  if (film.z.empty() || z <= film.z.front()) return 1.0;
  if (film.z.size() < 2) return 0.0;
  const std::size_t above = std::min(first_not_below(film, z), film.z.size() - 1);
  // The interval under z that has a thickness.
  std::size_t under = above;
  while (under > 0 && !(film.z[under] < film.z[above])) --under;
  const double dz = film.z[above] - film.z[under];
  return dz > 0.0 ? (film.h[above] - film.h[under]) / dz : 0.0;
}

void film_add(Film& film, const FilmPoint& point) {
  if (film.compressed_from == film.z.size() && !(point.R < 0.0)) ++film.compressed_from;
  film.z.push_back(point.z);
  film.x_In.push_back(point.x_In);
  film.x_Al.push_back(point.x_Al);
  if (!film.relaxes) return;
  for (const RelaxationList& r : RELAXATION) (film.*r.list).push_back(point.*r.member);
}

void film_grow(Film& film, const FilmPoint& from, const FilmPoint& to) {
  const double top = film_top(film);
  if (film.x_In.back() != from.x_In || film.x_Al.back() != from.x_Al) {
    FilmPoint interface = from;
    interface.z = top;
    film_add(film, interface);
  }
  film_add(film, to);
}

void film_truncate(Film& film, std::size_t kept) {
  film.compressed_from = std::min(film.compressed_from, kept);
  for (auto* list : {&film.z, &film.x_In, &film.x_Al}) list->resize(kept);
  if (film.relaxes) {
    for (const RelaxationList& r : RELAXATION) (film.*r.list).resize(kept);
  }
  film.candidate_blocks.truncate(kept);
}

void film_cut(Film& film, double z) {
  FilmPoint top = film_at(film, z);
  film_truncate(film, first_not_below(film, z));
  top.z = z;
  film_add(film, top);
}

}  // namespace vorlen

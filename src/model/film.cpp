#include "model/film.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>

namespace vorlen {

namespace {

constexpr double NM = 1e-9;

FilmPoint knot(const Film& film, std::size_t i) {
  FilmPoint p{film.z[i], film.x_In[i], film.x_Al[i]};
  if (film.relaxes) {
    p.h = film.h[i];
    p.I0 = film.I0[i];
    p.I1 = film.I1[i];
    p.J0_0 = film.J0_0[i];
    p.J0_1 = film.J0_1[i];
  }
  return p;
}

FilmPoint between(const FilmPoint& a, const FilmPoint& b, double z) {
  const double share = b.z > a.z ? (z - a.z) / (b.z - a.z) : 0.0;
  const auto mix = [share](double from, double to) { return from + (to - from) * share; };
  return {z,
          mix(a.x_In, b.x_In),
          mix(a.x_Al, b.x_Al),
          mix(a.h, b.h),
          mix(a.I0, b.I0),
          mix(a.I1, b.I1),
          mix(a.J0_0, b.J0_0),
          mix(a.J0_1, b.J0_1)};
}

// The pre-stages at height z. Below the first one its composition goes on.
FilmPoint below_at(const Film& film, double z) {
  const auto above = std::find_if(film.below.begin(), film.below.end(), [z](const FilmPoint& p) { return p.z >= z; });
  if (above == film.below.begin()) return film.below.front();
  if (above == film.below.end()) return film.below.back();
  return between(*std::prev(above), *above, z);
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
      film.below.push_back({z, stage.X_In_average / sum, stage.X_Al_average / sum, 0.0, 0.0, 0.0, 0.0, 0.0});
    }
    bottom = top;
  }
  if (film.below.empty()) film.below.push_back({z_start, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0});
  return film;
}

double film_top(const Film& film) { return film.z.empty() ? film.below.back().z : film.z.back(); }

FilmPoint film_at(const Film& film, double z) {
  const std::size_t above = first_not_below(film, z);
  if (film.z.empty() || (above == 0 && z < film.z.front())) return below_at(film, z);
  if (above == 0) return knot(film, 0);
  if (above == film.z.size()) return knot(film, above - 1);
  return between(knot(film, above - 1), knot(film, above), z);
}

FilmPoint film_slopes(const Film& film, double z) {
  if (!film.relaxes || film.z.size() < 2 || z <= film.z.front()) return {};
  const std::size_t above = std::min(first_not_below(film, z), film.z.size() - 1);
  // The interval under z that has a thickness.
  std::size_t under = above;
  while (under > 0 && !(film.z[under] < film.z[above])) --under;
  const FilmPoint a = knot(film, under), b = knot(film, under + 1);
  const double dz = b.z - a.z;
  if (!(dz > 0.0)) return {};
  return {0.0,
          0.0,
          0.0,
          (b.h - a.h) / dz,
          (b.I0 - a.I0) / dz,
          (b.I1 - a.I1) / dz,
          (b.J0_0 - a.J0_0) / dz,
          (b.J0_1 - a.J0_1) / dz};
}

void film_add(Film& film, const FilmPoint& point) {
  film.z.push_back(point.z);
  film.x_In.push_back(point.x_In);
  film.x_Al.push_back(point.x_Al);
  if (!film.relaxes) return;
  film.h.push_back(point.h);
  film.I0.push_back(point.I0);
  film.I1.push_back(point.I1);
  film.J0_0.push_back(point.J0_0);
  film.J0_1.push_back(point.J0_1);
}

void film_cut(Film& film, double z) {
  const FilmPoint top = film_at(film, z);
  const std::size_t kept = first_not_below(film, z);
  for (auto* list : {&film.z, &film.x_In, &film.x_Al}) list->resize(kept);
  if (film.relaxes) {
    for (auto* list : {&film.h, &film.I0, &film.I1, &film.J0_0, &film.J0_1}) list->resize(kept);
  }
  film.candidate_blocks = {};
  film_add(film, {z, top.x_In, top.x_Al, top.h, top.I0, top.I1, top.J0_0, top.J0_1});
}

}  // namespace vorlen

// The work after each accepted step of the staged scheme: search it for events, then advance the film, the density of
// V-defects and the rows to its end.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "api/staged_equations.h"
#include "results/row_selection.h"

namespace vorlen {

// Why the integration stops before the end of a stage.
enum class Event {
  NONE,
  OPENING,  // V-defects open
  PEAK      // their density stops rising
};

inline constexpr int SAMPLES_PER_STEP = 8;

// A run under the staged scheme. Times are in s from the start of the stage.
struct StagedRun {
  StagedEquations equations;
  double tolerance = 0.0;  // relative
  double max_step = 0.0;   // s; 0: no limit
  std::size_t n = 0;       // components
  RowSelection rows{};
  // The last accepted state
  double t = 0.0;
  double GR = 0.0;  // growth rate, m/s
  StagedVector y{};
  FilmPoint surface{};
  double last_step = 0.0;  // s
  // Moments of the current step, filled by follow_step
  std::array<HistoryPoint, SAMPLES_PER_STEP> samples{};
  std::size_t step_samples = 0;
  // Events
  bool watch_events = false;
  Event event = Event::NONE;
  double t_event = 0.0;
};

// An accepted step, from the last accepted state of the run to y. Times in s; CONT is for RadauDenseValue.
struct Step {
  double t_from = 0.0, t_to = 0.0;
  const double* y = nullptr;
  const double* CONT = nullptr;
  std::int32_t cont_size = 0;
};

// Starts a span at time t in state y, with growth rate GR [m/s]. The first span of a stage adds its first row.
void start_span(StagedRun& run, double t, const double* y, double GR);

// Searches the step for an event. If there is one, sets run.event and run.t_event; film, density and rows are
// unchanged.
bool find_event(StagedRun& run, const Step& step);

// Advances the film and the density of V-defects to the end of the step, and collects samples for finish_step.
void follow_step(StagedRun& run, const Step& step);

// Makes the end of the step, where the growth rate is GR [m/s], the last accepted state, and adds the samples as rows.
void finish_step(StagedRun& run, const Step& step, double GR);

}  // namespace vorlen

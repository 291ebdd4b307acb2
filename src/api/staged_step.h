// What follows each accepted step of the staged scheme: events are looked for within it, and the film, the rows and the
// density of V-defects are brought up to its end.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "api/staged_equations.h"
#include "results/row_selection.h"

namespace vorlen {

// What the integration stops at before the end of a stage.
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
  // Moments of the step that is being followed
  std::array<RowSample, SAMPLES_PER_STEP> samples{};
  std::size_t step_samples = 0;
  // Events
  bool watch_events = false;
  Event event = Event::NONE;
  double t_event = 0.0;
};

// An accepted step: the states at both ends are those of the run and y; CONT is for RadauDenseValue.
struct Step {
  double t_from = 0.0, t_to = 0.0;
  const double* y = nullptr;
  const double* CONT = nullptr;
  std::int32_t cont_size = 0;
};

// Puts the state y at time t where a span starts: its first row, and the surface that grows on.
void start_span(StagedRun& run, double t, const double* y, double GR);

// Whether an event lies within the step. Then run.event and run.t_event are set and the step has left no trace.
bool find_event(StagedRun& run, const Step& step);

// Brings the film and the density of V-defects up to the end of the step. The rows follow with finish_step.
void follow_step(StagedRun& run, const Step& step);

// Takes the end of the step, with the growth rate GR there [m/s], as the last accepted state, and its samples for rows.
void finish_step(StagedRun& run, const Step& step, double GR);

}  // namespace vorlen

// The stage records and the time axis: each stage is placed after the previous one, checked, and compared with it.
#include "recipe/process_recipe.h"

#include <cmath>
#include <cstddef>

namespace vorlen {

namespace {

// Two values count as equal when they differ by no more than this part of their sum.
constexpr double RANGE_TOLERANCE = 1e-8;

constexpr double TAU_MIN = 1e-8;  // least duration of an active stage, s

bool differ(double a, double b) { return std::fabs(a - b) > RANGE_TOLERANCE * std::fabs(a + b); }

// The stage changes r, or r differs from the same range of the stage before it; previous may be null.
bool changes(const ValueRange& r, const ValueRange* previous) {
  return r.varies() || (previous != nullptr && !r.equal_to(*previous));
}

bool any_flow_changes(const StageRecord& stage, const StageRecord* previous) {
  for (std::size_t k = 0; k < N_FLOWS; ++k) {
    if (changes(stage.Q[k], previous != nullptr ? &previous->Q[k] : nullptr)) return true;
  }
  return false;
}

// The end of the last stage of the list; if it is empty, otherwise [s].
template <class Stage>
double end_of(const std::vector<Stage>& stages, double otherwise) {
  return stages.empty() ? otherwise : stages.back().end_time();
}

}  // namespace

bool ValueRange::undefined() const { return val < 0.0 || end < 0.0; }

bool ValueRange::varies() const { return RANGE_TOLERANCE * std::fabs(val + end) < std::fabs(end - val); }

bool ValueRange::equal_to(const ValueRange& other) const { return !differ(val, other.val) && !differ(end, other.end); }

double ValueRange::average() const { return (val + end) * 0.5; }

void ValueRange::set_both(double value) {
  val = value;
  end = value;
}

void StageRecord::set_times(double begin) {
  time.val = begin;
  time.end = begin + tau;
}

void PrePostStageRecord::set_times(double begin) {
  time.val = begin;
  time.end = begin + tau;
}

void ProcessRecipe::add_pre_stage(const PrePostStageRecord& stage) {
  const double begin = end_of(pre_stages, t0);
  pre_stages.push_back(stage);
  pre_stages.back().set_times(begin);
}

void ProcessRecipe::add_post_stage(const PrePostStageRecord& stage) {
  const double begin = end_of(post_stages, end_of(active_stages, end_of(pre_stages, t0)));
  post_stages.push_back(stage);
  post_stages.back().set_times(begin);
}

bool ProcessRecipe::add_active_stage(const StageRecord& stage, std::string& error) {
  error.clear();
  const double begin = end_of(active_stages, end_of(pre_stages, t0));
  active_stages.push_back(stage);
  StageRecord& added = active_stages.back();
  // The first active stage is compared with nothing, not even with a pre-stage.
  const StageRecord* previous = active_stages.size() > 1 ? &active_stages[active_stages.size() - 2] : nullptr;
  added.set_times(begin);

  std::string reason;
  if (!validate_stage(added, reason)) {
    error = "Active stage " + added.label + " is not set correctly. " + reason;
    return false;
  }

  if (any_flow_changes(added, previous)) {
    conditions_vary = true;
    added.flows_vary = true;
  }
  if (changes(added.T, previous != nullptr ? &previous->T : nullptr)) conditions_vary = true;
  if (changes(added.P, previous != nullptr ? &previous->P : nullptr)) conditions_vary = true;
  // Without a rotation rate there is nothing to vary within the stage, but a rate that appears or vanishes counts.
  if (!added.omega_TDR.undefined() && added.omega_TDR.varies()) {
    conditions_vary = true;
  } else if (previous != nullptr && !added.omega_TDR.equal_to(previous->omega_TDR)) {
    conditions_vary = true;
  }
  return true;
}

bool ProcessRecipe::validate_stage(const StageRecord& stage, std::string& error) const {
  if (stage.tau < TAU_MIN) {
    error = "Stage duration is zero or not specified";
    return false;
  }
  if (stage.time.undefined()) {
    error = "Stage begin and end time moments are not calculated correctly inside the code";
    return false;
  }
  if (stage.T.undefined()) {
    error = "Temperature is wrong or not specified";
    return false;
  }
  if (stage.P.undefined()) {
    error = "Pressure is wrong or not specified";
    return false;
  }
  for (const ValueRange& flow : stage.Q) {
    if (!flow.undefined()) return true;
  }
  error = "Flow rates are wrong or not specified";
  return false;
}

}  // namespace vorlen

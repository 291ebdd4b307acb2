// The readers of the single stages of a recipe, and the expansion of periodic stages.
#pragma once

#include <cstdint>
#include <string>

#include "recipe/process_recipe.h"
#include "recipe/xml_lookup.h"

namespace vorlen {

// Stages are numbered in element names with at most four digits.
inline constexpr std::int32_t STAGE_COUNT_MAX = 9999;
// Most active stages of a recipe, periodic stages expanded: a typing error in n_periods must not fill the memory.
inline constexpr std::int64_t ACTIVE_STAGE_COUNT_MAX = 1000000;
// Most bytes of the names of sub-stages in a recipe, which are kept once for each period: long ones must not fill the
// memory. As many stages as there may be can have names of 268 bytes.
inline constexpr std::int64_t PERIODIC_NAMES_MAX = std::int64_t{256} << 20;

// False with a message when count, read from the child name of parent, exceeds STAGE_COUNT_MAX.
bool check_stage_count(std::int32_t count, const TiXmlElement& parent, const char* name, std::string& error);

// Reads the element label_prefix + number of the list into a fresh stage. False with the message in error.
bool read_pre_post_stage(const ChildIndex& list, const char* label_prefix, std::int32_t number,
                         PrePostStageRecord& stage, std::string& error);

// Reads active stage number of the list, which is process_stages at depth 0 and a periodic stage at depth 1, into a
// fresh stage. recipe gives the models; a periodic stage adds its expanded sub-stages to it and leaves 0 in
// stage.period, a single stage leaves -1 there and is for the caller to add. False with the message in error.
// periodic_names counts the bytes of the names of all periods of the recipe, and starts at 0.
//
// A periodic stage with a count below 1 returns true with the stage untouched: adding it is refused.
bool read_active_stage(const ChildIndex& list, std::int32_t number, int depth, ProcessRecipe& recipe,
                       std::int64_t& periodic_names, StageRecord& stage, std::string& error);

}  // namespace vorlen

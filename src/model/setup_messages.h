// Messages of a model that cannot be set up, and limits that belong to them. `vorlen check` predicts these faults and
// shows the same texts. Limits of single values are in the table of the recipe (recipe/recipe_table.h).
//
// Messages are part of the library's interface: misspellings stay.
#pragma once

namespace vorlen {

inline constexpr double FLOW_MIN = 1e-10;  // sccm; a smaller flow counts as none

inline constexpr const char* LOW_REFERENCE_FLOW = "Total refence flow rate is less than 1e-10 sccm";
inline constexpr const char* NOTHING_BELOW_FIRST_PRE_STAGE = "Cannot inherit dislocation density for first pre-stage";
inline constexpr const char* NOTHING_BELOW_FIRST_STAGE =
    "Cannot inherit dislocation density for first active stage: no pre-stages";
inline constexpr const char* NO_GALLIUM_IN_FIRST_STAGE =
    "Flow rates of TMGa and TEGa are less than 1e-10 sccm on first stage. It is not compatible with transport model "
    "InGaN_GR_X.";
inline constexpr const char* NO_LAYER_OF_InGaN_GR =
    "Transport model InGaN_GR is not supported: it defines no transport layer";

}  // namespace vorlen

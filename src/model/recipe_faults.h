// The texts of the model's checks of a recipe, which `vorlen check` predicts. The spelling is part of the interface.
#pragma once

namespace vorlen {

inline constexpr double FLOW_MIN = 1e-10;  // sccm; a smaller flow counts as none

inline constexpr const char* NO_REFERENCE_FLOW = "Total refence flow rate is less than 1e-10 sccm";
inline constexpr const char* NO_GALLIUM_ON_FIRST_STAGE =
    "Flow rates of TMGa and TEGa are less than 1e-10 sccm on first stage. It is not compatible with transport model "
    "InGaN_GR_X.";
inline constexpr const char* NO_TRANSPORT_LAYER =
    "Transport model InGaN_GR is not supported: it defines no transport layer";
inline constexpr const char* FIRST_PRE_STAGE_INHERITS = "Cannot inherit dislocation density for first pre-stage";
inline constexpr const char* FIRST_STAGE_INHERITS =
    "Cannot inherit dislocation density for first active stage: no pre-stages";

}  // namespace vorlen

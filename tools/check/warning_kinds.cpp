// The kinds of warnings of vorlen check. The values of --allow, the help, the table of docs/checking-a-recipe.md and
// what vorlen explain knows of warnings come from this list.
#include "check/recipe_check.h"

namespace vorlen::recipe {

namespace {

constexpr WarningKind KINDS[] = {
    {"unknown-element", "ignored, because its name is unknown here; the hint names the closest known one",
     "unknown element <...> is ignored|element <...> outside of the root is not read"},
    {"unknown-attribute", "ignored, because the element has no attribute of this name",
     "attribute <...> of element <...> is not read"},
    {"duplicate", "a second element of one name is not read",
     "a second element <...> is not read|another element <...> is not read", true},
    {"uncounted-stage", "a stage beyond the number of its list is not read", "element <...> is not read", true},
    {"not-read", "an element of a model that is not selected, `rho_D` next to `inherited`",
     "element <...> is not read"},
    {"stray-text", "text between elements; values are given in attributes", "text in element <...> is not read"},
    {"trailing-characters", "`12abc` reads as 12, and so does `12,5`", "of attribute <...> in element <...> reads as"},
    {"not-finite", "the reader accepts `nan` and `inf` as numbers",
     "of attribute <...> in element <...> is not finite"},
    {"misspelt-keyword", "a text close to `V_dislocation`, which switches relaxation off",
     "in element <...> means \"no relaxation\""},
    {"unit",
     "a value is outside of its usual range, and inside in another unit, or two values agree only in another "
     "unit of one of them. The text has the converted number",
     "below the usual <...>; <...> is|above the usual <...>; <...> is|look like °C|sccm of gallium precursors; <...> "
     "is|sccm in total; <...> slm is"},
    {"unusual-value", "a value is outside of its usual range, in every unit that is known for it",
     "below the usual|above the usual"},
    {"growth",
     "the growth rate or thickness expected from supply and transport is unusual. Only in recipes whose "
     "values are usual otherwise",
     "the expected growth rate is|the expected thickness is|no stage is expected to grow"},
    {"abrupt-change",
     "while a metal flows, the temperature jumps by more than 20 K from one stage to the next, or the "
     "carrier gas changes between nitrogen and hydrogen",
     "the temperature jumps from <...> while metals flow|the carrier gas changes from <...> while metals flow"},
    {"no-ammonia",
     "a metal flows without NH3, or the surface is hot without it: at 900 K or more in hydrogen or before "
     "further growth, otherwise from 1150 K on. Up to 30 s of TMAl alone (a pre-flow or a pulse, "
     "not a stage named AlN) and stages before the first layer of all are left out",
     "metals flow without NH3 in|NH3 is off in <...> at"},
    {"missing-metal",
     "a stage named after an alloy or a well grows without its metal: no TMIn in `InGaN well` or `QW`, no TMAl in "
     "`AlGaN` or `EBL`. Not in ramps, nor in stages named after a neighbour, such as `cap on AlGaN`",
     "is named \"<...>\", but no <...> flows"},
    {"swapped-stages",
     "two stages may have each other's values: one named after an alloy or a well grows without the "
     "metal, and one named otherwise with it; or a layer with indium is hotter than the layers on "
     "both sides",
     "grows without <...>, and <...>, with it|grows with TMIn at <...>, hotter than"},
    {"flow-not-in-material",
     "TMAl in `InGaN`, TMIn in `AlGaN`, gallium together with another metal in `AlInN`. The "
     "flow grows its metal anyway",
     "flows in <...>, but the material is"},
    {"rate-unit",
     "`GR_average` of the model `InGaN_GR_X` acts as nm/s, not as µm/h. Reported once for every such "
     "recipe",
     "GR_average of the model InGaN_GR_X acts as nm/s"},
    {"no-gallium",
     "the first active stage has no gallium flow, in a material with gallium: the run starts from a GaN "
     "surface, and its first steps may fail",
     "has no gallium flow"},
    {"temperature-jump",
     "continuous scheme: the temperature jumps by more than 1 K between two stages, and no metal "
     "flows on one side",
     "the temperature jumps from <...> while nothing grows"},
    {"hot-pause",
     "continuous scheme: a stage without group-III flow is at 1150 K or more, or more than 20 K hotter "
     "than the coolest moment since the last growth, and a later stage grows. One warning for each pause",
     "without group-III flow, and <...> grows after it"},
    {"spacer",
     "continuous scheme with `V_dislocation`: the first layer grows without indium, and a later one with "
     "indium",
     "grows without indium before TMIn flows in"},
    {"no-effect", "`integration:tolerance` with the continuous scheme", "has no effect with the continuous scheme"},
    {"initial-state", "the initial state contains NaN or infinite values",
     "the initial state contains NaN or infinite values"},
};

}  // namespace

std::span<const WarningKind> warning_kinds() { return KINDS; }

}  // namespace vorlen::recipe

// The kinds of warnings of vorlen check. The values of --allow, the help and the table of docs/checking-a-recipe.md
// come from this list.
#include "check/recipe_check.h"

namespace vorlen::recipe {

namespace {

constexpr WarningKind KINDS[] = {
    {"unknown-element", "ignored, because its name is unknown here; the hint names the closest known one"},
    {"unknown-attribute", "likewise"},
    {"duplicate", "a second element of one name is not read", true},
    {"uncounted-stage", "a stage beyond the number of its list is not read", true},
    {"not-read", "an element of a model that is not selected, `rho_D` next to `inherited`"},
    {"stray-text", "text between elements; values are given in attributes"},
    {"trailing-characters", "`12abc` reads as 12, and so does `12,5`"},
    {"not-finite", "the reader accepts `nan` and `inf` as numbers"},
    {"misspelt-keyword", "a text close to `V_dislocation`, which switches relaxation off"},
    {"unit",
     "a value is outside of its usual range, and inside in another unit, or two values agree only in another "
     "unit of one of them. The text has the converted number"},
    {"unusual-value", "a value is outside of its [usual range](#usual-ranges), in every unit that is known for it"},
    {"growth",
     "the growth rate or thickness expected from supply and transport is unusual. Only in recipes whose "
     "values are usual otherwise"},
    {"abrupt-change",
     "while a metal flows, the temperature jumps by more than 20 K from one stage to the next, or the "
     "carrier gas changes between nitrogen and hydrogen"},
    {"no-ammonia",
     "a metal flows without NH3, or the surface is hot without it: at 900 K or more in hydrogen or before "
     "further growth, otherwise from 1150 K on. Up to 30 s of TMAl alone (a pre-flow or a pulse, "
     "not a stage named AlN) and stages before the first layer of all are left out"},
    {"missing-metal",
     "a stage named after an alloy or a well grows without its metal: no TMIn in `InGaN well` or `QW`, no TMAl in "
     "`AlGaN` or `EBL`. Not in ramps, nor in stages named after a neighbour, such as `cap on AlGaN`"},
    {"swapped-stages",
     "two stages may have each other's values: one named after an alloy or a well grows without the "
     "metal, and one named otherwise with it; or a layer with indium is hotter than the layers on "
     "both sides"},
    {"flow-not-in-material",
     "TMAl in `InGaN`, TMIn in `AlGaN`, gallium together with another metal in `AlInN`. The "
     "flow grows its metal anyway"},
    {"rate-unit",
     "`GR_average` of the model `InGaN_GR_X` acts as nm/s, not as µm/h. Reported once for every such "
     "recipe"},
    {"no-gallium",
     "the first active stage has no gallium flow, in a material with gallium: the run starts from a GaN "
     "surface, and its first steps may fail"},
    {"temperature-jump",
     "continuous scheme: the temperature jumps by more than 1 K between two stages, and no metal "
     "flows on one side"},
    {"hot-pause",
     "continuous scheme: a stage without group-III flow is at 1150 K or more, or more than 20 K hotter "
     "than the coolest moment since the last growth, and a later stage grows. One warning for each pause"},
    {"spacer",
     "continuous scheme with `V_dislocation`: the first layer grows without indium, and a later one with "
     "indium"},
    {"no-effect", "`integration:tolerance` with the continuous scheme"},
    {"initial-state", "the initial state contains NaN or infinite values"},
};

}  // namespace

std::span<const WarningKind> warning_kinds() { return KINDS; }

}  // namespace vorlen::recipe

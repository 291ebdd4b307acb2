// Transport layers at construction and at a change of stage, and what the fluxes through them need.
#pragma once

#include "model/surfchem_nonst.h"

namespace vorlen {

// Computes the layers of all stages for thick_GaN and InGaN_GR_X. False with error_text set when the reference or the
// flows give no layer, or for InGaN_GR.
bool set_transport_layers(SurfChemNonst& model);

}  // namespace vorlen

// The equations of the staged scheme integrated by a plain loop, without the driver: stage by stage at a small
// tolerance, with a look at the state within each step. Openings of V-defects are not located.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "api/staged_equations.h"
#include "model/surfchem_nonst.h"

namespace vorlen_test {

class StageLoop {
 public:
  // Called at the nodes of a quadrature over each step: with the state and its rates in the model, what passes between
  // exchange layer and film as kmol/(m^2 s) of In, Ga and Al, and the weight of the node in s.
  using Node = std::function<void(const vorlen::SurfChemNonst&, const std::array<double, 3>&, double)>;

  explicit StageLoop(std::unique_ptr<vorlen::SurfChemNonst> model);

  // Integrates the next stage. Returns its thickness, nm.
  double run_stage(const Node& node = {}, double tolerance = 1e-9);

  vorlen::SurfChemNonst& model() { return *model_; }
  vorlen::StagedVector y{};
  vorlen::StagedEquations equations;  // gamma may be changed before the first stage

 private:
  std::unique_ptr<vorlen::SurfChemNonst> model_;
  std::size_t next_stage_ = 0;
};

}  // namespace vorlen_test

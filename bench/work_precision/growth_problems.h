// The growth model as a test problem: recipes without relaxation, so that the residual depends on time and state alone.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "model/surfchem_nonst.h"
#include "work_precision/problem.h"

namespace vorlen::bench {

// How the process is handed to the solvers, and with which absolute tolerances.
enum class GrowthForm {
  transient,         // the first hundredths of a second, in which the surface fills; tolerances scaled by component
  one_call,          // as the driver does, stage boundaries inside; tolerances scaled by component
  restarted,         // the solvers are restarted at each stage boundary; tolerances scaled by component
  driver_tolerances  // one call; one absolute tolerance for all components, 1e-4 of the relative one as in the driver
};

// The recipe at path in the given form, without reference; its model is added to models, which must outlive the
// problem. Ends the program with a text when the recipe can't be used.
Problem growth_problem(const std::string& name, const std::string& path, GrowthForm form,
                       std::vector<std::unique_ptr<SurfChemNonst>>& models);

// Takes end_values as reference. Errors are those of z over the thickness grown, and of the three fractions x_b; in the
// transient also those of the surface concentrations and the growth rate, over their values.
void set_growth_reference(Problem& problem, GrowthForm form, const std::vector<double>& end_values);

}  // namespace vorlen::bench

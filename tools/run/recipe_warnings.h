// What "vorlen run" shows of the warnings of "vorlen check" before it runs recipes.
#pragma once

#include <vector>

#include "run/simulation.h"

// Writes the warnings about the recipes of jobs to stderr: of a single recipe their number and the first three, of
// several recipes one line each. Those about parts of a recipe that are not simulated come first, and up to 20 of them
// are written. Recipes that the library rejects are left out: their runs report the error. These are marked in jobs.
void show_recipe_warnings(std::vector<Job>& jobs);

// What is generated from the crystal data of the built-in nitrides (recipe/species_data.h).
#pragma once

#include <string>

// The module vorlen/_observe/nitrides.py of the Python package.
std::string nitrides_module();

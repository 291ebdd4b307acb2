// What is generated from the columns of a result file (results/columns.h).
#pragma once

#include <string>
#include <string_view>

// The Markdown table called "result columns", "surface columns" or "relaxation columns"; empty for any other name.
std::string result_columns_table(std::string_view name);

// The module vorlen/_runs/columns.py of the Python package.
std::string result_columns_module();

// Rows of a table that say the same, such as those of the periods of wells: on a terminal they are one row.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "terminal/table.h"

using Indices = std::vector<std::size_t>;  // from 0

// The places of equal keys, in the order of the first of each.
std::vector<Indices> equal_keys(const std::vector<std::string>& keys);

// The cells of a row from a place on, as a key.
std::string row_key(const std::vector<std::string>& row, std::size_t first);

// Keeps the first row of each group and adds how many there are to the name in its second cell: "InGaN well × 5".
void keep_groups(Table& table, const std::vector<Indices>& groups);

// Rising indices as numbers from 1: "3", "3, 5", "3-6", "3, 5, 7, ..., 41".
std::string numbers_text(const Indices& indices);

// The word that a misspelt one stands for.
#pragma once

#include <string_view>
#include <vector>

// Least number of letters to insert, drop, replace or swap with their neighbour that turns a into b. The case of the
// letters A to Z does not count.
int edit_distance(std::string_view a, std::string_view b);

// The candidate nearest to word, the first of several; empty when none is near: more than a third of the longer word's
// letters would have to be changed.
std::string_view nearest_word(std::string_view word, const std::vector<std::string_view>& candidates);

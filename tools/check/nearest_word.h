// The word that a misspelt one was meant to be.
#pragma once

#include <string_view>
#include <vector>

// Least number of letters to insert, delete, replace or swap with their neighbour to turn a into b. The case of the
// letters A to Z does not count.
int edit_distance(std::string_view a, std::string_view b);

// The candidate nearest to word, the first of several; empty if none is close: if more than a third of the longer
// word's letters would have to change.
std::string_view nearest_word(std::string_view word, const std::vector<std::string_view>& candidates);

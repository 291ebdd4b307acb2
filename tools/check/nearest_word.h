// The word that a misspelt one was meant to be.
#pragma once

#include <string_view>
#include <vector>

// Least number of letters to insert, delete, replace or swap with their neighbour to turn a into b. The case of the
// letters A to Z does not count.
int edit_distance(std::string_view a, std::string_view b);

// True if both are chemical formulas of the same symbols in another order: AlGaInN and AlInGaN.
bool same_symbols(std::string_view a, std::string_view b);

// The candidate of the same symbols as word; otherwise the one nearest to word to it, the first of several; empty if
// none is close: if more than a third of the longer word's letters would have to change.
std::string_view nearest_word(std::string_view word, const std::vector<std::string_view>& candidates);

// What a mistyped word may have meant.
#pragma once

#include <optional>
#include <string>
#include <vector>

// The known word that is so close to `word` that a slip of the hand explains the difference.
std::optional<std::string> Closest(const std::string& word, const std::vector<std::string>& known);

#include "Closest.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace {

constexpr std::size_t kFarthest = 3;

// How many letters must be put in, taken out or exchanged to turn one word into the other.
std::size_t Distance(const std::string& left, const std::string& right) {
  // Words that need not be compared may be as long as a file.
  const std::size_t atLeast = std::max(left.size(), right.size()) - std::min(left.size(), right.size());
  if (atLeast > kFarthest) return atLeast;
  std::vector<std::size_t> row(right.size() + 1);
  for (std::size_t i = 0; i <= right.size(); ++i) row[i] = i;
  for (std::size_t i = 1; i <= left.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i);
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t exchanged = diagonal + (left[i - 1] == right[j - 1] ? 0 : 1);
      diagonal = std::exchange(row[j], std::min({row[j] + 1, row[j - 1] + 1, exchanged}));
    }
  }
  return row.back();
}

}  // namespace

std::optional<std::string> Closest(const std::string& word, const std::vector<std::string>& known) {
  const auto closest = std::min_element(known.begin(), known.end(), [&](const auto& left, const auto& right) {
    return Distance(word, left) < Distance(word, right);
  });
  if (closest == known.end() || Distance(word, *closest) > std::min(kFarthest, word.size() / 2)) return std::nullopt;
  return *closest;
}

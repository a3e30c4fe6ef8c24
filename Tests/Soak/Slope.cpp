#include "Tests/Soak/Slope.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

Slope TheilSen(const std::vector<Point>& points) {
  std::vector<double> slopes;
  for (std::size_t i = 0; i < points.size(); ++i)
    for (std::size_t j = i + 1; j < points.size(); ++j)
      if (points[j].work > points[i].work)
        slopes.push_back((points[j].measure - points[i].measure) / (points[j].work - points[i].work));
  if (slopes.empty()) return {0, 0};
  std::sort(slopes.begin(), slopes.end());

  constexpr double kNormalAt99 = 2.576;
  const auto n = static_cast<double>(points.size());
  const double width = kNormalAt99 * std::sqrt(n * (n - 1) * (2 * n + 5) / 18);
  const double least = (static_cast<double>(slopes.size()) - width) / 2;
  return {slopes[slopes.size() / 2], slopes[static_cast<std::size_t>(std::max(least, 0.0))]};
}

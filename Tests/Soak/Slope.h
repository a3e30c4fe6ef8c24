// Whether a measure grows while work is done.
#pragma once

#include <vector>

struct Point {
  double work;
  double measure;
};

// Growth of the measure for each unit of work.
struct Slope {
  double median;
  double least;  // the growth is no less than this, with 99 % confidence
};

// By Theil and Sen: the median of the slopes between all pairs of points. The system takes memory in steps, and takes
// one more at any time; two points, or the line through all of them by least squares, show such a step as growth. Here
// one step, wherever it comes, moves the median by little, and only what grows throughout lifts it. The bound is Sen's,
// from the variance of Kendall's rank correlation, and knows nothing of how the noise is distributed.
Slope TheilSen(const std::vector<Point>& points);

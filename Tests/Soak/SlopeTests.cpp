// That the judge of the soak tells growth from what memory does anyway.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <vector>

#include "Tests/Soak/Slope.h"

namespace {

Slope SlopeOf(const std::function<double(int)>& measure) {
  std::vector<Point> points;
  for (int i = 0; i < 200; ++i) points.push_back({i * 10.0, measure(i)});
  return TheilSen(points);
}
// Noise of a known size, without a trend.
double Noise(int i) { return 100 * std::sin(i * 12.9898); }

TEST(Slope, OfALineIsItsRise) {
  const Slope slope = SlopeOf([](int i) { return 7 + 3.0 * i; });
  EXPECT_DOUBLE_EQ(slope.median, 0.3);
  EXPECT_DOUBLE_EQ(slope.least, 0.3);
}

TEST(Slope, OfNoiseAloneMayBeNone) { EXPECT_LE(SlopeOf(Noise).least, 0); }

TEST(Slope, OfOneStepMayBeNoneWhereverItComes) {
  for (int at : {1, 20, 100, 180, 199}) EXPECT_LE(SlopeOf([at](int i) { return i < at ? 0 : 1e6; }).least, 0) << at;
}

TEST(Slope, OfGrowthBeneathTheNoiseIsSeen) {
  EXPECT_GT(SlopeOf([](int i) { return Noise(i) + i; }).least, 0);
}

TEST(Slope, OfStepsThatDoNotEndIsSeen) {
  EXPECT_GT(SlopeOf([](int i) { return std::floor(i / 25.0) * 1000; }).least, 0);
}

TEST(Slope, OfNoPointsIsNone) {
  EXPECT_EQ(TheilSen({}).least, 0);
  EXPECT_EQ(TheilSen({{1, 1}}).least, 0);
}

}  // namespace

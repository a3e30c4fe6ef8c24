#include "QeLaC/QuietTime.h"

#include <gtest/gtest.h>

namespace {

TEST(QuietTime, NothingIsDueWithoutNews) {
  QuietTime quiet(100);
  EXPECT_EQ(quiet.Remaining(5000), std::nullopt);
  quiet.Note(5000);
  quiet.Forget();
  EXPECT_EQ(quiet.Remaining(9000), std::nullopt);
}

TEST(QuietTime, EachNewsBeginsItAnew) {
  QuietTime quiet(100);
  quiet.Note(5000);
  EXPECT_EQ(quiet.Remaining(5000), 100u);
  quiet.Note(5060);
  EXPECT_EQ(quiet.Remaining(5100), 60u);
  EXPECT_EQ(quiet.Remaining(5160), 0u);
  EXPECT_EQ(quiet.Remaining(9000), 0u);
}

TEST(QuietTime, NewsIsDueTenTimesAfterTheFirst) {
  QuietTime quiet(100);
  for (ULONGLONG now = 5000; now < 6000; now += 50) quiet.Note(now);
  EXPECT_EQ(quiet.Remaining(5990), 10u);
  EXPECT_EQ(quiet.Remaining(6000), 0u);
}

TEST(QuietTime, NoQuietTimeMeansAtOnce) {
  QuietTime quiet(0);
  quiet.Note(5000);
  EXPECT_EQ(quiet.Remaining(5000), 0u);
}

TEST(QuietTime, TheLongestOneIsNotInfinite) {
  QuietTime quiet(INFINITE);
  quiet.Note(5000);
  EXPECT_EQ(quiet.Remaining(5000), INFINITE - 1);
}

}  // namespace

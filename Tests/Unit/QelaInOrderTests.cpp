#include "Tools/qela/InOrder.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>

namespace {

TEST(QelaInOrder, ResultsAreTakenInOrderWhateverTheirWorkTakes) {
  constexpr std::size_t kCount = 1000;
  std::vector<std::size_t> taken;
  InOrder(
      kCount, 4,
      [](std::size_t i) {
        for (std::size_t turn = i * 7919 % 10; turn-- > 0;) std::this_thread::yield();
        return std::to_string(i);
      },
      [&](std::size_t i, const std::string& result) {
        EXPECT_EQ(result, std::to_string(i));
        taken.push_back(i);
      });
  ASSERT_EQ(taken.size(), kCount);
  for (std::size_t i = 0; i < kCount; ++i) ASSERT_EQ(taken[i], i);
}

TEST(QelaInOrder, NothingToDoIsDone) {
  InOrder(0, 2, [](std::size_t) { return 0; }, [](std::size_t, int) { ADD_FAILURE(); });
}

// However many there are: memory does not grow with them.
TEST(QelaInOrder, FewResultsWaitToBeTaken) {
  std::atomic<std::size_t> done = 0;
  std::size_t most = 0;
  InOrder(
      2000, 2, [&](std::size_t) { return ++done; },
      [&](std::size_t i, std::size_t) {
        std::this_thread::yield();
        most = std::max(most, done - i);
      });
  EXPECT_LE(most, 2u * 16 + 1);
}

TEST(QelaInOrder, WhatTheWorkThrowsComesInItsTurn) {
  std::size_t taken = 0;
  const auto run = [&] {
    InOrder(
        100, 4,
        [](std::size_t i) {
          if (i >= 50) throw std::runtime_error(std::to_string(i));
          return i;
        },
        [&](std::size_t, std::size_t) { ++taken; });
  };
  try {
    run();
    ADD_FAILURE();
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "50");
  }
  EXPECT_EQ(taken, 50u);
}

TEST(QelaInOrder, WhatTheTakerThrowsEndsTheWork) {
  std::atomic<int> worked = 0;
  EXPECT_THROW(InOrder(
                   100'000, 4, [&](std::size_t i) { return ++worked, i; },
                   [](std::size_t i, std::size_t) {
                     if (i == 10) throw std::runtime_error("no reader");
                   }),
               std::runtime_error);
  EXPECT_LT(worked, 11 + 4 * 16 + 4 + 1);
}

}  // namespace

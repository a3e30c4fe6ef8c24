// That a soak which stands still ends, and tells where.
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "Tests/Soak/Watchdog.h"

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

void StandStill() {
  Watchdog watchdog(500, [] {});
  std::thread([&] {
    const Watchdog::Doing doing(watchdog, "waiting for Godot");
    ::Sleep(INFINITE);
  }).detach();
  const Watchdog::Doing outer(watchdog, "a round");
  const Watchdog::Doing inner(watchdog, "its step");
  ::Sleep(INFINITE);
}

TEST(Watchdog, EndsAProcessThatStandsStillAndTellsWhatEachThreadWasDoingAndWhere) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(StandStill(), ::testing::ExitedWithCode(1),
              AllOf(HasSubstr(": waiting for Godot, for "), HasSubstr(": a round, for "), HasSubstr(": its step, for "),
                    HasSubstr("  SoakTests.exe+0x")));
}

TEST(Watchdog, LetsARunGoOnInWhichOneThreadDoesSomething) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        Watchdog watchdog(500, [] {});
        const Watchdog::Doing idle(watchdog, "nothing");
        for (const ULONGLONG end = ::GetTickCount64() + 1500; ::GetTickCount64() < end;)
          const Watchdog::Doing doing(watchdog, "something");
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace

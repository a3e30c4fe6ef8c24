// How ./dev torture and a failure that is looked at alone choose what fails.
#include "Tests/Support/FailEveryImport.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"

namespace {

// Through a function that is not inlined: the compiler takes the table for constant.
[[gnu::noinline]] HANDLE OpenEvent() { return ::CreateEventW(nullptr, TRUE, FALSE, nullptr); }

class ChosenFailures : public testing::Test {
 protected:
  ~ChosenFailures() override {
    for (const char* name : {"TORTURE_CALLS", "TORTURE_ONLY", "TORTURE_PART", "TORTURE_SEED"}) Set(name, "");
  }
  static void Set(const char* name, const char* value) { ::_putenv_s(name, value); }

  // Makes ten events, again and again. Of each run in which some failed, their numbers.
  std::vector<std::vector<int>> Failed(std::uint32_t mostCalls = 1) const {
    std::vector<std::vector<int>> runs;
    ImportFaults faults(ThisProgram());
    FailEveryImport(faults, mostCalls, [&](Attempt& attempt) {
      std::vector<int> failed;
      for (int i = 1; i <= 10; ++i) {
        const HANDLE event = OpenEvent();
        if (event == nullptr)
          failed.push_back(i);
        else
          ::CloseHandle(event);
      }
      attempt.EndFailures();
      if (attempt.Fails()) runs.push_back(failed);
    });
    return runs;
  }
};

using Runs = std::vector<std::vector<int>>;

TEST_F(ChosenFailures, AreOneCallInOneWayWithOneError) {
  Set("TORTURE_ONLY", "CreateEventW:9:on:1450");
  EXPECT_EQ(Failed(), (Runs{{9, 10}}));
  Set("TORTURE_ONLY", "CreateEventW:9:once:8");
  EXPECT_EQ(Failed(), (Runs{{9}}));
}

TEST_F(ChosenFailures, AreAllOfACallOrOfAFunction) {
  Set("TORTURE_ONLY", "CreateEventW:9");
  EXPECT_EQ(Failed(), (Runs{{9}, {9, 10}, {9}, {9, 10}})) << "two errors";
  Set("TORTURE_ONLY", "CreateEventW");
  EXPECT_EQ(Failed().size(), 10u * 2 * 2);
}

TEST_F(ChosenFailures, AreTheFirstCallAndThoseThatTheSeedChooses) {
  Set("TORTURE_ONLY", "CreateEventW");
  Set("TORTURE_CALLS", "3");
  const auto failedWith = [&](const char* seed) {
    Set("TORTURE_SEED", seed);
    return Failed();
  };
  const Runs one = failedWith("20261122");
  EXPECT_EQ(one.size(), (2u + 1 + 1) * 2) << "the first call with both errors, the others with one";
  EXPECT_EQ(one[0], std::vector{1});
  EXPECT_EQ(failedWith("20261122"), one);
  EXPECT_NE(failedWith("20261123"), one);
}

TEST_F(ChosenFailures, AreSharedByTheParts) {
  Set("TORTURE_ONLY", "CreateEventW");
  Set("TORTURE_PART", "1/3");
  EXPECT_EQ(Failed().size(), 4u * 2 * 2) << "calls 1, 4, 7 and 10";
  Set("TORTURE_PART", "3/3");
  EXPECT_EQ(Failed().size(), 3u * 2 * 2) << "calls 3, 6 and 9";
}

TEST_F(ChosenFailures, AreNoneWhereCallsAreCounted) {
  Set("TORTURE_CALLS", "0");
  EXPECT_EQ(Failed(), Runs{});
}

}  // namespace

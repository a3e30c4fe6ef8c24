#include "ScriptedWindows/ImportTable/ImportFaults.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <memory>
#include <thread>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/ImportTable.h"

namespace {

// Through functions that are not inlined: the compiler takes the table for constant.
[[gnu::noinline]] HANDLE OpenEvent() { return ::CreateEventW(nullptr, TRUE, FALSE, nullptr); }
[[gnu::noinline]] void CloseEvent(HANDLE event) { ::CloseHandle(event); }

// Whether the program, whose table is the one that is patched, can make an event; the last error goes to `error`.
bool MakesAnEvent(DWORD& error) {
  ::SetLastError(4711);
  const HANDLE event = OpenEvent();
  error = ::GetLastError();
  if (event != nullptr) CloseEvent(event);
  return event != nullptr;
}
bool MakesAnEvent() {
  DWORD error = 0;
  return MakesAnEvent(error);
}

class ImportFaultsTest : public testing::Test {
 protected:
  std::size_t Find(const char* name) const {
    const auto found = std::find(m_faults.Names().begin(), m_faults.Names().end(), name);
    EXPECT_NE(found, m_faults.Names().end()) << name;
    return static_cast<std::size_t>(found - m_faults.Names().begin());
  }

  ImportFaults m_faults{ThisProgram()};
};

using enum ImportFaults::Mode;
constexpr ImportFailure kNoEvent{0, ERROR_NO_SYSTEM_RESOURCES};

TEST_F(ImportFaultsTest, OneCallFails) {
  m_faults.FailAt({Find("CreateEventW")}, 2, kOnce, kNoEvent);
  DWORD error = 0;
  EXPECT_TRUE(MakesAnEvent());
  EXPECT_FALSE(MakesAnEvent(error));
  EXPECT_EQ(error, DWORD{ERROR_NO_SYSTEM_RESOURCES});
  EXPECT_TRUE(MakesAnEvent());
  EXPECT_TRUE(m_faults.StopFailing());
}

TEST_F(ImportFaultsTest, AllLaterCallsFailUntilTheyAreToldNotTo) {
  m_faults.FailAt({Find("CreateEventW")}, 2, kFromThenOn, kNoEvent);
  EXPECT_TRUE(MakesAnEvent());
  EXPECT_FALSE(MakesAnEvent());
  EXPECT_FALSE(MakesAnEvent());
  EXPECT_TRUE(m_faults.StopFailing());
  EXPECT_TRUE(MakesAnEvent());
}

TEST_F(ImportFaultsTest, CallsAreCountedAndWhatIsNotReachedHasNotFailed) {
  const std::size_t createEvent = Find("CreateEventW");
  m_faults.FailAt({createEvent}, 3, kOnce, kNoEvent);
  EXPECT_TRUE(MakesAnEvent());
  EXPECT_TRUE(MakesAnEvent());
  EXPECT_EQ(m_faults.Calls(createEvent), 2u);
  EXPECT_FALSE(m_faults.StopFailing());
  m_faults.ForgetCalls();
  EXPECT_EQ(m_faults.Calls(createEvent), 0u);
}

TEST_F(ImportFaultsTest, FunctionsThatFailTogetherAreCountedTogether) {
  m_faults.FailAt({Find("malloc"), Find("calloc")}, 2, kFromThenOn, {0});
  const std::unique_ptr<void, decltype(&std::free)> first(std::malloc(1), &std::free);
  const std::unique_ptr<void, decltype(&std::free)> second(std::calloc(1, 1), &std::free);
  const std::unique_ptr<void, decltype(&std::free)> third(std::malloc(1), &std::free);
  m_faults.StopFailing();
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(third, nullptr);
}

// More arguments than registers, of whole numbers and of broken ones, in a function of any number of them; and the last
// error, which reading it afterwards would show if a thunk had touched it.
TEST_F(ImportFaultsTest, WhatDoesNotFailIsCalledAsItWas) {
  wchar_t text[100];
  const int length = std::swprintf(text, 100, L"%d %.1f %d %.1f %d %.1f %d %.1f", 1, 2.5, 3, 4.5, 5, 6.5, 7, 8.5);
  EXPECT_STREQ(text, L"1 2.5 3 4.5 5 6.5 7 8.5");
  EXPECT_EQ(length, 23);
  volatile double two = 2;
  EXPECT_EQ(std::pow(two, 10), 1024.0);
  DWORD error = 0;
  EXPECT_TRUE(MakesAnEvent(error));
  EXPECT_NE(error, DWORD{ERROR_NO_SYSTEM_RESOURCES});
  ::SetLastError(4711);
  EXPECT_EQ(::GetLastError(), 4711u);
}

int ThrowWhenCompared(const void*, const void*) { throw 7; }

TEST_F(ImportFaultsTest, ExceptionsPassThroughWhatCallsBack) {
  int numbers[] = {2, 1};
  EXPECT_THROW(std::qsort(numbers, 2, sizeof *numbers, &ThrowWhenCompared), int);
  EXPECT_GT(m_faults.Calls(Find("qsort")), 0u);
}

TEST_F(ImportFaultsTest, OfManyThreadsAsManyCallsFailAsWereOrdered) {
  m_faults.FailAt({Find("CreateEventW")}, 100, kOnce, kNoEvent);
  std::atomic<int> failed = 0;
  const auto work = [&] {
    for (int i = 0; i < 100; ++i)
      if (!MakesAnEvent()) ++failed;
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(failed, 1);
}

TEST_F(ImportFaultsTest, WhatIsOrderedAndCountedOutlastsTheModulesAbsence) {
  m_faults.FailAt({Find("CreateEventW")}, 2, kOnce, kNoEvent);
  EXPECT_TRUE(MakesAnEvent());
  m_faults.Leave();
  EXPECT_TRUE(MakesAnEvent());
  m_faults.Enter(ThisProgram());
  EXPECT_FALSE(MakesAnEvent());
  EXPECT_EQ(m_faults.Calls("CreateEventW"), 2u);
}

TEST(ImportFaults, LeavesTheTableAsItWas) {
  const auto table = [] {
    std::vector<void*> values;
    VisitImports(ThisProgram(), [&](const ImportEntry& entry) {
      values.push_back(*entry.slot);
      return true;
    });
    return values;
  };
  const std::vector<void*> before = table();
  {
    const ImportFaults faults(ThisProgram());
    EXPECT_NE(table(), before);
  }
  EXPECT_EQ(table(), before);
}

}  // namespace

#include "FwClient/Common/Utilities/SystemDirectory.h"

#include <gtest/gtest.h>

#include "ScriptedWindows/Windows/FakeSystem.h"
#include "ScriptedWindows/Windows/WindowsScript.h"

namespace {

class SystemDirectory : public testing::Test {
 protected:
  bool Get() { return GetSystemDirectoryPath(path); }
  std::size_t Asked() const { return windows.Count("GetSystemDirectoryW"); }

  WindowsScript windows{ThisProgram()};
  FakeSystem system{windows};
  std::wstring path = L"before";
};

TEST_F(SystemDirectory, IsGivenHoweverLong) {
  system.systemDirectory.assign(700, L'd');
  EXPECT_TRUE(Get());
  EXPECT_EQ(path, system.systemDirectory);
  windows.Fail("GetSystemDirectoryW", ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_FALSE(Get());
  EXPECT_EQ(path, system.systemDirectory);
}

TEST_F(SystemDirectory, IsAskedForAgainOnlyWhenItDidNotFit) {
  // With its terminator the first fits exactly into MAX_PATH characters, the second needs one more.
  system.systemDirectory.assign(MAX_PATH - 1, L'd');
  EXPECT_TRUE(Get());
  EXPECT_EQ(path, system.systemDirectory);
  EXPECT_EQ(Asked(), 1u);
  system.systemDirectory.assign(MAX_PATH, L'd');
  EXPECT_TRUE(Get());
  EXPECT_EQ(path, system.systemDirectory);
  EXPECT_EQ(Asked(), 3u);
}

TEST_F(SystemDirectory, LeavesThePathAsItWasWhenWindowsDoesNotTell) {
  system.systemDirectory.assign(700, L'd');
  for (const std::size_t failing : {1u, 2u}) {
    SCOPED_TRACE(failing);
    windows.Fail("GetSystemDirectoryW", ERROR_NOT_ENOUGH_MEMORY, failing);
    EXPECT_FALSE(Get());
    EXPECT_EQ(path, L"before");
  }
}

}  // namespace

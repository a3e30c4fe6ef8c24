#include "FwClient/Common/Utilities/SystemDirectory.h"

#include <gtest/gtest.h>

#include "ScriptedWindows/Windows/FakeInteractiveUser.h"
#include "ScriptedWindows/Windows/WindowsScript.h"

namespace {

class SystemDirectory : public testing::Test {
 protected:
  bool Get() { return GetSystemDirectoryPath(path); }
  std::size_t Asked() const { return windows.Count("GetSystemDirectoryW"); }

  WindowsScript windows;
  FakeInteractiveUser user{windows};
  std::wstring path = L"before";
};

TEST_F(SystemDirectory, IsGivenHoweverLong) {
  user.systemDirectory.assign(700, L'd');
  EXPECT_TRUE(Get());
  EXPECT_EQ(path, user.systemDirectory);
  windows.Fail("GetSystemDirectoryW", ERROR_NOT_ENOUGH_MEMORY, 3);
  EXPECT_FALSE(Get());
  EXPECT_EQ(path, user.systemDirectory);
}

TEST_F(SystemDirectory, IsAskedForAgainOnlyWhenItDidNotFit) {
  // With its terminator the first fits exactly into MAX_PATH characters, the second needs one more.
  user.systemDirectory.assign(MAX_PATH - 1, L'd');
  EXPECT_TRUE(Get());
  EXPECT_EQ(path, user.systemDirectory);
  EXPECT_EQ(Asked(), 1u);
  user.systemDirectory.assign(MAX_PATH, L'd');
  EXPECT_TRUE(Get());
  EXPECT_EQ(path, user.systemDirectory);
  EXPECT_EQ(Asked(), 3u);
}

TEST_F(SystemDirectory, LeavesThePathAsItWasWhenWindowsDoesNotTell) {
  user.systemDirectory.assign(700, L'd');
  for (const std::size_t failing : {1u, 2u}) {
    SCOPED_TRACE(failing);
    windows.Fail("GetSystemDirectoryW", ERROR_NOT_ENOUGH_MEMORY, Asked() + failing);
    EXPECT_FALSE(Get());
    EXPECT_EQ(path, L"before");
  }
}

}  // namespace

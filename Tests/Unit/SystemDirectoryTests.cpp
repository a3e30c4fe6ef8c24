#include "FwClient/Common/Utilities/SystemDirectory.h"

#include <gtest/gtest.h>

#include "ScriptedWindows/Windows/FakeSystem.h"
#include "ScriptedWindows/Windows/WindowsScript.h"

namespace {

class SystemDirectory : public testing::Test {
 protected:
  bool Get() { return GetSystemDirectoryPath(m_path); }
  std::size_t Asked() const { return m_windows.Count("GetSystemDirectoryW"); }

  WindowsScript m_windows{ThisProgram()};
  FakeSystem m_system{m_windows};
  std::wstring m_path = L"before";
};

TEST_F(SystemDirectory, IsGivenHoweverLong) {
  m_system.systemDirectory.assign(700, L'd');
  EXPECT_TRUE(Get());
  EXPECT_EQ(m_path, m_system.systemDirectory);
  m_windows.Fail("GetSystemDirectoryW", ERROR_NOT_ENOUGH_MEMORY);
  EXPECT_FALSE(Get());
  EXPECT_EQ(m_path, m_system.systemDirectory);
}

TEST_F(SystemDirectory, IsAskedForAgainOnlyWhenItDidNotFit) {
  // With its terminator the first fits exactly into MAX_PATH characters, the second needs one more.
  m_system.systemDirectory.assign(MAX_PATH - 1, L'd');
  EXPECT_TRUE(Get());
  EXPECT_EQ(m_path, m_system.systemDirectory);
  EXPECT_EQ(Asked(), 1u);
  m_system.systemDirectory.assign(MAX_PATH, L'd');
  EXPECT_TRUE(Get());
  EXPECT_EQ(m_path, m_system.systemDirectory);
  EXPECT_EQ(Asked(), 3u);
}

TEST_F(SystemDirectory, LeavesThePathAsItWasWhenWindowsDoesNotTell) {
  m_system.systemDirectory.assign(700, L'd');
  for (const std::size_t failing : {1u, 2u}) {
    SCOPED_TRACE(failing);
    m_windows.Fail("GetSystemDirectoryW", ERROR_NOT_ENOUGH_MEMORY, failing);
    EXPECT_FALSE(Get());
    EXPECT_EQ(m_path, L"before");
  }
}

}  // namespace

#include "FwClient/Common/Utilities/SystemDirectory.h"

#include <gtest/gtest.h>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
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

// A directory that has become longer between the two calls: the second answer is again a size, not a length.
TEST_F(SystemDirectory, IsNotTakenWhenItFitsNoMore) {
  static UINT asked;
  asked = 0;
  const ImportPatch grows(
      ThisProgram(), "GetSystemDirectoryW", +[](wchar_t*, UINT) -> UINT { return ++asked == 1 ? 300 : 301; });
  EXPECT_FALSE(Get());
  asked = 0;
  const ImportPatch fills(
      ThisProgram(), "GetSystemDirectoryW", +[](wchar_t*, UINT) -> UINT { return ++asked, MAX_PATH; });
  EXPECT_FALSE(Get()) << "a length leaves room for the terminator";
  EXPECT_EQ(asked, 1u);
  EXPECT_EQ(m_path, L"before");
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

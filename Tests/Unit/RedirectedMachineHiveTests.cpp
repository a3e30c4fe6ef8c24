#include "ScriptedWindows/Windows/RedirectedMachineHive.h"

#include <windows.h>
#include <gmock/gmock.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

bool Exists(const std::wstring& path) {
  HKEY key = nullptr;
  if (::RegOpenKeyExW(HKEY_CURRENT_USER, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  ::RegCloseKey(key);
  return true;
}

std::wstring MakeKeyBelow(HKEY hive) {
  EXPECT_EQ(::RegSetKeyValueW(hive, L"SOFTWARE\\Some\\Key", L"value", REG_SZ, L"", sizeof(wchar_t)), ERROR_SUCCESS);
  return L"SOFTWARE\\Some\\Key";
}

TEST(RedirectedMachineHive, TakesTheMachinesKeysAndGoesWithThem) {
  std::wstring path;
  {
    const RedirectedMachineHive hive;
    path = hive.Path();
    const std::wstring made = MakeKeyBelow(HKEY_LOCAL_MACHINE);
    EXPECT_TRUE(Exists(path + L"\\" + made));
  }
  EXPECT_FALSE(Exists(path));
}

TEST(RedirectedMachineHive, IsAnotherEachTime) {
  std::wstring first;
  {
    const RedirectedMachineHive hive;
    first = hive.Path();
  }
  const RedirectedMachineHive hive;
  EXPECT_NE(hive.Path(), first);
  EXPECT_NE(hive.Path().find(std::to_wstring(::GetCurrentProcessId())), std::wstring::npos);
}

// What a process printed: the path of a hive that is no more.
bool NamesAKeyThatIsGone(const std::string& output) {
  const std::string path = output.substr(0, output.find('\n'));
  return path.starts_with("Software\\") && !Exists(std::wstring(path.begin(), path.end()));
}

TEST(RedirectedMachineHive, GoesWithAProcessThatExits) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const RedirectedMachineHive hive;
        MakeKeyBelow(HKEY_LOCAL_MACHINE);
        std::fprintf(stderr, "%ls\n", hive.Path().c_str());
        std::exit(Exists(hive.Path()) ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), ::testing::Truly(&NamesAKeyThatIsGone));
}

}  // namespace

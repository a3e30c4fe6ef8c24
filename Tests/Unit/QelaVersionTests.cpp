#include "Tools/qela/Version.h"

#include <winsock2.h>
#include <windows.h>
#include <gtest/gtest.h>

#include <cwchar>
#include <string>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Support/TestFile.h"

namespace {

const std::wstring& LongPath() {
  static const std::wstring path = L"C:\\" + std::wstring(1000, L'x') + L"\\qela.exe";
  return path;
}

TEST(QelaVersion, TheFolderOfTheProgramMayHaveAPathOfAnyLength) {
  const ImportPatch patch(
      ThisProgram(), "GetModuleFileNameW", +[](HMODULE, wchar_t* path, DWORD units) -> DWORD {
        const std::size_t length = LongPath().copy(path, units);
        if (length < units) path[length] = L'\0';
        return static_cast<DWORD>(length);
      });
  EXPECT_EQ(FolderOfThisProgram(), L"C:\\" + std::wstring(1000, L'x') + L"\\");
}

TEST(QelaVersion, AFileWithoutOneHasNone) {
  EXPECT_EQ(FileVersion(TestFile("Tests/Data/README.md").wstring()), "");
  EXPECT_EQ(FileVersion(L"C:\\no such file"), "");
}

}  // namespace

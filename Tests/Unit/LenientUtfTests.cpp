#include "FwClient/Common/Utilities/LenientUtf.h"

#include <windows.h>
#include <gtest/gtest.h>

#include "ScriptedWindows/ImportTable/ImportPatch.h"

namespace {

TEST(LenientUtf, ConvertsTextsOfEveryLanguageBothWays) {
  const std::wstring wide = L"a\u00e4\u65e5\U0001f600";
  const std::string utf8 = "a\xc3\xa4\xe6\x97\xa5\xf0\x9f\x98\x80";
  EXPECT_EQ(LenientUtf::ToUtf8(wide), utf8);
  EXPECT_EQ(LenientUtf::ToWide(utf8), wide);
  EXPECT_EQ(LenientUtf::ToUtf8(L"\u65e5\u65e5"), "\xe6\x97\xa5\xe6\x97\xa5") << "the most that a unit becomes";
}

TEST(LenientUtf, ShowsWhatIsNotValidAsTheReplacementCharacter) {
  const wchar_t alone = 0xd800;
  EXPECT_EQ(LenientUtf::ToUtf8(std::wstring(L"a") + alone + L"b"),
            "a\xef\xbf\xbd"
            "b");
  EXPECT_EQ(LenientUtf::ToWide("a\xff"
                               "b"),
            L"a\ufffd"
            L"b");
}

// For UTF-8 Windows refuses the flags that other encodings know.
TEST(LenientUtf, ConvertsWithoutFlags) {
  using ToWideCall = int WINAPI(UINT, DWORD, LPCCH, int, LPWSTR, int);
  using ToBytesCall = int WINAPI(UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL);
  static ToWideCall* toWide;
  static ToBytesCall* toBytes;
  const ImportPatch wide(
      ThisProgram(), "MultiByteToWideChar",
      +[](UINT page, DWORD flags, LPCCH text, int length, LPWSTR out, int size) -> int {
        EXPECT_EQ(flags, 0u);
        return toWide(page, flags, text, length, out, size);
      });
  const ImportPatch bytes(
      ThisProgram(), "WideCharToMultiByte",
      +[](UINT page, DWORD flags, LPCWCH text, int length, LPSTR out, int size, LPCCH other, LPBOOL used) -> int {
        EXPECT_EQ(flags, 0u);
        return toBytes(page, flags, text, length, out, size, other, used);
      });
  toWide = wide.Original<ToWideCall>();
  toBytes = bytes.Original<ToBytesCall>();
  EXPECT_EQ(LenientUtf::ToWide("a"), L"a");
  EXPECT_EQ(LenientUtf::ToUtf8(L"a"), "a");
}

TEST(LenientUtf, KeepsEmptyTextsAndNuls) {
  EXPECT_EQ(LenientUtf::ToUtf8(L""), "");
  EXPECT_EQ(LenientUtf::ToWide(""), L"");
  EXPECT_EQ(LenientUtf::ToUtf8(std::wstring(L"a\0b", 3)), std::string("a\0b", 3));
  EXPECT_EQ(LenientUtf::ToWide(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
}

}  // namespace

#include "FwClient/Common/Utilities/LenientUtf.h"

#include <gtest/gtest.h>

namespace {

TEST(LenientUtf, ConvertsTextsOfEveryLanguageBothWays) {
  const std::wstring wide = L"a\u00e4\u65e5\U0001f600";
  const std::string utf8 = "a\xc3\xa4\xe6\x97\xa5\xf0\x9f\x98\x80";
  EXPECT_EQ(LenientUtf::ToUtf8(wide), utf8);
  EXPECT_EQ(LenientUtf::ToWide(utf8), wide);
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

TEST(LenientUtf, KeepsEmptyTextsAndNuls) {
  EXPECT_EQ(LenientUtf::ToUtf8(L""), "");
  EXPECT_EQ(LenientUtf::ToWide(""), L"");
  EXPECT_EQ(LenientUtf::ToUtf8(std::wstring(L"a\0b", 3)), std::string("a\0b", 3));
  EXPECT_EQ(LenientUtf::ToWide(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
}

}  // namespace

#include "FwClient/Common/Utilities/AsciiCase.h"

#include <gtest/gtest.h>

#include <clocale>
#include <limits>
#include <string>

namespace {

constexpr wchar_t kKelvin = 0x212a;      // Unicode's lower case of it is "k"
constexpr wchar_t kDottedBigI = 0x0130;  // Turkish; Unicode's lower case of it is "i" (and a dot)
constexpr wchar_t kDotlessI = 0x0131;    // Turkish; "I" is its upper case there
constexpr wchar_t kBigAUmlaut = 0x00c4;  // has a lower case in Latin-1 locales

TEST(AsciiCase, LowersTheTwentySixLettersAndNothingElse) {
  for (unsigned code = 0; code <= std::numeric_limits<wchar_t>::max(); ++code) {
    const auto character = static_cast<wchar_t>(code);
    const bool isUpper = character >= L'A' && character <= L'Z';
    ASSERT_EQ(ToAsciiLower(character), isUpper ? character + 32 : character) << code;
  }
}

TEST(AsciiCase, IsTheSameInEveryLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  std::setlocale(LC_ALL, "Turkish_Turkey.1254");
  std::wstring text = {L'I', L'A', kBigAUmlaut, kDottedBigI, kKelvin};
  LowerAscii(text);
  EXPECT_EQ(text, (std::wstring{L'i', L'a', kBigAUmlaut, kDottedBigI, kKelvin}));
  std::setlocale(LC_ALL, before.c_str());
}

TEST(AsciiCase, ComparesTextsOfEqualLengthOnly) {
  EXPECT_TRUE(EqualsIgnoringAsciiCase(L"", L""));
  EXPECT_TRUE(EqualsIgnoringAsciiCase(L"Explorer.EXE", L"explorer.exe"));
  EXPECT_FALSE(EqualsIgnoringAsciiCase(L"explorer", L"explorer.exe"));
  EXPECT_FALSE(EqualsIgnoringAsciiCase(L"explorer.exe", L"explorer"));
  EXPECT_FALSE(EqualsIgnoringAsciiCase(L"@", L"`"));
  EXPECT_FALSE(EqualsIgnoringAsciiCase(L"[", L"{"));
}

TEST(AsciiCase, DoesNotFoldLettersOfOtherAlphabets) {
  EXPECT_FALSE(EqualsIgnoringAsciiCase(std::wstring(1, kKelvin), L"k"));
  EXPECT_FALSE(EqualsIgnoringAsciiCase(std::wstring(1, kDottedBigI), L"i"));
  EXPECT_FALSE(EqualsIgnoringAsciiCase(std::wstring(1, kDotlessI), L"I"));
}

}  // namespace

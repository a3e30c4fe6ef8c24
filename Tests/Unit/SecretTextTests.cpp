#include "FwClient/Common/Utilities/SecretText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace {

// The memory of the string behind its (emptied) text.
bool IsAllZero(const std::wstring& text) {
  const volatile wchar_t* const memory = text.data();
  return std::all_of(memory, memory + text.capacity(), [](wchar_t unit) { return unit == 0; });
}

TEST(SecretText, WipingEmptiesTheTextAndOverwritesAllItsMemory) {
  for (const std::size_t length : {0u, 1u, 7u, 8u, 500u}) {
    std::wstring text(length, L'x');
    text.reserve(length * 2);
    text += L'y';
    text.pop_back();  // its character stays in the memory behind the text
    WipeSecret(text);
    EXPECT_TRUE(text.empty());
    EXPECT_TRUE(IsAllZero(text)) << length;
  }
}

TEST(SecretText, AssigningAShorterTextLeavesNothingOfTheLongerOne) {
  std::wstring text(L"a long secret that is not kept in the string itself");
  AssignSecret(text, L"short");
  EXPECT_EQ(text, L"short");
  EXPECT_EQ(std::wstring(text.data() + 5, text.capacity() - 5), std::wstring(text.capacity() - 5, L'\0'));
}

TEST(SecretText, AssigningALongerTextKeepsAllOfIt) {
  std::wstring text(L"short");
  AssignSecret(text, std::wstring(1000, L'z'));
  EXPECT_EQ(text, std::wstring(1000, L'z'));
}

}  // namespace

#include "FwClient/Service/QeLaLib/CriteriaValue.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct Case {
  const wchar_t* value;
  const wchar_t* expected;
};

class CriteriaValue : public testing::TestWithParam<Case> {};

TEST_P(CriteriaValue, NormalizesOnlyFullFormMappedAddresses) {
  EXPECT_EQ(NormalizeCriteriaValue(GetParam().value), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Values, CriteriaValue,
    testing::Values(
        // Converted; upper-case digits are as good.
        Case{L"0000:0000:0000:0000:0000:FFFF:C0A8:0101", L"192.168.1.1"},
        Case{L"0000:0000:0000:0000:0000:ffff:0a00:0001", L"10.0.0.1"},
        Case{L"0000:0000:0000:0000:0000:ffff:ffff:ffff", L"255.255.255.255"},
        // No ffff; prefix not at the start; compressed forms.
        Case{L"0000:0000:0000:0000:0000:0000:c0a8:0101", L"0000:0000:0000:0000:0000:0000:c0a8:0101"},
        Case{L"fe80:0000:0000:0000:0000:ffff:c0a8:0101", L"fe80:0000:0000:0000:0000:ffff:c0a8:0101"},
        Case{L" 0000:0000:0000:0000:0000:ffff:c0a8:0101", L" 0000:0000:0000:0000:0000:ffff:c0a8:0101"},
        Case{L"::ffff:192.168.1.1", L"::ffff:192.168.1.1"}, Case{L"::FFFF:a00:1", L"::FFFF:a00:1"}, Case{L"", L""},
        Case{L"Corp.EXAMPLE", L"Corp.EXAMPLE"},
        // Nine groups are 18 bytes; seven are 14; the prefix alone is 12.
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:0101:0000", L"0000:0000:0000:0000:0000:ffff:c0a8:0101:0000"},
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8", L"0000:0000:0000:0000:0000:ffff:c0a8"},
        Case{L"0000:0000:0000:0000:0000:ffff:", L"0000:0000:0000:0000:0000:ffff:"},
        Case{L"0000:0000:0000:0000:0000:ffff", L"0000:0000:0000:0000:0000:ffff"},
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:", L"0000:0000:0000:0000:0000:ffff:c0a8:"},
        Case{L"0000:0000:0000:0000:0000:ffff:c0a80101", L"0000:0000:0000:0000:0000:ffff:c0a80101"},
        Case{L"0000:0000:0000:0000:0000:ffff::c0a8:0101", L"0000:0000:0000:0000:0000:ffff::c0a8:0101"},
        Case{L"000:0000:0000:0000:0000:ffff:c0a8:0101", L"000:0000:0000:0000:0000:ffff:c0a8:0101"},
        Case{L"[0000:0000:0000:0000:0000:ffff:c0a8:0101]", L"[0000:0000:0000:0000:0000:ffff:c0a8:0101]"},
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:0101/24", L"0000:0000:0000:0000:0000:ffff:c0a8:0101/24"},
        // An address that is not converted keeps its letter case, as any text does.
        Case{L"FE80:0000:0000:0000:0000:FFFF:C0A8:0101", L"FE80:0000:0000:0000:0000:FFFF:C0A8:0101"},
        // Full-width letters are no hexadecimal digits and have no ASCII case.
        Case{L"0000:0000:0000:0000:0000:\xff46\xff46\xff46\xff46:c0a8:0101",
             L"0000:0000:0000:0000:0000:\xff46\xff46\xff46\xff46:c0a8:0101"},
        // Reading stops at the first group that is not four characters: what follows 16 bytes does not matter...
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:0101:", L"192.168.1.1"},
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:0101:x", L"192.168.1.1"},
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:0101:x:0000", L"192.168.1.1"},
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:0101::0000", L"192.168.1.1"},
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:0101:00000", L"192.168.1.1"},
        // ...but a zone makes the eighth group itself longer.
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:0101%5", L"0000:0000:0000:0000:0000:ffff:c0a8:0101%5"},
        Case{L"0000:0000:0000:0000:0000:ffff:c0a8:101", L"0000:0000:0000:0000:0000:ffff:c0a8:101"},
        // Digits are read as wcstol reads them: none is 0, blanks and signs are skipped or applied, bytes are unsigned.
        Case{L"0000:0000:0000:0000:0000:ffff:zz10: f+a", L"0.16.15.10"},
        Case{L"0000:0000:0000:0000:0000:ffff:-10x:1g0q", L"255.0.1.0"},
        Case{L"0000:0000:0000:0000:0000:ffff:0X+A:\t9-2", L"0.10.9.254"}));

TEST(CriteriaValueLimits, LongTextPassesUnchanged) {
  const std::wstring text(100'000, L'a');
  EXPECT_EQ(NormalizeCriteriaValue(text), text);
  const std::wstring groups = L"0000:0000:0000:0000:0000:ffff:" + text;
  EXPECT_EQ(NormalizeCriteriaValue(groups), groups);
}

TEST(CriteriaValueLimits, TenThousandGroupsAreNoAddress) {
  std::wstring text = L"0000:0000:0000:0000:0000:ffff";
  for (int i = 0; i < 10'000; ++i) text += L":0101";
  EXPECT_EQ(NormalizeCriteriaValue(text), text);
}

TEST(CriteriaValueLimits, NulIsACharacterLikeAnyOther) {
  const std::wstring prefix = L"0000:0000:0000:0000:0000:ffff:";
  const std::wstring longGroup = prefix + L"c0a8:0101" + std::wstring(1, L'\0');  // the last group has five characters
  EXPECT_EQ(NormalizeCriteriaValue(longGroup), longGroup);
  EXPECT_EQ(NormalizeCriteriaValue(prefix + std::wstring(L"c\0a8:0101", 9)), L"12.168.1.1");  // digits end at it
}

TEST(CriteriaValueLimits, ConvertedTextStaysAsItIs) {
  const std::wstring dotted = NormalizeCriteriaValue(L"0000:0000:0000:0000:0000:ffff:c0a8:0101");
  EXPECT_EQ(NormalizeCriteriaValue(dotted), dotted);
}

}  // namespace

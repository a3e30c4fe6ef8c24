#include "FwClient/Service/QeLaLib/ZeltServerList.h"

#include <gtest/gtest.h>

namespace {

using Names = std::vector<std::wstring>;

struct Case {
  const wchar_t* text;
  Names names;
};

class ZeltServerList : public testing::TestWithParam<Case> {};

TEST_P(ZeltServerList, HoldsEveryThirdFieldOfEveryEntry) {
  EXPECT_EQ(ParseZeltServerList(GetParam().text), GetParam().names);
}

INSTANTIATE_TEST_SUITE_P(
    Lists, ZeltServerList,
    testing::Values(Case{L"srv1|10.0.0.1|443;srv2|10.0.0.2|443", {L"srv1", L"srv2"}},
                    // The count of fields starts again with every entry.
                    Case{L"a|b|c|d|e|f|g;h|i", {L"a", L"d", L"g", L"h"}},
                    // An entry without fields is a name; one that is cut short still has its first field.
                    Case{L"server.example", {L"server.example"}}, Case{L"a|b;c", {L"a", L"c"}},
                    // A separator ends what is before it, so none at the end adds a name.
                    Case{L"a|b|c|", {L"a"}}, Case{L"a|b|c|d|", {L"a", L"d"}}, Case{L"a;", {L"a"}},
                    Case{L"a;b;;", {L"a", L"b"}},
                    // An empty entry has no name, but an empty first field is one.
                    Case{L"", {}}, Case{L";", {}}, Case{L";;;", {}}, Case{L";a;;b", {L"a", L"b"}}, Case{L"|x", {L""}},
                    Case{L"|", {L""}}, Case{L"a|||b", {L"a", L"b"}}, Case{L"a|b|c||d|e|f", {L"a", L"", L"f"}},
                    // Names are kept as they stand, duplicates and blanks included.
                    Case{L"a|1|2;a|3|4; b ", {L"a", L"a", L" b "}}));

}  // namespace

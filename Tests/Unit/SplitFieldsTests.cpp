#include "FwClient/Common/Utilities/SplitFields.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Fields = std::vector<std::wstring_view>;

TEST(SplitFields, ADelimiterEndsAFieldAndNothingFollowsTheLastOne) {
  EXPECT_EQ(SplitFields(L"", L';'), Fields{});
  EXPECT_EQ(SplitFields(L"a", L';'), (Fields{L"a"}));
  EXPECT_EQ(SplitFields(L"a;", L';'), (Fields{L"a"}));
  EXPECT_EQ(SplitFields(L"a;;", L';'), (Fields{L"a", L""}));
  EXPECT_EQ(SplitFields(L";", L';'), (Fields{L""}));
  EXPECT_EQ(SplitFields(L";;", L';'), (Fields{L"", L""}));
  EXPECT_EQ(SplitFields(L";a", L';'), (Fields{L"", L"a"}));
  EXPECT_EQ(SplitFields(L"a;b|c;d", L';'), (Fields{L"a", L"b|c", L"d"}));
  EXPECT_EQ(SplitFields(L"a;;b", L';'), (Fields{L"a", L"", L"b"}));
}

}  // namespace

#include "FwClient/Service/QeLaLib/ExpressionTraits.h"

#include <gtest/gtest.h>

#include <regex>

namespace {

TEST(ExpressionTraits, HasTheDigitsOfTheStandardLibrary) {
  const std::regex_traits<wchar_t> reference;
  for (const int radix : {8, 10, 16})
    for (int code = 0; code <= 0xffff; ++code) {
      const auto character = static_cast<wchar_t>(code);
      ASSERT_EQ(ExpressionTraits::value(character, radix), reference.value(character, radix))
          << "character " << code << ", radix " << radix;
    }
}

}  // namespace

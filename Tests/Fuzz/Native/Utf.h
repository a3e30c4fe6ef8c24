// UTF-8 and UTF-16 as Windows converts them.
#pragma once

#include <string>
#include <string_view>

namespace Utf {

// What is not valid becomes U+FFFD, and is told.
std::string ToUtf8(std::wstring_view text, bool* isValid = nullptr);
std::wstring ToWide(std::string_view utf8, bool* isValid = nullptr);

}  // namespace Utf

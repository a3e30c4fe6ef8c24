// UTF-16 to UTF-8 and back, lenient: what is not valid becomes U+FFFD. For texts that people read; what is stored or
// compared goes through StlStringUtfConv.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace LenientUtf {

inline std::string ToUtf8(std::wstring_view text) {
  constexpr std::size_t kMostBytesAUnit = 3;
  std::string utf8(text.size() * kMostBytesAUnit, '\0');
  utf8.resize(
      static_cast<std::size_t>(::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()),
                                                     utf8.data(), static_cast<int>(utf8.size()), nullptr, nullptr)));
  return utf8;
}

inline std::wstring ToWide(std::string_view utf8) {
  const int length = static_cast<int>(utf8.size());
  std::wstring text(utf8.size(), L'\0');  // never more units than bytes
  text.resize(static_cast<std::size_t>(::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), length, text.data(), length)));
  return text;
}

}  // namespace LenientUtf

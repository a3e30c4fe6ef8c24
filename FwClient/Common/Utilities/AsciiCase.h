// Letter case as the C library sees it in its "C" locale: only A to Z and a to z have one. Independent of the locale
// that the process has set and of Unicode, so that a comparison cannot change with the machine's language.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

constexpr wchar_t ToAsciiLower(wchar_t character) noexcept {
  return character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character - L'A' + L'a') : character;
}

inline void LowerAscii(std::wstring& text) noexcept {
  std::transform(text.begin(), text.end(), text.begin(), ToAsciiLower);
}

inline bool EqualsIgnoringAsciiCase(std::wstring_view left, std::wstring_view right) noexcept {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](wchar_t a, wchar_t b) { return ToAsciiLower(a) == ToAsciiLower(b); });
}

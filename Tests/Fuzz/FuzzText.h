// Wide texts of hostile bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "Tests/Fuzz/FuzzTarget.h"

// ASCII and Latin-1 up to 0xBF are characters; any other byte and the two behind it are one unit of UTF-16, whichever.
// So the files of a corpus can be read, and every text can be made.
inline std::wstring FuzzText(FuzzInput bytes) {
  std::wstring text;
  text.reserve(bytes.size());
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (bytes[i] >= 0xC0 && i + 2 < bytes.size()) {
      text += static_cast<wchar_t>(bytes[i + 1] << 8 | bytes[i + 2]);
      i += 2;
    } else {
      text += static_cast<wchar_t>(bytes[i]);
    }
  }
  // Without reserve, so that it ends where its block does.
  return std::wstring(text.begin(), text.end());
}

// Cut at the first of the byte; the second is empty where there is none.
struct FuzzPair {
  FuzzInput first, second;
};
inline FuzzPair FuzzCut(FuzzInput bytes, std::uint8_t separator) {
  for (std::size_t i = 0; i < bytes.size(); ++i)
    if (bytes[i] == separator) return {bytes.first(i), bytes.subspan(i + 1)};
  return {bytes, {}};
}

// UTF-8 by the book: nothing for what is no shortest form of a character, a surrogate, or cut off.
inline std::optional<std::wstring> FuzzDecodeUtf8(FuzzInput bytes) {
  std::wstring text;
  for (std::size_t i = 0; i < bytes.size();) {
    const std::uint8_t lead = bytes[i++];
    const int more = lead < 0x80 ? 0 : lead >> 5 == 6 ? 1 : lead >> 4 == 14 ? 2 : lead >> 3 == 30 ? 3 : -1;
    if (more < 0) return std::nullopt;
    std::uint32_t character = more == 0 ? lead : lead & (0x3Fu >> more);
    for (int n = 0; n < more; ++n, ++i) {
      if (i == bytes.size() || bytes[i] >> 6 != 2) return std::nullopt;
      character = character << 6 | (bytes[i] & 0x3Fu);
    }
    constexpr std::uint32_t kLeast[] = {0, 0x80, 0x800, 0x10000};
    if (character < kLeast[more] || character > 0x10FFFF || character >> 11 == 0x1B) return std::nullopt;
    if (sizeof(wchar_t) == 2 && character > 0xFFFF) {
      text += static_cast<wchar_t>(0xD7C0 + (character >> 10));
      character = 0xDC00 | (character & 0x3FF);
    }
    text += static_cast<wchar_t>(character);
  }
  return text;
}

// Wide texts of hostile bytes.
#pragma once

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

#include "Utf.h"

#include <cstddef>

namespace Utf {
namespace {

constexpr char32_t kReplacement = 0xfffd;

bool IsSurrogate(char32_t unit) { return (unit & 0xfffff800) == 0xd800; }

}  // namespace

std::string ToUtf8(std::wstring_view text, bool* isValid) {
  std::string utf8;
  const auto tail = [&](char32_t letter, int shift) {
    for (; shift >= 0; shift -= 6) utf8 += static_cast<char>(0x80 | (letter >> shift & 0x3f));
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t letter = text[i];
    if (IsSurrogate(letter)) {
      const bool isPair = letter < 0xdc00 && i + 1 < text.size() && (text[i + 1] & 0xfc00) == 0xdc00;
      if (!isPair && isValid != nullptr) *isValid = false;
      letter = isPair ? 0x10000 + ((letter & 0x3ff) << 10) + (text[++i] & 0x3ff) : kReplacement;
    }
    if (letter < 0x80) {
      utf8 += static_cast<char>(letter);
    } else if (letter < 0x800) {
      utf8 += static_cast<char>(0xc0 | letter >> 6);
      tail(letter, 0);
    } else if (letter < 0x10000) {
      utf8 += static_cast<char>(0xe0 | letter >> 12);
      tail(letter, 6);
    } else {
      utf8 += static_cast<char>(0xf0 | letter >> 18);
      tail(letter, 12);
    }
  }
  return utf8;
}

std::wstring ToWide(std::string_view utf8, bool* isValid) {
  std::wstring text;
  for (std::size_t i = 0; i < utf8.size();) {
    const auto first = static_cast<unsigned char>(utf8[i++]);
    const int more = first < 0x80 ? 0 : first < 0xc2 ? -1 : first < 0xe0 ? 1 : first < 0xf0 ? 2 : first < 0xf5 ? 3 : -1;
    char32_t letter = more < 0 ? kReplacement : more == 0 ? first : first & (0x3f >> more);
    bool isWhole = more >= 0;
    for (int k = 0; isWhole && k < more; ++k) {
      const auto byte = i < utf8.size() ? static_cast<unsigned char>(utf8[i]) : 0U;
      // Of the second byte some are too long, surrogates, or beyond the last letter.
      const unsigned low = k == 0 && first == 0xe0 ? 0xa0 : k == 0 && first == 0xf0 ? 0x90 : 0x80;
      const unsigned high = k == 0 && first == 0xed ? 0x9f : k == 0 && first == 0xf4 ? 0x8f : 0xbf;
      isWhole = byte >= low && byte <= high;
      if (!isWhole) break;
      letter = letter << 6 | (byte & 0x3f);
      ++i;
    }
    if (!isWhole) {
      letter = kReplacement;
      if (isValid != nullptr) *isValid = false;
    }
    if (letter >= 0x10000) {
      text += static_cast<wchar_t>(0xd800 + ((letter - 0x10000) >> 10));
      letter = 0xdc00 + ((letter - 0x10000) & 0x3ff);
    }
    text += static_cast<wchar_t>(letter);
  }
  return text;
}

}  // namespace Utf

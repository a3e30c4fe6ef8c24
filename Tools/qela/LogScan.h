// Searches in the bytes of a log, sixteen at a time where it pays. Every x86-64 processor has the instructions for it.
#pragma once

#include <emmintrin.h>

#include <bit>
#include <cstddef>
#include <string_view>

namespace LogScan {

inline constexpr std::size_t kStep = 16;

inline __m128i Load(const char* from) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from)); }
inline __m128i Equal(__m128i bytes, char to) { return _mm_cmpeq_epi8(bytes, _mm_set1_epi8(to)); }
inline unsigned MaskOf(__m128i bytes) { return static_cast<unsigned>(_mm_movemask_epi8(bytes)); }

// The first line feed or carriage return from there on; the end when there is none.
inline std::size_t FindLineEnd(std::string_view text, std::size_t from) {
  for (; from + kStep <= text.size(); from += kStep) {
    const __m128i bytes = Load(text.data() + from);
    const unsigned mask = MaskOf(_mm_or_si128(Equal(bytes, '\n'), Equal(bytes, '\r')));
    if (mask != 0) return from + static_cast<std::size_t>(std::countr_zero(mask));
  }
  while (from < text.size() && text[from] != '\n' && text[from] != '\r') ++from;
  return from;
}

// Behind the line end that stands there.
inline std::size_t BehindLineEnd(std::string_view text, std::size_t at) {
  if (at >= text.size()) return text.size();
  return at + (text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n' ? 2 : 1);
}

// Where the line begins that has this position.
inline std::size_t LineStart(std::string_view text, std::size_t at) {
  while (at > 0 && text[at - 1] != '\n' && text[at - 1] != '\r') --at;
  return at;
}

// "\n", "\r\n" and "\r" are one each.
std::size_t CountLineEnds(std::string_view text);

// False when there are other letters; `to` has room for as many.
bool WidenAscii(std::string_view text, wchar_t* to);

// As string_view::find, for a text of two letters or more.
std::size_t Find(std::string_view text, std::string_view what, std::size_t from = 0);

// As string_view::rfind, the quicker the nearer the end it is.
std::size_t FindLast(std::string_view text, std::string_view what);

}  // namespace LogScan

#include "LogScan.h"

#include <algorithm>
#include <cstring>

namespace LogScan {

std::size_t CountLineEnds(std::string_view text) {
  std::size_t count = 0;
  std::size_t at = 0;
  // One more byte is read, since a carriage return does not count before a line feed.
  while (at + kStep < text.size()) {
    constexpr std::size_t kMostInAByte = 255;
    const std::size_t steps = std::min((text.size() - at - 1) / kStep, kMostInAByte);
    __m128i counts = _mm_setzero_si128();
    for (std::size_t i = 0; i < steps; ++i, at += kStep) {
      const __m128i feeds = Equal(Load(text.data() + at), '\n');
      const __m128i returns = Equal(Load(text.data() + at), '\r');
      const __m128i feedsBehind = Equal(Load(text.data() + at + 1), '\n');
      counts = _mm_sub_epi8(counts, _mm_or_si128(feeds, _mm_andnot_si128(feedsBehind, returns)));
    }
    const __m128i sums = _mm_sad_epu8(counts, _mm_setzero_si128());
    count += static_cast<std::size_t>(_mm_cvtsi128_si64(sums)) +
             static_cast<std::size_t>(_mm_cvtsi128_si64(_mm_unpackhi_epi64(sums, sums)));
  }
  for (; at < text.size(); ++at)
    if (text[at] == '\n' || (text[at] == '\r' && (at + 1 == text.size() || text[at + 1] != '\n'))) ++count;
  return count;
}

bool WidenAscii(std::string_view text, wchar_t* to) {
  std::size_t at = 0;
  for (; at + kStep <= text.size(); at += kStep) {
    const __m128i bytes = Load(text.data() + at);
    if (MaskOf(bytes) != 0) return false;
    auto* const units = reinterpret_cast<__m128i*>(to + at);
    _mm_storeu_si128(units, _mm_unpacklo_epi8(bytes, _mm_setzero_si128()));
    _mm_storeu_si128(units + 1, _mm_unpackhi_epi8(bytes, _mm_setzero_si128()));
  }
  for (; at < text.size(); ++at) {
    if (static_cast<unsigned char>(text[at]) >= 0x80) return false;
    to[at] = static_cast<wchar_t>(text[at]);
  }
  return true;
}

std::size_t Find(std::string_view text, std::string_view what, std::size_t from) {
  if (text.size() < what.size()) return std::string_view::npos;
  const std::size_t last = text.size() - what.size();
  const std::size_t second = what.size() - 1 < kStep ? what.size() - 1 : kStep - 1;
  // Where the first letter and a later one agree, the rest is compared.
  for (; from + kStep - 1 <= last; from += kStep) {
    unsigned mask = MaskOf(_mm_and_si128(Equal(Load(text.data() + from), what[0]),
                                         Equal(Load(text.data() + from + second), what[second])));
    for (; mask != 0; mask &= mask - 1) {
      const std::size_t at = from + static_cast<std::size_t>(std::countr_zero(mask));
      if (std::memcmp(text.data() + at, what.data(), what.size()) == 0) return at;
    }
  }
  return from > last ? std::string_view::npos : text.find(what, from);
}

std::size_t FindLast(std::string_view text, std::string_view what) {
  std::size_t last = std::string_view::npos;
  std::size_t from = text.size();
  for (std::size_t reach = 1024; from > 0 && last == std::string_view::npos; reach *= 4) {
    from = text.size() - std::min(text.size(), reach);
    for (std::size_t at = from; (at = Find(text, what, at)) != std::string_view::npos; ++at) last = at;
  }
  return last;
}

}  // namespace LogScan

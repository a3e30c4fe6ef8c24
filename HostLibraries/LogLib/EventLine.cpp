#include "EventLine.h"

#include <windows.h>

#include <emmintrin.h>
#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>

#include "FwClient/Common/Utilities/LenientUtf.h"

namespace {

using Line = spdlog::memory_buf_t;

// The same in every encoding, and never escaped: nearly all that is logged.
bool IsPlain(wchar_t unit) { return unit >= 0x20 && unit < 0x7f && unit != L'\\'; }

// The C0 and C1 controls, DEL, and Unicode's line and paragraph separators.
bool IsControl(wchar_t unit) {
  return unit < 0x20 || (unit >= 0x7f && unit <= 0x9f) || unit == 0x2028 || unit == 0x2029;
}

bool IsEscaped(wchar_t unit) { return unit == L'\\' || IsControl(unit); }

void AppendEscaped(Line& line, wchar_t unit) {
  line.push_back('\\');
  if (unit == L'\\') {
    line.push_back('\\');
  } else if (unit == L'\n') {
    line.push_back('n');
  } else if (unit == L'\r') {
    line.push_back('r');
  } else if (unit == L'\t') {
    line.push_back('t');
  } else {
    line.push_back('u');
    for (int shift = 12; shift >= 0; shift -= 4) line.push_back("0123456789ABCDEF"[(unit >> shift) & 0xf]);
  }
}

void AppendUtf8(Line& line, std::wstring_view text) {
  constexpr std::size_t kMostBytesAUnit = 3;
  const std::size_t start = line.size();
  line.resize(start + text.size() * kMostBytesAUnit);
  // Without WC_ERR_INVALID_CHARS a lone surrogate is written as U+FFFD: a log keeps what can be kept.
  const int bytes = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), line.data() + start,
                                          static_cast<int>(line.size() - start), nullptr, nullptr);
  line.resize(start + static_cast<std::size_t>(bytes));
}

// Narrows sixteen units in the few instructions that every x86-64 processor has for it. False when one is not plain.
constexpr std::size_t kBlock = 16;
bool NarrowBlock(const wchar_t* from, char* to) {
  const auto* units = reinterpret_cast<const __m128i*>(from);
  // What does not fit into a byte becomes 0 or 255, which are not plain either. The comparisons are signed.
  const __m128i bytes = _mm_packus_epi16(_mm_loadu_si128(units), _mm_loadu_si128(units + 1));
  const __m128i printable =
      _mm_and_si128(_mm_cmpgt_epi8(bytes, _mm_set1_epi8(0x1f)), _mm_cmplt_epi8(bytes, _mm_set1_epi8(0x7f)));
  const __m128i plain = _mm_andnot_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\\')), printable);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
  return _mm_movemask_epi8(plain) == 0xffff;
}

// Appends the plain units at the start of `text`, and takes them away from it.
void AppendPlain(Line& line, std::wstring_view& text) {
  const std::size_t start = line.size();
  line.resize(start + text.size());
  char* const to = line.data() + start;
  std::size_t plain = 0;
  while (text.size() - plain >= kBlock && NarrowBlock(text.data() + plain, to + plain)) plain += kBlock;
  for (; plain < text.size() && IsPlain(text[plain]); ++plain) to[plain] = static_cast<char>(text[plain]);
  line.resize(start + plain);
  text.remove_prefix(plain);
}

// Up to a NUL (%c may make one), where the text ends for the other readers of the record.
void AppendField(Line& line, std::wstring_view text) {
  for (AppendPlain(line, text); !text.empty() && text.front() != L'\0'; AppendPlain(line, text)) {
    if (IsEscaped(text.front())) {
      AppendEscaped(line, text.front());
      text.remove_prefix(1);
      continue;
    }
    const auto end =
        std::find_if(text.begin(), text.end(), [](wchar_t unit) { return IsPlain(unit) || IsEscaped(unit); });
    const auto others = static_cast<std::size_t>(end - text.begin());
    AppendUtf8(line, text.substr(0, others));
    text.remove_prefix(others);
  }
}

// The same for short bytes that end with a NUL. One pass and no call: measuring and copying would each cost as much.
const char* AppendPlain(Line& line, const char* text) {
  for (;;) {
    char* to = line.data() + line.size();
    const char* const full = line.data() + line.capacity();
    while (to != full && IsPlain(static_cast<unsigned char>(*text))) *to++ = *text++;
    line.resize(static_cast<std::size_t>(to - line.data()));
    if (to != full) return text;
    line.reserve(line.size() + 1);
  }
}

// Source names, components and paths. Bytes that are not UTF-8 become U+FFFD.
void AppendField(Line& line, const char* text) {
  if (text == nullptr) return;
  const char* const end = AppendPlain(line, text);
  if (*end == '\0') return;
  AppendField(line, std::wstring_view(LenientUtf::ToWide(end)));
}

}  // namespace

void RenderEventLine(const LogUtils::LogRecord& record, std::wstring_view text, Line& line) {
  spdlog::details::fmt_helper::append_int(record.severity, line);
  line.push_back('\t');
  AppendField(line, record.source);
  line.push_back('\t');
  AppendField(line, record.component);
  line.push_back('\t');
  AppendField(line, record.file);
  line.push_back(':');
  spdlog::details::fmt_helper::append_int(record.line, line);
  line.push_back('\t');
  AppendField(line, text);
}

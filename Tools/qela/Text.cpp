#include "Text.h"

#include <windows.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cwctype>
#include <iterator>

std::string Printable(std::wstring_view text) {
  std::wstring shown;
  for (const wchar_t unit : text) {
    if (unit < 0x20 || (unit >= 0x7f && unit <= 0x9f) || unit == 0x2028 || unit == 0x2029) {
      shown += L"\\u";
      for (int shift = 12; shift >= 0; shift -= 4) shown += L"0123456789ABCDEF"[(unit >> shift) & 0xf];
    } else {
      shown += unit;
    }
  }
  return ToUtf8(shown);
}

std::wstring WithoutCaseAndBlanks(const std::wstring& name) {
  std::wstring blurred;
  for (const wchar_t unit : name)
    if (!std::iswspace(unit)) blurred += static_cast<wchar_t>(std::towlower(unit));
  return blurred;
}

namespace {

// Where the lines go on that a line is broken into.
std::size_t HangingIndent(std::string_view line) {
  const std::size_t begin = std::min(line.find_first_not_of(' '), line.size());
  const std::size_t gap = line.find("  ", begin);
  const std::size_t column = gap == std::string_view::npos ? gap : line.find_first_not_of(' ', gap);
  return column == std::string_view::npos ? begin : column;
}

}  // namespace

std::string Wrapped(std::string_view text, std::size_t width) {
  constexpr std::size_t kLeastWidth = 20;  // of what stands behind the indent
  std::string wrapped;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    const std::size_t indent = HangingIndent(line);
    std::size_t room = width;
    while (line.size() > room && indent + kLeastWidth <= width) {
      std::size_t cut = line.rfind(' ', room);
      const std::size_t least = room == width ? indent : 0;  // the first piece has the first column
      if (cut == std::string_view::npos || cut <= least) cut = line.find(' ', room);
      if (cut == std::string_view::npos) break;
      wrapped += std::string(line.substr(0, cut)) + "\n" + std::string(indent, ' ');
      line.remove_prefix(cut + 1);
      room = width - indent;
    }
    wrapped += std::string(line) + "\n";
  }
  return wrapped;
}

bool MatchesGlob(std::wstring_view pattern, std::wstring_view text) {
  const auto equal = [](wchar_t left, wchar_t right) { return std::towlower(left) == std::towlower(right); };
  std::size_t star = std::wstring_view::npos;  // the last one, which takes more letters when the rest does not agree
  std::size_t afterStar = 0;
  std::size_t i = 0;
  std::size_t j = 0;
  while (j < text.size()) {
    if (i < pattern.size() && pattern[i] == L'*') {
      star = i++;
      afterStar = j;
    } else if (i < pattern.size() && (pattern[i] == L'?' || equal(pattern[i], text[j]))) {
      ++i, ++j;
    } else if (star != std::wstring_view::npos) {
      i = star + 1;
      j = ++afterStar;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of(L'*', i) == std::wstring_view::npos;
}

namespace {

// In units of 100 ns.
std::int64_t Ticks(const SYSTEMTIME& time) {
  FILETIME file{};
  ::SystemTimeToFileTime(&time, &file);
  return static_cast<std::int64_t>((static_cast<std::uint64_t>(file.dwHighDateTime) << 32) | file.dwLowDateTime);
}

}  // namespace

std::string Counted(std::size_t count, const std::string& thing) {
  return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

std::string TimeNow() {
  constexpr std::int64_t kTicksPerMinute = 60LL * 10'000'000;
  SYSTEMTIME universal{};
  SYSTEMTIME local{};
  ::GetSystemTime(&universal);
  if (!::SystemTimeToTzSpecificLocalTime(nullptr, &universal, &local)) local = universal;
  const auto offset = static_cast<int>((Ticks(local) - Ticks(universal)) / kTicksPerMinute);
  char text[64];
  static_cast<void>(std::snprintf(text, std::size(text), "%04d-%02d-%02dT%02d:%02d:%02d.%03d%c%02d:%02d", local.wYear,
                                  local.wMonth, local.wDay, local.wHour, local.wMinute, local.wSecond,
                                  local.wMilliseconds, offset < 0 ? '-' : '+', std::abs(offset) / 60,
                                  std::abs(offset) % 60));
  return text;
}

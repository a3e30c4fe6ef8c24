#include "Text.h"

#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
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

namespace {

// In units of 100 ns.
std::int64_t Ticks(const SYSTEMTIME& time) {
  FILETIME file{};
  ::SystemTimeToFileTime(&time, &file);
  return static_cast<std::int64_t>((static_cast<std::uint64_t>(file.dwHighDateTime) << 32) | file.dwLowDateTime);
}

}  // namespace

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

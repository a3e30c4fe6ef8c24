#include "EventText.h"

#include <cstdio>
#include <cwchar>

namespace {

// Measures, then writes. `print` is a vsnprintf for wide text that answers the length when it is given no buffer.
template <typename Print>
std::wstring Format(const wchar_t* format, va_list arguments, Print print) {
  if (format == nullptr) return {};
  va_list again;
  va_copy(again, arguments);
  const int length = print(nullptr, 0, format, arguments);
  std::wstring text;
  try {
    if (length < 0) {
      text = format;
    } else {
      text.resize(static_cast<std::size_t>(length));
      if (print(text.data(), text.size() + 1, format, again) < 0) text = format;
    }
  } catch (...) {
    va_end(again);
    throw;
  }
  va_end(again);
  return text;
}

}  // namespace

std::wstring FormatEventText(const wchar_t* format, va_list arguments) {
  // _vscwprintf would be the call that measures, but here it reads %s as narrow text; _vsnwprintf without a buffer
  // measures as it writes.
  return Format(format, arguments, [](wchar_t* buffer, std::size_t size, const wchar_t* text, va_list values) {
    return ::_vsnwprintf(buffer, size, text, values);
  });
}

std::wstring FormatEventText(const char* format, va_list arguments) {
  if (format == nullptr) return {};
  // Narrow formatting would put a wide argument (%S) through the process's locale, and the "C" locale fails at the
  // first letter that is not ASCII. The standard's wide formatting has the narrow one's meanings (%s narrow, %S wide)
  // and converts no wide text, so the format is widened instead. Formats are ASCII; other bytes become one letter each.
  std::wstring wide;
  for (const char* byte = format; *byte != '\0'; ++byte)
    wide += static_cast<wchar_t>(static_cast<unsigned char>(*byte));
  return Format(wide.c_str(), arguments, [](wchar_t* buffer, std::size_t size, const wchar_t* text, va_list values) {
    return ::__stdio_common_vswprintf(_CRT_INTERNAL_PRINTF_STANDARD_SNPRINTF_BEHAVIOR, buffer, size, text, nullptr,
                                      values);
  });
}

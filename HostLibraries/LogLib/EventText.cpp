#include "EventText.h"

#include <cstdio>

#include "Spdlog.h"

EventText::EventText(const wchar_t* format, va_list arguments) {
  Format(_CRT_INTERNAL_PRINTF_LEGACY_WIDE_SPECIFIERS, format == nullptr ? L"" : format, arguments);
}

EventText::EventText(const char* format, va_list arguments) {
  if (format == nullptr) format = "";
  // Narrow formatting would put a wide argument (%S) through the process's locale, and the "C" locale fails at the
  // first letter that is not ASCII. The standard's wide formatting has the narrow one's meanings (%s narrow, %S wide)
  // and converts no wide text, so the format is widened instead. Formats are ASCII; other bytes become one letter each.
  fmt::basic_memory_buffer<wchar_t, 256> wide;
  do wide.push_back(static_cast<unsigned char>(*format));
  while (*format++ != '\0');
  Format(0, wide.data(), arguments);
}

// `meaning` says how the C library reads %s and %S. Its function for all such calls is the only one that fills a buffer
// and tells the length of a text that does not fit.
void EventText::Format(unsigned long long meaning, const wchar_t* format, va_list arguments) {
  const auto print = [&](wchar_t* buffer, std::size_t size, va_list values) {
    return ::__stdio_common_vswprintf(meaning | _CRT_INTERNAL_PRINTF_STANDARD_SNPRINTF_BEHAVIOR, buffer, size, format,
                                      nullptr, values);
  };
  va_list once;
  va_copy(once, arguments);
  const int length = print(m_short.data(), m_short.size(), once);
  va_end(once);
  if (length >= 0 && static_cast<std::size_t>(length) < m_short.size()) {
    m_text = {m_short.data(), static_cast<std::size_t>(length)};
    return;
  }
  if (length >= 0) m_long.resize(static_cast<std::size_t>(length));
  if (length < 0 || print(m_long.data(), m_long.size() + 1, arguments) < 0) m_long = format;
  m_text = m_long;
}

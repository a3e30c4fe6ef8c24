// The text of an event, from its printf-style format.
#pragma once

#include <array>
#include <cstdarg>
#include <string>
#include <string_view>

// A whole text of any length; the usual ones need no heap. A format that cannot be carried out gives the format itself:
// it still tells which event happened; a missing one gives an empty text. Both constructors throw std::bad_alloc.
class EventText {
 public:
  EventText(const wchar_t* format, va_list arguments);
  EventText(const char* format, va_list arguments);
  EventText(const EventText&) = delete;
  EventText& operator=(const EventText&) = delete;

  // With a NUL behind it.
  std::wstring_view Get() const noexcept { return m_text; }

 private:
  void Format(unsigned long long meaning, const wchar_t* format, va_list arguments);

  std::array<wchar_t, 512> m_short;  // not cleared: that would cost as much as the text
  std::wstring m_long;
  std::wstring_view m_text;
};

// The text of an event, from its printf-style format.
#pragma once

#include <cstdarg>
#include <string>

// Whole texts of any length. A format that cannot be carried out gives the format itself: it still tells which event
// happened. Both throw std::bad_alloc.
std::wstring FormatEventText(const wchar_t* format, va_list arguments);
std::wstring FormatEventText(const char* format, va_list arguments);

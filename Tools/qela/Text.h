// UTF-16 of Windows and the library, UTF-8 of the command line's parser, the output and JSON.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "FwClient/Common/Utilities/LenientUtf.h"

using LenientUtf::ToUtf8;
using LenientUtf::ToWide;

// ToUtf8 for people: control characters, which texts from outside may hold, are shown as \uXXXX.
std::string Printable(std::wstring_view text);

// Breaks the lines that are longer than `width`, at blanks. What follows stands below the text that the line has behind
// its first column, such as an option's description, or else below the line's beginning. For ASCII text.
std::string Wrapped(std::string_view text, std::size_t width);

// Whether the text is of the form of the pattern, in which "*" stands for any number of letters and "?" for one, and
// letter case does not count.
bool MatchesGlob(std::wstring_view pattern, std::wstring_view text);

// "1 adapter", "2 adapters".
std::string Counted(std::size_t count, const std::string& thing);

// What people take for the same name: without letter case and blanks.
std::wstring WithoutCaseAndBlanks(const std::wstring& name);

// The local time with its offset, such as 2025-11-21T02:44:06.736+01:00.
std::string TimeNow();

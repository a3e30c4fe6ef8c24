// UTF-16 of Windows and the library, UTF-8 of the command line's parser, the output and JSON.
#pragma once

#include <string>
#include <string_view>

#include "FwClient/Common/Utilities/LenientUtf.h"

using LenientUtf::ToUtf8;
using LenientUtf::ToWide;

// ToUtf8 for people: control characters, which texts from outside may hold, are shown as \uXXXX.
std::string Printable(std::wstring_view text);

// The local time with its offset, such as 2025-11-21T02:44:06.736+01:00.
std::string TimeNow();

// The messages that the library writes to its log, as Docs/log.md lists them.
#pragma once

#include <cstddef>
#include <string_view>

// How long the fixed beginning of a message of the library's is that `text` begins with: of "Calculating current
// locations..." all of it, of "IsCurrentLocation checking location Office" all but the name. 0 when it begins with none.
// Every message has one, of at least 6 letters.
std::size_t FixedBeginningOfMessage(std::wstring_view text);

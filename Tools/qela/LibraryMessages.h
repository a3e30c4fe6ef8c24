// The messages that the library writes to its log, as Docs/log.md lists them.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

// As the library hands it to printf: conversions (%s, %d, ...) stand for what varies.
struct LibraryMessage {
  std::string_view format;
  // The letters before the first conversion, line break or slash (some hosts escape slashes), of which there are at
  // least 6.
  std::size_t beginning;
  bool isFixed;  // all of it is `beginning`
};

// Sorted by their formats.
std::span<const LibraryMessage> LibraryMessages();

// The message that begins at the start of `text`, which is ASCII, UTF-8 or the like; of several, the one with the
// longest beginning. Null when none does.
const LibraryMessage* LibraryMessageAt(std::string_view text);

// How long the fixed beginning of a message of the library's is that `text` begins with: of "Calculating current
// locations..." all of it, of "IsCurrentLocation checking location Office" all but the name. It ends before a line
// break. 0 when it begins with none. Every message has one, of at least 6 letters.
std::size_t FixedBeginningOfMessage(std::wstring_view text);

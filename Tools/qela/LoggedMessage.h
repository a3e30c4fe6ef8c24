// A message of the library's, taken out of a log that some host has written.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// As the log's clock showed it. Logs without an offset tell local time, of a place that is not known.
struct LogTime {
  std::int64_t localMs = 0;  // since 1970-01-01 00:00 of that clock
  std::optional<int> offsetMinutes;

  // Before or after, by UTC where both tell it.
  static std::strong_ordering Compare(const LogTime& left, const LogTime& right) noexcept;
  static std::int64_t MillisecondsBetween(const LogTime& from, const LogTime& to) noexcept;
};

// Such as 2025-11-21T02:44:06.736+01:00; a log that tells no offset has none here.
std::string ToText(const LogTime& time);
// What people and programs write: the form above, with a blank for the "T", without offset, milliseconds or seconds.
// Nothing for anything else.
std::optional<LogTime> ParseLogTime(std::string_view text);
// The first time of day with its date that stands anywhere in the text, in any form that hosts write: year first with
// "-", "/" or ".", DD.MM.YYYY, or M/D/YYYY; AM or PM; "Z" or an offset.
std::optional<LogTime> FindLogTime(std::string_view text);

struct LoggedMessage {
  std::wstring_view text;  // as the library wrote it: with its own line breaks and without what the host puts around it
  std::optional<LogTime> time;
  std::size_t file = 0;    // the position in the list of files that were read
  std::uint64_t line = 0;  // in that file, from 1; where the message begins
  bool mayBeCut = false;   // the file ends in its line, before the line's end
};

// Log files of any host, read for the messages of the library's.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "LoggedMessage.h"

// The files that are read when this one is asked for: those that rotation has put aside (FILE.1, FILE.2, ... beside it,
// the oldest first), and it. Throws CommandError (kFailed) when it is not there.
std::vector<std::wstring> WithRotated(const std::wstring& path);

// Every message in the files, which are read in order as one log. Encodings (UTF-8, UTF-16 of both orders, ANSI), line
// formats, escaped and real line breaks are recognised. Never more than a few megabytes are held. Throws CommandError
// (kFailed) when a file cannot be read; what is in one never makes it throw.
void ReadLog(const std::vector<std::wstring>& files,
             const std::function<void(const LoggedMessage& message)>& onMessage);

// What somebody wants to know of a log.
struct LogQuery {
  std::optional<LogTime> at;             // the last calculation that began by then; without it, the last
  std::optional<std::wstring> location;  // one in which this location was decided; without it, any
};

// The messages of one calculation and what the discovery thread said behind it, up to the next calculation: the one
// that is asked for; where the last one breaks off before it has decided, the one before. Nothing when there is none.
// `wasSkipped` is set in that case. Reads the files once; much quicker than ReadLog, as it looks into no other
// calculation.
struct FoundCalculation {
  struct Message {
    std::wstring text;
    std::optional<LogTime> time;
    std::size_t file;
    std::uint64_t line;
    bool mayBeCut;
  };
  std::vector<Message> messages;   // also the change of addresses that woke the thread before it
  bool wasSkipped = false;         // a later one breaks off
  bool isFollowed = false;         // by another calculation, so that this one is over
  std::uint64_t calculations = 0;  // in all
};
// Throws CommandError (kFailed) as ReadLog does, and for `at` when the log tells no times.
std::optional<FoundCalculation> FindCalculation(const std::vector<std::wstring>& files, const LogQuery& query);

// The library's messages in the lines of a log.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "LibraryMessages.h"
#include "LoggedMessage.h"

// Where a message begins in a line of bytes: at the first text that one begins with.
struct MessagePlace {
  const LibraryMessage* message;
  std::size_t at;
};
std::optional<MessagePlace> FindMessage(std::string_view line);

// What the line's clock showed: in front of the message, or in a line of JSON behind it.
std::optional<LogTime> TimeOfLine(std::string_view line, const MessagePlace& place);

// Takes the lines of a log in their order. What hosts put around a message, and how they write line breaks, is learned
// on the way: from messages that end where their fixed text ends, and from the reports of adapters.
class LogMessages {
 public:
  using OnMessage = std::function<void(const LoggedMessage& message)>;

  explicit LogMessages(OnMessage onMessage) : m_onMessage(std::move(onMessage)) {}

  // `lines` stand in the file before those that come next.
  void BeginFile(std::size_t file, std::uint64_t lines, bool isUtf8);
  // Whole lines. The last of a file may have no end, and may then be cut.
  void Take(std::string_view lines);
  // No more lines: a report that has not ended is handed out as it is.
  void End();

  // Takes over what another one has learned of the same log.
  void LearnFrom(const LogMessages& other);
  bool KnowsEscapes() const { return m_escapes.has_value(); }

 private:
  // A report of an adapter that the host has written with its line breaks.
  struct Report {
    std::wstring text;
    std::optional<LogTime> time;
    std::size_t file;
    std::uint64_t line;
    std::size_t field = 0;  // that is expected
    bool expectsCount = false;
    std::uint64_t entries = 0;    // that are to come
    std::size_t countColumn = 0;  // where their number stood in its line
    std::size_t indent = 0;       // blanks in front of the first label
  };

  void TakeLine(std::string_view line, bool isCut);
  void TakeMessage(std::string_view line, const MessagePlace& place, bool isCut);
  void TakeFixed(const LibraryMessage& message, bool isCut);
  void TakeReport(const LibraryMessage& message, std::string_view line, const MessagePlace& place, bool isCut);
  bool TakeOfReport(Report& report, std::string_view line, std::size_t limit, bool isCut);
  bool TakeEntry(Report& report, std::string_view line, bool isCut) const;
  void EndReport(bool isCut);
  void TakeTailOff(std::wstring& text, bool isCut, std::size_t beginning) const;
  void Decode(std::string_view bytes, std::wstring& text, bool isCut) const;
  void HandOut(std::string_view line, const MessagePlace& place, bool isCut);

  OnMessage m_onMessage;
  std::size_t m_file = 0;
  std::uint64_t m_line = 0;
  bool m_isUtf8 = false;
  std::optional<bool> m_escapes;       // line breaks as "\n"
  bool m_isJson = false;               // the last message stood in a line of JSON
  bool m_isJsonEscaped = true;         // what stands between quotes in a line of JSON; some hosts only print the quotes
  std::optional<std::wstring> m_tail;  // what stands behind each message
  bool m_tailVaries = false;
  std::optional<Report> m_report;
  std::wstring m_text;
};

#include "LogFile.h"

#include <windows.h>

#include <algorithm>
#include <cwctype>
#include <string_view>
#include <utility>

#include "CommandError.h"
#include "FileBytes.h"
#include "FileSearch.h"
#include "LogBlocks.h"
#include "LogMessages.h"
#include "LogScan.h"
#include "Text.h"

namespace {

constexpr std::size_t kNowhere = std::string_view::npos;
constexpr std::size_t kMostCalculationBytes = 64 << 20;
constexpr std::string_view kBegins = "Calculating current locations...";
constexpr std::string_view kReport = "Adapter properties:";
constexpr std::string_view kLocation = "IsCurrentLocation ";
constexpr std::string_view kDecision = "IsCurrentLocation returning matched criterias ";
constexpr std::string_view kCause = "The location discovery thread received an address change notification";
constexpr std::wstring_view kWideDecision = L"IsCurrentLocation returning matched criterias ";

// Lines of a file that stand together.
struct Piece {
  std::size_t file = 0;
  std::uint64_t linesBefore = 0;
  bool isUtf8 = false;
  std::string bytes;
};

void TakePiece(LogMessages& messages, const Piece& piece, std::string_view bytes) {
  messages.BeginFile(piece.file, piece.linesBefore, piece.isUtf8);
  messages.Take(bytes);
}

std::string_view LineAt(std::string_view text, std::size_t at) {
  const std::size_t begins = LogScan::LineStart(text, at);
  return text.substr(begins, LogScan::BehindLineEnd(text, LogScan::FindLineEnd(text, at)) - begins);
}

// Whether it is this location that has been decided.
bool DecidesOn(std::wstring_view message, std::wstring_view location) {
  constexpr std::wstring_view kName = L" for location ";
  constexpr std::wstring_view kEnd = L"...";
  if (!message.starts_with(kWideDecision)) return false;
  message.remove_prefix(kWideDecision.size());
  message.remove_prefix(std::min(message.find_first_not_of(L"0123456789"), message.size()));
  if (!message.starts_with(kName) || !message.ends_with(kEnd)) return false;
  message.remove_prefix(kName.size());
  return message.size() >= kEnd.size() && message.substr(0, message.size() - kEnd.size()) == location;
}

// The longest part of a text that is written alike in every log.
std::string PlainPart(std::wstring_view text) {
  const auto isPlain = [](wchar_t unit) {
    return unit < 0x80 && (std::iswalnum(unit) != 0 || unit == L' ' || unit == L'-' || unit == L'_');
  };
  std::string longest;
  std::string part;
  for (const wchar_t unit : text) {
    if (isPlain(unit))
      part += static_cast<char>(unit);
    else
      part.clear();
    if (part.size() > longest.size()) longest = part;
  }
  return longest.size() < 2 ? std::string() : longest;
}

// The bytes of a calculation.
struct RawCalculation {
  std::vector<Piece> pieces;
  std::size_t size = 0;
  std::optional<LogTime> began;
  bool isFollowed = false;

  void Append(const Piece& place, std::string_view bytes) {
    if (bytes.empty() || size > kMostCalculationBytes) return;
    if (pieces.empty() || pieces.back().file != place.file) pieces.push_back(place);
    pieces.back().bytes += bytes;
    size += bytes.size();
  }

  // Twice, so that the first messages, too, are read as the later ones show that they are written.
  void Decode(const LogMessages::OnMessage& onMessage) const {
    LogMessages ahead([](const LoggedMessage&) {});
    for (const Piece& piece : pieces) TakePiece(ahead, piece, piece.bytes);
    LogMessages messages(onMessage);
    messages.LearnFrom(ahead);
    for (const Piece& piece : pieces) TakePiece(messages, piece, piece.bytes);
    messages.End();
  }
};

// Goes through a log and keeps the bytes of the calculation that may be the one, and of the one under way.
class CalculationSearch {
 public:
  explicit CalculationSearch(const LogQuery& query)
      : m_query(query),
        m_location(query.location.value_or(std::wstring())),
        m_plainName(PlainPart(m_location)),
        m_decision([this](const LoggedMessage& message) {
          m_isDecided = m_isDecided || DecidesOn(message.text, m_location);
        }) {}

  void BeginFile(std::size_t file) {
    m_file = file;
    m_lines = 0;
    m_before.clear();
  }

  void Take(std::string_view lines, bool isUtf8) {
    std::size_t taken = 0;
    std::size_t counted = 0;
    const auto count = [&](std::size_t to) {
      m_lines += LogScan::CountLineEnds(lines.substr(counted, to - counted));
      counted = to;
    };
    std::size_t next = 0;  // line by line: one may hold the text a hundred thousand times
    for (std::size_t hit = 0; (hit = LogScan::Find(lines, kBegins, next)) != kNowhere;) {
      const std::size_t begins = LogScan::LineStart(lines, hit);
      const std::string_view line = LineAt(lines, hit);
      next = begins + line.size();
      const std::optional<MessagePlace> place = FindMessage(line);
      if (!place || place->at != hit - begins) continue;  // a part of another message
      if (m_hasCurrent) m_current.Append({m_file, m_lines, isUtf8, {}}, lines.substr(taken, begins - taken));
      EndCalculation(true);
      count(begins);
      Begin(lines.substr(taken, begins - taken), taken == 0, isUtf8);
      taken = begins;
      m_current.began = TimeOfLine(line, *place);
    }
    if (m_hasCurrent) m_current.Append({m_file, m_lines, isUtf8, {}}, lines.substr(taken));
    count(lines.size());
    const std::size_t reach = std::min(lines.size(), kCauseReach);
    m_before = lines.substr(lines.size() - reach);
    if (reach < lines.size()) m_before.erase(0, LogScan::BehindLineEnd(m_before, LogScan::FindLineEnd(m_before, 0)));
  }

  std::optional<FoundCalculation> End() {
    EndCalculation(false);
    if (m_query.at && m_count > 0 && !m_tellsTime)
      throw CommandError(kFailed,
                         "the log's lines tell no time with its date, so that --at finds nothing; leave it out");
    if (!m_hasBest) return std::nullopt;
    FoundCalculation found;
    found.wasSkipped = m_wasSkipped;
    found.isFollowed = m_best.isFollowed;
    found.calculations = m_count;
    m_best.Decode([&](const LoggedMessage& message) {
      found.messages.push_back(
          {std::wstring(message.text), message.time, message.file, message.line, message.mayBeCut});
    });
    return found;
  }

 private:
  static constexpr std::size_t kCauseReach = 4096;  // how far before a calculation its cause is looked for

  // `before`: the lines since the last beginning, or of this block.
  void Begin(std::string_view before, bool isFirstOfBlock, bool isUtf8) {
    m_hasCurrent = true;
    ++m_count;
    std::string joined;
    if (isFirstOfBlock && before.size() < kCauseReach) before = joined.append(m_before).append(before);
    const std::size_t cause = LogScan::FindLast(before, kCause);
    std::string_view lines;
    if (cause != kNowhere) lines = before.substr(LogScan::LineStart(before, cause));
    if (LogScan::Find(lines, kBegins) != kNowhere) lines = {};  // an earlier one's
    m_current.size = 0;
    m_current.pieces.resize(1);  // whose memory is used again
    Piece& piece = m_current.pieces.front();
    piece.file = m_file;
    piece.linesBefore = m_lines - LogScan::CountLineEnds(lines);
    piece.isUtf8 = isUtf8;
    piece.bytes = lines;
  }

  void EndCalculation(bool isFollowed) {
    if (!m_hasCurrent) return;
    m_hasCurrent = false;
    m_current.isFollowed = isFollowed;
    m_tellsTime = m_tellsTime || m_current.began;
    if (m_query.at && !(m_current.began && LogTime::Compare(*m_current.began, *m_query.at) <= 0)) return;
    const bool breaksOff = isFollowed ? BreaksOff() : BreaksOffAtTheEnd();
    if (m_query.location ? DecidesOnLocation() : !breaksOff) {
      std::swap(m_best, m_current);
      m_hasBest = true;
      m_isBestWhole = true;
      m_wasSkipped = false;
      return;
    }
    if (!breaksOff) return;
    m_wasSkipped = m_hasBest && m_isBestWhole;
    if (m_query.location || m_wasSkipped) return;
    // Better than nothing.
    std::swap(m_best, m_current);
    m_hasBest = true;
  }

  // Whether the last that is said of a location is not what became of it.
  bool BreaksOff() const {
    for (auto piece = m_current.pieces.rbegin(); piece != m_current.pieces.rend(); ++piece) {
      const std::size_t last = LogScan::FindLast(piece->bytes, kLocation);
      if (last != kNowhere) return !std::string_view(piece->bytes).substr(last).starts_with(kDecision);
    }
    return false;
  }

  // Where nothing follows, a calculation without a decision has just begun.
  bool BreaksOffAtTheEnd() {
    bool isOpen = true;
    m_current.Decode([&](const LoggedMessage& message) {
      if (message.text.starts_with(L"IsCurrentLocation "))
        isOpen = !(message.text.starts_with(kWideDecision) && message.text.ends_with(L"..."));
      else if (message.text.starts_with(L"CalculateCurrentAdapterProps failed") ||
               message.text.starts_with(L"Raising a location") || message.text.starts_with(L"Skipped raising"))
        isOpen = false;
    });
    return isOpen;
  }

  // Only what is needed is decoded: what tells how the log is written, and the lines that may decide on it.
  bool DecidesOnLocation() {
    m_isDecided = false;
    bool isFirst = true;
    for (const Piece& piece : m_current.pieces) {
      const std::string_view text = piece.bytes;
      const auto takeLine = [&](std::size_t at) { TakePiece(m_decision, piece, LineAt(text, at)); };
      if (std::exchange(isFirst, false)) {
        if (const std::size_t at = LogScan::Find(text, kReport); at != kNowhere) takeLine(at);
        if (const std::size_t at = LogScan::Find(text, kBegins); at != kNowhere) takeLine(at);
      }
      for (std::size_t at = 0; !m_isDecided && (at = LogScan::Find(text, kDecision, at)) != kNowhere;) {
        const std::string_view line = LineAt(text, at);
        if (m_plainName.empty() || line.find(m_plainName) != kNowhere) TakePiece(m_decision, piece, line);
        at = static_cast<std::size_t>(line.data() - text.data()) + line.size();
      }
    }
    return m_isDecided;
  }

  const LogQuery& m_query;
  const std::wstring m_location;
  const std::string m_plainName;  // a part of it
  LogMessages m_decision;
  bool m_isDecided = false;
  std::size_t m_file = 0;
  std::uint64_t m_lines = 0;  // of the file, so far
  std::string m_before;       // the file's last lines before those that come
  RawCalculation m_current;
  RawCalculation m_best;
  bool m_hasCurrent = false;
  bool m_hasBest = false;
  bool m_isBestWhole = false;
  bool m_wasSkipped = false;
  bool m_tellsTime = false;
  std::uint64_t m_count = 0;
};

// The number behind the last point; none for anything else.
std::optional<std::uint64_t> AgeOf(std::wstring_view name) {
  constexpr std::size_t kMostDigits = 9;
  const std::wstring_view digits = name.substr(name.find_last_of(L'.') + 1);
  if (digits.empty() || digits.size() > kMostDigits ||
      digits.find_first_not_of(L"0123456789") != std::wstring_view::npos)
    return std::nullopt;
  std::uint64_t age = 0;
  for (const wchar_t digit : digits) age = age * 10 + static_cast<std::uint64_t>(digit - L'0');
  return age;
}

}  // namespace

std::vector<std::wstring> WithRotated(const std::wstring& path) {
  if (::GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES) FailReading(path, ::GetLastError());
  const std::size_t nameAt = path.find_last_of(L"\\/:") + 1;
  std::vector<std::pair<std::uint64_t, std::wstring>> rotated;
  WIN32_FIND_DATAW found{};
  const UniqueFileSearch search(
      ::FindFirstFileExW((path + L".*").c_str(), FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0));
  for (bool more = static_cast<bool>(search); more; more = ::FindNextFileW(search.get(), &found) != FALSE) {
    const std::wstring_view name = found.cFileName;
    const bool isLonger = name.find_last_of(L'.') == path.size() - nameAt;  // by the number alone
    const std::optional<std::uint64_t> age = isLonger ? AgeOf(name) : std::nullopt;
    if (age && (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
      rotated.emplace_back(*age, path.substr(0, nameAt) + found.cFileName);
  }
  std::ranges::sort(rotated, std::greater());
  std::vector<std::wstring> files;
  files.reserve(rotated.size() + 1);
  for (auto& [age, file] : rotated) files.push_back(std::move(file));
  files.push_back(path);
  return files;
}

void ReadLog(const std::vector<std::wstring>& files,
             const std::function<void(const LoggedMessage& message)>& onMessage) {
  LogProgress progress;
  LogMessages messages(onMessage);
  for (std::size_t file = 0; file < files.size(); ++file) {
    LogBlocks blocks(files[file], progress);
    std::string_view lines;
    for (bool isFirst = true; blocks.Next(lines); isFirst = false) {
      if (isFirst) {
        messages.BeginFile(file, 0, blocks.IsUtf8());
        // A log may begin in the middle of a calculation, before what tells how it is written.
        if (!messages.KnowsEscapes()) {
          LogMessages ahead([](const LoggedMessage&) {});
          ahead.Take(lines);
          messages.LearnFrom(ahead);
        }
      }
      messages.Take(lines);
    }
  }
  messages.End();
}

std::optional<FoundCalculation> FindCalculation(const std::vector<std::wstring>& files, const LogQuery& query) {
  LogProgress progress;
  CalculationSearch search(query);
  for (std::size_t file = 0; file < files.size(); ++file) {
    LogBlocks blocks(files[file], progress);
    search.BeginFile(file);
    for (std::string_view lines; blocks.Next(lines);) search.Take(lines, blocks.IsUtf8());
  }
  return search.End();
}

#include "LogMessages.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

#include "LogScan.h"
#include "Text.h"

namespace {

constexpr std::size_t kNone = std::string_view::npos;
constexpr std::string_view kCalculationBegins = "Calculating current locations...";
constexpr std::string_view kReportBegins = "Adapter properties:";
constexpr std::string_view kSeparatorBegins = "//-";
constexpr std::size_t kMostDashes = 100;
constexpr std::size_t kMostReportUnits = 4 << 20;

bool IsBlank(char letter) { return letter == ' ' || letter == '\t'; }

// ---- JSON: what stands in a line before and behind a text that is the value of a member.

// Whether the position is in a text that is the value of a member: behind an odd number of quotes, the last of which
// follows a colon.
bool IsInJsonText(std::string_view line, std::size_t at) {
  if (line.substr(0, at).find('"') == kNone) return false;
  bool isIn = false;
  char before = '\0';
  char beforeQuote = '\0';
  for (std::size_t i = 0; i < at; ++i) {
    const char letter = line[i];
    if (letter == '\\' && isIn) {
      ++i;
    } else if (letter == '"') {
      isIn = !isIn;
      beforeQuote = before;
    }
    if (!IsBlank(letter)) before = letter;
  }
  return isIn && beforeQuote == ':';
}

// The end of that text; the line's where it is cut.
std::size_t FindJsonEnd(std::string_view line, std::size_t at) {
  for (; at < line.size() && line[at] != '"'; ++at)
    if (line[at] == '\\') ++at;
  return std::min(at, line.size());
}

// ---- Escapes

int HexValue(wchar_t letter) {
  if (letter >= L'0' && letter <= L'9') return letter - L'0';
  const wchar_t lower = letter | 0x20;
  return lower >= L'a' && lower <= L'f' ? lower - L'a' + 10 : -1;
}

// The unit that an escape stands for, and how long it is; 0 when it is none. `isCut`: it has begun, but the text ends.
std::size_t ReadEscape(std::wstring_view text, wchar_t& unit, bool& isCut) {
  isCut = text.size() < 2;
  if (isCut) return 0;
  constexpr std::wstring_view kLetters = L"nrtbf\\\"/";
  constexpr std::wstring_view kUnits = L"\n\r\t\b\f\\\"/";
  const std::size_t known = kLetters.find(text[1]);
  if (known != std::wstring_view::npos) {
    unit = kUnits[known];
    return 2;
  }
  if (text[1] != L'u') return 0;
  constexpr std::size_t kLength = 6;
  int value = 0;
  for (std::size_t i = 2; i < kLength; ++i) {
    isCut = i == text.size();
    const int digit = isCut ? -1 : HexValue(text[i]);
    if (digit < 0) return 0;
    value = value * 16 + digit;
  }
  unit = static_cast<wchar_t>(value);
  return kLength;
}

// What is no escape stays. Where the text is cut, the first half of one is left out.
void Unescape(std::wstring& text, bool isCut) {
  std::size_t from = text.find(L'\\');
  if (from == std::wstring::npos) return;
  std::size_t to = from;
  while (from < text.size()) {
    wchar_t unit = text[from];
    std::size_t length = 1;
    if (unit == L'\\') {
      bool isHalf = false;
      length = ReadEscape(std::wstring_view(text).substr(from), unit, isHalf);
      if (length == 0 && isHalf && isCut) break;
      length = std::max<std::size_t>(length, 1);
    }
    text[to++] = unit;
    from += length;
  }
  text.resize(to);
}

// ---- The report of an adapter, in the order of its fields

struct ReportField {
  std::string_view label;
  bool isList = false;
};
constexpr auto kReportFields = std::to_array<ReportField>({{"Interface Index:"},
                                                           {"Description :"},
                                                           {"Default Gateways:", true},
                                                           {"DHCP Enabled status:"},
                                                           {"DHCP Server:"},
                                                           {"DHCPV6 Server:"},
                                                           {"IP Addresses:", true},
                                                           {"DNS Domain:"},
                                                           {"DNS Servers:", true},
                                                           {"WINS Primary Server:"},
                                                           {"WINS Secondary Server:"}});

std::wstring Widen(std::string_view ascii) { return {ascii.begin(), ascii.end()}; }

// At the line's beginning, or behind a blank.
std::size_t FindLabel(std::string_view line, std::string_view label) {
  std::size_t at = line.find(label);
  while (at != kNone && at != 0 && !IsBlank(line[at - 1])) at = line.find(label, at + 1);
  return at;
}

std::size_t BlanksBefore(std::string_view line, std::size_t at) {
  std::size_t blanks = 0;
  while (blanks < at && IsBlank(line[at - blanks - 1])) ++blanks;
  return blanks;
}

// Tabs that are kept, or blanks in their place; the host's own separator is one blank.
constexpr std::size_t kIndentOfLabels = 2;

bool IsAddress(std::wstring_view text) {
  return text.find_first_of(L".:") != std::wstring_view::npos &&
         text.find_first_not_of(L"0123456789abcdefABCDEF.:%") == std::wstring_view::npos;
}

}  // namespace

// Every message begins with a capital letter or a slash, which are rare in what hosts put in front.
std::optional<MessagePlace> FindMessage(std::string_view line) {
  const auto look = [&](std::size_t at) -> std::optional<MessagePlace> {
    if (const LibraryMessage* message = LibraryMessageAt(line.substr(at))) return MessagePlace{message, at};
    // Some hosts that write JSON escape slashes.
    if (at == 0 || !line.substr(at - 1).starts_with("\\/\\/-")) return std::nullopt;
    const LibraryMessage* message = LibraryMessageAt("//" + std::string(line.substr(at + 3, kMostDashes)));
    return message == nullptr ? std::nullopt : std::optional(MessagePlace{message, at - 1});
  };
  std::size_t at = 0;
  for (; at + LogScan::kStep <= line.size(); at += LogScan::kStep) {
    const __m128i bytes = LogScan::Load(line.data() + at);
    const __m128i capital =
        _mm_and_si128(_mm_cmpgt_epi8(bytes, _mm_set1_epi8('A' - 1)), _mm_cmplt_epi8(bytes, _mm_set1_epi8('Z' + 1)));
    unsigned mask = LogScan::MaskOf(_mm_or_si128(capital, LogScan::Equal(bytes, '/')));
    for (; mask != 0; mask &= mask - 1) {
      const std::size_t here = at + static_cast<std::size_t>(std::countr_zero(mask));
      if (const auto place = look(here)) return place;
    }
  }
  for (; at < line.size(); ++at)
    if (const auto place = look(at)) return place;
  return std::nullopt;
}

std::optional<LogTime> TimeOfLine(std::string_view line, const MessagePlace& place) {
  const std::optional<LogTime> time = FindLogTime(line.substr(0, place.at));
  if (time || !IsInJsonText(line, place.at)) return time;
  return FindLogTime(line.substr(FindJsonEnd(line, place.at)));
}

void LogMessages::BeginFile(std::size_t file, std::uint64_t lines, bool isUtf8) {
  m_file = file;
  m_line = lines;
  m_isUtf8 = isUtf8;
}

void LogMessages::Take(std::string_view lines) {
  for (std::size_t at = 0; at < lines.size();) {
    const std::size_t end = LogScan::FindLineEnd(lines, at);
    ++m_line;
    TakeLine(lines.substr(at, end - at), end == lines.size());
    at = LogScan::BehindLineEnd(lines, end);
  }
}

void LogMessages::End() { EndReport(true); }

void LogMessages::LearnFrom(const LogMessages& other) {
  m_escapes = other.m_escapes;
  m_isJson = other.m_isJson;
  m_isJsonEscaped = other.m_isJsonEscaped;
  m_tail = other.m_tail;
  m_tailVaries = other.m_tailVaries;
}

void LogMessages::TakeLine(std::string_view line, bool isCut) {
  const std::optional<MessagePlace> place = FindMessage(line);
  if (m_report && TakeOfReport(*m_report, line, place ? place->at : line.size(), isCut)) return;
  if (place) TakeMessage(line, *place, isCut);
}

void LogMessages::TakeMessage(std::string_view line, const MessagePlace& place, bool isCut) {
  EndReport(false);
  const LibraryMessage& message = *place.message;
  std::string_view rest = line.substr(place.at);
  const bool isJson = m_isJsonEscaped && IsInJsonText(line, place.at);
  // The beginning of the file's first line may be missing, and with it what tells where the text ends.
  if (m_isJson && m_isJsonEscaped && !isJson && m_line == 1) return;
  m_isJson = isJson;
  if (isJson) {
    const std::size_t end = FindJsonEnd(line, place.at);
    isCut = isCut && end == line.size();
    rest = line.substr(place.at, end - place.at);
  }
  Decode(rest, m_text, isCut);
  if (isJson) Unescape(m_text, isCut);

  if (message.format.starts_with(kSeparatorBegins)) {
    // A longer line of dashes is someone else's.
    const std::size_t behind = m_text.find_first_not_of(L'-', m_text.find(L'-'));
    const std::size_t dashes = std::min(behind, m_text.size()) - m_text.find(L'-');
    if (isCut || dashes != message.beginning - 2) return;
    m_text.resize(message.format.size());
    std::ranges::copy(message.format, m_text.begin());
  } else if (message.isFixed) {
    TakeFixed(message, isCut);
  } else if (message.format.starts_with(kReportBegins)) {
    return TakeReport(message, line, place, isCut);
  } else {
    TakeTailOff(m_text, isCut, message.beginning);
    if (m_escapes.value_or(false)) Unescape(m_text, isCut);
  }
  HandOut(line, place, isCut);
}

// What stands behind a text that never varies is the host's.
void LogMessages::TakeFixed(const LibraryMessage& message, bool isCut) {
  if (message.format == kCalculationBegins && !isCut) {
    m_tail.reset();
    m_tailVaries = false;
  }
  if (!isCut && !m_tailVaries) {
    std::wstring tail = m_text.substr(message.beginning);
    m_tailVaries = m_tail && *m_tail != tail;
    m_tail = std::move(tail);
  }
  m_text.resize(message.beginning);
}

// Tells how the log writes line breaks: as "\n", or as they are, and then within the line (of JSON, for one) or by
// ending it.
void LogMessages::TakeReport(const LibraryMessage& message, std::string_view line, const MessagePlace& place,
                             bool isCut) {
  const std::size_t begins = message.beginning;
  const std::wstring_view behind = std::wstring_view(m_text).substr(begins);
  const bool isEscaped = behind.starts_with(L"\\n") || behind.starts_with(L"\\r\\n");
  if (isEscaped || behind.starts_with(L"\n") || behind.starts_with(L"\r\n")) {
    m_escapes = isEscaped;
    TakeTailOff(m_text, isCut, begins);
    if (isEscaped) Unescape(m_text, isCut);
    std::erase(m_text, L'\r');
    return HandOut(line, place, isCut);
  }
  if (isCut || !(behind.empty() || (m_tail && behind == *m_tail))) {
    m_text.resize(begins);
    return HandOut(line, place, true);
  }
  // The text of a member that goes on in the next line is no JSON.
  if (m_isJsonEscaped && IsInJsonText(line, place.at) && FindJsonEnd(line, place.at) == line.size()) {
    m_isJsonEscaped = false;
    m_tail.reset();
  }
  m_escapes = false;
  m_report = Report{Widen(kReportBegins) + L"\n", TimeOfLine(line, place), m_file, m_line};
}

// Whether the line goes on with the report: what does so stands before `limit`. Others may stand between its lines.
bool LogMessages::TakeOfReport(Report& report, std::string_view line, std::size_t limit, bool isCut) {
  const std::string_view allowed = line.substr(0, limit);
  if (report.expectsCount) {
    constexpr std::string_view kCount = "Count (";
    const std::size_t at = FindLabel(allowed, kCount);
    // It stands further in than a label, unless the log has taken the indents away; another component's does not.
    const bool isIndented = report.indent >= kIndentOfLabels;
    if (at != kNone && (!isIndented || BlanksBefore(allowed, at) > report.indent)) {
      const std::string_view digits = line.substr(at + kCount.size());
      const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), report.entries);
      if (error == std::errc() && end != digits.data() + digits.size() && *end == ')') {
        report.text += L"\n\t\tCount (" + std::to_wstring(report.entries) + L")";
        report.expectsCount = false;
        report.countColumn = at;
        return true;
      }
      report.entries = 0;
    }
  } else if (report.entries > 0 && limit == line.size() && TakeEntry(report, line, isCut)) {
    return true;
  }
  if (report.field == kReportFields.size()) return false;
  const ReportField& field = kReportFields[report.field];
  const std::size_t at = FindLabel(allowed, field.label);
  if (at == kNone) return false;
  report.text += L"\n\t" + Widen(field.label);
  if (report.field == 0) report.indent = BlanksBefore(allowed, at);
  report.expectsCount = field.isList;
  report.entries = 0;
  ++report.field;
  if (!field.isList) {
    std::wstring value;
    Decode(line.substr(at + field.label.size()), value, isCut);
    TakeTailOff(value, isCut, 0);
    report.text += value;
  }
  if (report.field == kReportFields.size() || report.text.size() > kMostReportUnits) EndReport(isCut);
  return true;
}

// An address behind the last blank. So that it is not another line's, such as one that ends with a time, it must be
// indented, or begin where the count began in a log that indents nothing.
bool LogMessages::TakeEntry(Report& report, std::string_view line, bool isCut) const {
  constexpr std::size_t kIndent = 3;
  std::wstring text;
  Decode(line, text, isCut);
  TakeTailOff(text, isCut, 0);
  const std::size_t begins = text.find_last_of(L" \t") + 1;
  const std::size_t indentBegins = text.find_last_not_of(L" \t", begins == 0 ? 0 : begins - 1) + 1;
  const bool isIndented = begins >= kIndent && begins - std::min(indentBegins, begins) >= kIndent;
  text.erase(0, begins);
  if (!IsAddress(text) || !(isIndented || begins == report.countColumn)) return false;
  report.text += L"\n\t\t\t" + text;
  --report.entries;
  return true;
}

void LogMessages::EndReport(bool isCut) {
  if (const std::optional<Report> report = std::exchange(m_report, std::nullopt))
    m_onMessage({report->text, report->time, report->file, report->line, isCut});
}

// Where the text is cut, so may be what stands behind it.
// The message's own beginning stays: two messages in one line look like a message with a tail.
void LogMessages::TakeTailOff(std::wstring& text, bool isCut, std::size_t beginning) const {
  if (!m_tail || m_tail->empty() || m_tailVaries) return;
  std::wstring_view tail = *m_tail;
  if (isCut)
    while (!text.ends_with(tail)) tail.remove_suffix(1);
  if (text.size() >= beginning + tail.size() && text.ends_with(tail)) text.resize(text.size() - tail.size());
}

// UTF-8, or the system's code page where it is not. Where the text is cut, the first half of a letter is left out.
void LogMessages::Decode(std::string_view bytes, std::wstring& text, bool isCut) const {
  text.resize(bytes.size());
  if (LogScan::WidenAscii(bytes, text.data())) return;
  if (isCut) {
    std::size_t follow = 0;  // how many of the last bytes go on with a letter
    while (follow < 3 && follow + 1 < bytes.size() && (bytes[bytes.size() - 1 - follow] & 0xc0) == 0x80) ++follow;
    const auto lead = static_cast<unsigned char>(bytes[bytes.size() - 1 - follow]);
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : lead >= 0xc0 ? 2 : 1;
    if (follow + 1 < length) bytes.remove_suffix(follow + 1);
  }
  const auto convert = [&](UINT codePage, DWORD flags) {
    const int size = static_cast<int>(bytes.size());
    return static_cast<std::size_t>(::MultiByteToWideChar(codePage, flags, bytes.data(), size, text.data(), size));
  };
  std::size_t units = convert(CP_UTF8, MB_ERR_INVALID_CHARS);
  if (units == 0 && !m_isUtf8) units = convert(CP_ACP, 0);
  if (units == 0) units = convert(CP_UTF8, 0);
  text.resize(units);
}

void LogMessages::HandOut(std::string_view line, const MessagePlace& place, bool isCut) {
  m_onMessage({m_text, TimeOfLine(line, place), m_file, m_line, isCut});
}

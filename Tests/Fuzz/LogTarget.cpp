// Logs, whoever has written them: what is read there is made of the library's messages, and what is told of them can be
// shown to people and holds no mark-up of the log's.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/Commands.h"
#include "Tools/qela/Explanation.h"
#include "Tools/qela/LibraryMessages.h"
#include "Tools/qela/LogFile.h"
#include "Tools/qela/LoggedCalculation.h"
#include "Tools/qela/Timeline.h"
#include "Tools/qela/TimelinePage.h"

namespace {

struct Message {
  std::wstring text;
  std::string time;
  std::uint64_t line;
  bool operator==(const Message&) const = default;
};

std::vector<Message> Messages(const std::wstring& path) {
  std::vector<Message> messages;
  ReadLog({path}, [&](const LoggedMessage& message) {
    messages.push_back({std::wstring(message.text), message.time ? ToText(*message.time) : "", message.line});
  });
  return messages;
}

void Require(const std::vector<Message>& messages) {
  std::uint64_t line = 1;
  for (const Message& message : messages) {
    if (FixedBeginningOfMessage(message.text) == 0)
      FuzzFail("a message that is none of the library's: " + ToUtf8(message.text));
    if (message.line < line) FuzzFail("a message in front of the one before");
    line = message.line;
  }
}

// The reader takes them from one and the same text.
void RequireSameInUtf16(const FuzzFile& file, const std::string& log, const std::vector<Message>& messages) {
  std::string utf16 = "\xff\xfe";
  for (const char letter : log) {
    if (static_cast<unsigned char>(letter) >= 0x80 || letter == '\0') return;
    utf16.append({letter, '\0'});
  }
  if (Messages(file.Holding(utf16).Path()) != messages) FuzzFail("other messages where the log is UTF-16");
  file.Holding(log);
}

void RequireExplained(const LoggedCalculation& calculation) {
  for (const LoggedLocation& location : calculation.locations) {
    const LocationExplanation explanation = Explain(calculation, location);
    const Verdict expected = !location.isCurrent   ? Verdict::kUnknown
                             : *location.isCurrent ? Verdict::kCurrent
                                                   : Verdict::kNotCurrent;
    if (explanation.verdict != expected) FuzzFail("another verdict than the log's");
    RequireShowable(ToText(explanation), "an explanation");
    ToJson(explanation).dump();
  }
}

void RequireTimeline(const std::wstring& path) {
  TimelineBuilder builder;
  CalculationReader reader;
  std::uint64_t calculations = 0;
  const auto take = [&](const LoggedCalculation& calculation) {
    if (++calculations <= 3) RequireExplained(calculation);
    builder.Add(calculation);
  };
  ReadLog({path}, [&](const LoggedMessage& message) {
    if (const auto calculation = reader.OnMessage(message)) take(*calculation);
  });
  if (const auto calculation = reader.End()) take(*calculation);
  if (calculations == 0) return FuzzKind(0);
  const Timeline timeline = builder.Finish({});
  if (timeline.calculations != calculations) FuzzFail("the timeline counts other calculations");
  const std::string page = TimelinePage(timeline, {"a.log"});
  RequirePage(page);
  if (page.find("<zq") != std::string::npos) FuzzFail("mark-up of the log stands in the page");
  FuzzKind(static_cast<std::uint32_t>(1 + timeline.gaps.size() * 8 + timeline.changes.size() * 64 +
                                      timeline.slow.size() * 512 + timeline.locations.size() * 4096));
}

void RequireFound(const std::wstring& path) {
  LogQuery query;
  for (int i = 0; i < 3; ++i) {
    std::optional<FoundCalculation> found;
    try {
      found = FindCalculation({path}, query);
    } catch (const CommandError& error) {
      if (!query.at) throw;
      RequireRefusal(error, kFailed, "the log's lines tell no time");
    }
    if (found && (found->messages.empty() || found->calculations == 0)) FuzzFail("a calculation without a message");
    if (i == 0) query.at = LogTime{1'763'691'244'005, {}};
    if (i == 1) query = {{}, L"Office"};
  }
}

void Run(FuzzInput input) {
  static const FuzzFile file(L"a.log");
  const std::string log = FuzzBytes(input);
  file.Holding(log);
  const std::vector<Message> messages = Messages(file.Path());
  Require(messages);
  if (messages.empty()) return FuzzKind(0);
  RequireSameInUtf16(file, log, messages);
  RequireTimeline(file.Path());
  RequireFound(file.Path());
  if (log.size() % 4 != 0) return;
  Options options;
  options.json = log.size() % 8 == 0;
  options.support.logs = {file.Path()};
  const FuzzSilence silence;
  try {
    ShowTimeline(options);
  } catch (const CommandError& error) {
    RequireRefusal(error, kFailed, ToUtf8(file.Path()));
  }
}

constexpr std::string_view kMatches =
    "All the criteria's given in location matches adapter index 2 with description eth0. Hence this adapter will be "
    "matching.";
constexpr std::string_view kMatchesNot =
    "Not all the criteria's given in the location matches the adapter with index 2 and description eth0. Hence this "
    "adapter will be non-matching.";

const FuzzTarget g_target(
    "log", Run,
    {"Calculating current locations...",
     "GetAdaptersAddresses succeeds, the return value is : 0",
     "Adapters List :",
     "Adapter properties:\\n\\n\\tInterface Index:2\\n\\tDescription :eth0",
     "\\n\\tDefault Gateways:\\n\\t\\tCount (1)",
     "\\n\\t\\t\\t10.0.0.1",
     "//---------------------------------------------\\n",
     "IsCurrentLocation checking location Office",
     "IsCurrentLocation bZeltReachabilityCriteria 1",
     "Matching all the location criterias with the properties of adapter with index 2 and description eth0.",
     "Location: Default gateway : 10.0.0.1 matched for adapter with index 2 and description eth0.",
     kMatches,
     kMatchesNot,
     "None of the available network adapter properties matches all the criteria's given in the location",
     "IsCurrentLocation returning matched criterias 1 for location Office...",
     "Adding current location ID ",
     "IsDomainReachable was unable to match domain h",
     "CheckZeltReachability failed",
     "CheckZeltReachability succeeded",
     "Send Request failed for h errorCode 12029",
     "Raising a location changed event...",
     "Skipped raising a location changed event...",
     "The location discovery thread received an address change notification",
     "2025-11-21T02:44:00.001+01:00\t",
     "{\"time\":\"2025-11-21T02:44:00.001\",\"msg\":\"",
     "\"}",
     "\r\n",
     "\n",
     "\xef\xbb\xbf",
     "\xff\xfe",
     "\xfe\xff",
     "<zq",
     "\\u00fc",
     "\xc3\xbc",
     "\xfc",
     "...",
     "(18446744073709551616)",
     "Count (",
     "AM\"",
     "Z"});

}  // namespace

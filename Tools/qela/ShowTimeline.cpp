#include <algorithm>

#include "CommandError.h"
#include "Commands.h"
#include "FileBytes.h"
#include "LogFile.h"
#include "Output.h"
#include "Text.h"
#include "Timeline.h"
#include "TimelinePage.h"
#include "TimelineText.h"

namespace {

// A file that is named twice, such as one that rotation has put aside beside its log, is read once.
std::vector<std::wstring> FilesOf(const std::vector<std::wstring>& logs) {
  std::vector<std::wstring> files;
  for (const std::wstring& log : logs)
    for (std::wstring& file : WithRotated(log))
      if (std::find(files.begin(), files.end(), file) == files.end()) files.push_back(std::move(file));
  return files;
}

Timeline Read(const std::vector<std::wstring>& files) {
  TimelineBuilder builder;
  CalculationReader reader;
  std::optional<LogTime> last;
  ReadLog(files, [&](const LoggedMessage& message) {
    if (message.time) last = message.time;
    if (const auto calculation = reader.OnMessage(message)) builder.Add(*calculation);
  });
  if (const auto calculation = reader.End()) builder.Add(*calculation);
  return builder.Finish(last);
}

std::string PlaceAndLine(const Timeline::Place& place, const FileNames& files) {
  return InWords(place) + " (" + LineInWords(place, files) + ")";
}

std::string AsText(const Timeline& timeline, const FileNames& files) {
  std::string text = Summary(timeline, files) + "\n";
  for (const Timeline::Location& location : timeline.locations) {
    text += "\n" + Printable(location.name) + "\n";
    for (const Timeline::Period& period : location.periods) text += "  " + InWords(period) + "\n";
  }
  if (timeline.locations.empty()) text += "\nNo location is current in the log.\n";
  if (!timeline.gaps.empty()) text += "\nNot known, what else was current:\n";
  for (const Timeline::Gap& gap : timeline.gaps) text += "  " + InWords(gap) + "\n";
  text += "\nChanges:\n";
  for (const Timeline::Change& change : timeline.changes) {
    text += "  " + PlaceAndLine(change.at, files) + CauseInWords(change) + "\n";
    for (const std::string& line : InWords(change)) text += "    " + line + "\n";
  }
  if (!timeline.slow.empty()) text += "\nCalculations that took more than 2 s:\n";
  for (const Timeline::Slow& slow : timeline.slow)
    text += "  " + PlaceAndLine(slow.at, files) + ", " + InWords(slow) + "\n";
  if (!timeline.clockSetBack.empty()) text += "\nThe log's clock:\n";
  for (const Timeline::ClockSetBack& back : timeline.clockSetBack)
    text += "  " + LineInWords(back.at, files) + ": " + InWords(back) + "\n";
  return text;
}

Json AsJson(const std::vector<Timeline::Adapter>& adapters) {
  Json list = Json::array();
  for (const Timeline::Adapter& adapter : adapters)
    list.push_back({{"index", adapter.ifIndex}, {"description", ToUtf8(adapter.description)}});
  return list;
}

Json AsJson(const std::vector<Timeline::Current>& locations) {
  Json list = Json::array();
  for (const Timeline::Current& location : locations)
    list.push_back(
        {{"id", ToUtf8(location.id)}, {"name", ToUtf8(location.name)}, {"adapters", AsJson(location.adapters)}});
  return list;
}

Json AsJson(const Timeline& timeline, const FileNames& files) {
  const auto place = [&](const Timeline::Place& at) {
    return Json{{"time", at.time ? Json(ToText(*at.time)) : Json()},
                {"calculation", at.calculation},
                {"file", files[at.file]},
                {"line", at.line}};
  };
  const auto end = [&](const Timeline::Place& at, bool isOpen) { return isOpen ? Json() : place(at); };
  const auto seconds = [](std::chrono::milliseconds time) { return std::chrono::duration<double>(time).count(); };

  Json locations = Json::array();
  for (const Timeline::Location& location : timeline.locations) {
    constexpr const char* kEnds[] = {"log", "not current", "other adapters", "unknown"};
    Json periods = Json::array();
    for (const Timeline::Period& period : location.periods)
      periods.push_back({{"from", place(period.from)},
                         {"to", end(period.to, period.end == Timeline::Period::End::kOpen)},
                         {"endedBy", kEnds[static_cast<std::size_t>(period.end)]},
                         {"id", ToUtf8(period.id)},
                         {"adapters", AsJson(period.adapters)}});
    locations.push_back({{"name", ToUtf8(location.name)}, {"periods", std::move(periods)}});
  }
  Json gaps = Json::array();
  for (const Timeline::Gap& gap : timeline.gaps)
    gaps.push_back({{"from", place(gap.from)}, {"to", end(gap.to, gap.isOpen)}, {"reason", gap.why}});
  Json changes = Json::array();
  for (const Timeline::Change& change : timeline.changes)
    changes.push_back(
        {{"at", place(change.at)},
         {"cause", change.cause == LoggedCalculation::Cause::kAddressChange ? Json("address change") : Json()},
         {"beforeIsKnown", change.isBeforeKnown},
         {"withoutAdapters", change.hasFailed},
         {"entered", AsJson(change.entered)},
         {"moved", AsJson(change.moved)},
         {"left", Texts(change.left)},
         {"reported", change.wasReported ? Json(*change.wasReported) : Json()},
         {"changes", ToJson(change.adapters)}});
  Json slow = Json::array();
  for (const Timeline::Slow& calculation : timeline.slow) {
    Json probes = Json::array();
    for (const Timeline::Slow::Probe& probe : calculation.probes)
      probes.push_back({{"kind", probe.kind == LCT_ZELT_REACHABLE ? "managementServer" : "httpsHosts"},
                        {"asked", ToUtf8(probe.host)},
                        {"questions", probe.questions},
                        {"seconds", seconds(probe.took)}});
    slow.push_back(
        {{"at", place(calculation.at)}, {"seconds", seconds(calculation.took)}, {"probes", std::move(probes)}});
  }
  Json clock = Json::array();
  for (const Timeline::ClockSetBack& back : timeline.clockSetBack)
    clock.push_back({{"at", place(back.at)}, {"before", ToText(back.before)}, {"after", ToText(back.after)}});
  return {{"files", files},
          {"calculations", timeline.calculations},
          {"hasTimes", timeline.hasTimes},
          {"begin", timeline.begin.time ? Json(ToText(*timeline.begin.time)) : Json()},
          {"end", timeline.end.time ? Json(ToText(*timeline.end.time)) : Json()},
          {"locations", std::move(locations)},
          {"unknown", std::move(gaps)},
          {"changes", std::move(changes)},
          {"slow", std::move(slow)},
          {"clockSetBack", std::move(clock)}};
}

}  // namespace

ExitCode ShowTimeline(const Options& options) {
  const std::vector<std::wstring> logs = FilesOf(options.support.logs);
  RefuseToOverwrite(logs, options.support.html);
  FileNames files;
  for (const std::wstring& log : logs) files.push_back(Printable(log));
  const Timeline timeline = Read(logs);
  if (timeline.calculations == 0)
    throw CommandError(kFailed, files.back() +
                                    ": no calculation of the library's is in the log. The host must log the library's "
                                    "messages of severity 8; Docs/log.md tells how");
  const std::wstring& page = options.support.html;
  if (!page.empty()) WriteFileBytes(page, TimelinePage(timeline, files));
  if (options.json)
    Print(ToLine(AsJson(timeline, files)));
  else if (page.empty())
    Print(AsText(timeline, files));
  else
    Print("Wrote the timeline of " + Counted(timeline.calculations, "calculation") + " to " + ShownFileName(page) +
          ".\n");
  return kDone;
}

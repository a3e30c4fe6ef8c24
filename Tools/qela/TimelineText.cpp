#include "TimelineText.h"

#include <cstdint>
#include <cstdio>
#include <iterator>

#include "Text.h"

namespace {

using std::chrono::milliseconds;

std::string Joined(const std::vector<std::string>& texts, const char* separator) {
  std::string joined;
  for (const std::string& text : texts) joined += (joined.empty() ? "" : separator) + text;
  return joined;
}

std::string Joined(const std::vector<Timeline::Current>& locations) {
  std::vector<std::string> texts;
  texts.reserve(locations.size());
  for (const Timeline::Current& location : locations) texts.push_back(InWords(location));
  return Joined(texts, "; ");
}

}  // namespace

std::string Summary(const Timeline& timeline, const FileNames& files) {
  std::string words = Counted(timeline.calculations, "calculation") + " in " +
                      (files.size() > 1 ? Counted(files.size(), "file") + ", the last of which is " : "") +
                      files.back();
  if (timeline.begin.time && timeline.end.time)
    words += ", from " + ToText(*timeline.begin.time) + " to " + ToText(*timeline.end.time);
  words += ".";
  if (!timeline.clockSetBack.empty())
    words += " The log's clock goes back: what follows is in the order of the log.";
  else if (!timeline.hasTimes)
    words += " Not every calculation has a time: what follows is in the order of the log.";
  return words;
}

std::string CauseInWords(const Timeline::Change& change) {
  return change.cause == LoggedCalculation::Cause::kAddressChange ? ", an address had changed" : "";
}

std::string InWords(const Timeline::Place& place) {
  return place.time ? ToText(*place.time) : "calculation " + std::to_string(place.calculation);
}

std::string LineInWords(const Timeline::Place& place, const FileNames& files) {
  const std::string line = "line " + std::to_string(place.line);
  return files.size() > 1 ? line + " of " + files[place.file] : line;
}

std::string InWords(milliseconds time) {
  constexpr std::int64_t kSecond = 1000;
  constexpr std::int64_t kMinute = 60 * kSecond;
  constexpr std::int64_t kHour = 60 * kMinute;
  constexpr std::int64_t kDay = 24 * kHour;
  const std::int64_t ms = time.count();
  const auto two = [&](std::int64_t large, const char* largeUnit, std::int64_t small, const char* smallUnit) {
    return std::to_string(ms / large) + largeUnit + std::to_string(ms % large / small) + smallUnit;
  };
  if (ms < kSecond) return std::to_string(ms) + " ms";
  if (ms < kMinute) return std::to_string(ms / kSecond) + "." + std::to_string(ms % kSecond / 100) + " s";
  if (ms < kHour) return two(kMinute, " min ", kSecond, " s");
  if (ms < kDay) return two(kHour, " h ", kMinute, " min");
  return two(kDay, " d ", kHour, " h");
}

std::string TimeBetween(const Timeline::Place& from, const Timeline::Place& to) {
  if (!from.time || !to.time) return {};
  const std::int64_t ms = LogTime::MillisecondsBetween(*from.time, *to.time);
  return ms < 0 ? std::string() : InWords(milliseconds(ms));
}

std::string InWords(const std::vector<Timeline::Adapter>& adapters) {
  std::vector<std::string> texts;
  texts.reserve(adapters.size());
  for (const Timeline::Adapter& adapter : adapters)
    texts.push_back("adapter " + std::to_string(adapter.ifIndex) + " (" + Printable(adapter.description) + ")");
  return texts.empty() ? "no adapter" : Joined(texts, ", ");
}

std::string InWords(const Timeline::Current& current) {
  return Printable(current.name) + " on " + InWords(current.adapters);
}

std::string InWords(const Timeline::Period& period) {
  using End = Timeline::Period::End;
  const std::string time = TimeBetween(period.from, period.to);
  std::string words = "from " + InWords(period.from) + " to ";
  words += period.end == End::kOpen ? "the end of the log" : InWords(period.to);
  if (period.end == End::kUnknown) words += " at least";
  return words + (time.empty() ? "" : ", " + time) + ", on " + InWords(period.adapters);
}

std::string InWords(const Timeline::Gap& gap) {
  return "from " + InWords(gap.from) + " to " + (gap.isOpen ? "the end of the log" : InWords(gap.to)) + ": " + gap.why;
}

std::vector<std::string> InWords(const Timeline::Change& change) {
  std::vector<std::string> lines;
  if (change.hasFailed) lines.emplace_back("no adapter was found, or Windows did not tell them: nothing is current");
  if (!change.isBeforeKnown && !change.hasFailed && !(change.entered.empty() && !change.left.empty()))
    lines.push_back("current: " + (change.entered.empty() ? "none" : Joined(change.entered)));
  else if (!change.entered.empty())
    lines.push_back("entered: " + Joined(change.entered));
  if (!change.moved.empty()) lines.push_back("now on other adapters: " + Joined(change.moved));
  if (!change.left.empty()) {
    std::vector<std::string> names;
    names.reserve(change.left.size());
    for (const std::wstring& name : change.left) names.push_back(Printable(name));
    lines.push_back("left: " + Joined(names, "; "));
  }
  if (change.isOtherList && change.entered.empty() && change.left.empty())
    lines.emplace_back("the same locations in another order, or with other IDs");
  if (change.wasReported == false) lines.emplace_back("the host was not called for it");
  for (const AdapterChange& adapter : change.adapters) lines.push_back(InWords(adapter));
  if (change.unreadableAdapters > 0)
    lines.push_back(Counted(change.unreadableAdapters, "adapter") + " cannot be read from the log");
  return lines;
}

std::string InWords(const Timeline::Slow& slow) {
  std::vector<std::string> probes;
  probes.reserve(slow.probes.size());
  for (const Timeline::Slow::Probe& probe : slow.probes)
    probes.push_back(
        (probe.kind == LCT_ZELT_REACHABLE ? "the management server" : "web host " + Printable(probe.host)) + " " +
        InWords(probe.took) + (probe.questions > 1 ? " in " + Counted(probe.questions, "question") : ""));
  return InWords(slow.took) +
         (probes.empty() ? ", and no question to a server took long" : ": " + Joined(probes, ", "));
}

std::string InWords(const Timeline::ClockSetBack& back) {
  return "the clock goes back from " + ToText(back.before) + " to " + ToText(back.after);
}

#include "Timeline.h"

#include <algorithm>
#include <utility>

namespace {

using std::chrono::milliseconds;
using Place = Timeline::Place;
using End = Timeline::Period::End;

// How much a calculation is believed. Of one that breaks off, or whose beginning is missing, each verdict stands for
// itself; what other locations there were is not known. Where messages of two calculations are mixed, or some are
// missing in between, nobody can tell what came of it.
enum class Trust { kNone, kSingleVerdicts, kAll };

// Not IsWhole: adapters that cannot be read make no verdict wrong.
bool HasAllVerdicts(const LoggedCalculation& calculation) {
  return std::all_of(calculation.locations.begin(), calculation.locations.end(),
                     [](const LoggedLocation& location) { return location.isCurrent.has_value(); });
}

Trust TrustIn(const LoggedCalculation& calculation) {
  if (!calculation.broken.empty()) return Trust::kNone;
  if (calculation.hasFailed) return Trust::kAll;  // it ends with this
  if (!calculation.hasBeginning) return Trust::kSingleVerdicts;
  return calculation.isComplete && HasAllVerdicts(calculation) ? Trust::kAll : Trust::kSingleVerdicts;
}

std::string WhyNotAll(const LoggedCalculation& calculation) {
  if (!calculation.broken.empty()) return "the lines do not fit together: " + calculation.broken;
  if (!calculation.hasBeginning) return "the log begins in the middle of a calculation";
  return HasAllVerdicts(calculation) ? "the log ends in a calculation or right behind it"
                                     : "the calculation breaks off";
}

// With nothing from the middle of the list missing.
bool ShowsAllAdapters(const LoggedCalculation& calculation) {
  return calculation.hasBeginning && !calculation.hasFailed && calculation.unreadableAdapters == 0 &&
         (!calculation.locations.empty() || TrustIn(calculation) == Trust::kAll);
}

std::vector<Timeline::Adapter> MatchingAdapters(const LoggedCalculation& calculation, const LoggedLocation& location) {
  std::vector<Timeline::Adapter> adapters;
  if (location.hasNoTextCriteria) {
    for (const AdapterProps& adapter : calculation.adapters) adapters.push_back({adapter.ifIndex, adapter.description});
  } else {
    for (const LoggedAdapterTest& test : location.adapters)
      if (test.matches == true) adapters.push_back({test.ifIndex, test.description});
  }
  return adapters;
}

std::optional<LogTime> Either(const std::optional<LogTime>& time, const std::optional<LogTime>& otherwise) {
  return time ? time : otherwise;
}

// Where the record ends before this is known, its last message stands for it.
std::optional<LogTime> LastDecision(const LoggedCalculation& calculation) {
  std::optional<LogTime> last;
  if (!calculation.locations.empty()) last = calculation.locations.back().ended;
  return Either(last, calculation.ended);
}

// By name, which is how a log tells locations apart: where several are called the same, one that is current makes it.
struct Decision {
  bool isCurrent = false;
  Place at;
  Timeline::Current current;
};
struct Decisions {
  std::map<std::wstring, Decision> byName;
  std::vector<std::wstring> order;  // of the names
  // What the library compares; none where the log misses one.
  std::optional<std::vector<std::wstring>> ids = std::vector<std::wstring>();
};

Decisions DecisionsOf(const LoggedCalculation& calculation, const Place& at) {
  Decisions decisions;
  for (const LoggedLocation& location : calculation.locations) {
    if (!location.isCurrent) continue;
    const auto [found, isNew] = decisions.byName.try_emplace(location.name);
    Decision& decision = found->second;
    if (isNew) decisions.order.push_back(location.name);
    if (isNew || (*location.isCurrent && !decision.isCurrent)) {
      decision.at = at;
      decision.at.time = Either(location.ended, at.time);
    }
    if (!*location.isCurrent) continue;
    decision.isCurrent = true;
    decision.current.name = location.name;
    if (decision.current.id.empty()) decision.current.id = location.id;
    std::vector<Timeline::Adapter>& adapters = decision.current.adapters;
    for (Timeline::Adapter& adapter : MatchingAdapters(calculation, location))
      if (std::find(adapters.begin(), adapters.end(), adapter) == adapters.end())
        adapters.push_back(std::move(adapter));
    if (location.id.empty())
      decisions.ids.reset();
    else if (decisions.ids)
      decisions.ids->push_back(location.id);
  }
  return decisions;
}

void Close(Timeline::Location& row, End end, const Place& at) {
  row.periods.back().end = end;
  row.periods.back().to = at;
}

}  // namespace

void TimelineBuilder::Add(const LoggedCalculation& calculation) {
  Place at;
  at.calculation = ++m_timeline.calculations;
  at.time = Either(calculation.began, calculation.ended);
  at.file = calculation.file;
  at.line = calculation.line;
  if (at.calculation == 1) m_timeline.begin = at;
  // The host would have been told by now.
  if (m_awaitsReport) m_timeline.changes.back().wasReported = false;
  m_awaitsReport = false;
  WatchTheClock(calculation, at);

  const Trust trust = TrustIn(calculation);
  if (trust == Trust::kNone) {
    BecomeUnknown(at, WhyNotAll(calculation));
    for (Timeline::Location& location : m_timeline.locations)
      if (location.periods.back().end == End::kOpen) Close(location, End::kUnknown, at);
    return;
  }
  Timeline::Change change;
  change.at = at;
  change.cause = calculation.cause;
  change.isBeforeKnown = m_isKnown;
  change.hasFailed = calculation.hasFailed;
  change.unreadableAdapters = calculation.unreadableAdapters;
  TakeAdapters(calculation, change);
  TakeVerdicts(calculation, at, trust == Trust::kAll, change);
  if (trust == Trust::kAll)
    BecomeKnown(at);
  else
    BecomeUnknown(at, WhyNotAll(calculation));
  TakeDuration(calculation, at);
  const bool hasNewlyFailed = calculation.hasFailed && !m_hasFailed;
  m_hasFailed = calculation.hasFailed;
  const bool wasGap = !change.isBeforeKnown && trust == Trust::kAll;
  if (wasGap || hasNewlyFailed || change.isOtherList || !change.entered.empty() || !change.moved.empty() ||
      !change.left.empty() || !change.adapters.empty())
    m_timeline.changes.push_back(std::move(change));
}

void TimelineBuilder::WatchTheClock(const LoggedCalculation& calculation, const Place& at) {
  m_lacksTimes = m_lacksTimes || !at.time;
  const auto see = [&](const std::optional<LogTime>& time) {
    if (time && m_lastTime && LogTime::Compare(*time, *m_lastTime) < 0)
      m_timeline.clockSetBack.push_back({at, *m_lastTime, *time});
    m_lastTime = Either(time, m_lastTime);
  };
  see(calculation.began);
  for (const LoggedLocation& location : calculation.locations) {
    see(location.began);
    see(location.ended);
  }
  see(calculation.ended);
}

void TimelineBuilder::TakeAdapters(const LoggedCalculation& calculation, Timeline::Change& change) {
  if (!ShowsAllAdapters(calculation)) return;
  if (m_adapters) change.adapters = ChangesBetween(*m_adapters, calculation.adapters);
  m_adapters = calculation.adapters;
}

void TimelineBuilder::TakeVerdicts(const LoggedCalculation& calculation, const Place& at, bool isWhole,
                                   Timeline::Change& change) {
  Decisions decisions = DecisionsOf(calculation, at);
  // What is no longer current, or no longer among the enabled locations.
  for (Timeline::Location& row : m_timeline.locations) {
    if (row.periods.back().end != End::kOpen) continue;
    const auto found = decisions.byName.find(row.name);
    const bool isDecided = found != decisions.byName.end();
    if (isDecided && found->second.isCurrent) continue;
    Place last = at;
    if (isWhole) last.time = Either(LastDecision(calculation), at.time);
    Close(row, isDecided || isWhole ? End::kNotCurrent : End::kUnknown, isDecided ? found->second.at : last);
    if (isDecided || isWhole) change.left.push_back(row.name);
  }
  for (const std::wstring& name : decisions.order) {
    const Decision& decision = decisions.byName.at(name);
    if (!decision.isCurrent) continue;
    const auto [found, isNew] = m_rows.try_emplace(name, m_timeline.locations.size());
    if (isNew) m_timeline.locations.push_back({name, {}});
    Timeline::Location& row = m_timeline.locations[found->second];
    const bool isOpen = !isNew && row.periods.back().end == End::kOpen;
    const bool hasMoved = isOpen && row.periods.back().adapters != decision.current.adapters;
    // Where the others were not known before, all are told.
    if (!isOpen || (isWhole && !m_isKnown))
      change.entered.push_back(decision.current);
    else if (hasMoved)
      change.moved.push_back(decision.current);
    if (hasMoved) Close(row, End::kOtherAdapters, decision.at);
    if (!isOpen || hasMoved)
      row.periods.push_back({decision.at, {}, End::kOpen, decision.current.id, decision.current.adapters});
  }

  if (isWhole && m_isKnown && m_ids && decisions.ids && *decisions.ids != *m_ids) {
    change.isOtherList = true;
    m_awaitsReport = calculation.report == LoggedCalculation::Report::kNone;
    if (!m_awaitsReport) change.wasReported = calculation.report == LoggedCalculation::Report::kRaised;
  }
  m_ids = std::move(decisions.ids);
}

void TimelineBuilder::TakeDuration(const LoggedCalculation& calculation, const Place& at) {
  constexpr milliseconds kLong{2000};
  constexpr milliseconds kLongForAProbe{100};
  const std::optional<LogTime> last = LastDecision(calculation);
  if (!calculation.began || !last) return;
  Timeline::Slow slow{at, milliseconds(LogTime::MillisecondsBetween(*calculation.began, *last)), {}};
  if (slow.took <= kLong) return;
  const auto add = [&](LOCATION_CRITERIA_TYPE kind, const std::wstring& host, const auto& took) {
    if (!took) return;
    auto found = std::find_if(slow.probes.begin(), slow.probes.end(),
                              [&](const auto& probe) { return probe.kind == kind && probe.host == host; });
    if (found == slow.probes.end()) found = slow.probes.insert(found, {kind, host, 0, {}});
    ++found->questions;
    found->took += *took;
  };
  for (const LoggedLocation& location : calculation.locations) {
    for (const LoggedAdapterTest& test : location.adapters)
      for (const LoggedHostProbe& probe : test.hosts) add(LCT_DOMAIN_REACHABLE, probe.host, probe.took);
    if (location.managementServer) add(LCT_ZELT_REACHABLE, {}, location.managementServer->took);
  }
  std::erase_if(slow.probes, [&](const auto& probe) { return probe.took < kLongForAProbe; });
  std::stable_sort(slow.probes.begin(), slow.probes.end(),
                   [](const auto& left, const auto& right) { return left.took > right.took; });
  m_timeline.slow.push_back(std::move(slow));
}

void TimelineBuilder::BecomeUnknown(const Place& at, const std::string& why) {
  m_isKnown = false;
  if (m_timeline.gaps.empty() || !m_timeline.gaps.back().isOpen) m_timeline.gaps.push_back({at, {}, true, why});
}

void TimelineBuilder::BecomeKnown(const Place& at) {
  m_isKnown = true;
  if (m_timeline.gaps.empty() || !m_timeline.gaps.back().isOpen) return;
  m_timeline.gaps.back().to = at;
  m_timeline.gaps.back().isOpen = false;
}

Timeline TimelineBuilder::Finish(const std::optional<LogTime>& last) {
  Timeline& timeline = m_timeline;
  timeline.end.calculation = timeline.calculations + 1;
  timeline.end.time = m_lastTime;
  if (last && m_lastTime && LogTime::Compare(*last, *m_lastTime) > 0) timeline.end.time = last;
  timeline.hasTimes = timeline.calculations > 0 && !m_lacksTimes && timeline.clockSetBack.empty();
  for (Timeline::Location& location : timeline.locations)
    if (location.periods.back().end == End::kOpen) location.periods.back().to = timeline.end;
  if (!timeline.gaps.empty() && timeline.gaps.back().isOpen) timeline.gaps.back().to = timeline.end;
  return std::move(timeline);
}

// What a log proves over time, from its calculations.
#include "Tools/qela/Timeline.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "Tests/Unit/QelaTimelineLog.h"
#include "Tools/qela/Text.h"
#include "Tools/qela/TimelineText.h"

namespace {

using Log = TimelineLog;
using Cause = LoggedCalculation::Cause;
using Report = LoggedCalculation::Report;
std::string Periods(const Timeline& timeline) {
  std::string words;
  for (const Timeline::Location& location : timeline.locations)
    for (const Timeline::Period& period : location.periods)
      words += ToUtf8(location.name) + " " + InWords(period) + "\n";
  return words;
}

std::string Changes(const Timeline& timeline) {
  std::string words;
  for (const Timeline::Change& change : timeline.changes) {
    words += std::to_string(change.at.calculation);
    for (const std::string& line : InWords(change)) words += " | " + line;
    words += "\n";
  }
  return words;
}

std::string Gaps(const Timeline& timeline) {
  std::string words;
  for (const Timeline::Gap& gap : timeline.gaps) words += InWords(gap) + "\n";
  return words;
}

TEST(QelaTimeline, ALocationIsCurrentFromTheVerdictThatSaysSoToTheOneThatDeniesIt) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2).Decides(L"Home", 0);
  log.Calculates({kWired}).Decides(L"Office", 2).Decides(L"Home", 0);
  log.Calculates({kWireless}, Report::kRaised).Decides(L"Office", 0).Decides(L"Home", 5);
  EXPECT_EQ(Periods(log.Read()),
            "Office from 2025-11-21T12:00:00.500 to 2025-11-21T12:00:20.500, 20.0 s, on adapter 2 (eth0)\n"
            "Home from 2025-11-21T12:00:20.500 to the end of the log, 500 ms, on adapter 5 (wlan0)\n");
  EXPECT_EQ(Gaps(log.Read()), "");
}

TEST(QelaTimeline, AnEdgeTellsWhatEnteredWhatLeftAndWhatChangedInTheAdapters) {
  AdapterProps changed = kWired;
  changed.gateways = {L"10.20.0.2"};
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2).Decides(L"Home", 0);
  log.Calculates({changed, kWireless}, Report::kRaised).Decides(L"Office", 0).Decides(L"Home", 5);
  log.Last().cause = Cause::kAddressChange;
  const Timeline timeline = log.Read();
  EXPECT_EQ(Changes(timeline),
            "1 | current: Office on adapter 2 (eth0)\n"
            "2 | entered: Home on adapter 5 (wlan0) | left: Office | adapter 2 (eth0): default gateway 10.20.0.1 -> "
            "10.20.0.2 | adapter 5 (wlan0) appeared: default gateway 192.168.1.1\n");
  EXPECT_EQ(timeline.changes[1].cause, Cause::kAddressChange);
  EXPECT_EQ(timeline.changes[1].at.line, 200U);
}

TEST(QelaTimeline, WhatStaysMakesNoEdge) {
  Log log;
  for (int i = 0; i < 5; ++i) log.Calculates({kWired}).Decides(L"Office", 2).Decides(L"Home", 0);
  const Timeline timeline = log.Read();
  EXPECT_EQ(timeline.calculations, 5U);
  EXPECT_EQ(timeline.changes.size(), 1U);
  EXPECT_EQ(timeline.locations[0].periods.size(), 1U);
}

TEST(QelaTimeline, AnAdapterThatChangesWithoutALocationIsAnEdgeToo) {
  AdapterProps changed = kWired;
  changed.dnsSuffix = L"corp.example";
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 0);
  log.Calculates({changed}).Decides(L"Office", 0);
  EXPECT_EQ(Changes(log.Read()), "1 | current: none\n2 | adapter 2 (eth0): DNS suffix none -> corp.example\n");
}

TEST(QelaTimeline, ALocationThatGoesToAnotherAdapterBeginsANewPeriod) {
  Log log;
  log.Calculates({kWired, kWireless}).Decides(L"Office", 2);
  log.Calculates({kWired, kWireless}).Decides(L"Office", 5);
  const Timeline timeline = log.Read();
  EXPECT_EQ(Periods(timeline),
            "Office from 2025-11-21T12:00:00.500 to 2025-11-21T12:00:10.500, 10.0 s, on adapter 2 (eth0)\n"
            "Office from 2025-11-21T12:00:10.500 to the end of the log, 500 ms, on adapter 5 (wlan0)\n");
  EXPECT_EQ(Changes(timeline),
            "1 | current: Office on adapter 2 (eth0)\n2 | now on other adapters: Office on adapter 5 (wlan0)\n");
  EXPECT_FALSE(timeline.changes[1].isOtherList);  // the host is not called for that
}

TEST(QelaTimeline, ALocationWithoutTextCriteriaIsOnAllAdapters) {
  Log log;
  log.Calculates({kWired, kWireless}).Decides(L"Anywhere", 2);
  log.Last().locations[0].adapters.clear();
  log.Last().locations[0].hasNoTextCriteria = true;
  EXPECT_EQ(Changes(log.Read()), "1 | current: Anywhere on adapter 2 (eth0), adapter 5 (wlan0)\n");
}

TEST(QelaTimeline, ALocationThatIsNoLongerAskedAboutIsNoLongerCurrent) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2);
  log.Calculates({kWired}, Report::kRaised);
  EXPECT_EQ(Periods(log.Read()),
            "Office from 2025-11-21T12:00:00.500 to 2025-11-21T12:00:11.000, 10.5 s, on adapter 2 (eth0)\n");
}

TEST(QelaTimeline, WithoutAdaptersNothingIsCurrent) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2);
  log.Calculates({}, Report::kRaised);
  log.Calculates({});
  log.Calculates({kWireless}, Report::kRaised).Decides(L"Office", 5);
  const Timeline timeline = log.Read();
  EXPECT_EQ(
      Changes(timeline),
      "1 | current: Office on adapter 2 (eth0)\n"
      "2 | no adapter was found, or Windows did not tell them: nothing is current | left: Office\n"
      "4 | entered: Office on adapter 5 (wlan0) | adapter 2 (eth0) is gone: default gateway 10.20.0.1 | adapter 5 "
      "(wlan0) appeared: default gateway 192.168.1.1\n");
  EXPECT_EQ(timeline.locations[0].periods[0].to.calculation, 2U);
}

TEST(QelaTimeline, ACalculationThatIsBrokenEndsWhatIsKnown) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2).Decides(L"Home", 0);
  log.Calculates({kWireless}).Decides(L"Home", 5);
  log.Last().broken = "messages of two calculations are mixed";
  log.Calculates({kWired}, Report::kRaised).Decides(L"Office", 2).Decides(L"Home", 0);
  const Timeline timeline = log.Read();
  EXPECT_EQ(Periods(timeline),
            "Office from 2025-11-21T12:00:00.500 to 2025-11-21T12:00:10.000 at least, 9.5 s, on adapter 2 (eth0)\n"
            "Office from 2025-11-21T12:00:20.500 to the end of the log, 500 ms, on adapter 2 (eth0)\n");
  EXPECT_EQ(Gaps(timeline),
            "from 2025-11-21T12:00:10.000 to 2025-11-21T12:00:20.000: the lines do not fit together: messages of two "
            "calculations are mixed\n");
  // It may have been current all the time, so it did not enter, and whether the host was told is not known.
  EXPECT_EQ(Changes(timeline), "1 | current: Office on adapter 2 (eth0)\n3 | current: Office on adapter 2 (eth0)\n");
  EXPECT_EQ(timeline.changes[1].wasReported, std::nullopt);
}

TEST(QelaTimeline, OfACalculationThatBreaksOffOnlyTheVerdictsAreBelieved) {
  Log log;
  log.Calculates({kWired, kWireless}).Decides(L"Office", 2).Decides(L"Home", 0).Decides(L"Lab", 5).Decides(L"Van", 2);
  log.Calculates({kWired, kWireless}).Decides(L"Office", 0).Decides(L"Home", 2).Decides(L"Lab", 5);
  log.Last().locations[2].isCurrent.reset();
  log.Last().isComplete = false;
  const Timeline timeline = log.Read();
  EXPECT_EQ(Changes(timeline),
            "1 | current: Office on adapter 2 (eth0); Lab on adapter 5 (wlan0); Van on adapter 2 (eth0)\n"
            "2 | entered: Home on adapter 2 (eth0) | left: Office\n");
  EXPECT_EQ(Gaps(timeline), "from 2025-11-21T12:00:10.000 to the end of the log: the calculation breaks off\n");
  const auto endOf = [&](std::size_t row) { return timeline.locations[row].periods[0].end; };
  EXPECT_EQ(endOf(0), Timeline::Period::End::kNotCurrent);
  EXPECT_EQ(endOf(1), Timeline::Period::End::kUnknown);  // Lab
  EXPECT_EQ(endOf(2), Timeline::Period::End::kUnknown);  // Van
  EXPECT_EQ(endOf(3), Timeline::Period::End::kOpen);     // Home
}

TEST(QelaTimeline, BehindTheEndOfTheLogThereMayBeMoreLocations) {
  Log log;
  log.Calculates({kWired}, Report::kNone).Decides(L"Office", 2);
  log.Last().isComplete = false;
  const Timeline timeline = log.Read();
  EXPECT_EQ(Gaps(timeline),
            "from 2025-11-21T12:00:00.000 to the end of the log: the log ends in a calculation or right "
            "behind it\n");
  EXPECT_EQ(timeline.locations[0].periods[0].end, Timeline::Period::End::kOpen);
}

TEST(QelaTimeline, ALogThatBeginsInTheMiddleDoesNotKnowTheRest) {
  Log log;
  log.Calculates({}).Decides(L"Home", 5);
  log.Last().hasBeginning = log.Last().hasFailed = false;
  log.Calculates({kWired}, Report::kRaised).Decides(L"Office", 2).Decides(L"Home", 5);
  const Timeline timeline = log.Read();
  EXPECT_EQ(Gaps(timeline),
            "from 2025-11-21T12:00:00.000 to 2025-11-21T12:00:10.000: the log begins in the middle of a calculation\n");
  EXPECT_EQ(timeline.changes.size(), 2U);
  EXPECT_EQ(timeline.changes[1].entered.size(), 2U);  // all that are current, as nobody knows what entered
  EXPECT_FALSE(timeline.changes[1].isBeforeKnown);
  EXPECT_EQ(timeline.changes[1].adapters.size(), 0U);
}

TEST(QelaTimeline, AChangeThatTheHostWasNotCalledForIsTold) {
  const struct {
    Report report;
    bool isLast;
    std::optional<bool> wasReported;
  } kCases[] = {
      {Report::kRaised, false, true},   {Report::kRaised, true, true},
      {Report::kSkipped, false, false}, {Report::kSkipped, true, false},
      {Report::kNone, false, false},    {Report::kNone, true, std::nullopt},  // it may be called yet
  };
  for (const auto& [report, isLast, wasReported] : kCases) {
    Log log;
    log.Calculates({kWired}).Decides(L"Office", 2);
    log.Calculates({kWired}, report).Decides(L"Office", 0);
    if (!isLast) log.Calculates({kWired}).Decides(L"Office", 0);
    const Timeline timeline = log.Read();
    ASSERT_EQ(timeline.changes.size(), 2U);
    EXPECT_EQ(timeline.changes[0].wasReported, std::nullopt);
    EXPECT_EQ(timeline.changes[1].wasReported, wasReported) << static_cast<int>(report) << isLast;
    EXPECT_EQ(Changes(timeline).find("the host was not called for it") != std::string::npos, wasReported == false);
  }
}

TEST(QelaTimeline, AListInAnotherOrderIsAnotherList) {
  Log log;
  log.Calculates({kWired}).Decides(L"A", 2).Decides(L"B", 2);
  log.Calculates({kWired}, Report::kRaised).Decides(L"B", 2).Decides(L"A", 2);
  const Timeline timeline = log.Read();
  EXPECT_EQ(Changes(timeline),
            "1 | current: A on adapter 2 (eth0); B on adapter 2 (eth0)\n"
            "2 | the same locations in another order, or with other IDs\n");
  EXPECT_EQ(timeline.changes[1].wasReported, true);
  EXPECT_EQ(timeline.locations[0].periods.size(), 1U);
}

TEST(QelaTimeline, OfLocationsCalledTheSameOneThatIsCurrentIsEnough) {
  Log log;
  log.Calculates({kWired, kWireless}).Decides(L"Office", 0).Decides(L"Office", 2).Decides(L"Office", 5);
  log.Calculates({kWired, kWireless}).Decides(L"Office", 0).Decides(L"Office", 0).Decides(L"Office", 5);
  log.All()[0].locations[1].ended->localMs += 200;
  EXPECT_EQ(log.Read().locations[0].periods[0].from.time->localMs, kNoon + 700);
  EXPECT_EQ(
      Changes(log.Read()),
      "1 | current: Office on adapter 2 (eth0), adapter 5 (wlan0)\n"
      "2 | now on other adapters: Office on adapter 5 (wlan0) | the same locations in another order, or with other "
      "IDs | the host was not called for it\n");
}

TEST(QelaTimeline, ASlowCalculationTellsTheProbesThatTookLong) {
  Log log;
  log.Calculates({kWired, kWireless}).Decides(L"Office", 2).Decides(L"Home", 0);
  LoggedCalculation& calculation = log.Last();
  const auto probe = [](const wchar_t* host, int ms) {
    LoggedHostProbe one;
    one.host = host;
    one.took = std::chrono::milliseconds(ms);
    return one;
  };
  calculation.locations[0].adapters[0].hosts = {probe(L"quick.example", 99), probe(L"slow.example", 21'000)};
  calculation.locations[1].adapters[1].hosts = {probe(L"slow.example", 1000), probe(L"other.example", 100)};
  calculation.locations[1].managementServer.emplace().took = std::chrono::milliseconds(3210);
  calculation.locations[1].ended = LogTime{kNoon + 25'400, std::nullopt};
  calculation.ended = LogTime{kNoon + 40'000, std::nullopt};  // the host was called late, which is not counted
  const Timeline timeline = log.Read();
  ASSERT_EQ(timeline.slow.size(), 1U);
  EXPECT_EQ(InWords(timeline.slow[0]),
            "25.4 s: web host slow.example 22.0 s in 2 questions, the management server 3.2 s, web host other.example "
            "100 ms");
}

TEST(QelaTimeline, OnlyWhatTakesLongerThanTwoSecondsIsSlow) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2);
  log.Last().locations[0].ended = LogTime{kNoon + 2000, std::nullopt};
  log.At(10).Calculates({kWired}).Decides(L"Office", 2);
  log.Last().locations[0].ended = LogTime{kNoon + 12'001, std::nullopt};
  const Timeline timeline = log.Read();
  ASSERT_EQ(timeline.slow.size(), 1U);
  EXPECT_EQ(timeline.slow[0].at.calculation, 2U);
  EXPECT_EQ(InWords(timeline.slow[0]), "2.0 s, and no question to a server took long");
}

TEST(QelaTimeline, WithoutTimesTheOrderIsTold) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2);
  log.Calculates({kWired}, Report::kRaised).Decides(L"Office", 0);
  log.ForgetTimes();
  const Timeline timeline = log.Read();
  EXPECT_FALSE(timeline.hasTimes);
  EXPECT_EQ(Periods(timeline), "Office from calculation 1 to calculation 2, on adapter 2 (eth0)\n");
  EXPECT_TRUE(timeline.slow.empty());
}

TEST(QelaTimeline, AClockThatGoesBackIsToldAndTheOrderOfTheLogStays) {
  Log log;
  log.At(3600).Calculates({kWired}).Decides(L"Office", 2);
  log.At(0).Calculates({kWired}, Report::kRaised).Decides(L"Office", 0);
  const Timeline timeline = log.Read();
  EXPECT_FALSE(timeline.hasTimes);
  ASSERT_EQ(timeline.clockSetBack.size(), 1U);
  EXPECT_EQ(timeline.clockSetBack[0].at.calculation, 2U);
  EXPECT_EQ(InWords(timeline.clockSetBack[0]),
            "the clock goes back from 2025-11-21T13:00:01.000 to 2025-11-21T12:00:00.000");
  EXPECT_EQ(Periods(timeline), "Office from 2025-11-21T13:00:00.500 to 2025-11-21T12:00:00.500, on adapter 2 (eth0)\n");
}

TEST(QelaTimeline, AnHourThatIsSetBackWithItsOffsetIsNoClockThatGoesBack) {
  Log log;
  log.At(3600).Calculates({kWired});
  log.Last().began->offsetMinutes = log.Last().ended->offsetMinutes = 120;
  log.At(10).Calculates({kWired});
  log.Last().began->offsetMinutes = log.Last().ended->offsetMinutes = 60;
  EXPECT_TRUE(log.Read().hasTimes);
  EXPECT_TRUE(log.Read().clockSetBack.empty());
}

TEST(QelaTimeline, ABarOfTheEndGoesToTheLastMessage) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2);
  EXPECT_EQ(Periods(log.Read(LogTime{kNoon + 60'500, std::nullopt})),
            "Office from 2025-11-21T12:00:00.500 to the end of the log, 1 min 0 s, on adapter 2 (eth0)\n");
}

TEST(QelaTimeline, AdaptersThatCannotBeReadAreNotTakenForGone) {
  Log log;
  log.Calculates({kWired, kWireless}).Decides(L"Office", 2);
  log.Calculates({kWired}).Decides(L"Office", 2);
  log.Last().unreadableAdapters = 1;
  log.Calculates({kWired, kWireless}).Decides(L"Office", 2);
  EXPECT_EQ(log.Read().changes.size(), 1U);
}

TEST(QelaTimeline, AnEdgeTellsHowManyAdaptersCannotBeRead) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2);
  EXPECT_EQ(Changes(log.Read()).find("cannot be read"), std::string::npos);
  log.Last().unreadableAdapters = 2;
  EXPECT_NE(Changes(log.Read()).find(" | 2 adapters cannot be read from the log\n"), std::string::npos);
}

TEST(QelaTimeline, ALogWithoutACalculationHasNothing) {
  const Timeline timeline = Log().Read();
  EXPECT_EQ(timeline.calculations, 0U);
  EXPECT_FALSE(timeline.hasTimes);
  EXPECT_TRUE(timeline.locations.empty() && timeline.changes.empty() && timeline.gaps.empty());
}

TEST(QelaTimeline, WhereAnIdIsMissingTheListsAreNotCompared) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2);
  log.Calculates({kWired}).Decides(L"Office", 2);
  log.Last().locations[0].id.clear();
  log.Calculates({kWired}).Decides(L"Office", 2);
  EXPECT_EQ(log.Read().changes.size(), 1U);
}

// The messages of a whole log, as the library writes them: a machine that goes from one network to another and back.
class Messages {
 public:
  struct Truth {
    std::size_t begin;  // of the calculation's messages
    std::vector<std::wstring> current;
    std::optional<bool> wasReported;
  };

  Messages() {
    Calculate({kWired}, 2, 0, L"Skipped raising a location changed event...");
    Calculate({kWired, kWireless}, 2, 5, L"Raising a location changed event...");
    Calculate({kWireless}, 0, 5, L"Raising a location changed event...");
    Calculate({}, 0, 0, L"Raising a location changed event...");
    Calculate({kWireless}, 0, 5, L"");
    Calculate({kWired}, 2, 0, L"Raising a location changed event...");
    m_truth[4].wasReported = false;
  }

  // Of the messages from `begin` to before `end`, without the one at `hole`.
  Timeline Read(std::size_t begin, std::size_t end, std::size_t hole) const {
    TimelineBuilder builder;
    CalculationReader reader;
    for (std::size_t i = begin; i < end; ++i) {
      if (i == hole) continue;
      if (const auto calculation = reader.OnMessage({m_texts[i], std::nullopt, 0, i})) builder.Add(*calculation);
    }
    if (const auto calculation = reader.End()) builder.Add(*calculation);
    return builder.Finish(std::nullopt);
  }

  std::size_t Count() const { return m_texts.size(); }

  // The calculation to which the message at this line belongs.
  std::size_t CalculationAt(std::uint64_t line) const {
    std::size_t calculation = 0;
    while (calculation + 1 < m_truth.size() && m_truth[calculation + 1].begin <= line) ++calculation;
    return calculation;
  }
  bool IsCurrent(const std::wstring& name, std::size_t calculation) const {
    const auto& current = m_truth[calculation].current;
    return std::find(current.begin(), current.end(), name) != current.end();
  }
  std::optional<bool> WasReported(std::size_t calculation) const { return m_truth[calculation].wasReported; }

 private:
  void Calculate(const std::vector<AdapterProps>& adapters, std::uint32_t office, std::uint32_t home,
                 const std::wstring& report) {
    m_texts.emplace_back(L"The location discovery thread received an address change notification");
    m_truth.push_back({m_texts.size(), {}, report.starts_with(L"Raising")});
    m_texts.insert(m_texts.end(), {L"Calculating current locations...",
                                   L"GetAdaptersAddresses succeeds, the return value is : 0", L"Adapters List :"});
    for (const AdapterProps& adapter : adapters) {
      m_texts.push_back(L"Adapter properties:\n" + RenderAdapterProps(adapter));
      m_texts.emplace_back(L"//---------------------------------------------\n");
    }
    if (adapters.empty()) {
      m_texts.emplace_back(L"CalculateCurrentAdapterProps failed.");
    } else {
      Decide(L"Office", adapters, office);
      Decide(L"Home", adapters, home);
    }
    if (!report.empty()) m_texts.push_back(report);
  }

  void Decide(const std::wstring& name, const std::vector<AdapterProps>& adapters, std::uint32_t matching) {
    m_texts.push_back(L"IsCurrentLocation checking location " + name);
    m_texts.emplace_back(L"IsCurrentLocation bZeltReachabilityCriteria 0");
    for (const AdapterProps& adapter : adapters) {
      const std::wstring index = std::to_wstring(adapter.ifIndex);
      const std::wstring both = index + L" and description " + adapter.description + L".";
      m_texts.push_back(L"Matching all the location criterias with the properties of adapter with index " + both);
      if (adapter.ifIndex == matching) {
        m_texts.push_back(L"Location: Default gateway : " + adapter.gateways[0] + L" matched for adapter with index " +
                          both);
        m_texts.push_back(L"All the criteria's given in location matches adapter index " + index +
                          L" with description " + adapter.description + L". Hence this adapter will be matching.");
      } else {
        m_texts.push_back(L"Not all the criteria's given in the location matches the adapter with index " + both +
                          L" Hence this adapter will be non-matching.");
      }
    }
    if (matching == 0)
      m_texts.emplace_back(
          L"None of the available network adapter properties matches all the criteria's given in the location");
    m_texts.push_back(L"IsCurrentLocation returning matched criterias " + std::wstring(matching != 0 ? L"1" : L"0") +
                      L" for location " + name + L"...");
    if (matching == 0) return;
    m_texts.push_back(L"Adding current location ID id of " + name);
    m_truth.back().current.push_back(name);
  }

  std::vector<std::wstring> m_texts;
  std::vector<Truth> m_truth;
};

// Every claim about which location was current at which calculation, up to that of the last message.
void ExpectTrue(const Messages& log, const Timeline& timeline, std::size_t last) {
  using End = Timeline::Period::End;
  for (const Timeline::Location& location : timeline.locations)
    for (const Timeline::Period& period : location.periods) {
      const std::string name = ToUtf8(location.name);
      const std::size_t to = log.CalculationAt(period.end == End::kOpen ? last : period.to.line);
      for (std::size_t calculation = log.CalculationAt(period.from.line); calculation < to; ++calculation)
        EXPECT_TRUE(log.IsCurrent(location.name, calculation)) << name << " at " << calculation;
      if (period.end == End::kNotCurrent || period.end == End::kOpen) {
        EXPECT_EQ(log.IsCurrent(location.name, to), period.end == End::kOpen) << name << " at " << to;
      }
    }
}

TEST(QelaTimeline, WhatItTellsOfALogThatIsCutAnywhereIsTrueOfTheWholeOne) {
  const Messages log;
  std::size_t periods = 0;
  for (std::size_t begin = 0; begin < log.Count(); ++begin)
    for (std::size_t end = begin + 1; end <= log.Count(); ++end) {
      SCOPED_TRACE(std::to_string(begin) + " to " + std::to_string(end));
      const Timeline timeline = log.Read(begin, end, end);
      ExpectTrue(log, timeline, end - 1);
      for (const Timeline::Change& change : timeline.changes) {
        if (!change.wasReported) continue;
        EXPECT_EQ(change.wasReported, log.WasReported(log.CalculationAt(change.at.line)));
      }
      for (const Timeline::Location& location : timeline.locations) periods += location.periods.size();
      if (testing::Test::HasFailure()) return;
    }
  EXPECT_GT(periods, 5000U);
  EXPECT_EQ(log.Read(0, log.Count(), log.Count()).locations.size(), 2U);
}

TEST(QelaTimeline, AMessageThatIsMissingMakesNothingWrong) {
  const Messages log;
  for (std::size_t hole = 0; hole < log.Count(); ++hole) {
    SCOPED_TRACE(hole);
    ExpectTrue(log, log.Read(0, log.Count(), hole), log.Count() - 1);
  }
}

}  // namespace

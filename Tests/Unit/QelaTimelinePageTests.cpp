#include "Tools/qela/TimelinePage.h"

#include <gtest/gtest.h>

#include <regex>

#include "Tests/Unit/QelaTimelineLog.h"

namespace {

using Log = TimelineLog;
using Report = LoggedCalculation::Report;

std::string PageOf(const Log& log) { return TimelinePage(log.Read(), {"service.log"}); }

std::size_t Count(const std::string& page, const std::string& text) {
  std::size_t count = 0;
  for (std::size_t at = page.find(text); at != std::string::npos; at = page.find(text, at + 1)) ++count;
  return count;
}

// The labels of the axis; one that stands below another follows it behind a blank.
std::string AxisOf(const Log& log) {
  const std::string page = PageOf(log);
  const std::regex label(R"re(text-anchor="middle" x="([0-9.]+)"[^>]*>([^<]*))re");
  std::string axis;
  std::string before;
  for (std::sregex_iterator one(page.begin(), page.end(), label), end; one != end; ++one) {
    axis += (axis.empty() ? "" : (*one)[1] == before ? " " : ", ") + (*one)[2].str();
    before = (*one)[1];
  }
  return axis;
}

TEST(QelaTimelinePage, EachPeriodHasABarWithItsWordsAndEachFactALine) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2).Decides(L"Home", 0);
  log.Calculates({kWireless}, Report::kSkipped).Decides(L"Office", 0).Decides(L"Home", 5);
  log.Calculates({kWired});
  log.Last().broken = "messages are missing";
  log.At(40).Calculates({kWired}).Decides(L"Office", 2).Decides(L"Home", 0);
  log.Last().locations[0].ended->localMs += 5000;
  log.Last().locations[1].ended->localMs += 5000;
  log.Last().ended->localMs += 5000;
  const std::string page = PageOf(log);
  EXPECT_EQ(Count(page, "<rect class=\"bar\""), 3U);
  EXPECT_EQ(Count(page, "<rect class=\"gap\""), 1U);
  EXPECT_EQ(Count(page, "<rect class=\"slow\""), 1U);
  EXPECT_EQ(Count(page, "<path class=\"change\""), 2U);
  EXPECT_EQ(Count(page, "<path class=\"unreported\""), 1U);
  EXPECT_EQ(Count(page, "<path class=\"bar-end"), 1U);
  EXPECT_NE(
      page.find("<title>Home from 2025-11-21T12:00:10.500 to 2025-11-21T12:00:20.000 at least, 9.5 s, on adapter 5 "
                "(wlan0)</title></rect>"),
      std::string::npos);
  for (const char* fact :
       {"<td>Home</td>", "adapter 2 (eth0) is gone: default gateway 10.20.0.1", "the host was not called for it",
        "<td>the lines do not fit together: messages are missing</td>", "5.5 s, and no question to a server took long",
        "<td>the end of the log</td>"})
    EXPECT_NE(page.find(fact), std::string::npos) << fact;
}

TEST(QelaTimelinePage, WhatDidNotHappenHasNoRowAndNoTable) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2);
  const std::string page = PageOf(log);
  for (const char* absent :
       {"adapters changed", "host not called", "class=\"slow\"", "more than 2 s", "hatched", "Not known", "clock"})
    EXPECT_EQ(page.find(absent), std::string::npos) << absent;
}

TEST(QelaTimelinePage, TextsFromTheLogAreNoPartOfThePage) {
  const std::wstring hostile = L"</title><script>alert(1)</script>\"'&\n\x1b";
  AdapterProps adapter = kWired;
  adapter.description = hostile;
  AdapterProps changed = adapter;
  changed.dnsSuffix = hostile;
  Log log;
  log.Calculates({adapter}).Decides(hostile, 2);
  log.Calculates({changed}).Decides(hostile, 0);
  log.Last().locations[0].ended->localMs += 5000;
  LoggedHostProbe& probe = log.Last().locations[0].adapters[0].hosts.emplace_back();
  probe.host = hostile;
  probe.took = std::chrono::seconds(5);
  log.Calculates({changed});
  log.Last().broken = "<script>";
  const std::string page = TimelinePage(log.Read(), {"<script>.log"});
  EXPECT_EQ(page.find("<script"), std::string::npos);
  EXPECT_EQ(page.find("alert(1)<"), std::string::npos);
  EXPECT_EQ(page.find('\x1b'), std::string::npos);
  EXPECT_GT(Count(page, "&lt;/title&gt;&lt;script&gt;alert(1)&lt;/script&gt;&quot;&#39;&amp;\\u000A\\u001B"), 8U);
}

TEST(QelaTimelinePage, TheAxisHasAFewRoundTimes) {
  const struct {
    std::int64_t seconds;  // of the log
    const char* axis;
  } kCases[] = {
      {1, "12:00:00.000 2025-11-21, 12:00:00.200, 12:00:00.400, 12:00:00.600, 12:00:00.800, 12:00:01.000"},
      {60, "12:00:00 2025-11-21, 12:00:10, 12:00:20, 12:00:30, 12:00:40, 12:00:50, 12:01:00"},
      {3600, "12:00 2025-11-21, 12:10, 12:20, 12:30, 12:40, 12:50, 13:00"},
      {86'400, "12:00 2025-11-21, 18:00, 00:00 2025-11-22, 06:00, 12:00"},
      {7 * 86'400, "2025-11-22, 2025-11-23, 2025-11-24, 2025-11-25, 2025-11-26, 2025-11-27, 2025-11-28"},
  };
  for (const auto& [seconds, axis] : kCases) {
    Log log;
    log.Calculates({kWired}).Decides(L"Office", 2);
    if (seconds > 1) log.At(seconds - 1).Calculates({kWired}).Decides(L"Office", 2);
    EXPECT_EQ(AxisOf(log), axis);
  }
}

TEST(QelaTimelinePage, OfYearsTheAxisHasNoMoreThanAFewTimes) {
  Log log;
  log.Calculates({kWired});
  log.At(std::int64_t{40} * 365 * 86'400).Calculates({kWired});
  EXPECT_LE(Count(AxisOf(log), ","), 7U);
  EXPECT_GE(Count(AxisOf(log), ","), 2U);
}

TEST(QelaTimelinePage, WithoutTimesTheAxisIsTheOrderOfTheCalculations) {
  Log log;
  for (int i = 0; i < 30; ++i) log.Calculates({kWired}).Decides(L"Office", i < 15 ? 2 : 0);
  log.ForgetTimes();
  const std::string page = PageOf(log);
  EXPECT_EQ(AxisOf(log), "5, 10, 15, 20, 25, 30");
  EXPECT_NE(page.find("Not every calculation has a time"), std::string::npos);
  // From the first to the 16th of 30, of a plot of 770 units behind 190.
  EXPECT_NE(page.find("<rect class=\"bar\" rx=\"2\" x=\"190.0\" y=\"42.0\" width=\"385.0\""), std::string::npos);
}

TEST(QelaTimelinePage, AClockThatGoesBackMakesNoAxisOfTime) {
  Log log;
  log.At(100).Calculates({kWired}).Decides(L"Office", 2);
  log.At(0).Calculates({kWired}).Decides(L"Office", 0);
  const std::string page = PageOf(log);
  EXPECT_EQ(AxisOf(log), "1, 2");
  EXPECT_NE(page.find("the clock goes back from"), std::string::npos);
  EXPECT_EQ(page.find("width=\"-"), std::string::npos);
}

TEST(QelaTimelinePage, ALogOfOneMomentHasAPicture) {
  Log log;
  log.Calculates({kWired}).Decides(L"Office", 2);
  log.Last().ended = log.Last().locations[0].ended = log.Last().began;
  EXPECT_EQ(AxisOf(log), "1");
  EXPECT_EQ(Count(PageOf(log), "<rect class=\"bar\""), 1U);
}

TEST(QelaTimelinePage, WhatStandsTooCloseIsDrawnAsOne) {
  Log log;
  for (int i = 0; i < 6000; ++i) {
    log.Calculates({i % 2 == 0 ? kWired : kWireless}, Report::kSkipped).Decides(L"Office", i % 2 == 0 ? 2 : 0);
    log.Last().locations[0].ended->localMs += 3000;
    log.Last().ended->localMs += 3000;
  }
  log.At(120'000).Calculates({kWired}).Decides(L"Office", 2);
  log.At(180'000).Calculates({kWired}).Decides(L"Office", 0);
  const std::string page = PageOf(log);
  EXPECT_EQ(Count(page, "<rect class=\"bar many\""), 1U);
  EXPECT_EQ(Count(page, "<rect class=\"bar\""), 1U);
  EXPECT_NE(page.find("A pale one stands for several"), std::string::npos);
  EXPECT_NE(page.find("(and 2999 more there)</title></rect>"), std::string::npos);
  for (const char* name : {"change", "unreported", "slow"}) {
    EXPECT_GT(Count(page, std::string(" class=\"") + name + "\""), 20U) << name;
    EXPECT_LT(Count(page, std::string(" class=\"") + name + "\""), 400U) << name;
  }
  EXPECT_NE(page.find("qela timeline --json tells all"), std::string::npos);
  EXPECT_LT(page.size(), 4U << 20);
}

TEST(QelaTimelinePage, EachTableHasTheFirstFiveThousandLines) {
  Log log;
  for (int i = 0; i < 12'004; ++i) {
    log.Calculates({kWired}).Decides(L"Office", 2);
    if (i % 2 == 1) log.Last().broken = "messages are missing";
  }
  const std::string page = PageOf(log);
  EXPECT_EQ(Count(page, "<td>Office</td>"), 5000U);
  EXPECT_EQ(Count(page, "<td>the lines do not fit together: messages are missing</td>"), 5000U);
  EXPECT_EQ(Count(page, "More than 5000 lines: the rest is left out here."), 3U);
}

TEST(QelaTimelinePage, BarsThatCanBeToldApartStayApart) {
  Log log;
  for (int i = 0; i < 100; ++i) log.Calculates({kWired}, Report::kRaised).Decides(L"Office", i % 2 == 0 ? 2 : 0);
  EXPECT_EQ(Count(PageOf(log), "<rect class=\"bar\""), 50U);
  EXPECT_EQ(PageOf(log).find("pale"), std::string::npos);
  Log apart;
  for (int i = 0; i < 5; ++i)
    apart.At(36'000 * i).Calculates({kWired}).Decides(L"Office", 2).Calculates({kWired}).Decides(L"Office", 0);
  EXPECT_EQ(Count(PageOf(apart), "<rect class=\"bar\""), 5U);
  Log moving;
  for (int i = 0; i < 100; ++i) moving.Calculates({kWired, kWireless}).Decides(L"Office", i % 2 == 0 ? 2 : 5);
  EXPECT_EQ(Count(PageOf(moving), "<rect class=\"bar\""), 100U);
}

TEST(QelaTimelinePage, OfVeryManyLocationsThePictureShowsTheFirst) {
  Log log;
  log.Calculates({kWired});
  for (int i = 0; i < 300; ++i) log.Decides(std::to_wstring(i), 2);
  const std::string page = PageOf(log);
  EXPECT_EQ(Count(page, "<rect class=\"bar\""), 200U);
  EXPECT_NE(page.find("The picture shows the first 200 locations only."), std::string::npos);
}

}  // namespace

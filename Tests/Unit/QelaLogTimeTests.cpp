#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "Tools/qela/LoggedMessage.h"

namespace {

std::string Shown(const std::optional<LogTime>& time) { return time ? ToText(*time) : "none"; }

TEST(QelaLogTime, IsReadInTheFormInWhichItIsShown) {
  for (const char* text : {"2025-11-21T02:44:06.736+01:00", "1999-12-31T23:59:59.999-11:30",
                           "2024-02-29T00:00:00.000+00:00", "2025-11-21T02:44:06.736"})
    EXPECT_EQ(Shown(ParseLogTime(text)), text);
}

TEST(QelaLogTime, IsReadAsPeopleWriteIt) {
  const struct {
    const char* text;
    const char* shown;
  } rows[] = {
      {"2025-11-21 14:30", "2025-11-21T14:30:00.000"},
      {"2025-11-21 14:30:05", "2025-11-21T14:30:05.000"},
      {"2025-11-21T14:30:05,25", "2025-11-21T14:30:05.250"},
      {"2025-11-21T14:30:05.1234567", "2025-11-21T14:30:05.123"},
      {"2025-11-21T14:30Z", "2025-11-21T14:30:00.000+00:00"},
      {"2025-11-21 14:30:05-0530", "2025-11-21T14:30:05.000-05:30"},
  };
  for (const auto& row : rows) EXPECT_EQ(Shown(ParseLogTime(row.text)), row.shown) << row.text;
}

TEST(QelaLogTime, IsNothingElseThanThat) {
  for (const char* text : {"",
                           "2025",
                           "2025-11-21",
                           "14:30",
                           "2025-11-21 1:30",
                           "2025-11-21 14",
                           "2025-11-21 14:3",
                           "2025-11-21 24:00",
                           "2025-11-21 14:60",
                           "2025-11-21 14:30:61",
                           "2025-02-29 14:30",
                           "2025-13-01 14:30",
                           "2025-00-01 14:30",
                           "2025-11-31 14:30",
                           "25-11-21 14:30",
                           "2025/11/21 14:30",
                           "21.11.2025 14:30",
                           "11/21/2025 2:30 PM",
                           " 2025-11-21 14:30",
                           "2025-11-21 14:30 ",
                           "2025-11-21  14:30",
                           "2025-11-21 14:30:05+1",
                           "2025-11-21 14:30:05+25:00",
                           "2025-11-21 14:30 yesterday",
                           "2025-11-21 14:30:05.",
                           "99999-11-21 14:30",
                           "0001-11-21 14:30"})
    EXPECT_EQ(Shown(ParseLogTime(text)), "none") << text;
}

TEST(QelaLogTime, IsFoundInEveryFormThatHostsWrite) {
  const struct {
    const char* text;
    const char* shown;
  } rows[] = {
      {"2025-11-21T02:44:06.736+01:00\t8\tFirewallBL\t", "2025-11-21T02:44:06.736+01:00"},
      {"2025-11-21 02:44:06.736 [1234] INFO ", "2025-11-21T02:44:06.736"},
      {"2025-11-21 02:44:06,736 +0100 INFO ", "2025-11-21T02:44:06.736+01:00"},
      {"[2025-11-21T02:44:06Z] ", "2025-11-21T02:44:06.000+00:00"},
      {R"({"level":"info","time":"2025-11-21T02:44:06.736123-08:00","msg":")", "2025-11-21T02:44:06.736-08:00"},
      {"<14>1 2025-11-21T02:44:06.736+01:00 host qela - - - ", "2025-11-21T02:44:06.736+01:00"},
      {"[2025-11-21] [02:44:06.736] ", "2025-11-21T02:44:06.736"},
      {"2025/11/21 02:44:06 ", "2025-11-21T02:44:06.000"},
      {"2025.11.21 2:44:06 ", "2025-11-21T02:44:06.000"},
      {"21.11.2025 02:44:06,736 ", "2025-11-21T02:44:06.736"},
      {"1.2.2025, 2:44:06 - ", "2025-02-01T02:44:06.000"},
      {"11/21/2025 2:44:06 AM ", "2025-11-21T02:44:06.000"},
      {"11/21/2025 02:44:06.736 pm ", "2025-11-21T14:44:06.736"},
      {"1/2/2025, 12:05:06\xe2\x80\xaf"
       "AM ",
       "2025-01-02T00:05:06.000"},
      {"1/2/2025 12:05 PM ", "2025-01-02T12:05:00.000"},
      {"v10.0.19045 pid 4711 (2025-11-21 02:44:06)", "2025-11-21T02:44:06.000"},
      {"2025-11-21 02:44:06 after 2025-11-20 01:00:00", "2025-11-21T02:44:06.000"},
  };
  for (const auto& row : rows) EXPECT_EQ(Shown(FindLogTime(row.text)), row.shown) << row.text;
}

TEST(QelaLogTime, IsNeverGuessed) {
  for (const char* text : {"", "INFO [1234] ", "02:44:06.736 INFO ", "2025-11-21 INFO ", "21/11/2025 02:44:06 ",
                           "0/5/2025 02:44:06 ", "11/21/2025 13:44:06 PM ", "11/21/2025 0:44 AM ",
                           "31.2.2025 02:44:06 ", "1.2025-11-21 02:44:06", "1732153446.736 ", "20251121 024406 ",
                           "2025-11-21 to 02:44:06 ", "2025-11-21 10.0.0.1 ", "12025-11-21 02:44:06"})
    EXPECT_EQ(Shown(FindLogTime(text)), "none") << text;
}

TEST(QelaLogTime, IsComparedByUniversalTimeWhereBothTellIt) {
  const auto time = [](const char* text) { return *ParseLogTime(text); };
  const LogTime berlin = time("2025-11-21T02:00:00+01:00");
  const LogTime london = time("2025-11-21T01:30:00+00:00");
  const LogTime nowhere = time("2025-11-21T01:45:00");
  EXPECT_TRUE(LogTime::Compare(berlin, london) < 0);
  EXPECT_EQ(LogTime::MillisecondsBetween(berlin, london), 30 * 60'000);
  EXPECT_TRUE(LogTime::Compare(berlin, nowhere) > 0) << "by what the clocks showed";
  EXPECT_EQ(LogTime::MillisecondsBetween(berlin, nowhere), -15 * 60'000);
  EXPECT_TRUE(LogTime::Compare(london, time("2025-11-21T02:30:00+01:00")) == 0);
}

}  // namespace

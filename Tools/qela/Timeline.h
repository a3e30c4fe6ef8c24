// What a log proves of the time that it covers: which locations were current from when to when, and what happened to
// the adapters, to the calculations and to the host's callback meanwhile.
#pragma once

#include <QeLaCriteria.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "AdapterChanges.h"
#include "LoggedCalculation.h"

struct Timeline {
  struct Place {
    std::uint64_t calculation = 0;  // the first of the log is 1
    std::optional<LogTime> time;
    std::size_t file = 0;
    std::uint64_t line = 0;  // where the calculation begins
  };
  struct Adapter {
    std::uint32_t ifIndex = 0;
    std::wstring description;
    bool operator==(const Adapter&) const = default;
  };
  struct Current {
    std::wstring name;
    std::wstring id;  // empty where the log does not tell it
    std::vector<Adapter> adapters;
  };

  // A time without a break on the same adapters.
  struct Period {
    enum class End { kOpen, kNotCurrent, kOtherAdapters, kUnknown };
    Place from;
    Place to;  // of an open one the end of the log
    End end = End::kOpen;
    std::wstring id;
    std::vector<Adapter> adapters;
  };
  struct Location {
    std::wstring name;
    std::vector<Period> periods;
  };
  // What else is current is not known.
  struct Gap {
    Place from;
    Place to;
    bool isOpen = true;
    std::string why;
  };
  // A calculation that saw or decided something else than the one before.
  struct Change {
    Place at;
    LoggedCalculation::Cause cause{};
    bool isBeforeKnown = false;       // otherwise `entered` are those that are current
    bool hasFailed = false;           // for want of adapters
    bool isOtherList = false;         // of current locations, as the library compares them: by ID and order
    std::optional<bool> wasReported;  // that other list; none where the log does not tell
    std::vector<Current> entered;
    std::vector<Current> moved;  // to other adapters
    std::vector<std::wstring> left;
    std::vector<AdapterChange> adapters;  // since they were last seen
    std::size_t unreadableAdapters = 0;
  };
  // A calculation that took more than 2 s.
  struct Slow {
    // All questions of the calculation to one host.
    struct Probe {
      LOCATION_CRITERIA_TYPE kind{};  // LCT_DOMAIN_REACHABLE or LCT_ZELT_REACHABLE
      std::wstring host;
      std::size_t questions = 0;
      std::chrono::milliseconds took{};
    };
    Place at;
    std::chrono::milliseconds took{};
    std::vector<Probe> probes;  // those that took long, the longest first; none when it was something else
  };
  struct ClockSetBack {
    Place at;
    LogTime before;
    LogTime after;
  };

  std::uint64_t calculations = 0;
  Place begin;
  Place end;                        // behind the last calculation
  bool hasTimes = false;            // every calculation has some, and they never go back
  std::vector<Location> locations;  // that were current, in the order in which they became it
  std::vector<Gap> gaps;
  std::vector<Change> changes;
  std::vector<Slow> slow;
  std::vector<ClockSetBack> clockSetBack;
};

// Takes the calculations of a log in their order. Holds what changed and not what stayed.
class TimelineBuilder {
 public:
  void Add(const LoggedCalculation& calculation);
  // `last` is the time of the last message. To be called once.
  Timeline Finish(const std::optional<LogTime>& last);

 private:
  void WatchTheClock(const LoggedCalculation& calculation, const Timeline::Place& at);
  void TakeVerdicts(const LoggedCalculation& calculation, const Timeline::Place& at, bool isWhole,
                    Timeline::Change& change);
  void TakeAdapters(const LoggedCalculation& calculation, Timeline::Change& change);
  void TakeDuration(const LoggedCalculation& calculation, const Timeline::Place& at);
  void BecomeUnknown(const Timeline::Place& at, const std::string& why);
  void BecomeKnown(const Timeline::Place& at);

  Timeline m_timeline;
  std::map<std::wstring, std::size_t> m_rows;  // of m_timeline.locations
  bool m_isKnown = false;                      // whether all that is current is known
  bool m_hasFailed = false;
  std::optional<std::vector<std::wstring>> m_ids;       // what the library compared last
  bool m_awaitsReport = false;                          // of the last change
  std::optional<std::vector<AdapterProps>> m_adapters;  // when they were last seen
  std::optional<LogTime> m_lastTime;
  bool m_lacksTimes = false;
};

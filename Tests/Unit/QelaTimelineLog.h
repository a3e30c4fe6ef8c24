// Logs for timelines, calculation by calculation.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Tools/qela/Timeline.h"

inline constexpr std::int64_t kNoon = 1'763'726'400'000;  // 2025-11-21 12:00

inline AdapterProps Adapter(std::uint32_t index, const wchar_t* description, const wchar_t* gateway) {
  AdapterProps adapter;
  adapter.ifIndex = index;
  adapter.description = description;
  adapter.gateways = {gateway};
  return adapter;
}

inline const AdapterProps kWired = Adapter(2, L"eth0", L"10.20.0.1");
inline const AdapterProps kWireless = Adapter(5, L"wlan0", L"192.168.1.1");

// Each calculation takes one second and begins ten after the one before.
class TimelineLog {
 public:
  TimelineLog& At(std::int64_t second) {
    m_time = kNoon + second * 1000;
    return *this;
  }
  TimelineLog& Calculates(const std::vector<AdapterProps>& adapters,
                          LoggedCalculation::Report report = LoggedCalculation::Report::kSkipped) {
    m_calculations.emplace_back();
    LoggedCalculation& calculation = Last();
    calculation.hasBeginning = calculation.isComplete = true;
    calculation.adapters = adapters;
    calculation.hasFailed = adapters.empty();
    calculation.report = report;
    calculation.began = LogTime{m_time, std::nullopt};
    calculation.ended = LogTime{m_time + 1000, std::nullopt};
    calculation.line = 100 * m_calculations.size();
    m_time += 10'000;
    return *this;
  }
  // The verdict on a location, by the index of the adapter that matches; 0 for none.
  TimelineLog& Decides(const std::wstring& name, std::uint32_t ifIndex) {
    LoggedLocation& location = Last().locations.emplace_back();
    location.name = name;
    location.isCurrent = ifIndex != 0;
    for (const AdapterProps& adapter : Last().adapters)
      location.adapters.push_back({adapter.ifIndex, adapter.description, {}, {}, {}, adapter.ifIndex == ifIndex});
    if (ifIndex != 0) location.id = L"id of " + name;
    location.began = Last().began;
    location.ended = LogTime{Last().began->localMs + 500, std::nullopt};
    return *this;
  }
  LoggedCalculation& Last() { return m_calculations.back(); }
  std::vector<LoggedCalculation>& All() { return m_calculations; }

  // As of a host that writes none.
  void ForgetTimes() {
    for (LoggedCalculation& calculation : m_calculations) {
      calculation.began = calculation.ended = std::nullopt;
      for (LoggedLocation& location : calculation.locations) location.began = location.ended = std::nullopt;
    }
  }

  Timeline Read(std::optional<LogTime> last = std::nullopt) const {
    TimelineBuilder builder;
    for (const LoggedCalculation& calculation : m_calculations) builder.Add(calculation);
    return builder.Finish(last);
  }

 private:
  std::int64_t m_time = kNoon;
  std::vector<LoggedCalculation> m_calculations;
};

// Why a location is current or not, collected for tools.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/LocationMatcher.h"

// All that was asked, seen and answered, in order. A value.
struct MatchReport {
  enum class Outcome { kHeld, kFailed, kNotReached };

  // One question to the registry, a web host or the management server.
  struct Probe {
    std::wstring text;  // what was asked for
    bool answer = false;
    std::chrono::nanoseconds took{};
  };
  struct Kind {
    LOCATION_CRITERIA_TYPE kind{};
    Outcome outcome = Outcome::kNotReached;
    std::vector<std::wstring> asked;
    std::vector<std::wstring> seen;  // of the adapter; empty for what is probed
    std::wstring held;               // the criterion that held, if one did
    std::vector<Probe> probes;
  };
  struct Adapter {
    std::uint32_t ifIndex = 0;
    std::wstring description;
    bool matches = false;
    std::vector<Kind> kinds;  // those that have criteria
  };
  struct Location {
    std::wstring name;
    bool isCurrent = false;
    std::vector<Adapter> adapters;
    std::optional<Probe> managementServer;  // when it was asked
  };

  std::vector<Location> locations;
};

// What the adapter shows for a kind; nothing for the kinds that are asked elsewhere.
std::vector<std::wstring> SeenOf(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind);

// Fills a report, which must outlive it.
class MatchReporter final : public MatchObserver {
 public:
  explicit MatchReporter(MatchReport& report) : m_report(report) {}

  void OnLocation(const LocationCriteria& location) override;
  void OnNoTextCriteria(std::size_t criteria, const std::vector<AdapterProps>& adapters) override;
  void OnAdapter(const AdapterProps& adapter) override;
  void OnKindHeld(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind, const std::vector<std::wstring>& values,
                  const std::wstring& value) override;
  void OnKindFailed(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                    const std::vector<std::wstring>& values) override;
  void OnKindNotReached(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                        const std::vector<std::wstring>& values) override;
  void OnAdapterDone(const AdapterProps& adapter, bool matches) override;
  void OnProbe(LOCATION_CRITERIA_TYPE kind, const std::wstring& text) override;
  void OnProbeDone(LOCATION_CRITERIA_TYPE kind, const std::wstring& text, bool answer) override;
  void OnLocationDone(const LocationCriteria& location, bool isCurrent) override;

 private:
  MatchReport::Kind& Add(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                         const std::vector<std::wstring>& values, MatchReport::Outcome outcome);

  MatchReport& m_report;
  std::chrono::steady_clock::time_point m_asked;
  std::vector<MatchReport::Probe> m_probes;  // of the kind that is under way
};

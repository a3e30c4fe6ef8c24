// Whether a location is current, decided from what is handed in: no Windows, no service, no log.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"
#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"
#include "FwClient/Service/QeLaLib/Include/QeLaCriteria.h"

// The kinds whose criteria are texts: LCT_DNS_SUFFIX to LCT_DOMAIN_REACHABLE.
inline constexpr std::uint32_t kTextCriteriaKinds = 8;

// What a location asks for. The texts are the caller's, and stay while the matcher runs.
struct LocationCriteria {
  const std::wstring* name = nullptr;
  std::array<const std::vector<std::wstring>*, kTextCriteriaKinds> lists{};  // by kind; none is null
  bool zeltReachable = false;
};

// What the matcher cannot find out from adapters. Asked on the calling thread, again for every adapter that gets there;
// may take as long as they like. What they throw leaves the matcher.
struct LocationProbes {
  std::function<bool(const std::wstring& criterion)> isRegistryKeyCriterionMet;
  std::function<bool(const std::wstring& host)> isDomainReachable;
  std::function<bool()> isManagementServerReachable;
};

// Is told every fact, in order. Does nothing by itself: an observer overrides what it wants to know.
class MatchObserver {
 public:
  virtual ~MatchObserver() = default;

  virtual void OnLocation(const LocationCriteria& /*location*/) {}
  // Nothing to test an adapter against: every adapter matches.
  virtual void OnNoTextCriteria(std::size_t /*criteria*/, const std::vector<AdapterProps>& /*adapters*/) {}

  virtual void OnAdapter(const AdapterProps& /*adapter*/) {}
  // What became of one kind that has criteria. `value` is the one that held.
  virtual void OnKindHeld(const AdapterProps& /*adapter*/, LOCATION_CRITERIA_TYPE /*kind*/,
                          const std::vector<std::wstring>& /*values*/, const std::wstring& /*value*/) {}
  virtual void OnKindFailed(const AdapterProps& /*adapter*/, LOCATION_CRITERIA_TYPE /*kind*/,
                            const std::vector<std::wstring>& /*values*/) {}
  virtual void OnKindNotReached(const AdapterProps& /*adapter*/, LOCATION_CRITERIA_TYPE /*kind*/,
                                const std::vector<std::wstring>& /*values*/) {}
  virtual void OnAdapterDone(const AdapterProps& /*adapter*/, bool /*matches*/) {}
  virtual void OnNoAdapterMatches() {}

  // Around each call of a probe; `text` is what was asked for, empty for the management server.
  virtual void OnProbe(LOCATION_CRITERIA_TYPE /*kind*/, const std::wstring& /*text*/) {}
  virtual void OnProbeDone(LOCATION_CRITERIA_TYPE /*kind*/, const std::wstring& /*text*/, bool /*answer*/) {}

  virtual void OnLocationDone(const LocationCriteria& /*location*/, bool /*isCurrent*/) {}

 protected:
  MatchObserver() = default;
  MatchObserver(const MatchObserver&) = default;
  MatchObserver& operator=(const MatchObserver&) = default;
};

// For one snapshot of the adapters. What is handed to the constructor must outlive it.
class LocationMatcher {
 public:
  // After the first kind that fails an adapter, the rest is not tested; or, for reports, the kinds that cost nothing
  // still are, which changes no decision and calls no probe.
  enum class AfterFailure { kStop, kTestWhatCostsNothing };

  LocationMatcher(const std::vector<AdapterProps>& adapters, const LocationProbes& probes, MatchObserver& observer,
                  AfterFailure afterFailure = AfterFailure::kStop);

  // Appends the interface indexes of the adapters that match: each once and only when it is not listed yet, but all of
  // them where the location has no text criteria. They stay listed when the management server is not reachable.
  bool IsCurrent(const LocationCriteria& location, std::vector<std::uint32_t>& matchedAdapters);

  // Whether the adapter satisfies the kind for at least one of the values; false for no values, and for other kinds
  // than those of texts.
  bool Matches(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind, const std::vector<std::wstring>& values);

 private:
  bool MatchesAll(const AdapterProps& adapter, const LocationCriteria& location);
  const std::wstring* FindValue(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                                const std::vector<std::wstring>& values);
  template <typename Probe>
  bool Ask(LOCATION_CRITERIA_TYPE kind, const std::wstring& text, Probe probe);

  const std::vector<AdapterProps>& m_adapters;
  const LocationProbes& m_probes;
  MatchObserver& m_observer;
  const AfterFailure m_afterFailure;
  bool m_indexesDiffer;  // no two adapters have the same
  DnsSuffixMatcher m_dnsSuffixes;
};

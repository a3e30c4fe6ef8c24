// Whether a location is current, decided from what is handed in: no Windows, no service, no log.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"
#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"
#include "FwClient/Service/QeLaLib/Include/QeLaCriteria.h"

// The kinds whose criteria are texts: LCT_DNS_SUFFIX to LCT_DOMAIN_REACHABLE.
inline constexpr std::uint32_t kTextCriteriaKinds = 8;

// What a location asks for. The texts are the caller's, and stay while the matcher runs.
struct LocationCriteria {
  struct Kind {
    LOCATION_CRITERIA_TYPE kind;
    const std::vector<std::wstring>* values;  // at least one
  };

  LocationCriteria() {}  // NOLINT(modernize-use-equals-default,cppcoreguidelines-pro-type-member-init): kinds that are
                         // not there cost nothing

  // The kinds must come in their order; one without values sets no condition.
  void Add(LOCATION_CRITERIA_TYPE kind, const std::vector<std::wstring>& values) {
    if (!values.empty()) m_kinds[m_count++] = {kind, &values};
  }
  std::span<const Kind> TextKinds() const noexcept { return {m_kinds.data(), m_count}; }

  const std::wstring* name = nullptr;
  bool zeltReachable = false;

 private:
  std::array<Kind, kTextCriteriaKinds> m_kinds;
  std::size_t m_count = 0;
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

// The first of the values that an adapter shows of itself, for the kinds that cost nothing: LCT_DNS_SUFFIX to
// LCT_SECONDARY_WINS.
class AdapterCriteria {
 public:
  explicit AdapterCriteria(const std::vector<AdapterProps>& adapters);

  static bool Knows(LOCATION_CRITERIA_TYPE kind) noexcept { return kind < LCT_REGISTRY_KEY; }

  // The DNS suffixes that the next questions are about.
  void AskForSuffixes(const std::vector<std::wstring>& values);

  // Null when none agrees. `suffix` is the adapter's.
  const std::wstring* Find(const AdapterProps& adapter, const DnsLabels& suffix, LOCATION_CRITERIA_TYPE kind,
                           const std::vector<std::wstring>& values);

  // Of the adapters, in their order.
  const std::vector<DnsLabels>& Suffixes() const noexcept { return m_suffixes; }
  const std::vector<std::uint32_t>& Indexes() const noexcept { return m_indexes; }
  // An adapter without IPv4 has the index 0, as others of its kind have.
  bool DoIndexesDiffer() const noexcept { return m_doIndexesDiffer; }

 private:
  std::vector<std::uint32_t> m_indexes;
  bool m_doIndexesDiffer = true;
  std::vector<DnsLabels> m_suffixes;
  std::vector<DnsSuffixCriterion> m_suffixCriteria;  // in the order of the values; maybe more
  DnsSuffixMatcher m_suffixMatcher;
};

// After the first kind that fails an adapter, the rest is not tested; or, for reports, the kinds that cost nothing
// still are, which changes no decision and calls no probe.
enum class AfterFailure { kStop, kTestWhatCostsNothing };

// For one snapshot of the adapters. What is handed to the constructor must outlive it. The observer is bound when
// compiling: with virtual calls a calculation takes a tenth longer.
template <std::derived_from<MatchObserver> Observer>
class LocationMatcher {
 public:
  LocationMatcher(const std::vector<AdapterProps>& adapters, const LocationProbes& probes, Observer& observer,
                  AfterFailure afterFailure = AfterFailure::kStop)
      : m_adapters(adapters),
        m_probes(probes),
        m_observer(observer),
        m_afterFailure(afterFailure),
        m_adapterCriteria(adapters) {}

  // Appends the interface indexes of the adapters that match: each once and only when it is not listed yet, but all of
  // them where the location has no text criteria. They stay listed when the management server is not reachable.
  bool IsCurrent(const LocationCriteria& location, std::vector<std::uint32_t>& matchedAdapters) {
    m_observer.OnLocation(location);
    bool isCurrent = true;
    if (location.TextKinds().empty()) {
      m_observer.OnNoTextCriteria(location.zeltReachable ? 1 : 0, m_adapters);
      const std::vector<std::uint32_t>& all = m_adapterCriteria.Indexes();
      matchedAdapters.insert(matchedAdapters.end(), all.begin(), all.end());
    } else {
      isCurrent = AppendMatches(location, matchedAdapters);
      if (!isCurrent) m_observer.OnNoAdapterMatches();
    }
    // Asked only when the adapters would do.
    if (isCurrent && location.zeltReachable)
      isCurrent = Ask(LCT_ZELT_REACHABLE, {}, [this] { return m_probes.isManagementServerReachable(); });
    m_observer.OnLocationDone(location, isCurrent);
    return isCurrent;
  }

  // Whether the adapter satisfies the kind for at least one of the values; false for no values, and for other kinds
  // than those of texts.
  bool Matches(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind, const std::vector<std::wstring>& values) {
    if (kind == LCT_DNS_SUFFIX) m_adapterCriteria.AskForSuffixes(values);
    DnsLabels suffix;
    suffix.Assign(adapter.dnsSuffix);
    return MatchesKind(adapter, suffix, kind, values);
  }

 private:
  bool AppendMatches(const LocationCriteria& location, std::vector<std::uint32_t>& matchedAdapters) {
    const LocationCriteria::Kind& first = location.TextKinds().front();
    if (first.kind == LCT_DNS_SUFFIX) m_adapterCriteria.AskForSuffixes(*first.values);
    const bool mayBeListed = !m_adapterCriteria.DoIndexesDiffer() || !matchedAdapters.empty();
    bool anyMatches = false;
    for (std::size_t i = 0; i < m_adapters.size(); ++i) {
      const AdapterProps& adapter = m_adapters[i];
      m_observer.OnAdapter(adapter);
      const bool matches = MatchesAll(adapter, m_adapterCriteria.Suffixes()[i], location);
      m_observer.OnAdapterDone(adapter, matches);
      if (!matches) continue;
      anyMatches = true;
      if (!mayBeListed ||
          std::find(matchedAdapters.begin(), matchedAdapters.end(), adapter.ifIndex) == matchedAdapters.end())
        matchedAdapters.push_back(adapter.ifIndex);
    }
    return anyMatches;
  }

  // In the order of kinds: the cheap ones first, the registry next and the network last, so that most adapters fail
  // before a probe. The last two do not depend on the adapter, and are yet asked for each that gets there.
  bool MatchesAll(const AdapterProps& adapter, const DnsLabels& suffix, const LocationCriteria& location) {
    bool all = true;
    for (const auto& [kind, values] : location.TextKinds()) {
      if (all || (m_afterFailure == AfterFailure::kTestWhatCostsNothing && AdapterCriteria::Knows(kind)))
        all = MatchesKind(adapter, suffix, kind, *values) && all;
      else
        m_observer.OnKindNotReached(adapter, kind, *values);
    }
    return all;
  }

  bool MatchesKind(const AdapterProps& adapter, const DnsLabels& suffix, LOCATION_CRITERIA_TYPE kind,
                   const std::vector<std::wstring>& values) {
    const std::wstring* const value = AdapterCriteria::Knows(kind)
                                          ? m_adapterCriteria.Find(adapter, suffix, kind, values)
                                          : FindByProbe(kind, values);
    if (value != nullptr)
      m_observer.OnKindHeld(adapter, kind, values, *value);
    else
      m_observer.OnKindFailed(adapter, kind, values);
    return value != nullptr;
  }

  const std::wstring* FindByProbe(LOCATION_CRITERIA_TYPE kind, const std::vector<std::wstring>& values) {
    if (kind != LCT_REGISTRY_KEY && kind != LCT_DOMAIN_REACHABLE) return nullptr;
    const auto& probe = kind == LCT_REGISTRY_KEY ? m_probes.isRegistryKeyCriterionMet : m_probes.isDomainReachable;
    const auto value = std::find_if(values.begin(), values.end(), [&](const std::wstring& text) {
      return Ask(kind, text, [&] { return probe(text); });
    });
    return value != values.end() ? &*value : nullptr;
  }

  template <typename Probe>
  bool Ask(LOCATION_CRITERIA_TYPE kind, const std::wstring& text, Probe probe) {
    m_observer.OnProbe(kind, text);
    const bool answer = probe();
    m_observer.OnProbeDone(kind, text, answer);
    return answer;
  }

  const std::vector<AdapterProps>& m_adapters;
  const LocationProbes& m_probes;
  Observer& m_observer;
  const AfterFailure m_afterFailure;
  AdapterCriteria m_adapterCriteria;
};

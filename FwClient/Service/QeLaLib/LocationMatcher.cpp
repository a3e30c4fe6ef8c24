#include "FwClient/Service/QeLaLib/LocationMatcher.h"

#include <algorithm>

namespace {

// The registry, and the network most of all, may take their time.
bool CostsNothing(LOCATION_CRITERIA_TYPE kind) { return kind < LCT_REGISTRY_KEY; }

const std::wstring* FindIn(const std::vector<std::wstring>& values, const std::vector<std::wstring>& entries) {
  const auto value = std::find_first_of(values.begin(), values.end(), entries.begin(), entries.end());
  return value != values.end() ? &*value : nullptr;
}

template <typename Predicate>
const std::wstring* FindIf(const std::vector<std::wstring>& values, Predicate predicate) {
  const auto value = std::find_if(values.begin(), values.end(), predicate);
  return value != values.end() ? &*value : nullptr;
}

}  // namespace

LocationMatcher::LocationMatcher(const std::vector<AdapterProps>& adapters, const LocationProbes& probes,
                                 MatchObserver& observer, AfterFailure afterFailure)
    : m_adapters(adapters), m_probes(probes), m_observer(observer), m_afterFailure(afterFailure) {
  std::vector<std::uint32_t> indexes;
  indexes.reserve(adapters.size());
  for (const AdapterProps& adapter : adapters) indexes.push_back(adapter.ifIndex);
  std::sort(indexes.begin(), indexes.end());
  m_indexesDiffer = std::adjacent_find(indexes.begin(), indexes.end()) == indexes.end();
}

bool LocationMatcher::IsCurrent(const LocationCriteria& location, std::vector<std::uint32_t>& matchedAdapters) {
  m_observer.OnLocation(location);
  std::size_t criteria = location.zeltReachable ? 1 : 0;
  for (const std::vector<std::wstring>* list : location.lists) criteria += list->size();

  bool isCurrent = true;
  if (criteria == (location.zeltReachable ? 1u : 0u)) {
    m_observer.OnNoTextCriteria(criteria, m_adapters);
    for (const AdapterProps& adapter : m_adapters) matchedAdapters.push_back(adapter.ifIndex);
  } else {
    // An adapter without IPv4 has the index 0, as others of its kind have.
    const bool mayBeListed = !m_indexesDiffer || !matchedAdapters.empty();
    isCurrent = false;
    for (const AdapterProps& adapter : m_adapters) {
      m_observer.OnAdapter(adapter);
      const bool matched = MatchesAll(adapter, location);
      m_observer.OnAdapterDone(adapter, matched);
      if (!matched) continue;
      isCurrent = true;
      if (!mayBeListed ||
          std::find(matchedAdapters.begin(), matchedAdapters.end(), adapter.ifIndex) == matchedAdapters.end())
        matchedAdapters.push_back(adapter.ifIndex);
    }
    if (!isCurrent) m_observer.OnNoAdapterMatches();
  }
  // Asked only when the adapters would do.
  if (isCurrent && location.zeltReachable)
    isCurrent = Ask(LCT_ZELT_REACHABLE, {}, [this] { return m_probes.isManagementServerReachable(); });
  m_observer.OnLocationDone(location, isCurrent);
  return isCurrent;
}

// In the order of kinds: the cheap ones first, the registry next and the network last, so that most adapters fail
// before a probe. The last two do not depend on the adapter, and are yet asked for each that gets there.
bool LocationMatcher::MatchesAll(const AdapterProps& adapter, const LocationCriteria& location) {
  bool all = true;
  for (std::uint32_t number = 0; number < kTextCriteriaKinds; ++number) {
    const auto kind = static_cast<LOCATION_CRITERIA_TYPE>(number);
    const std::vector<std::wstring>& values = *location.lists[number];
    if (values.empty()) continue;  // an empty list sets no condition
    if (all || (m_afterFailure == AfterFailure::kTestWhatCostsNothing && CostsNothing(kind)))
      all = Matches(adapter, kind, values) && all;
    else
      m_observer.OnKindNotReached(adapter, kind, values);
  }
  return all;
}

bool LocationMatcher::Matches(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                              const std::vector<std::wstring>& values) {
  const std::wstring* const value = FindValue(adapter, kind, values);
  if (value != nullptr)
    m_observer.OnKindHeld(adapter, kind, values, *value);
  else
    m_observer.OnKindFailed(adapter, kind, values);
  return value != nullptr;
}

// The values are tried in their order. Addresses are compared as texts: both sides were brought to one spelling when
// they were stored.
const std::wstring* LocationMatcher::FindValue(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                                               const std::vector<std::wstring>& values) {
  const auto equals = [&](const std::wstring& text) {
    return FindIf(values, [&](const std::wstring& value) { return value == text; });
  };
  switch (kind) {
    case LCT_DNS_SUFFIX:
      return FindIf(values, [&](const std::wstring& value) { return m_dnsSuffixes.Matches(value, adapter.dnsSuffix); });
    case LCT_DEFAULT_GATEWAY:
      return FindIn(values, adapter.gateways);
    case LCT_DHCP_SERVER:
      return FindIf(values, [&](const std::wstring& value) {
        return value == adapter.dhcpServer || value == adapter.dhcpV6Server;
      });
    case LCT_DNS_SERVER:
      return FindIn(values, adapter.dnsServers);
    case LCT_PRIMARY_WINS:
      return equals(adapter.winsPrimary);
    case LCT_SECONDARY_WINS:
      return equals(adapter.winsSecondary);
    case LCT_REGISTRY_KEY:
      return FindIf(values, [&](const std::wstring& value) {
        return Ask(kind, value, [&] { return m_probes.isRegistryKeyCriterionMet(value); });
      });
    case LCT_DOMAIN_REACHABLE:
      return FindIf(values, [&](const std::wstring& value) {
        return Ask(kind, value, [&] { return m_probes.isDomainReachable(value); });
      });
    case LCT_ZELT_REACHABLE:
      break;
  }
  return nullptr;
}

template <typename Probe>
bool LocationMatcher::Ask(LOCATION_CRITERIA_TYPE kind, const std::wstring& text, Probe probe) {
  m_observer.OnProbe(kind, text);
  const bool answer = probe();
  m_observer.OnProbeDone(kind, text, answer);
  return answer;
}

// Whether one location is current.
#include <algorithm>
#include <array>
#include <string>

#include "FwClient/Service/QeLaLib/LaLog.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"

namespace {

constexpr std::uint32_t kTextKinds = CQeLocationCriterias::kTextKinds;

// A location's criteria, copied once for all adapters.
struct Criteria {
  explicit Criteria(const _IQeLocation& location) {
    const auto criterias = location.GetCriterias();
    if (criterias == nullptr) return;
    for (std::uint32_t kind = 0; kind < kTextKinds; ++kind) {
      criterias->GetStringCriteria(static_cast<LOCATION_CRITERIA_TYPE>(kind), lists[kind]);
      count += lists[kind].size();
    }
    criterias->GetBoolCriteria(LCT_ZELT_REACHABLE, zeltReachable);
    if (zeltReachable) ++count;
  }

  std::array<std::vector<std::wstring>, kTextKinds> lists;
  bool zeltReachable = false;
  std::size_t count = 0;
};

bool CheckAndLogZeltReachability() {
  const bool reachable = CheckZeltReachability();
  if (reachable)
    LA_LOG(kLogInfo, L"CheckZeltReachability succeeded");
  else
    LA_LOG(kLogInfo, L"CheckZeltReachability failed");
  return reachable;
}

// The first entry that equals one of the values, which are tried in their order; null when none does.
const std::wstring* FindAny(const std::vector<std::wstring>& values, const std::vector<std::wstring>& entries) {
  const auto value = std::find_first_of(values.begin(), values.end(), entries.begin(), entries.end());
  return value != values.end() ? &*value : nullptr;
}

bool Contains(const std::vector<std::wstring>& values, const std::wstring& text) {
  return std::find(values.begin(), values.end(), text) != values.end();
}

}  // namespace

bool CQeLaLib::MatchAdapterCriteria(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                                    const std::vector<std::wstring>& values) {
  const std::uint32_t index = adapter.ifIndex;
  const wchar_t* const description = adapter.description.c_str();
  // Addresses are compared as texts: both sides were brought to one spelling when they were stored.
  switch (kind) {
    case LCT_DNS_SUFFIX: {
      const auto value = std::find_if(values.begin(), values.end(), [&](const std::wstring& candidate) {
        return m_dnsSuffixes.Matches(candidate, adapter.dnsSuffix);
      });
      if (value == values.end()) return false;
      LA_LOG(kLogInfo, L"Location: DNS suffix : %s matched for adapter with index %d and description %s.",
             value->c_str(), index, description);
      return true;
    }
    case LCT_DEFAULT_GATEWAY: {
      const std::wstring* gateway = FindAny(values, adapter.gateways);
      if (gateway == nullptr) return false;
      LA_LOG(kLogInfo, L"Location: Default gateway : %s matched for adapter with index %d and description %s.",
             gateway->c_str(), index, description);
      return true;
    }
    case LCT_DHCP_SERVER:
      if (!Contains(values, adapter.dhcpServer) && !Contains(values, adapter.dhcpV6Server)) return false;
      // Names the DHCPv4 server also when the DHCPv6 one matched. Kept on purpose; guarded by
      // LocationMatching.DhcpV6MatchLogsTheDhcpV4Server.
      LA_LOG(kLogInfo, L"Location: DHCP server : %s matched for adapter with index %d and description %s.",
             adapter.dhcpServer.c_str(), index, description);
      return true;
    case LCT_DNS_SERVER: {
      const std::wstring* server = FindAny(values, adapter.dnsServers);
      if (server == nullptr) return false;
      LA_LOG(kLogInfo, L"Location: DNS server : %s matched for adapter with index %d and description %s.",
             server->c_str(), index, description);
      return true;
    }
    case LCT_PRIMARY_WINS:
      if (!Contains(values, adapter.winsPrimary)) return false;
      LA_LOG(kLogInfo, L"Location: Primary WINS : %s matched for adapter with index %d and description %s.",
             adapter.winsPrimary.c_str(), index, description);
      return true;
    case LCT_SECONDARY_WINS:
      if (!Contains(values, adapter.winsSecondary)) return false;
      // Names the primary server. Kept on purpose; guarded by LocationMatching.SecondaryWinsMatchLogsThePrimaryServer.
      LA_LOG(kLogInfo, L"Location: Secondary WINS : %s matched for adapter with index %d and description %s.",
             adapter.winsPrimary.c_str(), index, description);
      return true;
    case LCT_REGISTRY_KEY:
      if (std::none_of(values.begin(), values.end(),
                       [](const std::wstring& text) { return IsRegistryKeyCriterionMet(text) != 0; }))
        return false;
      LA_LOG(kLogInfo, L"Location: Registry key matched for adapter with index %d and description %s.", index,
             description);
      return true;
    case LCT_DOMAIN_REACHABLE:
      if (std::none_of(values.begin(), values.end(), IsDomainReachable)) return false;
      LA_LOG(kLogInfo, L"Location: Domain reachable test passed for adapter with index %d and description %s.", index,
             description);
      return true;
    case LCT_ZELT_REACHABLE:
      break;
  }
  return false;
}

std::uint32_t CQeLaLib::IsCurrentLocation(const _IQeLocation& location, std::vector<std::uint32_t>& matchedAdapters) {
  return IsCurrentLocation(location, std::vector<AdapterProps>(m_adapters), matchedAdapters);
}

std::uint32_t CQeLaLib::IsCurrentLocation(const _IQeLocation& location, const std::vector<AdapterProps>& adapters,
                                          std::vector<std::uint32_t>& matchedAdapters) {
  LA_LOG(kLogInfo, L"IsCurrentLocation checking location %s", location.GetName().c_str());
  const Criteria criteria(location);
  LA_LOG(kLogInfo, L"IsCurrentLocation bZeltReachabilityCriteria %d", static_cast<int>(criteria.zeltReachable));

  std::uint32_t result = 0;
  if (criteria.count == (criteria.zeltReachable ? 1u : 0u)) {
    // Nothing to test an adapter against: every adapter matches.
    LA_LOG(kLogInfo, L"IsCurrentLocation criteria count is %d", static_cast<int>(criteria.count));
    for (const AdapterProps& adapter : adapters) matchedAdapters.push_back(adapter.ifIndex);
    result = 1;
  } else {
    std::vector<std::uint32_t> matches;
    for (const AdapterProps& adapter : adapters) {
      const std::uint32_t index = adapter.ifIndex;
      const wchar_t* const description = adapter.description.c_str();
      LA_LOG(kLogInfo,
             L"Matching all the location criterias with the properties of adapter with index %d and description %s.",
             index, description);
      // In the order of kinds: the cheap ones first, the registry next and the network last, so that most adapters fail
      // before a probe. The last two do not depend on the adapter, and are yet asked for each that gets there.
      bool matched = true;
      for (std::uint32_t kind = 0; matched && kind < kTextKinds; ++kind)
        if (!criteria.lists[kind].empty())  // an empty list sets no condition
          matched = MatchAdapterCriteria(adapter, static_cast<LOCATION_CRITERIA_TYPE>(kind), criteria.lists[kind]);
      if (matched) {
        LA_LOG(kLogInfo,
               L"All the criteria's given in location matches adapter index %d with description %s. Hence this adapter "
               L"will be matching.",
               index, description);
        matches.push_back(index);
      } else {
        LA_LOG(kLogInfo,
               L"Not all the criteria's given in the location matches the adapter with index %d and description %s. "
               L"Hence this adapter will be non-matching.",
               index, description);
      }
    }
    if (matches.empty())
      LA_LOG(kLogInfo,
             L"None of the available network adapter properties matches all the criteria's given in the location");
    else
      result = 1;
    for (const std::uint32_t index : matches)
      if (std::find(matchedAdapters.begin(), matchedAdapters.end(), index) == matchedAdapters.end())
        matchedAdapters.push_back(index);
  }
  // Asked only when the adapters would do. The matched adapters stay listed even when the server is not reachable.
  if (result != 0 && criteria.zeltReachable) result = CheckAndLogZeltReachability() ? 1 : 0;

  // The one narrow format, hence %S for the wide name.
  LA_LOG(kLogInfo, "IsCurrentLocation returning matched criterias %d for location %S...", static_cast<int>(result),
         location.GetName().c_str());
  return result;
}

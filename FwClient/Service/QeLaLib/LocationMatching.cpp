#include "FwClient/Service/QeLaLib/LocationMatching.h"

#include "FwClient/Common/Utilities/FwLog.h"

void MatchLog::OnLocation(const LocationCriteria& location) {
  FW_LOG(kLogInfo, L"IsCurrentLocation checking location %s", location.name->c_str());
  FW_LOG(kLogInfo, L"IsCurrentLocation bZeltReachabilityCriteria %d", static_cast<int>(location.zeltReachable));
}

void MatchLog::OnNoTextCriteria(std::size_t criteria, const std::vector<AdapterProps>&) {
  FW_LOG(kLogInfo, L"IsCurrentLocation criteria count is %d", static_cast<int>(criteria));
}

void MatchLog::OnAdapter(const AdapterProps& adapter) {
  FW_LOG(kLogInfo,
         L"Matching all the location criterias with the properties of adapter with index %d and description %s.",
         adapter.ifIndex, adapter.description.c_str());
}

void MatchLog::OnKindHeld(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind, const std::vector<std::wstring>&,
                          const std::wstring& value) {
  const std::uint32_t index = adapter.ifIndex;
  const wchar_t* const description = adapter.description.c_str();
  switch (kind) {
    case LCT_DNS_SUFFIX:
      FW_LOG(kLogInfo, L"Location: DNS suffix : %s matched for adapter with index %d and description %s.",
             value.c_str(), index, description);
      break;
    case LCT_DEFAULT_GATEWAY:
      FW_LOG(kLogInfo, L"Location: Default gateway : %s matched for adapter with index %d and description %s.",
             value.c_str(), index, description);
      break;
    case LCT_DHCP_SERVER:
      // Names the DHCPv4 server also when the DHCPv6 one matched. Kept on purpose; guarded by
      // LocationMatching.DhcpV6MatchLogsTheDhcpV4Server.
      FW_LOG(kLogInfo, L"Location: DHCP server : %s matched for adapter with index %d and description %s.",
             adapter.dhcpServer.c_str(), index, description);
      break;
    case LCT_DNS_SERVER:
      FW_LOG(kLogInfo, L"Location: DNS server : %s matched for adapter with index %d and description %s.",
             value.c_str(), index, description);
      break;
    case LCT_PRIMARY_WINS:
      FW_LOG(kLogInfo, L"Location: Primary WINS : %s matched for adapter with index %d and description %s.",
             adapter.winsPrimary.c_str(), index, description);
      break;
    case LCT_SECONDARY_WINS:
      // Names the primary server. Kept on purpose; guarded by LocationMatching.SecondaryWinsMatchLogsThePrimaryServer.
      FW_LOG(kLogInfo, L"Location: Secondary WINS : %s matched for adapter with index %d and description %s.",
             adapter.winsPrimary.c_str(), index, description);
      break;
    case LCT_REGISTRY_KEY:
      FW_LOG(kLogInfo, L"Location: Registry key matched for adapter with index %d and description %s.", index,
             description);
      break;
    case LCT_DOMAIN_REACHABLE:
      FW_LOG(kLogInfo, L"Location: Domain reachable test passed for adapter with index %d and description %s.", index,
             description);
      break;
    case LCT_ZELT_REACHABLE:
      break;
  }
}

void MatchLog::OnAdapterDone(const AdapterProps& adapter, bool matches) {
  if (matches)
    FW_LOG(kLogInfo,
           L"All the criteria's given in location matches adapter index %d with description %s. Hence this adapter "
           L"will be matching.",
           adapter.ifIndex, adapter.description.c_str());
  else
    FW_LOG(kLogInfo,
           L"Not all the criteria's given in the location matches the adapter with index %d and description %s. "
           L"Hence this adapter will be non-matching.",
           adapter.ifIndex, adapter.description.c_str());
}

void MatchLog::OnNoAdapterMatches() {
  FW_LOG(kLogInfo,
         L"None of the available network adapter properties matches all the criteria's given in the location");
}

void MatchLog::OnProbeDone(LOCATION_CRITERIA_TYPE kind, const std::wstring&, bool answer) {
  if (kind != LCT_ZELT_REACHABLE) return;
  if (answer)
    FW_LOG(kLogInfo, L"CheckZeltReachability succeeded");
  else
    FW_LOG(kLogInfo, L"CheckZeltReachability failed");
}

void MatchLog::OnLocationDone(const LocationCriteria& location, bool isCurrent) {
  // The one narrow format, hence %S for the wide name.
  FW_LOG(kLogInfo, "IsCurrentLocation returning matched criterias %d for location %S...", static_cast<int>(isCurrent),
         location.name->c_str());
}

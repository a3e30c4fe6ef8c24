#include "Json.h"

#include "Text.h"

namespace {

Json Texts(const std::vector<std::wstring>& texts) {
  Json array = Json::array();
  for (const std::wstring& text : texts) array.push_back(ToUtf8(text));
  return array;
}

}  // namespace

std::string ToLine(const Json& json) { return json.dump() + "\n"; }

Json LocationReference(const _IQeLocation& location, const std::vector<ReportedAdapter>& adapters) {
  std::vector<std::uint32_t> indexes;
  location.GetAdapterIndexes(indexes);
  Json matched = Json::array();
  for (const std::uint32_t index : indexes)
    matched.push_back({{"index", index}, {"description", ToUtf8(DescriptionOf(adapters, index))}});
  return {{"id", ToUtf8(location.GetId())}, {"name", ToUtf8(location.GetName())}, {"adapters", matched}};
}

Json LocationReferences(const Locations& locations, const std::vector<ReportedAdapter>& adapters) {
  Json array = Json::array();
  for (const auto& location : locations) array.push_back(LocationReference(*location, adapters));
  return array;
}

std::string MatchText(bool match, bool json) {
  return json ? ToLine({{"match", match}}) : match ? "match\n" : "no match\n";
}

Json CriteriaDetails(const _IQeLocation& location) {
  const auto set = location.GetCriterias();
  const auto texts = [&](LOCATION_CRITERIA_TYPE kind) {
    std::vector<std::wstring> values;
    set->GetStringCriteria(kind, values);
    return Texts(values);
  };
  bool managementServer = false;
  set->GetBoolCriteria(LCT_ZELT_REACHABLE, managementServer);
  return {{"dnsSuffixes", texts(LCT_DNS_SUFFIX)},   {"gateways", texts(LCT_DEFAULT_GATEWAY)},
          {"dhcpServers", texts(LCT_DHCP_SERVER)},  {"dnsServers", texts(LCT_DNS_SERVER)},
          {"primaryWins", texts(LCT_PRIMARY_WINS)}, {"secondaryWins", texts(LCT_SECONDARY_WINS)},
          {"registry", texts(LCT_REGISTRY_KEY)},    {"httpsHosts", texts(LCT_DOMAIN_REACHABLE)},
          {"managementServer", managementServer}};
}

Json LocationDetails(const _IQeLocation& location, bool current) {
  return {{"id", ToUtf8(location.GetId())},
          {"name", ToUtf8(location.GetName())},
          {"enabled", location.IsEnabled()},
          {"note", ToUtf8(location.GetNote())},
          {"current", current},
          {"criteria", CriteriaDetails(location)}};
}

Json AdapterDetails(const ReportedAdapter& adapter, const std::string& media) {
  return {{"index", adapter.index},
          {"description", ToUtf8(adapter.description)},
          {"media", media},
          {"ipAddresses", Texts(adapter.ipAddresses)},
          {"gateways", Texts(adapter.gateways)},
          {"dhcpEnabled", adapter.dhcpEnabled},
          {"dhcpServer", ToUtf8(adapter.dhcpServer)},
          {"dhcpV6Server", ToUtf8(adapter.dhcpV6Server)},
          {"dnsSuffix", ToUtf8(adapter.dnsSuffix)},
          {"dnsServers", Texts(adapter.dnsServers)},
          {"winsPrimary", ToUtf8(adapter.winsPrimary)},
          {"winsSecondary", ToUtf8(adapter.winsSecondary)}};
}

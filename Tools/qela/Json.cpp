#include "Json.h"

#include "AdapterView.h"
#include "CriterionKinds.h"
#include "Text.h"

Json Texts(const std::vector<std::wstring>& texts) {
  Json array = Json::array();
  for (const std::wstring& text : texts) array.push_back(ToUtf8(text));
  return array;
}

std::string ToLine(const Json& json) {
  Json line = {{"schema", 1}};
  line.update(json);
  return line.dump() + "\n";
}

Json LocationReference(const _IQeLocation& location, const std::vector<AdapterProps>& adapters) {
  std::vector<std::uint32_t> indexes;
  location.GetAdapterIndexes(indexes);
  Json matched = Json::array();
  for (const std::uint32_t index : indexes)
    matched.push_back({{"index", index}, {"description", ToUtf8(DescriptionOf(adapters, index))}});
  return {{"id", ToUtf8(location.GetId())}, {"name", ToUtf8(location.GetName())}, {"adapters", matched}};
}

Json LocationReferences(const Locations& locations, const std::vector<AdapterProps>& adapters) {
  Json array = Json::array();
  for (const auto& location : locations) array.push_back(LocationReference(*location, adapters));
  return array;
}

std::string MatchText(bool match, bool json) {
  return json ? ToLine({{"match", match}}) : match ? "match\n" : "no match\n";
}

Json CriteriaDetails(const _IQeLocation& location) {
  const auto set = location.GetCriterias();
  Json details = Json::object();
  for (const CriterionKind& kind : kCriterionKinds) {
    std::vector<std::wstring> values;
    set->GetStringCriteria(kind.kind, values);
    details[kind.member] = Texts(values);
  }
  bool managementServer = false;
  set->GetBoolCriteria(LCT_ZELT_REACHABLE, managementServer);
  details["managementServer"] = managementServer;
  return details;
}

Json LocationDetails(const _IQeLocation& location) {
  return {{"id", ToUtf8(location.GetId())},
          {"name", ToUtf8(location.GetName())},
          {"enabled", location.IsEnabled()},
          {"note", ToUtf8(location.GetNote())},
          {"criteria", CriteriaDetails(location)}};
}

Json AdapterDetails(const AdapterProps& adapter) {
  return {{"index", adapter.ifIndex},
          {"description", ToUtf8(adapter.description)},
          {"media", MediaName(adapter)},
          {"macAddresses", Texts(adapter.macAddresses)},
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

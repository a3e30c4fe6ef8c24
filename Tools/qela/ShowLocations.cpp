#include <algorithm>
#include <iterator>

#include "Commands.h"
#include "Json.h"
#include "LocationText.h"
#include "Output.h"
#include "Service.h"
#include "Text.h"

namespace {

constexpr struct {
  LOCATION_CRITERIA_TYPE kind;
  const char* option;
} kTextCriteria[] = {
    {LCT_DNS_SUFFIX, "--dns-suffix"}, {LCT_DEFAULT_GATEWAY, "--gateway"},     {LCT_DHCP_SERVER, "--dhcp-server"},
    {LCT_DNS_SERVER, "--dns-server"}, {LCT_PRIMARY_WINS, "--primary-wins"},   {LCT_SECONDARY_WINS, "--secondary-wins"},
    {LCT_REGISTRY_KEY, "--registry"}, {LCT_DOMAIN_REACHABLE, "--https-host"},
};

// One line a criterion, as the option that adds it.
std::string CriteriaLines(const _IQeLocation& location) {
  std::string text;
  const auto criteria = location.GetCriterias();
  for (const auto& [kind, option] : kTextCriteria) {
    std::vector<std::wstring> values;
    criteria->GetStringCriteria(kind, values);
    for (const std::wstring& value : values)
      text +=
          "  " + std::string(option) + std::string(18 - std::string_view(option).size(), ' ') + Printable(value) + "\n";
  }
  bool managementServer = false;
  if (criteria->GetBoolCriteria(LCT_ZELT_REACHABLE, managementServer) && managementServer)
    text += "  --management-server\n";
  if (criteria->GetCount() == 0) text += "  no criteria: current everywhere while enabled\n";
  return text;
}

std::string Describe(const _IQeLocation& location, bool current) {
  std::string text = Printable(location.GetName());
  if (!location.IsEnabled()) text += " (disabled)";
  if (current) text += " (current)";
  text += "\n  id                " + Printable(location.GetId()) + "\n";
  if (!location.GetNote().empty()) text += "  note              " + Printable(location.GetNote()) + "\n";
  return text + CriteriaLines(location);
}

}  // namespace

void ShowLocations(const Options& options) {
  Service service(options.verbose);
  service.RequireReadableSet();
  const auto current = service.Api().GetCurrentLocations();
  Json list = Json::array();
  std::string text;
  for (const auto& location : ToVector(*service.Api().GetLocations())) {
    const bool isCurrent = current->FindLocation(location->GetId()) != nullptr;
    if (options.json)
      list.push_back(LocationDetails(*location, isCurrent));
    else
      text += (text.empty() ? "" : "\n") + Describe(*location, isCurrent);
  }
  if (options.json) {
    text = ToLine({{"locations", std::move(list)}});
  } else if (text.empty()) {
    text = "No location is stored.\n";
  }
  Print(text);
}

void ShowCurrent(const Options& options) {
  Service service(options.verbose);
  service.RequireReadableSet();
  const Locations current = ToVector(*service.Api().GetCurrentLocations());
  const std::vector<ReportedAdapter> adapters = service.Report().Adapters();
  Json list = Json::array();
  std::string text;
  for (const auto& location : current) {
    if (options.json)
      list.emplace_back(LocationReference(*location, adapters)).emplace("criteria", CriteriaDetails(*location));
    else
      text += LocationText(*location, adapters) + "\n" + CriteriaLines(*location);
  }
  if (options.json)
    text = ToLine({{"current", std::move(list)}});
  else if (text.empty())
    text = "No location is current.\n";
  Print(text);
}

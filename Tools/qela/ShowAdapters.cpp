#include <algorithm>

#include "AdapterView.h"
#include "Commands.h"
#include "FwClient/Service/QeLaLib/AdapterQueries.h"
#include "Json.h"
#include "LocationText.h"
#include "Output.h"
#include "Text.h"

namespace {

std::string Lines(const char* label, const std::vector<std::wstring>& values) {
  std::string lines;
  for (const std::wstring& value : values) lines += LabelledLine(label, value);
  return lines;
}

// What a criterion can name stands behind its option, ready to be copied.
std::string Describe(const AdapterProps& adapter) {
  return "adapter " + std::to_string(adapter.ifIndex) + ": " + Printable(adapter.description) + " (" +
         MediaName(adapter) + ", DHCP " + (adapter.dhcpEnabled ? "on" : "off") + ")\n" +
         Lines("address", adapter.ipAddresses) + Lines("--gateway", adapter.gateways) +
         LabelledLine("--dns-suffix", adapter.dnsSuffix) + Lines("--dns-server", adapter.dnsServers) +
         LabelledLine("--dhcp-server", adapter.dhcpServer) + LabelledLine("--dhcp-server", adapter.dhcpV6Server) +
         LabelledLine("--primary-wins", adapter.winsPrimary) + LabelledLine("--secondary-wins", adapter.winsSecondary);
}

}  // namespace

ExitCode ShowAdapters(const Options& options) {
  const SharedAdapters adapters = TakeAdapters();
  const std::vector<std::wstring> macAddresses = CollectMacAddresses(*adapters);
  std::string text;
  if (options.json) {
    Json list = Json::array();
    for (const AdapterProps& adapter : *adapters) list.push_back(AdapterDetails(adapter));
    text = ToLine({{"adapters", std::move(list)}, {"macAddresses", Texts(macAddresses)}});
  } else {
    for (const AdapterProps& adapter : *adapters) text += Describe(adapter) + "\n";
    if (adapters->empty()) text = "No network adapter is up.\n";
    for (const std::wstring& address : macAddresses) text += "physical address    " + Printable(address) + "\n";
  }
  Print(text);
  return kDone;
}

ExitCode ShowMacs(const Options& options) {
  const std::vector<std::wstring> macAddresses = CollectMacAddresses(*TakeAdapters());
  std::string text;
  for (const std::wstring& address : macAddresses) text += Printable(address) + "\n";
  if (macAddresses.empty()) text = "No network adapter that is up has a physical address.\n";
  Print(options.json ? ToLine({{"macAddresses", Texts(macAddresses)}}) : text);
  return kDone;
}

ExitCode ShowMedia(const Options& options) {
  const SharedAdapters adapters = TakeAdapters();
  if (options.mediaMask != 0) {
    std::vector<std::uint32_t> indexes = options.indexes;
    if (indexes.empty())
      for (const AdapterProps& adapter : *adapters) indexes.push_back(adapter.ifIndex);
    const bool match = IsAnyAdapterOfMediaType(*adapters, options.mediaMask, indexes);
    Print(MatchText(match, options.json));
    return match ? kDone : kNo;
  }
  std::string text;
  Json list = Json::array();
  for (const AdapterProps& adapter : *adapters) {
    text += std::to_string(adapter.ifIndex) + " " + MediaName(adapter) + " " + Printable(adapter.description) + "\n";
    list.push_back(
        {{"index", adapter.ifIndex}, {"description", ToUtf8(adapter.description)}, {"media", MediaName(adapter)}});
  }
  if (adapters->empty()) text = "No network adapter is up.\n";
  Print(options.json ? ToLine({{"adapters", std::move(list)}}) : text);
  return kDone;
}

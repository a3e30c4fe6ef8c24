#include "CommandError.h"
#include "Commands.h"
#include "Json.h"
#include "Media.h"
#include "Output.h"
#include "Service.h"
#include "Text.h"

namespace {

std::string Line(const std::string& label, const std::wstring& value) {
  return value.empty() ? "" : "  " + label + std::string(18 - label.size(), ' ') + Printable(value) + "\n";
}

std::string Lines(const std::string& label, const std::vector<std::wstring>& values) {
  std::string lines;
  for (const std::wstring& value : values) lines += Line(label, value);
  return lines;
}

// What a criterion can name stands behind its option, ready to be copied.
std::string Describe(const ReportedAdapter& adapter, const std::string& media) {
  return "adapter " + std::to_string(adapter.index) + ": " + Printable(adapter.description) + " (" + media + ", DHCP " +
         (adapter.dhcpEnabled ? "on" : "off") + ")\n" + Lines("address", adapter.ipAddresses) +
         Lines("--gateway", adapter.gateways) + Line("--dns-suffix", adapter.dnsSuffix) +
         Lines("--dns-server", adapter.dnsServers) + Line("--dhcp-server", adapter.dhcpServer) +
         Line("--dhcp-server", adapter.dhcpV6Server) + Line("--primary-wins", adapter.winsPrimary) +
         Line("--secondary-wins", adapter.winsSecondary);
}

}  // namespace

void ShowAdapters(const Options& options) {
  const Service service(options.verbose);
  const std::vector<ReportedAdapter> adapters = service.Report().Adapters();
  const std::vector<std::wstring> macAddresses = service.Api().GetMacAddresses();
  std::string text;
  if (options.json) {
    Json json = {{"adapters", Json::array()}, {"macAddresses", Json::array()}};
    for (const ReportedAdapter& adapter : adapters)
      json["adapters"].push_back(AdapterDetails(adapter, MediaOf(service.Api(), adapter.index)));
    for (const std::wstring& address : macAddresses) json["macAddresses"].push_back(ToUtf8(address));
    text = ToLine(json);
  } else {
    for (const ReportedAdapter& adapter : adapters)
      text += Describe(adapter, MediaOf(service.Api(), adapter.index)) + "\n";
    if (adapters.empty()) text = "No network adapter is up.\n";
    for (const std::wstring& address : macAddresses) text += "physical address    " + Printable(address) + "\n";
  }
  Print(text);
  if (const std::size_t unreadable = service.Report().Unreadable(); unreadable != 0)
    throw CommandError(kFailed, "the library's report of " + std::to_string(unreadable) +
                                    " adapter(s) could not be read; --verbose shows it");
}

void ShowMacs(const Options& options) {
  const Service service(options.verbose);
  const std::vector<std::wstring> macAddresses = service.Api().GetMacAddresses();
  std::string text;
  Json json = {{"macAddresses", Json::array()}};
  for (const std::wstring& address : macAddresses) {
    text += Printable(address) + "\n";
    json["macAddresses"].push_back(ToUtf8(address));
  }
  if (macAddresses.empty()) text = "No network adapter that is up has a physical address.\n";
  Print(options.json ? ToLine(json) : text);
}

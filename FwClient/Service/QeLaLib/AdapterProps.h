// One network adapter as the matcher sees it, and its rendering for the log.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"

// Every address is text as inet_ntop spells it, since matching is a comparison of texts. A criterion is compared as it
// was written (CriteriaValue.h respells mapped IPv6 addresses only), so an address in another spelling never matches.
struct AdapterProps {
  std::uint32_t ifIndex = 0;
  AdapterMediaType mediaType{};
  std::wstring description;            // as the system gives it
  std::vector<std::wstring> gateways;  // in the system's order, as all lists here; no empty texts
  bool dhcpEnabled = false;
  std::wstring dhcpServer;    // only when dhcpEnabled
  std::wstring dhcpV6Server;  // only when dhcpEnabled
  std::vector<std::wstring> ipAddresses;
  std::vector<std::wstring> macAddresses;  // none or one
  std::wstring dnsSuffix;                  // as the system gives it
  std::vector<std::wstring> dnsServers;
  std::wstring winsPrimary;
  std::wstring winsSecondary;
};

// The adapter's properties as the lines of the log report; the media type and the physical address are not in it.
std::wstring RenderAdapterProps(const AdapterProps& adapter);

// The same at the end of a text.
void AppendAdapterProps(std::wstring& text, const AdapterProps& adapter);

// A count line and one line an entry.
std::wstring RenderTextList(const std::vector<std::wstring>& list);

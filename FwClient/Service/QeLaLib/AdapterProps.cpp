#include "FwClient/Service/QeLaLib/AdapterProps.h"

std::wstring RenderTextList(const std::vector<std::wstring>& list) {
  std::wstring text = L"\n\t\tCount (" + std::to_wstring(list.size()) + L")";
  for (const std::wstring& entry : list) (text += L"\n\t\t\t") += entry;
  return text;
}

std::wstring RenderAdapterProps(const AdapterProps& adapter) {
  std::wstring text;
  const auto append = [&](const wchar_t* label, const std::wstring& value) { (text += label) += value; };
  // Support engineers search for these labels: their blanks and letter case are uneven, and stay so.
  append(L"\n\tInterface Index:", std::to_wstring(adapter.ifIndex));
  append(L"\n\tDescription :", adapter.description);
  append(L"\n\tDefault Gateways:", RenderTextList(adapter.gateways));
  append(L"\n\tDHCP Enabled status:", adapter.dhcpEnabled ? L"1" : L"0");
  append(L"\n\tDHCP Server:", adapter.dhcpServer);
  append(L"\n\tDHCPV6 Server:", adapter.dhcpV6Server);
  append(L"\n\tIP Addresses:", RenderTextList(adapter.ipAddresses));
  append(L"\n\tDNS Domain:", adapter.dnsSuffix);
  append(L"\n\tDNS Servers:", RenderTextList(adapter.dnsServers));
  append(L"\n\tWINS Primary Server:", adapter.winsPrimary);
  append(L"\n\tWINS Secondary Server:", adapter.winsSecondary);
  return text;
}

#include "FwClient/Service/QeLaLib/AdapterProps.h"

#include <array>
#include <charconv>
#include <cstddef>

namespace {

void AppendNumber(std::wstring& text, std::uint64_t number) {
  std::array<char, 20> digits;
  text.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
}

void AppendTextList(std::wstring& text, const std::vector<std::wstring>& list) {
  text += L"\n\t\tCount (";
  AppendNumber(text, list.size());
  text += L')';
  for (const std::wstring& entry : list) (text += L"\n\t\t\t") += entry;
}

}  // namespace

std::wstring RenderTextList(const std::vector<std::wstring>& list) {
  std::wstring text;
  AppendTextList(text, list);
  return text;
}

std::wstring RenderAdapterProps(const AdapterProps& adapter) {
  std::wstring text;
  AppendAdapterProps(text, adapter);
  return text;
}

void AppendAdapterProps(std::wstring& text, const AdapterProps& adapter) {
  // Support engineers search for these labels: their blanks and letter case are uneven, and stay so.
  text += L"\n\tInterface Index:";
  AppendNumber(text, adapter.ifIndex);
  (text += L"\n\tDescription :") += adapter.description;
  AppendTextList(text += L"\n\tDefault Gateways:", adapter.gateways);
  (text += L"\n\tDHCP Enabled status:") += adapter.dhcpEnabled ? L'1' : L'0';
  (text += L"\n\tDHCP Server:") += adapter.dhcpServer;
  (text += L"\n\tDHCPV6 Server:") += adapter.dhcpV6Server;
  AppendTextList(text += L"\n\tIP Addresses:", adapter.ipAddresses);
  (text += L"\n\tDNS Domain:") += adapter.dnsSuffix;
  AppendTextList(text += L"\n\tDNS Servers:", adapter.dnsServers);
  (text += L"\n\tWINS Primary Server:") += adapter.winsPrimary;
  (text += L"\n\tWINS Secondary Server:") += adapter.winsSecondary;
}

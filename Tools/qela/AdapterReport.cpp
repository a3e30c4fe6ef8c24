#include "AdapterReport.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace {

constexpr std::wstring_view kListEvent = L"Adapters List :";
constexpr std::wstring_view kAdapterEvent = L"Adapter properties:\n";
constexpr std::wstring_view kSkippedEvent = L"Skipped raising a location changed event...";
constexpr std::wstring_view kGatewaysLabel = L"\n\tDefault Gateways:";
constexpr std::wstring_view kDnsServersLabel = L"\n\tDNS Servers:\n\t\tCount (";

// Takes parts off the front of a text; each answers whether the part was there.
class Reader {
 public:
  explicit Reader(std::wstring_view text) : m_rest(text) {}

  bool Literal(std::wstring_view literal) {
    if (!m_rest.starts_with(literal)) return false;
    m_rest.remove_prefix(literal.size());
    return true;
  }

  bool Number(std::uint32_t& number) {
    std::uint64_t value = 0;
    std::size_t digits = 0;
    for (; digits < m_rest.size() && m_rest[digits] >= L'0' && m_rest[digits] <= L'9'; ++digits) {
      value = value * 10 + static_cast<std::uint64_t>(m_rest[digits] - L'0');
      if (value > std::numeric_limits<std::uint32_t>::max()) return false;
    }
    if (digits == 0) return false;
    m_rest.remove_prefix(digits);
    number = static_cast<std::uint32_t>(value);
    return true;
  }

  // Up to the end of the line; may be empty.
  bool Line(std::wstring& line) {
    line = Take(std::min(m_rest.find(L'\n'), m_rest.size()));
    return true;
  }

  bool List(std::vector<std::wstring>& list) {
    std::uint32_t count = 0;
    if (!Literal(L"\n\t\tCount (") || !Number(count) || !Literal(L")")) return false;
    list.clear();
    for (; count > 0; --count) {
      if (!Literal(L"\n\t\t\t")) return false;
      Line(list.emplace_back());
    }
    return true;
  }

  // Everything before the last occurrence of `literal`, which stays.
  bool UntilLast(std::wstring_view literal, std::wstring& text) {
    const std::size_t end = m_rest.rfind(literal);
    if (end == std::wstring_view::npos) return false;
    text = Take(end);
    return true;
  }

  std::wstring_view Rest() const { return m_rest; }

 private:
  std::wstring_view Take(std::size_t length) {
    const std::wstring_view taken = m_rest.substr(0, length);
    m_rest.remove_prefix(length);
    return taken;
  }

  std::wstring_view m_rest;
};

// The fields behind the description. The text ends with plain addresses, so the last label of the DNS servers is the
// true one, whatever the suffix before it says.
bool ParseAfterDescription(std::wstring_view text, AdapterProps& adapter) {
  Reader reader(text);
  std::uint32_t dhcp = 0;
  const bool parsed =
      reader.Literal(kGatewaysLabel) && reader.List(adapter.gateways) && reader.Literal(L"\n\tDHCP Enabled status:") &&
      reader.Number(dhcp) && dhcp <= 1 && reader.Literal(L"\n\tDHCP Server:") && reader.Line(adapter.dhcpServer) &&
      reader.Literal(L"\n\tDHCPV6 Server:") && reader.Line(adapter.dhcpV6Server) &&
      reader.Literal(L"\n\tIP Addresses:") && reader.List(adapter.ipAddresses) && reader.Literal(L"\n\tDNS Domain:") &&
      reader.UntilLast(kDnsServersLabel, adapter.dnsSuffix) && reader.Literal(L"\n\tDNS Servers:") &&
      reader.List(adapter.dnsServers) && reader.Literal(L"\n\tWINS Primary Server:") &&
      reader.Line(adapter.winsPrimary) && reader.Literal(L"\n\tWINS Secondary Server:") &&
      reader.Line(adapter.winsSecondary) && reader.Rest().empty();
  adapter.dhcpEnabled = dhcp == 1;
  return parsed;
}

}  // namespace

std::optional<AdapterProps> ParseAdapterProperties(std::wstring_view text) {
  AdapterProps adapter;
  Reader reader(text);
  if (!reader.Literal(L"\n\tInterface Index:") || !reader.Number(adapter.ifIndex) ||
      !reader.Literal(L"\n\tDescription :"))
    return std::nullopt;
  // The description ends at the first label from which the rest can be read.
  const std::wstring_view rest = reader.Rest();
  for (std::size_t end = rest.find(kGatewaysLabel); end != std::wstring_view::npos;
       end = rest.find(kGatewaysLabel, end + 1)) {
    if (!ParseAfterDescription(rest.substr(end), adapter)) continue;
    adapter.description = rest.substr(0, end);
    return adapter;
  }
  return std::nullopt;
}

AdapterReport::AdapterReport(std::function<void()> onSkipped, std::function<void(std::wstring_view)> onEvent)
    : m_onSkipped(std::move(onSkipped)), m_onEvent(std::move(onEvent)) {
  LogUtils::setLogSink([](const LogUtils::LogRecord& record,
                          void* context) { static_cast<AdapterReport*>(context)->OnEvent(record.text); },
                       this);
}

AdapterReport::~AdapterReport() { LogUtils::setLogSink(nullptr, nullptr); }

void AdapterReport::OnEvent(std::wstring_view text) {
  if (m_onEvent) m_onEvent(text);
  if (text == kSkippedEvent) {
    if (m_onSkipped) m_onSkipped();
    return;
  }
  const std::lock_guard lock(m_mutex);
  if (text == kListEvent) {
    m_adapters.clear();
    m_unreadable = 0;
  } else if (text.starts_with(kAdapterEvent)) {
    if (auto adapter = ParseAdapterProperties(text.substr(kAdapterEvent.size())))
      m_adapters.push_back(std::move(*adapter));
    else
      ++m_unreadable;
  }
}

std::vector<AdapterProps> AdapterReport::Adapters() const {
  const std::lock_guard lock(m_mutex);
  return m_adapters;
}

std::size_t AdapterReport::Unreadable() const {
  const std::lock_guard lock(m_mutex);
  return m_unreadable;
}

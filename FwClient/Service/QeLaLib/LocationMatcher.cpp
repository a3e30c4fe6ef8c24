#include "FwClient/Service/QeLaLib/LocationMatcher.h"

namespace {

constexpr std::size_t kUsualValues = 2;

template <typename Predicate>
const std::wstring* FindIf(const std::vector<std::wstring>& values, Predicate predicate) {
  const auto value = std::find_if(values.begin(), values.end(), predicate);
  return value != values.end() ? &*value : nullptr;
}

const std::wstring* FindIn(const std::vector<std::wstring>& values, const std::vector<std::wstring>& entries) {
  return FindIf(values, [&](const std::wstring& value) {
    return std::find(entries.begin(), entries.end(), value) != entries.end();
  });
}

const std::wstring* FindText(const std::vector<std::wstring>& values, const std::wstring& text) {
  return FindIf(values, [&](const std::wstring& value) { return value == text; });
}

}  // namespace

AdapterCriteria::AdapterCriteria(const std::vector<AdapterProps>& adapters)
    : m_suffixes(adapters.size()), m_suffixCriteria(kUsualValues) {
  m_indexes.reserve(adapters.size());
  for (std::size_t i = 0; i < adapters.size(); ++i) {
    m_indexes.push_back(adapters[i].ifIndex);
    m_suffixes[i].Assign(adapters[i].dnsSuffix);
  }
  std::vector<std::uint32_t> sorted = m_indexes;
  std::sort(sorted.begin(), sorted.end());
  m_doIndexesDiffer = std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end();
}

void AdapterCriteria::AskForSuffixes(const std::vector<std::wstring>& values) {
  // Those that are too many keep their memory for the next location.
  if (m_suffixCriteria.size() < values.size()) m_suffixCriteria.resize(values.size());
  for (std::size_t i = 0; i < values.size(); ++i) m_suffixCriteria[i].Assign(values[i]);
}

// The values are tried in their order. Addresses are compared as texts, as they were written: adapters show them in
// inet_ntop's spelling, and only a full mapped IPv6 criterion is respelled (CriteriaValue.h).
const std::wstring* AdapterCriteria::Find(const AdapterProps& adapter, const DnsLabels& suffix,
                                          LOCATION_CRITERIA_TYPE kind, const std::vector<std::wstring>& values) {
  switch (kind) {
    case LCT_DNS_SUFFIX:
      for (std::size_t i = 0; i < values.size(); ++i)
        if (m_suffixMatcher.Matches(m_suffixCriteria[i], suffix)) return &values[i];
      break;
    case LCT_DEFAULT_GATEWAY:
      return FindIn(values, adapter.gateways);
    case LCT_DHCP_SERVER:
      return FindIf(values, [&](const std::wstring& value) {
        return value == adapter.dhcpServer || value == adapter.dhcpV6Server;
      });
    case LCT_DNS_SERVER:
      return FindIn(values, adapter.dnsServers);
    case LCT_PRIMARY_WINS:
      return FindText(values, adapter.winsPrimary);
    case LCT_SECONDARY_WINS:
      return FindText(values, adapter.winsSecondary);
    case LCT_REGISTRY_KEY:
    case LCT_DOMAIN_REACHABLE:
    case LCT_ZELT_REACHABLE:
      break;
  }
  return nullptr;
}

#include "FwClient/Service/QeLaLib/AdapterQueries.h"

#include <algorithm>

#include "FwClient/Service/QeLaLib/AddressSpecification.h"
#include "FwClient/Service/QeLaLib/LaLog.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"

bool IsAnyAdapterOfMediaType(const std::vector<AdapterProps>& adapters, std::uint8_t mask,
                             const std::vector<std::uint32_t>& ifIndexes) {
  for (const AdapterProps& adapter : adapters) {
    const auto mediaType = static_cast<std::uint32_t>(adapter.mediaType);
    LA_LOG(kLogInfo, L"The Adapter %s has Media Type as %d.", adapter.description.c_str(), mediaType);
    const bool listed = std::find(ifIndexes.begin(), ifIndexes.end(), adapter.ifIndex) != ifIndexes.end();
    // A listed adapter of another type does not end the search: the next one may be listed too.
    if (listed && (mediaType & mask) != 0) return true;
  }
  return false;
}

std::vector<std::wstring> CollectMacAddresses(const std::vector<AdapterProps>& adapters) {
  std::vector<std::wstring> all;
  for (const AdapterProps& adapter : adapters)
    all.insert(all.end(), adapter.macAddresses.begin(), adapter.macAddresses.end());
  return all;
}

bool CQeLaLib::MatchAddressSpecification(const std::vector<std::wstring>& addresses, const std::uint32_t* kind,
                                         const std::wstring& first, const std::wstring& second) {
  return ::MatchAddressSpecification(addresses, kind, first, second);
}

// The two that log, or ask what may be overridden, walk a copy: a host that saves from inside its log sink takes a new
// snapshot.
bool CQeLaLib::MatchAdapterAddresses(const std::uint32_t* kind, const std::wstring& first, const std::wstring& second) {
  const std::vector<AdapterProps> adapters = m_adapters;
  // Through the interface, so that an override of the question decides here too.
  return std::any_of(adapters.begin(), adapters.end(), [&](const AdapterProps& adapter) {
    return MatchAddressSpecification(adapter.ipAddresses, kind, first, second);
  });
}

bool CQeLaLib::IsAdapterMediaType(std::uint8_t mask, const std::vector<std::uint32_t>& ifIndexes) {
  return IsAnyAdapterOfMediaType(std::vector<AdapterProps>(m_adapters), mask, ifIndexes);
}

std::vector<std::wstring> CQeLaLib::GetMacAddresses() { return CollectMacAddresses(m_adapters); }

#include "FwClient/Service/QeLaLib/AdapterQueries.h"

#include <algorithm>

#include "FwClient/Common/Utilities/FwLog.h"

bool IsAnyAdapterOfMediaType(const std::vector<AdapterProps>& adapters, std::uint8_t mask,
                             const std::vector<std::uint32_t>& ifIndexes) {
  for (const AdapterProps& adapter : adapters) {
    const auto mediaType = static_cast<std::uint32_t>(adapter.mediaType);
    FW_LOG(kLogInfo, L"The Adapter %s has Media Type as %d.", adapter.description.c_str(), mediaType);
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

#include "AdapterView.h"

#include <algorithm>

#include "CommandError.h"

SharedAdapters TakeAdapters() {
  SharedAdapters adapters = NoAdapters();
  if (TakeAdapterSnapshot(adapters) == AdapterSnapshotResult::kNoMemory)
    throw CommandError(kFailed, "there is not enough memory for the adapters");
  return adapters;
}

const char* MediaName(const AdapterProps& adapter) {
  switch (adapter.mediaType) {
    case Wired:
      return "wired";
    case Wireless:
      return "wireless";
    case Virtual:
      return "virtual";
    default:
      return "other";
  }
}

std::wstring DescriptionOf(const std::vector<AdapterProps>& adapters, std::uint32_t index) {
  const auto found = std::find_if(adapters.begin(), adapters.end(),
                                  [&](const AdapterProps& adapter) { return adapter.ifIndex == index; });
  return found == adapters.end() ? std::wstring() : found->description;
}

// Which configured locations are current.
#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Service/QeLaLib/HostComState.h"
#include "FwClient/Service/QeLaLib/LaLog.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"

bool CQeLaLib::CalculateCurrentLocations() {
  const CriticalSectionGuard lock(*m_lock);
  RestoreThreadIdentity();  // where an earlier probe failed to; without it the probes are over before they begin
  const ComBracket com;
  LA_LOG(kLogInfo, L"Calculating current locations...");
  m_currentLocationIds.clear();
  m_dnsSuffixes.Clear();
  if (!CalculateCurrentAdapterProps()) {
    const bool lacksMemory = m_snapshotLacksMemory;
    LA_LOG(kLogInfo, L"CalculateCurrentAdapterProps failed.");
    return !lacksMemory;
  }

  // The list is stored whole at the end: should memory run out on the way, no location is current rather than some.
  std::vector<std::wstring> currentIds;
  // Copies of both: the host's code runs in between, in its log sink for one, holds the recursive lock with this thread
  // and may edit and save.
  const std::vector<AdapterProps> adapters = m_adapters;
  const CQeLocations locations = m_locations;
  const std::uint64_t edits = m_edits;
  for (const CQeLocation& location : locations.Items()) {
    if (!location.IsEnabled()) continue;
    std::vector<std::uint32_t> matchedAdapters;
    if (IsCurrentLocation(location, adapters, matchedAdapters) == 0) continue;
    currentIds.push_back(location.Id());
    WriteBackMatchedAdapters(location, edits, matchedAdapters);
    LA_LOG(kLogInfo, L"Adding current location ID %s", currentIds.back().c_str());
  }
  m_currentLocationIds = std::move(currentIds);
  m_dnsSuffixes.Clear();
  return true;
}

// By the rule of updating, which normalises what a stored set held raw. Its failure is ignored: the location is
// current, and keeps the adapters of its last match. Where the set was edited since the calculation took its copy, the
// edited location is the one that gets the adapters; one that was removed is not brought back.
void CQeLaLib::WriteBackMatchedAdapters(const CQeLocation& location, std::uint64_t edits,
                                        const std::vector<std::uint32_t>& matchedAdapters) {
  const CQeLocation* const source = edits == m_edits ? &location : m_locations.Find(location.Id());
  if (source == nullptr) return;
  CQeLocation matched = *source;
  matched.SetAdapterIndexes(matchedAdapters);
  m_locations.Update(&matched);
}

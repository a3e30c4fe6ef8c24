// Which configured locations are current.
#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Service/QeLaLib/HostComState.h"
#include "FwClient/Service/QeLaLib/LaLog.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"

void CQeLaLib::CalculateCurrentLocations() {
  const CriticalSectionGuard lock(*m_lock);
  const ComBracket com;
  LA_LOG(kLogInfo, L"Calculating current locations...");
  m_currentLocationIds.clear();
  m_dnsSuffixes.Clear();
  if (!CalculateCurrentAdapterProps()) {
    LA_LOG(kLogInfo, L"CalculateCurrentAdapterProps failed.");
    return;
  }

  // The list is stored whole at the end: should memory run out on the way, no location is current rather than some.
  std::vector<std::wstring> currentIds;
  // The loop walks the stored set itself. What it writes back goes to the element under its hand, or, where a stored
  // set holds an ID twice, to an earlier one, never to one that is still to come.
  for (const CQeLocation& location : m_locations.Items()) {
    if (!location.IsEnabled()) continue;
    std::vector<std::uint32_t> matchedAdapters;
    if (IsCurrentLocation(location, matchedAdapters) == 0) continue;
    currentIds.push_back(location.Id());
    // By the rule of updating, which normalises what a stored set held raw. Its failure is ignored: the location is
    // current, and keeps the adapters of its last match.
    CQeLocation matched = location;
    matched.SetAdapterIndexes(matchedAdapters);
    m_locations.Update(&matched);
    LA_LOG(kLogInfo, L"Adding current location ID %s", currentIds.back().c_str());
  }
  m_currentLocationIds = std::move(currentIds);
  m_dnsSuffixes.Clear();
}

// Which configured locations are current: the snapshot is taken, the matcher asked, the answers kept.
#include <array>
#include <utility>

#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Service/QeLaLib/AdapterSnapshot.h"
#include "FwClient/Service/QeLaLib/HostComState.h"
#include "FwClient/Service/QeLaLib/LaLog.h"
#include "FwClient/Service/QeLaLib/LocationMatching.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"

namespace {

static_assert(kTextCriteriaKinds == CQeLocationCriterias::kTextKinds, "record and matcher know the same kinds");

const LocationProbes& Probes() {
  static const LocationProbes probes{[](const std::wstring& text) { return IsRegistryKeyCriterionMet(text) != 0; },
                                     IsDomainReachable, CheckZeltReachability};
  return probes;
}

// What any location asks for, read through its interface.
struct CopiedCriteria {
  explicit CopiedCriteria(const _IQeLocation& location) : name(location.GetName()) {
    asked.name = &name;
    for (std::uint32_t kind = 0; kind < kTextCriteriaKinds; ++kind) asked.lists[kind] = &lists[kind];
    const auto criterias = location.GetCriterias();
    if (criterias == nullptr) return;  // a host's own implementation may have none
    for (std::uint32_t kind = 0; kind < kTextCriteriaKinds; ++kind)
      criterias->GetStringCriteria(static_cast<LOCATION_CRITERIA_TYPE>(kind), lists[kind]);
    criterias->GetBoolCriteria(LCT_ZELT_REACHABLE, asked.zeltReachable);
  }
  CopiedCriteria(const CopiedCriteria&) = delete;
  CopiedCriteria& operator=(const CopiedCriteria&) = delete;

  std::wstring name;
  std::array<std::vector<std::wstring>, kTextCriteriaKinds> lists;
  LocationCriteria asked;
};

// What a location of our own asks for, read from the record.
LocationCriteria CriteriaOf(const CQeLocation& location) {
  LocationCriteria asked;
  asked.name = &location.Name();
  for (std::uint32_t kind = 0; kind < kTextCriteriaKinds; ++kind) asked.lists[kind] = &location.Criterias().Texts(kind);
  asked.zeltReachable = location.Criterias().IsZeltReachable();
  return asked;
}

}  // namespace

bool CQeLaLib::BuildAdapterSnapshot() {
  {
    const CriticalSectionGuard lock(*m_lock);
    m_adapters.clear();
  }
  // Before the adapters are asked for: an address that comes in between then shows as a difference later, and costs one
  // calculation more, where the other way round it could be missed.
  m_addressTable.Read();
  std::vector<AdapterProps> adapters;
  const AdapterSnapshotResult result = TakeAdapterSnapshot(adapters);
  m_snapshotLacksMemory = result == AdapterSnapshotResult::kNoMemory;
  m_adapters = std::move(adapters);
  return result == AdapterSnapshotResult::kTaken;
}

bool CQeLaLib::CalculateCurrentAdapterProps() {
  const bool built = BuildAdapterSnapshot();
  LogAdapters(m_adapters);
  return built;
}

std::uint32_t CQeLaLib::IsCurrentLocation(const _IQeLocation& location, std::vector<std::uint32_t>& matchedAdapters) {
  // A copy: the host's code that runs in between may take a new snapshot.
  const std::vector<AdapterProps> adapters = m_adapters;
  MatchLog log;
  return LocationMatcher(adapters, Probes(), log).IsCurrent(CopiedCriteria(location).asked, matchedAdapters) ? 1 : 0;
}

bool CQeLaLib::MatchAdapterCriteria(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                                    const std::vector<std::wstring>& values) {
  MatchLog log;
  return LocationMatcher({}, Probes(), log).Matches(adapter, kind, values);
}

bool CQeLaLib::CalculateCurrentLocations() {
  const CriticalSectionGuard lock(*m_lock);
  RestoreThreadIdentity();  // where an earlier probe failed to; without it the probes are over before they begin
  const ComBracket com;
  LA_LOG(kLogInfo, L"Calculating current locations...");
  m_currentLocationIds.clear();
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
  MatchLog log;
  LocationMatcher matcher(adapters, Probes(), log);
  for (std::size_t i = 0; i < locations.Items().size(); ++i) {
    const CQeLocation& location = locations.Items()[i];
    if (!location.IsEnabled()) continue;
    std::vector<std::uint32_t> matchedAdapters;
    if (!matcher.IsCurrent(CriteriaOf(location), matchedAdapters)) continue;
    currentIds.push_back(location.Id());
    // The rule of updating comes down to this where the set is plain, and has not been edited since its copy was taken.
    if (edits == m_edits && m_locations.IsPlain())
      m_locations.ReplaceAdapterIndexes(i, matchedAdapters);
    else
      WriteBackMatchedAdapters(location, edits, matchedAdapters);
    LA_LOG(kLogInfo, L"Adding current location ID %s", currentIds.back().c_str());
  }
  m_currentLocationIds = std::move(currentIds);
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

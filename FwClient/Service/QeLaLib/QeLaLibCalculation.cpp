// Which configured locations are current: the snapshot is taken, the matcher asked, the answers kept.
#include <array>
#include <utility>

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Service/QeLaLib/AdapterSnapshot.h"
#include "FwClient/Service/QeLaLib/HostComState.h"
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
    const auto criterias = location.GetCriterias();
    if (criterias == nullptr) return;  // a host's own implementation may have none
    for (std::uint32_t number = 0; number < kTextCriteriaKinds; ++number) {
      const auto kind = static_cast<LOCATION_CRITERIA_TYPE>(number);
      criterias->GetStringCriteria(kind, lists[number]);
      asked.Add(kind, lists[number]);
    }
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
  // Spelled out for each kind by the compiler, which leaves a loop one: this runs for every location.
  [&]<std::size_t... kKinds>(std::index_sequence<kKinds...>) {
    (asked.Add(static_cast<LOCATION_CRITERIA_TYPE>(kKinds), location.Criterias().Texts(kKinds)), ...);
  }(std::make_index_sequence<kTextCriteriaKinds>());
  asked.zeltReachable = location.Criterias().IsZeltReachable();
  return asked;
}

}  // namespace

bool CQeLaLib::BuildAdapterSnapshot() {
  {
    const CriticalSectionGuard lock(*m_lock);
    m_adapters = NoAdapters();
  }
  // Before the adapters are asked for: an address that comes in between then shows as a difference later, and costs one
  // calculation more, where the other way round it could be missed.
  m_addressTable.Read();
  SharedAdapters adapters;
  const AdapterSnapshotResult result = TakeAdapterSnapshot(adapters);
  m_snapshotLacksMemory = result == AdapterSnapshotResult::kNoMemory;
  m_adapters = std::move(adapters);
  return result == AdapterSnapshotResult::kTaken;
}

bool CQeLaLib::CalculateCurrentAdapterProps() {
  const bool built = BuildAdapterSnapshot();
  // Held: a host that saves from inside its log sink takes a new snapshot, here and wherever one is walked.
  const SharedAdapters adapters = m_adapters;
  LogAdapters(*adapters);
  return built;
}

std::uint32_t CQeLaLib::IsCurrentLocation(const _IQeLocation& location, std::vector<std::uint32_t>& matchedAdapters) {
  const SharedAdapters adapters = m_adapters;
  MatchLog log;
  return LocationMatcher(*adapters, Probes(), log).IsCurrent(CopiedCriteria(location).asked, matchedAdapters) ? 1 : 0;
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
  FW_LOG(kLogInfo, L"Calculating current locations...");
  // The list is stored whole at the end: should memory run out on the way, no location is current rather than some. The
  // texts of the last one are written over, since most often they are the same.
  std::vector<std::wstring> currentIds = std::exchange(m_currentLocationIds, {});
  if (!CalculateCurrentAdapterProps()) {
    const bool lacksMemory = m_snapshotLacksMemory;
    FW_LOG(kLogInfo, L"CalculateCurrentAdapterProps failed.");
    return !lacksMemory;
  }

  std::size_t currentCount = 0;
  // Both are held: the host's code runs in between, in its log sink for one, holds the recursive lock with this thread
  // and may edit and save. What is written back below changes nothing that the matcher reads, as long as the set is
  // plain; of another one it may, and so that is copied.
  const SharedAdapters adapters = m_adapters;
  const std::shared_ptr<CQeLocations> stored = m_locations;
  const std::shared_ptr<const CQeLocations> locations =
      stored->IsPlain() ? stored : std::make_shared<const CQeLocations>(*stored);
  MatchLog log;
  LocationMatcher matcher(*adapters, Probes(), log);
  std::vector<std::uint32_t> matchedAdapters;
  for (std::size_t i = 0; i < locations->Items().size(); ++i) {
    const CQeLocation& location = locations->Items()[i];
    if (!location.IsEnabled()) continue;
    matchedAdapters.clear();
    if (!matcher.IsCurrent(CriteriaOf(location), matchedAdapters)) continue;
    if (currentCount == currentIds.size()) currentIds.emplace_back();
    currentIds[currentCount] = location.Id();
    // The rule of updating comes down to this where the set is plain and was not edited meanwhile.
    if (locations == m_locations)
      stored->ReplaceAdapterIndexes(i, matchedAdapters);
    else
      WriteBackMatchedAdapters(location, stored != m_locations, matchedAdapters);
    FW_LOG(kLogInfo, L"Adding current location ID %s", currentIds[currentCount++].c_str());
  }
  currentIds.resize(currentCount);
  m_currentLocationIds = std::move(currentIds);
  return true;
}

// By the rule of updating, which normalises what a stored set held raw. Its failure is ignored: the location is
// current, and keeps the adapters of its last match. Where the set was edited since the calculation began, the edited
// location is the one that gets the adapters; one that was removed is not brought back.
void CQeLaLib::WriteBackMatchedAdapters(const CQeLocation& location, bool isEdited,
                                        const std::vector<std::uint32_t>& matchedAdapters) {
  const CQeLocation* const source = isEdited ? m_locations->Find(location.Id()) : &location;
  if (source == nullptr) return;
  CQeLocation matched = *source;
  matched.SetAdapterIndexes(matchedAdapters);
  m_locations->Update(&matched);
}

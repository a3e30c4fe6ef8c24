#include "ExplainMachine.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "AdapterView.h"
#include "AskProbes.h"
#include "CommandError.h"
#include "Service.h"
#include "StoredSet.h"

namespace {

// The library's log while it calculates. The times are this process's: what counts is how long things take.
class CalculationListener {
 public:
  void OnEvent(std::wstring_view text) {
    using std::chrono::milliseconds;
    const auto now = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch());
    const std::lock_guard lock(m_mutex);
    if (auto ended = m_reader.OnMessage({text, LogTime{now.count(), {}}, 0, 0})) m_calculation = std::move(ended);
  }

  LoggedCalculation Calculation() {
    if (auto last = m_reader.End()) m_calculation = std::move(last);
    if (!m_calculation) throw CommandError(kFailed, "the library has not calculated");
    return *std::move(m_calculation);
  }

 private:
  std::mutex m_mutex;  // a request's worker speaks, too
  CalculationReader m_reader;
  std::optional<LoggedCalculation> m_calculation;
};

}  // namespace

std::vector<const CQeLocation*> RecordsOf(const LoggedCalculation& calculation, const LocationSet& set) {
  std::vector<const CQeLocation*> enabled;
  for (const CQeLocation& location : set)
    if (location.IsEnabled()) enabled.push_back(&location);
  const std::vector<LoggedLocation>& tested = calculation.locations;
  const bool areTheSame =
      tested.size() <= enabled.size() &&
      std::equal(tested.begin(), tested.end(), enabled.begin(),
                 [](const LoggedLocation& logged, const CQeLocation* record) { return logged.name == record->Name(); });
  if (areTheSame) return {enabled.begin(), enabled.begin() + static_cast<std::ptrdiff_t>(tested.size())};
  // Another set, or a log that begins in the middle: by the name, where it fits one.
  std::vector<const CQeLocation*> records;
  for (const LoggedLocation& logged : tested) {
    const CQeLocation* found = nullptr;
    std::size_t count = 0;
    for (const CQeLocation& location : set) {
      if (location.Name() != logged.name || (!logged.id.empty() && location.Id() != logged.id)) continue;
      found = &location;
      ++count;
    }
    records.push_back(count == 1 ? found : nullptr);
  }
  return records;
}

ThisMachine ExplainByService() {
  CalculationListener listener;
  const LocationSet set = ReadLocations();
  const Service service({}, [&](std::wstring_view text) { listener.OnEvent(text); });
  const LoggedCalculation calculation = listener.Calculation();

  ThisMachine machine;
  machine.adapters = calculation.adapters;
  MachineSnapshot adaptersOnly;
  adaptersOnly.adapters = calculation.adapters;
  std::vector<std::wstring> decided;
  for (const auto& location : ToVector(*service.Api().GetCurrentLocations())) decided.push_back(location->GetId());
  const std::vector<const CQeLocation*> records = RecordsOf(calculation, set);
  for (const CQeLocation& location : set) {
    const auto record = std::find(records.begin(), records.end(), &location);
    machine.locations.push_back(record == records.end()
                                    ? Explain(location, adaptersOnly)
                                    : Explain(location, calculation,
                                              calculation.locations[static_cast<std::size_t>(record - records.begin())],
                                              Tense::kPresent));
    const LocationExplanation& explanation = machine.locations.back();
    const bool isCurrent = std::find(decided.begin(), decided.end(), location.Id()) != decided.end();
    if (explanation.contradictsCriteria || isCurrent != (explanation.verdict == Verdict::kCurrent))
      machine.differences.push_back(
          "the library says that " + Quoted(location) + " is " + (isCurrent ? "current" : "not current") +
          ", which does not follow from what is stored: the set was changed meanwhile, or the "
          "library or qela is wrong. Run the command again; if it stays so, please report it "
          "with the output of qela report");
  }
  return machine;
}

ThisMachine ExplainByAdapters(const LocationSet& set, bool probes) {
  ThisMachine machine;
  MachineSnapshot snapshot;
  snapshot.adapters = *TakeAdapters();
  if (probes) AskProbes(snapshot, set);
  for (const CQeLocation& location : set) machine.locations.push_back(Explain(location, snapshot));
  machine.adapters = std::move(snapshot.adapters);
  return machine;
}

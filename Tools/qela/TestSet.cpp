#include "TestSet.h"

#include <algorithm>
#include <map>
#include <utility>

#include "CriterionWords.h"
#include "FwClient/Service/QeLaLib/MatchReport.h"
#include "LocationSetFile.h"
#include "Text.h"

namespace {

class Silent final : public MatchObserver {};

// Probes that a snapshot answers. What it does not know is answered as the asker says, and remembered.
class RecordedProbes {
 public:
  explicit RecordedProbes(const MachineSnapshot& machine)
      : m_probes{[this, &machine](const std::wstring& text) { return Known(machine, LCT_REGISTRY_KEY, text); },
                 [this, &machine](const std::wstring& host) { return Known(machine, LCT_DOMAIN_REACHABLE, host); },
                 [this, &machine] { return Known(machine, LCT_ZELT_REACHABLE, {}); }} {}
  RecordedProbes(const RecordedProbes&) = delete;
  RecordedProbes& operator=(const RecordedProbes&) = delete;

  const LocationProbes& Get() const noexcept { return m_probes; }
  void TakeUnknownFor(bool answer) noexcept {
    m_unknown = answer;
    m_wasUnknown = false;
  }
  bool WasUnknown() const noexcept { return m_wasUnknown; }

 private:
  bool Known(const MachineSnapshot& machine, LOCATION_CRITERIA_TYPE kind, const std::wstring& text) {
    const std::optional<bool> answer = machine.AnswerTo(kind, text);
    if (!answer) m_wasUnknown = true;
    return answer.value_or(m_unknown);
  }

  bool m_unknown = false;
  bool m_wasUnknown = false;
  const LocationProbes m_probes;
};

std::string InWords(const MatchReport::Adapter& adapter) {
  return AdapterInWords(adapter.ifIndex, adapter.description) + ": ";
}

std::string HeldInWords(const MatchReport::Adapter& adapter) {
  std::string held;
  for (const MatchReport::Kind& kind : adapter.kinds)
    held += (held.empty() ? "" : ", ") + std::string(TitleOf(kind.kind)) + " " + ShownCriterion(kind.held);
  return held;
}

std::string FailureInWords(const MatchReport::Adapter& adapter) {
  const MatchReport::Kind& kind =
      *std::find_if(adapter.kinds.begin(), adapter.kinds.end(),
                    [](const MatchReport::Kind& tested) { return tested.outcome == MatchReport::Outcome::kFailed; });
  const std::string asked = std::string(TitleOf(kind.kind)) + " asked for " + AskedInWords(kind.asked);
  if (!AdapterCriteria::Knows(kind.kind)) return asked + ", answered no";
  return asked + ", seen " + SeenInWords(kind.seen);
}

}  // namespace

// What is added is put into its normal form, in which it may match what it did not match as it was written.
LocationSet ReadSetToTest(const std::wstring& path) {
  LocationSet set = ReadSetFile(path);
  for (CQeLocation& location : set) {
    if (location.Criterias().AreAsAdded()) continue;
    CQeLocationCriterias added;
    added.Merge(location.Criterias());
    location.SetCriterias(std::move(added));
  }
  return set;
}

std::string InWords(const TestSet::Question& question) {
  return TitleOf(question.kind) + (question.kind == LCT_ZELT_REACHABLE ? "" : " " + ShownCriterion(question.text));
}

TestSet::TestSet(LocationSet set) : m_set(std::move(set)) {
  std::map<std::wstring, std::size_t> count;
  for (const CQeLocation& location : m_set) ++count[location.Name()];
  for (const CQeLocation& location : m_set) {
    m_criteria.push_back(CriteriaOf(location));
    const std::wstring& name = location.Name();
    m_labels.push_back(count[name] == 1 && !name.empty() ? name : name + L" (" + location.Id() + L")");
  }
}

// The matcher knows yes and no only. It joins answers with "and" and "or" alone, so that a yes in the place of a no
// never makes a location less current: whatever the unknown answers are, the truth lies between the decision with a no
// for all of them and the one with a yes. Where the two agree it is known, and where they differ it does depend on the
// answers, since each of the two could be the machine's.
std::vector<Verdict> TestSet::VerdictsOn(const MachineSnapshot& machine) const {
  RecordedProbes probes(machine);
  Silent silent;
  LocationMatcher matcher(machine.adapters, probes.Get(), silent);
  std::vector<std::uint32_t> matched;
  const auto isCurrent = [&](std::size_t location, bool unknown) {
    matched.clear();
    probes.TakeUnknownFor(unknown);
    return matcher.IsCurrent(m_criteria[location], matched);
  };
  std::vector<Verdict> verdicts(m_set.size(), Verdict::kNotCurrent);
  // A calculation that sees no adapter fails as a whole: even a location without criteria is not current then.
  if (machine.adapters.empty()) return verdicts;
  for (std::size_t i = 0; i < m_set.size(); ++i) {
    if (!m_set[i].IsEnabled()) continue;
    if (isCurrent(i, false))
      verdicts[i] = Verdict::kCurrent;
    else if (probes.WasUnknown() && isCurrent(i, true))
      verdicts[i] = Verdict::kUnknown;
  }
  return verdicts;
}

std::vector<TestSet::Question> TestSet::QuestionsLeft(const MachineSnapshot& machine, std::size_t location) const {
  std::vector<Question> left;
  for (const auto& [kind, values] : m_criteria[location].TextKinds()) {
    if (AdapterCriteria::Knows(kind)) continue;
    const std::size_t known = left.size();
    for (const std::wstring& value : *values) {
      const std::optional<bool> answer = machine.AnswerTo(kind, value);
      if (!answer) left.push_back({kind, value});
      if (!answer.value_or(false)) continue;
      left.resize(known, {kind, {}});
      break;
    }
  }
  if (m_criteria[location].zeltReachable && !machine.managementServer) left.push_back({LCT_ZELT_REACHABLE, {}});
  return left;
}

std::vector<std::string> TestSet::Reasons(const MachineSnapshot& machine, std::size_t location, Verdict verdict) const {
  std::vector<std::string> reasons;
  if (verdict == Verdict::kUnknown) {
    for (const Question& question : QuestionsLeft(machine, location))
      reasons.push_back("the snapshot has no answer for " + InWords(question));
    return reasons;
  }
  if (!m_set[location].IsEnabled()) return {"it is disabled"};
  if (machine.adapters.empty()) return {"the machine has no adapter"};

  // The decision that the unknown answers speak against, so that nothing in its report comes from them.
  RecordedProbes probes(machine);
  probes.TakeUnknownFor(verdict == Verdict::kNotCurrent);
  MatchReport report;
  MatchReporter reporter(report);
  std::vector<std::uint32_t> matched;
  LocationMatcher(machine.adapters, probes.Get(), reporter).IsCurrent(m_criteria[location], matched);
  const MatchReport::Location& decided = report.locations.front();

  const bool isOfAdapters = !m_criteria[location].TextKinds().empty();
  if (!isOfAdapters && !decided.managementServer) return {"it has no criteria, and so is current everywhere"};
  if (decided.isCurrent) {
    for (const MatchReport::Adapter& adapter : decided.adapters)
      if (isOfAdapters && adapter.matches) reasons.push_back(InWords(adapter) + HeldInWords(adapter));
  } else if (!decided.managementServer) {
    for (const MatchReport::Adapter& adapter : decided.adapters)
      reasons.push_back(InWords(adapter) + FailureInWords(adapter));
  }
  if (decided.managementServer)
    reasons.emplace_back(decided.isCurrent ? "the management server answered" : "the management server did not answer");
  return reasons;
}

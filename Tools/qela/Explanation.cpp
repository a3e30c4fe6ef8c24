#include "Explanation.h"

#include <algorithm>
#include <utility>

#include "CriterionWords.h"
#include "ExplanationParts.h"
#include "FwClient/Service/QeLaLib/MatchReport.h"

namespace {

using Outcome = LocationExplanation::Outcome;
using Question = LocationExplanation::Question;

// Puts a yes in the place of what nobody knows, unless another criterion of the kind is known to hold: so the matcher
// gets as far as it could get at all, and what it then finds to fail fails whatever the answers are.
class BestAnswers {
 public:
  BestAnswers(const CQeLocation& location, const MatchReport& report, const KnownAnswer& answer)
      : m_location(location),
        m_report(report),
        m_answer(answer),
        m_probes{[this](const std::wstring& text) { return Ask(LCT_REGISTRY_KEY, text); },
                 [this](const std::wstring& text) { return Ask(LCT_DOMAIN_REACHABLE, text); },
                 [this] { return Known(LCT_ZELT_REACHABLE, {}).answer.value_or(true); }} {}
  BestAnswers(const BestAnswers&) = delete;
  BestAnswers& operator=(const BestAnswers&) = delete;

  const LocationProbes& Get() const noexcept { return m_probes; }
  Question Known(LOCATION_CRITERIA_TYPE kind, const std::wstring& text) const {
    const std::size_t adapters = m_report.locations.back().adapters.size();
    return m_answer(adapters == 0 ? 0 : adapters - 1, kind, text);
  }

 private:
  bool Ask(LOCATION_CRITERIA_TYPE kind, const std::wstring& text) const {
    const std::optional<bool> known = Known(kind, text).answer;
    if (known) return *known;
    const std::vector<std::wstring>& all = m_location.Criterias().Texts(kind);
    return std::none_of(all.begin(), all.end(),
                        [&](const std::wstring& other) { return Known(kind, other).answer.value_or(false); });
  }

  const CQeLocation& m_location;
  const MatchReport& m_report;
  const KnownAnswer& m_answer;
  const LocationProbes m_probes;
};

LocationExplanation::Kind KindOf(const MatchReport::Kind& decided, std::size_t adapter, bool hasFailed,
                                 const KnownAnswer& answer) {
  LocationExplanation::Kind kind;
  kind.kind = decided.kind;
  kind.asked = decided.asked;
  kind.seen = decided.seen;
  std::erase(kind.seen, std::wstring());
  for (const MatchReport::Probe& probe : decided.probes)
    kind.questions.push_back(answer(adapter, decided.kind, probe.text));
  switch (decided.outcome) {
    case MatchReport::Outcome::kHeld:
      kind.outcome = Outcome::kHeld;
      kind.held = decided.held;
      if (!kind.questions.empty() && !kind.questions.back().answer) {
        kind.outcome = Outcome::kUnknown;
        kind.held.reset();
        kind.questions.clear();  // all of them are open or no
        for (const std::wstring& asked : decided.asked) kind.questions.push_back(answer(adapter, decided.kind, asked));
      }
      break;
    case MatchReport::Outcome::kFailed:
      kind.outcome = hasFailed ? Outcome::kFailsToo : Outcome::kFailed;
      break;
    case MatchReport::Outcome::kNotReached:
      kind.outcome = Outcome::kNotReached;
      break;
  }
  return kind;
}

LocationExplanation::Adapter AdapterOf(const MatchReport::Adapter& decided, std::size_t position,
                                       const KnownAnswer& answer) {
  LocationExplanation::Adapter adapter;
  adapter.ifIndex = decided.ifIndex;
  adapter.description = decided.description;
  adapter.matches = decided.matches;
  bool hasFailed = false;
  for (const MatchReport::Kind& kind : decided.kinds) {
    adapter.kinds.push_back(KindOf(kind, position, hasFailed, answer));
    hasFailed |= kind.outcome == MatchReport::Outcome::kFailed;
    if (decided.matches && adapter.kinds.back().outcome == Outcome::kUnknown) adapter.matches.reset();
  }
  return adapter;
}

Verdict VerdictOf(const LocationExplanation& explanation, const MatchReport::Location& decided) {
  if (!explanation.isEnabled || !decided.isCurrent) return Verdict::kNotCurrent;
  const bool isAdapterKnown =
      std::any_of(explanation.adapters.begin(), explanation.adapters.end(),
                  [](const LocationExplanation::Adapter& adapter) { return adapter.matches.value_or(false); });
  const bool isServerKnown = !explanation.managementServer || explanation.managementServer->answer.has_value();
  return isAdapterKnown && isServerKnown ? Verdict::kCurrent : Verdict::kUnknown;
}

}  // namespace

LocationExplanation ExplainBy(const CQeLocation& location, const std::vector<AdapterProps>& adapters,
                              const KnownAnswer& answer) {
  LocationExplanation explanation;
  explanation.id = location.Id();
  explanation.name = location.Name();
  explanation.isEnabled = location.IsEnabled();
  explanation.asksForManagementServer = location.Criterias().IsZeltReachable();
  explanation.verdict = Verdict::kNotCurrent;
  // A calculation that sees no adapter fails as a whole: even a location without criteria is not current then.
  if (adapters.empty()) return explanation;

  MatchReport report;
  MatchReporter reporter(report);
  const BestAnswers answers(location, report, answer);
  std::vector<std::uint32_t> matched;
  LocationMatcher(adapters, answers.Get(), reporter, AfterFailure::kTestWhatCostsNothing)
      .IsCurrent(CriteriaOf(location), matched);
  const MatchReport::Location& decided = report.locations.front();
  for (const MatchReport::Adapter& adapter : decided.adapters)
    explanation.adapters.push_back(AdapterOf(adapter, explanation.adapters.size(), answer));
  if (decided.managementServer) explanation.managementServer = answer(0, LCT_ZELT_REACHABLE, {});
  explanation.verdict = VerdictOf(explanation, decided);
  return explanation;
}

void FindFailure(LocationExplanation& explanation) {
  explanation.failure.reset();
  if (explanation.verdict != Verdict::kNotCurrent || explanation.managementServer) return;
  std::optional<std::pair<std::size_t, std::size_t>> best;  // kinds that held, and kinds that did not fail
  for (std::size_t i = 0; i < explanation.adapters.size(); ++i) {
    const std::vector<LocationExplanation::Kind>& kinds = explanation.adapters[i].kinds;
    const auto failed = std::find_if(kinds.begin(), kinds.end(), [](const LocationExplanation::Kind& kind) {
      return kind.outcome == Outcome::kFailed;
    });
    const bool isKnown = failed != kinds.end();
    if (!isKnown && explanation.adapters[i].oneOfFailed.empty()) continue;
    const auto others =
        static_cast<std::size_t>(std::count_if(kinds.begin(), kinds.end(), [](const LocationExplanation::Kind& kind) {
          return kind.outcome != Outcome::kFailed && kind.outcome != Outcome::kFailsToo;
        }));
    const std::pair candidate(static_cast<std::size_t>(failed - kinds.begin()), others);
    if (best && candidate <= *best) continue;
    best = candidate;
    explanation.failure.reset();
    if (isKnown) explanation.failure = {i, failed->kind};
  }
}

LocationExplanation Explain(const CQeLocation& location, const MachineSnapshot& machine) {
  const auto answer = [&](std::size_t, LOCATION_CRITERIA_TYPE kind, const std::wstring& text) {
    Question question{text, machine.AnswerTo(kind, text), {}, {}, {}};
    if (const auto note = machine.notes.find({kind, text}); note != machine.notes.end()) {
      question.took = note->second.took;
      question.details = note->second.details;
      question.advice = note->second.advice;
    }
    return question;
  };
  LocationExplanation explanation = ExplainBy(location, machine.adapters, answer);
  Conclude(explanation, Tense::kPresent);
  return explanation;
}

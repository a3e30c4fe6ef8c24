#include "AskProbes.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>

#include "AdapterReport.h"
#include "ExplanationParts.h"
#include "FwClient/Service/QeLaLib/HostComState.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"
#include "Output.h"
#include "TestSet.h"

namespace {

// Hears what the probes say to the log while they work, and reads it as that of a location which asks for one thing.
class ProbeListener {
 public:
  // Forgets what was said before.
  void Begin(LOCATION_CRITERIA_TYPE kind) {
    m_reader = {};
    Say(L"IsCurrentLocation checking location ");
    const bool isServer = kind == LCT_ZELT_REACHABLE;
    Say(isServer ? L"IsCurrentLocation bZeltReachabilityCriteria 1" : L"IsCurrentLocation bZeltReachabilityCriteria 0");
    Say(isServer
            ? L"IsCurrentLocation criteria count is 1"
            : L"Matching all the location criterias with the properties of adapter with index 0 and description .");
  }

  ProbeNote End(LOCATION_CRITERIA_TYPE kind, const std::wstring& text, bool answer) {
    if (kind == LCT_ZELT_REACHABLE) Say(answer ? L"CheckZeltReachability succeeded" : L"CheckZeltReachability failed");
    const LoggedCalculation calculation = m_reader.End().value_or(LoggedCalculation());
    if (calculation.locations.empty()) return {};
    const LoggedLocation& heard = calculation.locations.front();
    if (heard.managementServer) return NoteOf(QuestionOf(*heard.managementServer));
    if (heard.adapters.empty()) return {};
    const LoggedAdapterTest& test = heard.adapters.front();
    if (!test.hosts.empty()) return NoteOf(QuestionOf(test.hosts.front()));
    const auto questions = QuestionsOf({text}, test.registry, answer);
    return questions && !questions->empty() ? NoteOf(questions->front()) : ProbeNote();
  }

 private:
  static ProbeNote NoteOf(LocationExplanation::Question question) {
    return {question.took, std::move(question.details), std::move(question.advice)};
  }

  void Say(std::wstring_view text) {
    using std::chrono::milliseconds;
    const auto now = std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now().time_since_epoch());
    const std::lock_guard lock(m_mutex);
    m_reader.OnMessage({text, LogTime{now.count(), {}}, 0, 0});
  }

  std::mutex m_mutex;  // a request's worker speaks, too
  CalculationReader m_reader;
  const AdapterReport m_report{{}, [this](std::wstring_view text) { Say(text); }};
};

}  // namespace

void AskProbes(MachineSnapshot& machine, const LocationSet& set) {
  const ComBracket com;  // as around a calculation of the library's
  ProbeListener listener;
  const auto listened = [&](LOCATION_CRITERIA_TYPE kind, const std::wstring& text, const auto& probe) {
    listener.Begin(kind);
    const bool answer = probe();
    machine.notes[{kind, text}] = listener.End(kind, text, answer);
    return answer;
  };
  const LocationProbes probes{[&](const std::wstring& text) {
                                return listened(LCT_REGISTRY_KEY, text,
                                                [&] { return IsRegistryKeyCriterionMet(text) != 0; });
                              },
                              [&](const std::wstring& host) {
                                return listened(LCT_DOMAIN_REACHABLE, host, [&] { return IsDomainReachable(host); });
                              },
                              [&] { return listened(LCT_ZELT_REACHABLE, {}, &CheckZeltReachability); }};
  // A host that is silent takes its time, and who waits should see for what.
  const bool isWatched = IsTerminal(STD_ERROR_HANDLE);
  RecordAnswers(machine, set, probes, [&](LOCATION_CRITERIA_TYPE kind, const std::wstring& text) {
    if (isWatched) PrintDiagnostic("qela: asking: " + InWords({kind, text}) + "\n");
  });
}

// Explanations of what a log tells.
#include <algorithm>
#include <utility>

#include "CriterionWords.h"
#include "Explanation.h"
#include "ExplanationParts.h"
#include "FwClient/Service/QeLaLib/MatchReport.h"
#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"
#include "HttpsWords.h"
#include "Text.h"

namespace {

using Outcome = LocationExplanation::Outcome;
using Question = LocationExplanation::Question;
using What = LoggedRegistryFact::What;

bool Held(const LoggedAdapterTest& test, LOCATION_CRITERIA_TYPE kind) {
  return std::any_of(test.held.begin(), test.held.end(),
                     [&](const LoggedAdapterTest::Held& held) { return held.kind == kind; });
}

std::string ValueInWords(const LoggedRegistryFact& fact) {
  return std::string("the value ") + (fact.name.empty() ? "(default)" : Printable(fact.name)) + " is \"" +
         Printable(fact.data) + "\"";
}

// Answers of one location's test, adapter by adapter.
class LoggedAnswers {
 public:
  LoggedAnswers(const CQeLocation& location, const LoggedLocation& logged) : m_logged(logged) {
    for (const LoggedAdapterTest& test : logged.adapters)
      m_registry.push_back(
          QuestionsOf(location.Criterias().Texts(LCT_REGISTRY_KEY), test.registry, Held(test, LCT_REGISTRY_KEY)));
  }

  Question Answer(std::size_t adapter, LOCATION_CRITERIA_TYPE kind, const std::wstring& text) const {
    if (kind == LCT_ZELT_REACHABLE)
      return m_logged.managementServer ? QuestionOf(*m_logged.managementServer) : Question{};
    if (adapter >= m_logged.adapters.size()) return {text, {}, {}, {}, {}};
    const LoggedAdapterTest& test = m_logged.adapters[adapter];
    if (kind == LCT_DOMAIN_REACHABLE) return Find(test.hosts, text);
    // Without lines of its own a criterion of several may be any of them; that one held, or none did, is known.
    const std::optional<std::vector<Question>>& known = m_registry[adapter];
    if (!known) return {text, Held(test, kind), {}, {}, {}};
    for (const Question& question : *known)
      if (question.text == text) return question;
    return {text, {}, {}, {}, {}};
  }

  bool IsRegistryKnown(std::size_t adapter) const { return m_registry[adapter].has_value(); }

 private:
  static Question Find(const std::vector<LoggedHostProbe>& probes, const std::wstring& host) {
    for (const LoggedHostProbe& probe : probes)
      if (probe.host == host) return QuestionOf(probe);
    return {host, {}, {}, {}, {}};
  }

  const LoggedLocation& m_logged;
  std::vector<std::optional<std::vector<Question>>> m_registry;
};

// As the line names it, where it is not the criterion.
std::wstring NamedInLog(LOCATION_CRITERIA_TYPE kind, const std::wstring& held, const AdapterProps& adapter) {
  switch (kind) {
    case LCT_DHCP_SERVER:
      return adapter.dhcpServer;
    case LCT_SECONDARY_WINS:
      return adapter.winsPrimary;
    case LCT_REGISTRY_KEY:
    case LCT_DOMAIN_REACHABLE:
      return {};
    default:
      return held;
  }
}

// Whether this test of an adapter is the one that the log tells.
bool Agrees(const LocationExplanation::Adapter& explained, const AdapterProps& adapter, const LoggedAdapterTest& test) {
  if (explained.matches != test.matches) return false;
  auto held = test.held.begin();
  std::size_t hosts = 0;
  bool isRegistryReached = false;
  for (const LocationExplanation::Kind& kind : explained.kinds) {
    if (kind.outcome == Outcome::kNotReached) continue;
    isRegistryReached |= kind.kind == LCT_REGISTRY_KEY;
    if (kind.kind == LCT_DOMAIN_REACHABLE) {
      if (kind.questions.size() != test.hosts.size()) return false;
      for (; hosts < test.hosts.size(); ++hosts)
        if (kind.questions[hosts].text != test.hosts[hosts].host) return false;
    }
    if (kind.outcome == Outcome::kFailed) break;
    if (kind.outcome != Outcome::kHeld || held == test.held.end() || held->kind != kind.kind ||
        held->named != NamedInLog(kind.kind, kind.held.value_or(std::wstring()), adapter))
      return false;
    ++held;
  }
  return held == test.held.end() && hosts == test.hosts.size() && (isRegistryReached || test.registry.empty());
}

bool Agrees(const LocationExplanation& explanation, const LoggedCalculation& calculation,
            const LoggedLocation& logged) {
  if (explanation.name != logged.name || explanation.asksForManagementServer != logged.asksForManagementServer ||
      explanation.managementServer.has_value() != logged.managementServer.has_value() ||
      (explanation.verdict == Verdict::kCurrent) != logged.isCurrent.value_or(false) ||
      explanation.verdict == Verdict::kUnknown || (!logged.id.empty() && logged.id != explanation.id))
    return false;
  if (logged.hasNoTextCriteria)
    return std::all_of(explanation.adapters.begin(), explanation.adapters.end(),
                       [](const LocationExplanation::Adapter& adapter) { return adapter.kinds.empty(); });
  if (explanation.adapters.size() != logged.adapters.size()) return false;
  for (std::size_t i = 0; i < logged.adapters.size(); ++i)
    if (!Agrees(explanation.adapters[i], calculation.adapters[i], logged.adapters[i])) return false;
  return true;
}

// The criterion that held, as far as the line proves it; `adapter` is null where it is not known.
std::optional<std::wstring> HeldCriterion(const LoggedAdapterTest::Held& held, const AdapterProps* adapter) {
  switch (held.kind) {
    case LCT_DHCP_SERVER:
      // Either of the two servers may have agreed.
      if (adapter == nullptr || adapter->dhcpServer != adapter->dhcpV6Server) return std::nullopt;
      return held.named;
    case LCT_SECONDARY_WINS:
      if (adapter == nullptr) return std::nullopt;
      return adapter->winsSecondary;
    case LCT_REGISTRY_KEY:
    case LCT_DOMAIN_REACHABLE:
      return std::nullopt;
    default:
      return held.named;
  }
}

// Of the registry when the criteria are not known: what the lines say of keys and values.
std::vector<Question> QuestionsOf(const std::vector<LoggedRegistryFact>& facts) {
  std::vector<Question> questions;
  for (const LoggedRegistryFact& fact : facts) switch (fact.what) {
      case What::kKeyMissing64:
        questions.push_back({fact.name, false, {}, {"the key does not exist"}, {}});
        break;
      case What::kKeyExists:
        questions.push_back({{}, true, {}, {"a key exists"}, {}});
        break;
      case What::kNoNumber:
        questions.push_back(
            {fact.name, false, {}, {"the value does not exist, or is neither a text nor a 32-bit number"}, {}});
        break;
      case What::kValueDiffers:
        questions.push_back({fact.name, false, {}, {ValueInWords(fact) + ", and another is asked for"}, {}});
        break;
      case What::kValueAgrees:
        questions.push_back({fact.name, true, {}, {ValueInWords(fact)}, {}});
        break;
      case What::kKeyMissing:
      case What::kNoText:
        break;  // told by the line behind it
    }
  return questions;
}

// Which kind failed: the first that is asked for behind those that held. Only what was asked elsewhere leaves lines.
void FindFailed(LocationExplanation::Adapter& adapter, const LoggedAdapterTest& test,
                const std::vector<AdapterProps>& known, std::size_t position) {
  const auto failed = [&](LOCATION_CRITERIA_TYPE kind) {
    LocationExplanation::Kind& added = adapter.kinds.emplace_back();
    added.kind = kind;
    added.outcome = Outcome::kFailed;
    if (position < known.size()) added.seen = SeenOf(known[position], kind);
    std::erase(added.seen, std::wstring());
    if (kind == LCT_REGISTRY_KEY) added.questions = QuestionsOf(test.registry);
    if (kind == LCT_DOMAIN_REACHABLE)
      for (const LoggedHostProbe& probe : test.hosts) added.questions.push_back(QuestionOf(probe));
  };
  if (!test.hosts.empty()) return failed(LCT_DOMAIN_REACHABLE);
  if (!test.registry.empty() && !Held(test, LCT_REGISTRY_KEY)) return failed(LCT_REGISTRY_KEY);
  // A host that was asked for has always left a line; a registry criterion that is not of their form leaves none.
  const std::uint32_t first = test.held.empty() ? 0U : test.held.back().kind + 1U;
  for (std::uint32_t kind = first; kind <= LCT_REGISTRY_KEY; ++kind)
    adapter.oneOfFailed.push_back(static_cast<LOCATION_CRITERIA_TYPE>(kind));
  if (adapter.oneOfFailed.size() == 1) failed(std::exchange(adapter.oneOfFailed, {}).front());
}

LocationExplanation::Adapter AdapterOf(const LoggedAdapterTest& test, const std::vector<AdapterProps>& known,
                                       std::size_t position) {
  LocationExplanation::Adapter adapter;
  adapter.ifIndex = test.ifIndex;
  adapter.description = test.description;
  adapter.matches = test.matches;
  const AdapterProps* const props = position < known.size() ? &known[position] : nullptr;
  for (const LoggedAdapterTest::Held& held : test.held) {
    LocationExplanation::Kind& kind = adapter.kinds.emplace_back();
    kind.kind = held.kind;
    kind.outcome = Outcome::kHeld;
    kind.held = HeldCriterion(held, props);
    if (props != nullptr) kind.seen = SeenOf(*props, held.kind);
    std::erase(kind.seen, std::wstring());
    if (held.kind == LCT_REGISTRY_KEY) kind.questions = QuestionsOf(test.registry);
    if (held.kind == LCT_DOMAIN_REACHABLE) {
      for (const LoggedHostProbe& probe : test.hosts) kind.questions.push_back(QuestionOf(probe));
      if (!test.hosts.empty()) kind.held = test.hosts.back().host;
    }
  }
  if (test.matches == false) FindFailed(adapter, test, known, position);
  return adapter;
}

// Of several registry criteria, which one it was.
void ForgetCriterion(LocationExplanation::Adapter& adapter, const LoggedAdapterTest& test) {
  for (LocationExplanation::Kind& kind : adapter.kinds) {
    if (kind.kind != LCT_REGISTRY_KEY || kind.questions.empty()) continue;
    kind.questions = QuestionsOf(test.registry);
    if (kind.asked.size() > 1) kind.held.reset();
  }
}

void AddCaveats(LocationExplanation& explanation, const LoggedCalculation& calculation) {
  if (!calculation.hasBeginning)
    explanation.caveats.emplace_back(
        "The log begins in the middle of this calculation: what the adapters showed is not known.");
  if (calculation.unreadableAdapters != 0)
    explanation.caveats.push_back("What " + Counted(calculation.unreadableAdapters, "adapter") +
                                  " showed cannot be read from the log.");
  if (!calculation.broken.empty())
    explanation.caveats.push_back("The calculation cannot be read to its end: " + calculation.broken +
                                  ". Lines are missing, or two calculations ran at once.");
}

}  // namespace

Question QuestionOf(const LoggedHostProbe& probe) {
  return {probe.host, probe.answer, probe.took, InWords(probe),
          probe.requests.empty() ? std::string() : AdviceFor(probe.requests.back())};
}

Question QuestionOf(const LoggedManagementServer& server) {
  Question question{{}, server.answer, server.took, {}, {}};
  std::string names;
  for (const std::wstring& name : server.names) names += (names.empty() ? "" : ", ") + Printable(name);
  if (names.empty())
    question.details.emplace_back("the list of management servers in the registry is missing or empty");
  else
    question.details.push_back((server.answer ? "asked DNS for " : "DNS knows none of ") + names);
  return question;
}

std::optional<std::vector<Question>> QuestionsOf(const std::vector<std::wstring>& criteria,
                                                 const std::vector<LoggedRegistryFact>& facts, bool hasHeld) {
  std::vector<Question> questions;
  auto fact = facts.begin();
  const auto take = [&](What what, const std::wstring& name) {
    if (fact == facts.end() || fact->what != what || fact->name != name) return false;
    ++fact;
    return true;
  };
  bool holds = false;
  for (const std::wstring& criterion : criteria) {
    Question question{criterion, false, {}, {}, {}};
    const std::optional<RegistryKeyCriterion> parsed = ParseRegistryKeyCriterion(criterion);
    if (!parsed) {
      question.details.emplace_back("it is not of the form of a registry criterion, and never holds");
    } else if (take(What::kKeyMissing, parsed->subkey) && take(What::kKeyMissing64, parsed->subkey)) {
      question.details.emplace_back("the key does not exist");
    } else if (parsed->IsExistenceOnly()) {
      if (!take(What::kKeyExists, {})) return std::nullopt;
      question.answer = holds = true;
    } else if (take(What::kNoText, parsed->valueName) && take(What::kNoNumber, parsed->valueName)) {
      question.details.emplace_back("the value does not exist, or is neither a text nor a 32-bit number");
    } else {
      if (fact == facts.end() || fact->name != parsed->valueName) return std::nullopt;
      question.details.push_back(ValueInWords(*fact));
      const bool agrees = fact->what == What::kValueAgrees;
      // The data is the number's digits, or the text's.
      if ((!agrees && fact->what != What::kValueDiffers) || agrees != (fact->data == parsed->data)) return std::nullopt;
      question.answer = holds = agrees;
      ++fact;
    }
    questions.push_back(std::move(question));
    if (holds) break;
  }
  if (fact != facts.end() || holds != hasHeld) return std::nullopt;
  return questions;
}

LocationExplanation Explain(const LoggedCalculation& calculation, const LoggedLocation& logged, Tense tense) {
  LocationExplanation explanation;
  explanation.id = logged.id;
  explanation.name = logged.name;
  explanation.asksForManagementServer = logged.asksForManagementServer.value_or(false);
  if (logged.isCurrent) explanation.verdict = *logged.isCurrent ? Verdict::kCurrent : Verdict::kNotCurrent;
  // Positions mean something only where every adapter could be read.
  const std::vector<AdapterProps> known =
      calculation.unreadableAdapters == 0 ? calculation.adapters : std::vector<AdapterProps>();
  for (std::size_t i = 0; i < logged.adapters.size(); ++i)
    explanation.adapters.push_back(AdapterOf(logged.adapters[i], known, i));
  if (logged.hasNoTextCriteria)
    for (const AdapterProps& adapter : known)
      explanation.adapters.push_back({adapter.ifIndex, adapter.description, true, {}, {}});
  if (logged.managementServer) explanation.managementServer = QuestionOf(*logged.managementServer);
  AddCaveats(explanation, calculation);
  Conclude(explanation, tense);
  return explanation;
}

LocationExplanation Explain(const CQeLocation& location, const LoggedCalculation& calculation,
                            const LoggedLocation& logged, Tense tense) {
  const bool canTell = calculation.hasBeginning && calculation.unreadableAdapters == 0 && logged.isCurrent.has_value();
  if (canTell) {
    // It was tested, and so was enabled, whatever the set says now.
    CQeLocation tested = location;
    constexpr bool kEnabled = true;
    tested.SetEnabled(&kEnabled);
    const LoggedAnswers answers(tested, logged);
    LocationExplanation explanation = ExplainBy(
        tested, calculation.adapters, [&](std::size_t adapter, LOCATION_CRITERIA_TYPE kind, const std::wstring& text) {
          return answers.Answer(adapter, kind, text);
        });
    if (Agrees(explanation, calculation, logged)) {
      for (std::size_t i = 0; i < logged.adapters.size(); ++i)
        if (!answers.IsRegistryKnown(i)) ForgetCriterion(explanation.adapters[i], logged.adapters[i]);
      AddCaveats(explanation, calculation);
      if (!location.IsEnabled()) explanation.caveats.emplace_back("In the set it is disabled; then, it was not.");
      Conclude(explanation, tense);
      return explanation;
    }
  }
  LocationExplanation explanation = Explain(calculation, logged, tense);
  explanation.contradictsCriteria = canTell;
  if (canTell)
    explanation.caveats.emplace_back(
        "What the log tells cannot come from the criteria that the set has for this location: the machine had others. "
        "It is explained without them.");
  return explanation;
}

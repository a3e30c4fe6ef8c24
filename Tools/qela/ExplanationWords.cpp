// Explanations for people and scripts.
#include <algorithm>
#include <utility>

#include "CriterionKinds.h"
#include "CriterionWords.h"
#include "Explanation.h"
#include "ExplanationParts.h"
#include "FwClient/Service/QeLaLib/LocationMatcher.h"
#include "Text.h"

namespace {

using Outcome = LocationExplanation::Outcome;
using Adapter = LocationExplanation::Adapter;
using Kind = LocationExplanation::Kind;
using Question = LocationExplanation::Question;

std::string NameOf(const LocationExplanation& explanation) {
  return explanation.name.empty() ? "The location without a name" : Printable(explanation.name);
}

std::string InWords(const Adapter& adapter) { return AdapterInWords(adapter.ifIndex, adapter.description); }

std::string Join(const std::vector<std::string>& parts, const std::string& separator, const std::string& last) {
  std::string list;
  for (std::size_t i = 0; i < parts.size(); ++i)
    list += (i == 0 ? "" : i + 1 == parts.size() ? last : separator) + parts[i];
  return list;
}

std::string Seconds(std::chrono::milliseconds took) {
  constexpr std::int64_t kTenths = 100;
  const std::int64_t tenths = (took.count() + kTenths / 2) / kTenths;
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

// "intranet.example: no, 3.1 s: error 12007 (DNS does not know the name)"
std::string InWords(const Question& question) {
  std::string words = question.text.empty() ? "" : Printable(question.text) + ": ";
  words += !question.answer ? "not asked" : *question.answer ? "yes" : "no";
  if (question.took) words += ", " + Seconds(*question.took);
  if (!question.details.empty()) words += ": " + Join(question.details, "; ", "; ");
  return words;
}

// A word of a command line, quoted where it must be.
std::string Argument(const std::wstring& text) {
  return !text.empty() && text.find_first_of(L" \t\"") == std::wstring::npos ? Printable(text)
                                                                             : "\"" + Printable(text) + "\"";
}

const char* OptionOf(LOCATION_CRITERIA_TYPE kind) {
  for (const CriterionKind& known : kCriterionKinds)
    if (known.kind == kind) return known.option;
  return "management-server";
}

// Of a question that was answered with no, why.
std::string Reason(const Question& question) {
  return question.details.empty() ? ShownCriterion(question.text) + " did not hold"
                                  : ShownCriterion(question.text) + ": " + Join(question.details, "; ", "; ");
}

// "it shows 10.20.0.1, and the location asks for 10.0.0.1"
std::string FailureInWords(const Kind& kind) {
  if (AdapterCriteria::Knows(kind.kind)) {
    const std::string seen = kind.seen.empty() ? "it shows none" : "it shows " + SeenInWords(kind.seen);
    return kind.asked.empty() ? seen : seen + ", and the location asks for " + AskedInWords(kind.asked);
  }
  std::vector<std::string> reasons;
  for (const Question& question : kind.questions)
    if (question.answer == false) reasons.push_back(Reason(question));
  if (!reasons.empty()) return Join(reasons, "; ", "; ");
  return kind.asked.empty() ? "the log does not say what was asked" : AskedInWords(kind.asked) + " does not hold";
}

// What would make the kind hold.
std::string Remedy(const LocationExplanation& explanation, const Kind& kind) {
  if (kind.asked.empty()) return {};
  std::string remedy = "It would hold ";
  if (kind.kind == LCT_REGISTRY_KEY)
    return remedy + "if the registry of the machine had " + AskedInWords(kind.asked) + ".";
  if (kind.kind == LCT_DOMAIN_REACHABLE) {
    const std::string advice = kind.questions.empty() ? std::string() : kind.questions.back().advice;
    return remedy + "if " + AskedInWords(kind.asked) + " answered over HTTPS with status 200 or 401" +
           (advice.empty() ? "" : ": " + advice) + ".";
  }
  remedy += "on an adapter whose " + std::string(TitleOf(kind.kind)) +
            (kind.kind == LCT_DNS_SUFFIX ? " fits " : " is ") + AskedInWords(kind.asked);
  if (!kind.seen.empty())
    remedy += ", or if the location asked for what this one shows (qela location set " + Argument(explanation.name) +
              " --add-" + OptionOf(kind.kind) + " " + Argument(kind.seen.front()) + ")";
  return remedy + ".";
}

std::string NotCurrentByAdapter(const LocationExplanation& explanation, const Adapter& adapter, const char* isNot,
                                Tense tense) {
  const auto kind = std::find_if(adapter.kinds.begin(), adapter.kinds.end(),
                                 [](const Kind& tested) { return tested.outcome == Outcome::kFailed; });
  std::string sentence = NameOf(explanation) + isNot + "current: " + InWords(adapter) +
                         (explanation.adapters.size() > 1 ? " comes nearest, and " : " ") +
                         (tense == Tense::kPast ? "failed at the " : "fails at the ") + TitleOf(kind->kind) + ": " +
                         FailureInWords(*kind) + ".";
  const std::string remedy = Remedy(explanation, *kind);
  if (!remedy.empty()) sentence += " " + remedy;
  std::vector<std::string> others;
  for (const Kind& other : adapter.kinds)
    if (other.outcome == Outcome::kFailsToo) others.emplace_back(TitleOf(other.kind));
  if (!others.empty()) sentence += " Then the " + Join(others, ", the ", " and the ") + " would fail as well.";
  return sentence;
}

// Without the criteria: what held, and what may have failed.
std::string NotCurrentByLog(const LocationExplanation& explanation) {
  const Adapter* best = nullptr;
  for (const Adapter& adapter : explanation.adapters)
    if (!adapter.oneOfFailed.empty() && (best == nullptr || adapter.kinds.size() > best->kinds.size())) best = &adapter;
  if (best == nullptr) return NameOf(explanation) + " was not current; the log does not say why.";
  std::vector<std::string> held;
  held.reserve(best->kinds.size());
  for (const Kind& kind : best->kinds)
    held.push_back(std::string(TitleOf(kind.kind)) + (kind.held ? " " + ShownCriterion(*kind.held) : ""));
  std::vector<std::string> maybe;
  maybe.reserve(best->oneOfFailed.size());
  for (const LOCATION_CRITERIA_TYPE kind : best->oneOfFailed) maybe.emplace_back(TitleOf(kind));
  return NameOf(explanation) + " was not current: on " + InWords(*best) + ", " +
         (held.empty() ? "nothing is known to have held" : Join(held, ", ", " and ") + " held") + ", and one of " +
         Join(maybe, ", ", " and ") +
         " failed; the log does not say which. With --set and the locations of that time, "
         "it can be told.";
}

std::string MatchesInWords(const LocationExplanation& explanation, Tense tense) {
  std::vector<std::string> matching;
  bool hasKinds = false;
  for (const Adapter& adapter : explanation.adapters) {
    hasKinds |= !adapter.kinds.empty();
    if (adapter.matches == true) matching.push_back(InWords(adapter));
  }
  if (!hasKinds)
    return explanation.managementServer ? ""
                                        : std::string(tense == Tense::kPast ? "it had" : "it has") +
                                              " no criteria, and so is current wherever there is an adapter";
  const bool isOne = matching.size() == 1;
  return Join(matching, ", ", " and ") +
         (tense == Tense::kPast ? (isOne ? " showed" : " each showed") : (isOne ? " shows" : " each show")) +
         " all that it asks for";
}

std::string Unknown(const LocationExplanation& explanation) {
  std::vector<std::string> open;
  const auto add = [&](const std::string& question) {
    if (std::find(open.begin(), open.end(), question) == open.end()) open.push_back(question);
  };
  for (const Adapter& adapter : explanation.adapters)
    for (const Kind& kind : adapter.kinds)
      if (kind.outcome == Outcome::kUnknown)
        for (const Question& question : kind.questions)
          if (!question.answer) add(std::string(TitleOf(kind.kind)) + " " + ShownCriterion(question.text));
  if (explanation.managementServer && !explanation.managementServer->answer) add("management server");
  if (open.empty())
    return "It is not known whether " + NameOf(explanation) + " was current: the log breaks off before.";
  return "Whether " + NameOf(explanation) + " is current depends on what was not asked: " + Join(open, ", ", " and ") +
         ".";
}

std::string Sentence(const LocationExplanation& explanation, Tense tense) {
  const char* const is = tense == Tense::kPast ? " was " : " is ";
  const char* const isNot = tense == Tense::kPast ? " was not " : " is not ";
  const std::string name = NameOf(explanation);
  if (!explanation.isEnabled)
    return name + isNot + "current: it is disabled (qela location enable " + Argument(explanation.name) + ").";
  if (explanation.verdict == Verdict::kUnknown) return Unknown(explanation);
  if (explanation.verdict == Verdict::kCurrent) {
    const std::string matches = MatchesInWords(explanation, tense);
    const std::string server = explanation.managementServer ? "the management server was found in DNS" : "";
    return name + is + "current: " + matches + (matches.empty() || server.empty() ? "" : ", and ") + server + ".";
  }
  if (explanation.managementServer) {
    std::string sentence = name + isNot + "current: the management server was not found";
    if (!explanation.managementServer->details.empty())
      sentence += " (" + Join(explanation.managementServer->details, "; ", "; ") + ")";
    return sentence +
           ". It would be current if DNS knew one of the management servers that the management agent names.";
  }
  if (explanation.adapters.empty()) return name + isNot + "current: the machine shows no adapter that is up.";
  if (!explanation.failure) return NotCurrentByLog(explanation);
  return NotCurrentByAdapter(explanation, explanation.adapters[explanation.failure->adapter], isNot, tense);
}

// As many cells below each other as there are values.
using Cell = std::vector<std::string>;
struct Row {
  Cell cells[4];  // kind, asked, seen, outcome
};
constexpr std::size_t kColumns = 4;

const char* InWords(Outcome outcome) {
  switch (outcome) {
    case Outcome::kHeld:
      return "held";
    case Outcome::kFailed:
      return "FAIL";
    case Outcome::kFailsToo:
      return "fail";
    case Outcome::kNotReached:
      return "not reached";
    case Outcome::kUnknown:
      break;
  }
  return "unknown";
}

Row RowOf(const Kind& kind) {
  Row row;
  row.cells[0] = {TitleOf(kind.kind)};
  for (const std::wstring& asked : kind.asked) row.cells[1].push_back(ShownCriterion(asked));
  if (kind.asked.empty() && kind.held) row.cells[1].push_back(ShownCriterion(*kind.held));
  if (AdapterCriteria::Knows(kind.kind)) {
    for (const std::wstring& seen : kind.seen) row.cells[2].push_back(Printable(seen));
    if (kind.seen.empty() && !kind.asked.empty()) row.cells[2].emplace_back("none");
  }
  row.cells[3] = {InWords(kind.outcome)};
  return row;
}

// Of UTF-8, in code points.
std::size_t WidthOf(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(
      text.begin(), text.end(), [](char unit) { return (static_cast<unsigned char>(unit) & 0xC0) != 0x80; }));
}

std::string TableOf(const std::vector<Row>& rows) {
  std::size_t widths[kColumns] = {};
  for (const Row& row : rows)
    for (std::size_t i = 0; i < kColumns; ++i)
      for (const std::string& line : row.cells[i]) widths[i] = std::max(widths[i], WidthOf(line));
  std::string text;
  for (const Row& row : rows) {
    std::size_t lines = 1;
    for (const Cell& cell : row.cells) lines = std::max(lines, cell.size());
    for (std::size_t line = 0; line < lines; ++line) {
      std::string shown = "   ";
      for (std::size_t i = 0; i < kColumns; ++i) {
        const std::string value = line < row.cells[i].size() ? row.cells[i][line] : "";
        shown += " " + value + std::string(widths[i] - WidthOf(value) + 1, ' ');
      }
      while (shown.ends_with(' ')) shown.pop_back();
      text += shown + "\n";
    }
  }
  return text;
}

std::string TextOf(const Adapter& adapter) {
  std::string text = "  " + InWords(adapter) +
                     (!adapter.matches   ? ""
                      : *adapter.matches ? ": matches"
                                         : ": does not match") +
                     "\n";
  if (adapter.kinds.empty() && adapter.oneOfFailed.empty()) return text;
  std::vector<Row> rows = {{{{"kind"}, {"asked"}, {"seen"}, {""}}}};
  for (const Kind& kind : adapter.kinds) rows.push_back(RowOf(kind));
  if (!adapter.oneOfFailed.empty()) {
    Row row;
    for (const LOCATION_CRITERIA_TYPE kind : adapter.oneOfFailed)
      row.cells[0].push_back((row.cells[0].empty() ? "one of: " : "  ") + std::string(TitleOf(kind)));
    row.cells[3] = {InWords(Outcome::kFailed)};
    rows.push_back(std::move(row));
  }
  text += TableOf(rows);
  for (const Kind& kind : adapter.kinds)
    for (const Question& question : kind.questions)
      if (question.took || !question.details.empty())
        text += "      " + std::string(TitleOf(kind.kind)) + " " + InWords(question) + "\n";
  return text;
}

const char* NameOf(Verdict verdict) {
  return verdict == Verdict::kCurrent ? "current" : verdict == Verdict::kUnknown ? "unknown" : "not current";
}

const char* MemberOf(Outcome outcome) {
  switch (outcome) {
    case Outcome::kHeld:
      return "held";
    case Outcome::kFailed:
      return "failed";
    case Outcome::kFailsToo:
      return "fails too";
    case Outcome::kNotReached:
      return "not reached";
    case Outcome::kUnknown:
      break;
  }
  return "unknown";
}

Json ToJson(const Question& question) {
  Json json = {{"asked", ToUtf8(question.text)}, {"answer", nullptr}};
  if (question.answer) json["answer"] = *question.answer;
  if (question.took) json["milliseconds"] = question.took->count();
  if (!question.details.empty()) json["details"] = question.details;
  return json;
}

Json ToJson(const Kind& kind) {
  Json json = {{"kind", MemberOf(kind.kind)}, {"outcome", MemberOf(kind.outcome)}};
  if (!kind.asked.empty()) json["asked"] = Texts(kind.asked);
  if (AdapterCriteria::Knows(kind.kind)) json["seen"] = Texts(kind.seen);
  if (kind.held) json["held"] = ToUtf8(*kind.held);
  for (const Question& question : kind.questions) json["answers"].push_back(ToJson(question));
  return json;
}

}  // namespace

void Conclude(LocationExplanation& explanation, Tense tense) {
  FindFailure(explanation);
  explanation.sentence = Sentence(explanation, tense);
  if (std::any_of(explanation.adapters.begin(), explanation.adapters.end(),
                  [](const Adapter& adapter) { return adapter.ifIndex == 0; }))
    explanation.caveats.emplace_back("An adapter without IPv4 has the index 0.");
}

std::string ToText(const LocationExplanation& explanation) {
  std::string text = NameOf(explanation) + ": " + NameOf(explanation.verdict) + "\n";
  for (const Adapter& adapter : explanation.adapters) text += TextOf(adapter);
  if (explanation.managementServer) text += "  management server: " + InWords(*explanation.managementServer) + "\n";
  text += "  " + explanation.sentence + "\n";
  for (const std::string& caveat : explanation.caveats) text += "  " + caveat + "\n";
  return text;
}

Json ToJson(const LocationExplanation& explanation) {
  Json json = Json::object();
  if (!explanation.id.empty()) json["id"] = ToUtf8(explanation.id);
  json["name"] = ToUtf8(explanation.name);
  json["verdict"] = NameOf(explanation.verdict);
  json["enabled"] = explanation.isEnabled;
  json["adapters"] = Json::array();
  for (const Adapter& adapter : explanation.adapters) {
    Json tested = {{"index", adapter.ifIndex}, {"description", ToUtf8(adapter.description)}, {"matches", nullptr}};
    if (adapter.matches) tested["matches"] = *adapter.matches;
    tested["kinds"] = Json::array();
    for (const Kind& kind : adapter.kinds) tested["kinds"].push_back(ToJson(kind));
    for (const LOCATION_CRITERIA_TYPE kind : adapter.oneOfFailed) tested["oneOfFailed"].push_back(MemberOf(kind));
    json["adapters"].push_back(std::move(tested));
  }
  if (explanation.managementServer) json["managementServer"] = ToJson(*explanation.managementServer);
  if (explanation.failure)
    json["failure"] = {{"adapter", explanation.adapters[explanation.failure->adapter].ifIndex},
                       {"kind", MemberOf(explanation.failure->kind)}};
  json["sentence"] = explanation.sentence;
  if (!explanation.caveats.empty()) json["caveats"] = explanation.caveats;
  return json;
}

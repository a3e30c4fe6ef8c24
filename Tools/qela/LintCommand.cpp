#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "AdapterView.h"
#include "Commands.h"
#include "CriterionKinds.h"
#include "Json.h"
#include "Lint.h"
#include "LocationSetFile.h"
#include "Output.h"
#include "StoredSet.h"
#include "Text.h"

namespace {

const CriterionKind* KindOf(const Finding& finding) {
  const auto* const kind = std::find_if(std::begin(kCriterionKinds), std::end(kCriterionKinds),
                                        [&](const CriterionKind& each) { return each.kind == finding.kind; });
  return kind != std::end(kCriterionKinds) ? kind : nullptr;
}

// Such as: --dns-suffix "corp.example.": With a dot at its end ... (detail).
std::string Statement(const Finding& finding) {
  std::string text;
  if (const CriterionKind* const kind = KindOf(finding))
    text = std::string("--") + kind->option + " \"" + Printable(finding.value) + "\": ";
  text += finding.rule->sentence;
  if (!finding.detail.empty()) text.insert(text.size() - 1, " (" + finding.detail + ")");
  return text;
}

std::string InColour(Severity severity) {
  return Coloured(severity == Severity::kError     ? Colour::kRed
                  : severity == Severity::kWarning ? Colour::kYellow
                                                   : Colour::kDim,
                  NameOf(severity));
}

Json Details(const LocationSet& set, const Finding& finding) {
  const CQeLocation& location = set[finding.location];
  Json details = {{"rule", finding.rule->number},
                  {"severity", NameOf(finding.rule->severity)},
                  {"location", {{"id", ToUtf8(location.Id())}, {"name", ToUtf8(location.Name())}}}};
  if (const CriterionKind* const kind = KindOf(finding))
    details["criterion"] = {{"kind", kind->member}, {"value", ToUtf8(finding.value)}};
  details["sentence"] = finding.rule->sentence;
  if (!finding.detail.empty()) details["detail"] = finding.detail;
  details["fix"] = finding.fix;
  if (finding.cost)
    details["cost"] = {{"silentSeconds", finding.cost->silentSeconds}, {"worstSeconds", finding.cost->worstSeconds}};
  return details;
}

}  // namespace

ExitCode LintSet(const Options& options) {
  const LintOptions& lint = options.lint;
  const LocationSet set = lint.file ? ReadSetFile(*lint.file) : ReadLocations();
  const std::vector<Finding> findings = Lint(set, lint.adapters ? *lint.adapters : TakeAdapters()->size());

  std::array<std::size_t, 3> counts{};  // by severity
  Json list = Json::array();
  std::string text;
  std::size_t last = set.size();
  for (const Finding& finding : findings) {
    ++counts[static_cast<std::size_t>(finding.rule->severity)];
    if (options.json) {
      list.push_back(Details(set, finding));
      continue;
    }
    if (finding.location != std::exchange(last, finding.location)) text += Quoted(set[finding.location]) + "\n";
    text += "  " + InColour(finding.rule->severity) + " " + std::string(finding.rule->number) + " " +
            Statement(finding) + "\n    fix: " + finding.fix + "\n";
  }
  const auto [errors, warnings, notes] = counts;
  if (options.json)
    Print(ToLine({{"findings", std::move(list)},
                  {"locations", set.size()},
                  {"errors", errors},
                  {"warnings", warnings},
                  {"notes", notes}}));
  else
    Print(text + Counted(set.size(), "location") + ": " + Counted(errors, "error") + ", " +
          Counted(warnings, "warning") + ", " + Counted(notes, "note") + "\n");
  return errors != 0 || (lint.strict && warnings != 0) ? kFailed : kDone;
}

void NoteFindings(const LocationSet& set, const std::vector<std::wstring>& ids) {
  constexpr std::size_t kMostNotes = 20;
  if (ids.empty()) return;
  std::size_t count = 0;
  std::string text;
  for (const Finding& finding : LintLocations(set, ids, TakeAdapters()->size())) {
    if (finding.rule == &LintRules::kSameName || finding.rule == &LintRules::kSimilarName || ++count > kMostNotes)
      continue;
    text += std::string("qela: ") + NameOf(finding.rule->severity) + " " + std::string(finding.rule->number) +
            (ids.size() > 1 ? " " + Quoted(set[finding.location]) : std::string()) + ": " + Statement(finding) +
            " Fix: " + finding.fix + ".\n";
  }
  if (count > kMostNotes)
    text += "qela: note: " + std::to_string(count - kMostNotes) + " more; \"qela lint\" tells all\n";
  PrintDiagnostic(text);
}

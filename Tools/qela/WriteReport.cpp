#include <algorithm>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "AskProbes.h"
#include "Checks.h"
#include "CommandError.h"
#include "Commands.h"
#include "FileBytes.h"
#include "LogBlocks.h"
#include "MachineFacts.h"
#include "Output.h"
#include "ReportFile.h"
#include "StoredSet.h"
#include "TestSet.h"
#include "Text.h"

namespace {

constexpr std::size_t kMostLogBytes = 256 << 10;
constexpr std::size_t kMostLogLines = 500;

// A host may write in the machine's code page. Where some of it is UTF-8 and some is broken, it is meant to be UTF-8:
// of a name that is read as another text nobody would know that it is the name.
std::wstring Decoded(std::string_view bytes, bool isUtf8) {
  std::wstring text = ToWide(bytes);
  const auto isOther = [](wchar_t unit) { return unit >= 0x80 && unit != 0xfffd; };
  if (isUtf8 || text.find(L'\xfffd') == std::wstring::npos || std::any_of(text.begin(), text.end(), isOther))
    return text;
  const int size = static_cast<int>(bytes.size());
  text.assign(bytes.size(), L'\0');
  text.resize(static_cast<std::size_t>(::MultiByteToWideChar(CP_ACP, 0, bytes.data(), size, text.data(), size)));
  return text;
}

// The last lines, with "\n" at the end of each.
std::wstring EndOfLog(const std::wstring& path, LogProgress& progress) {
  LogBlocks blocks(path, progress);
  std::string tail;
  for (std::string_view lines; blocks.Next(lines);) {
    if (lines.size() > kMostLogBytes) lines.remove_prefix(lines.size() - kMostLogBytes);
    tail += lines;
    if (tail.size() > kMostLogBytes) tail.erase(0, tail.size() - kMostLogBytes);
  }
  std::vector<std::string_view> lines;
  for (std::string_view left = tail; !left.empty();) {
    const std::size_t end = std::min(left.find('\n'), left.size() - 1) + 1;
    lines.push_back(left.substr(0, end));
    left.remove_prefix(end);
  }
  // The first one is not whole where the tail was cut.
  const std::size_t skipped = std::max<std::size_t>(tail.size() == kMostLogBytes && lines.size() > 1 ? 1 : 0,
                                                    lines.size() - std::min(lines.size(), kMostLogLines));
  std::wstring text;
  for (std::size_t i = skipped; i < lines.size(); ++i) text += Decoded(lines[i], blocks.IsUtf8());
  std::erase(text, L'\r');
  return text;
}

// A file tells locations apart by their IDs.
std::size_t GiveOwnIds(LocationSet& set) {
  std::unordered_set<std::wstring> ids;
  std::size_t given = 0;
  for (std::size_t i = 0; i < set.size(); ++i) {
    std::wstring id = set[i].Id();
    while (id.empty() || !ids.insert(id).second) id += L"location-" + std::to_wstring(i + 1);
    if (id == set[i].Id()) continue;
    set[i].SetId(id);
    ++given;
  }
  return given;
}

const char* NameOf(Redaction::Level level) {
  return level == Redaction::Level::kNone ? "none" : level == Redaction::Level::kNames ? "names" : "full";
}

}  // namespace

ExitCode WriteReport(const Options& options) {
  const SupportOptions& asked = options.support;
  // First what can be wrong with what was asked for.
  RefuseToOverwrite(asked.logs, asked.file);
  std::vector<std::wstring> tails;
  {
    LogProgress progress;
    for (const std::wstring& log : asked.logs) tails.push_back(EndOfLog(log, progress));
  }
  MachineFacts facts = GatherFacts();
  const std::size_t given = GiveOwnIds(facts.set);
  MachineSnapshot machine;
  machine.machine = facts.identity.machine;
  machine.recorded = facts.time;
  machine.adapters = facts.adapters;
  if (!asked.noProbes) AskProbes(machine, facts.set);

  Redaction redaction(asked.redaction, facts.set, machine, facts.identity);
  // Twice: what a log names at its end stands at its beginning, too, or in another one.
  for (const std::wstring& tail : tails) redaction.FreeText(tail);

  Report report;
  report.made = facts.time;
  report.checks = Judge(Redacted(facts, redaction));
  report.machine = redaction.Machine();
  report.set = redaction.Set();
  for (const CQeLocation& location : report.set) report.locations.push_back(Explain(location, report.machine));
  for (std::size_t i = 0; i < tails.size(); ++i)
    report.logs.push_back(
        {asked.logs.size() == 1 ? "the log" : "log " + std::to_string(i + 1), ToUtf8(redaction.FreeText(tails[i]))});
  report.replaced = redaction.Counts();

  report.about.push_back("Written by qela " + facts.programVersion +
                         (asked.noProbes ? ", without probes." : ", with probes."));
  if (redaction.IsOff())
    report.about.emplace_back("Nothing was replaced: the page names this machine, its network and its user.");
  else
    report.about.push_back("Equal values have equal placeholders. Replaced: " + InWords(report.replaced) + ".");
  if (given != 0)
    report.about.push_back(Counted(given, "location") + " had no ID or that of another; here each has its own.");
  if (TestSet(report.set).VerdictsOn(report.machine) != TestSet(facts.set).VerdictsOn(machine))
    report.about.emplace_back(
        "With the placeholders some location is decided in another way than on the machine: a "
        "label that holds \"*\" matches more labels than can be written.");
  report.about.emplace_back("\"qela explain --all --machine FILE\" explains the locations again from this page.");
  WriteFileBytes(asked.file, ReportPage(report));

  const std::size_t errors = CountOf(report.checks, Check::Result::kError);
  const std::size_t warnings = CountOf(report.checks, Check::Result::kWarn);
  if (options.json) {
    Json replaced = Json::array();
    for (const Redaction::Count& count : report.replaced)
      replaced.push_back({{"placeholder", NameOf(count.secret)}, {"values", count.values}});
    Print(ToLine({{"file", ToUtf8(asked.file)},
                  {"locations", report.locations.size()},
                  {"errors", errors},
                  {"warnings", warnings},
                  {"redaction", NameOf(asked.redaction)},
                  {"replaced", std::move(replaced)}}));
  } else {
    Print("Wrote " + Printable(asked.file) + ": " + Counted(report.locations.size(), "location") + ", " +
          Counted(errors, "error") + " and " + Counted(warnings, "warning") +
          " of the checks.\nReplaced: " + InWords(report.replaced) + ".\n");
  }
  return kDone;
}

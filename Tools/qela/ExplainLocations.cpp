#include <algorithm>
#include <utility>

#include "Account.h"
#include "CommandError.h"
#include "Commands.h"
#include "ExplainMachine.h"
#include "FileBytes.h"
#include "LogFile.h"
#include "Output.h"
#include "ReportFile.h"
#include "StoredSet.h"
#include "TestSet.h"
#include "Text.h"

namespace {

constexpr const char* kAnotherAccount =
    "A service may run as another account, with another HKEY_CURRENT_USER and another proxy, and get other answers.";

// What a command has to show, whatever it comes from.
struct Shown {
  std::vector<LocationExplanation> locations;
  std::string source;                   // a line in front
  Json sourceMembers = Json::object();  // of JSON
  std::vector<std::string> notes;       // lines behind
  std::vector<std::string> differences;
  const char* withoutLocations = "No location is stored.";
};

ExitCode Show(const Shown& shown, bool json) {
  if (json) {
    Json output = shown.sourceMembers;
    output["locations"] = Json::array();
    for (const LocationExplanation& location : shown.locations) output["locations"].push_back(ToJson(location));
    if (!shown.differences.empty()) output["differences"] = shown.differences;
    if (!shown.notes.empty()) output["notes"] = shown.notes;
    Print(ToLine(output));
  } else {
    std::string text = shown.source.empty() ? "" : shown.source + "\n\n";
    for (const LocationExplanation& location : shown.locations) text += ToText(location) + "\n";
    for (const std::string& note : shown.notes) text += note + "\n";
    if (shown.locations.empty()) text += std::string(shown.withoutLocations) + "\n";
    Print(text);
  }
  if (!shown.differences.empty()) {
    std::string message;
    for (const std::string& difference : shown.differences) message += (message.empty() ? "" : "\n") + difference;
    throw CommandError(kFailed, message);
  }
  return std::all_of(shown.locations.begin(), shown.locations.end(),
                     [](const LocationExplanation& location) { return location.verdict == Verdict::kCurrent; })
             ? kDone
             : kNo;
}

// Leaves the one that is asked for; all where none is named.
template <typename Container>
void KeepAskedFor(Container& container, const LocationSet& set, const SupportOptions& asked) {
  if (asked.location.empty()) return;
  const std::size_t position = Find(set, asked.location);
  container = Container{std::move(container[position])};
}

Shown OfThisMachine(const SupportOptions& asked) {
  Shown shown;
  const bool hasFile = !asked.set.empty();
  LocationSet set = hasFile ? ReadSetToTest(asked.set) : ReadLocations();
  // Looked for before anything is asked of the network.
  if (!asked.location.empty()) Find(set, asked.location);
  ThisMachine machine;
  if (hasFile || asked.noProbes) {
    const LocationSet all = set;
    KeepAskedFor(set, all, asked);
    machine = ExplainByAdapters(set, !asked.noProbes);
  } else {
    machine = ExplainByService();
    if (machine.locations.size() != set.size())
      throw CommandError(kFailed, "the stored set was changed meanwhile; run the command again");
    KeepAskedFor(machine.locations, set, asked);
  }
  shown.locations = std::move(machine.locations);
  shown.differences = std::move(machine.differences);
  shown.sourceMembers["probes"] = !asked.noProbes;
  if (!asked.noProbes) {
    const std::string account = AccountName();
    shown.sourceMembers["account"] = account;
    shown.notes.push_back("Asked as " + account + ". " + kAnotherAccount);
  }
  return shown;
}

Shown OfMachineFile(const SupportOptions& asked) {
  Shown shown;
  const std::string bytes = ReadFileBytes(asked.machine);
  const bool isReport = IsReport(bytes);
  const MachineSnapshot machine = isReport ? MachineInReport(bytes, asked.machine) : ParseMachine(bytes, asked.machine);
  LocationSet set = !asked.set.empty() ? ReadSetToTest(asked.set)
                    : isReport         ? SetInReport(bytes, asked.machine)
                                       : ReadLocations();
  const LocationSet all = set;
  KeepAskedFor(set, all, asked);
  for (const CQeLocation& location : set) shown.locations.push_back(Explain(location, machine));
  shown.source = "Machine " + Printable(machine.machine) + ", recorded " + machine.recorded;
  shown.sourceMembers["machine"] = ToUtf8(machine.machine);
  return shown;
}

std::string NamesOf(const LoggedCalculation& calculation) {
  constexpr std::size_t kNamed = 10;
  std::string names;
  for (std::size_t i = 0; i < std::min(calculation.locations.size(), kNamed); ++i)
    names += (i == 0 ? "\"" : "\", \"") + Printable(calculation.locations[i].name);
  return names.empty() ? "none" : names + "\"" + (calculation.locations.size() > kNamed ? " and others" : "");
}

std::string Until(const SupportOptions& asked) {
  return asked.at.empty() ? "" : " that began by " + Printable(asked.at);
}

LoggedCalculation CalculationOf(const FoundCalculation& found) {
  CalculationReader reader;
  std::optional<LoggedCalculation> calculation;
  for (const FoundCalculation::Message& message : found.messages)
    if (auto ended = reader.OnMessage({message.text, message.time, message.file, message.line, message.mayBeCut}))
      calculation = std::move(ended);
  if (!calculation) calculation = reader.End();
  return std::move(calculation).value_or(LoggedCalculation());
}

LoggedCalculation FindIn(const std::vector<std::wstring>& files, const SupportOptions& asked,
                         const std::optional<std::wstring>& name, Shown& shown) {
  LogQuery query;
  query.location = name;
  if (!asked.at.empty()) {
    query.at = ParseLogTime(ToUtf8(asked.at));
    if (!query.at)
      throw CommandError(kWrongUsage,
                         "--at: " + Printable(asked.at) +
                             " is no time; write one such as \"2025-11-21 14:30\", as the log's clock has it");
  }
  std::optional<FoundCalculation> found = FindCalculation(files, query);
  if (!found && name) {
    query.location.reset();
    if (const auto other = FindCalculation(files, query))
      throw CommandError(kNoSuchLocation, "no calculation in the log" + Until(asked) + " decides on a location \"" +
                                              Printable(*name) + "\"; the last one tests " +
                                              NamesOf(CalculationOf(*other)));
  }
  if (!found)
    throw CommandError(kFailed, Printable(files.back()) + ": no calculation of the library's is in the log" +
                                    Until(asked) +
                                    ". The host must log the library's messages of severity 8; Docs/log.md tells how");
  LoggedCalculation calculation = CalculationOf(*found);
  const std::string file = Printable(files[calculation.file]);
  const std::string began = calculation.began ? ToText(*calculation.began) : "";
  shown.source = (calculation.hasBeginning ? "The calculation" : "The end of a calculation") +
                 (began.empty() ? "" : " of " + began) + " (" + file + ", line " + std::to_string(calculation.line) +
                 ")";
  shown.sourceMembers["log"] = {{"file", ToUtf8(files[calculation.file])}, {"line", calculation.line}};
  if (!began.empty()) shown.sourceMembers["log"]["time"] = began;
  if (found->wasSkipped)
    shown.notes.emplace_back("A later calculation breaks off in the log before it has decided, and is not shown.");
  return calculation;
}

Shown OfLog(const SupportOptions& asked) {
  Shown shown;
  shown.withoutLocations = "The calculation tests no location.";
  std::vector<std::wstring> files;
  for (const std::wstring& log : asked.logs) {
    const std::vector<std::wstring> rotated = WithRotated(log);
    files.insert(files.end(), rotated.begin(), rotated.end());
  }
  LocationSet set;
  std::optional<std::wstring> name;
  if (!asked.set.empty()) set = ReadSetToTest(asked.set);
  if (!asked.location.empty()) name = set.empty() ? asked.location : set[Find(set, asked.location)].Name();
  const LoggedCalculation calculation = FindIn(files, asked, name, shown);
  const std::vector<const CQeLocation*> records = RecordsOf(calculation, set);
  for (std::size_t i = 0; i < calculation.locations.size(); ++i) {
    const LoggedLocation& logged = calculation.locations[i];
    if (name && (logged.name != *name || !logged.isCurrent)) continue;
    shown.locations.push_back(records[i] == nullptr ? Explain(calculation, logged)
                                                    : Explain(*records[i], calculation, logged));
    if (!set.empty() && records[i] == nullptr)
      shown.locations.back().caveats.emplace_back(
          "The set has no location that could be this one, or several; it is explained without its criteria.");
  }
  if (calculation.hasFailed)
    shown.notes.emplace_back("The library found no adapter that is up, and so no location was tested or current.");
  else if (!calculation.broken.empty())
    shown.notes.push_back("The calculation cannot be read to its end: " + calculation.broken + ".");
  if (set.empty())
    shown.notes.emplace_back(
        "Without the set (--set), only what the log proves is told: it has no line for a criterion that fails.");
  return shown;
}

}  // namespace

ExitCode ExplainLocations(const Options& options) {
  const SupportOptions& asked = options.support;
  return Show(!asked.logs.empty()      ? OfLog(asked)
              : !asked.machine.empty() ? OfMachineFile(asked)
                                       : OfThisMachine(asked),
              options.json);
}

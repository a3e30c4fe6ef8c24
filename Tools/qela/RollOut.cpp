// The commands for whole sets in files: they read and write the stored set without a service.
#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "Commands.h"
#include "CriterionKinds.h"
#include "EditMessages.h"
#include "FileBytes.h"
#include "FwClient/Service/QeLaLib/CriteriaValue.h"
#include "Lint.h"
#include "LocationSetFile.h"
#include "LocationText.h"
#include "Output.h"
#include "SetComparison.h"
#include "StoredSet.h"
#include "Text.h"

namespace {

using Differences = std::vector<LocationDifference>;

// As the library stores what is added, but in linear time, whatever a file holds: no criterion twice, each in its
// normal form.
CQeLocation AsAdded(CQeLocation location) {
  if (location.Criterias().AreAsAdded()) return location;
  CQeLocationCriterias criteria = location.Criterias();
  for (const CriterionKind& kind : kCriterionKinds) {
    std::vector<std::wstring> texts;
    std::unordered_set<std::wstring> added;
    for (const std::wstring& text : criteria.Texts(kind.kind))
      if (const auto [entry, isNew] = added.insert(NormalizeCriteriaValue(text)); isNew) texts.push_back(*entry);
    if (texts.size() != criteria.Texts(kind.kind).size())
      Note("a " + std::string(kind.title) + " of " + Quoted(location) + " stands in the file twice and is stored once");
    criteria.SetTexts(kind.kind, std::move(texts));
  }
  location.SetCriterias(std::move(criteria));
  return location;
}

// What applying a file comes to. Locations that it leaves as they are stay as they are stored, even with what only old
// or foreign programs store: taking a set out and putting it back must change nothing.
LocationSet Applied(const LocationSet& stored, const LocationSet& file, bool deleteMissing) {
  std::unordered_map<std::wstring_view, const CQeLocation*> byId;
  for (const CQeLocation& location : stored) byId.try_emplace(location.Id(), &location);
  LocationSet result;
  result.reserve(stored.size() + file.size());
  for (const CQeLocation& location : file) {
    const auto entry = byId.find(location.Id());
    const CQeLocation* same = entry == byId.end() ? nullptr : entry->second;
    if (same == nullptr || !HaveSameContent(*same, location)) {
      result.push_back(AsAdded(location));
      if (same == nullptr || !HaveSameContent(*same, result.back())) continue;
      result.pop_back();
    }
    result.push_back(*same);
  }
  if (deleteMissing) return result;
  std::unordered_map<std::wstring_view, const CQeLocation*> inFile;
  for (const CQeLocation& location : file) inFile.try_emplace(location.Id(), &location);
  for (const CQeLocation& location : stored)
    if (!inFile.contains(location.Id())) result.push_back(location);
  return result;
}

// The words for a difference, by what it means to the command.
struct Words {
  const char* added;
  const char* removed;
  const char* changed;
  const char* moved;
};
constexpr Words kMade = {"added", "removed", "changed", "moved"};
constexpr Words kPlanned = {"would add", "would remove", "would change", "would move"};
constexpr Words kCompared = {"only in the file", "only stored", "differs", "in another place"};

const char* Word(const LocationDifference& difference, const Words& words) {
  if (difference.before == nullptr) return words.added;
  if (difference.after == nullptr) return words.removed;
  return difference.fields.size() == 1 && difference.fields.front().field == "place" ? words.moved : words.changed;
}

std::string ValueText(const Json& value) {
  if (value.is_string()) {
    const std::string text = value.get<std::string>();
    return text.empty() ? "none" : "\"" + Printable(ToWide(text)) + "\"";
  }
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (!value.is_array()) return value.dump();
  std::string text;
  for (const Json& element : value) text += (text.empty() ? "" : ", ") + ValueText(element);
  return text.empty() ? "none" : text;
}

std::string DifferencesText(const Differences& differences, const Words& words) {
  std::string text;
  for (const LocationDifference& difference : differences) {
    const CQeLocation& location = difference.after != nullptr ? *difference.after : *difference.before;
    text += std::string(Word(difference, words)) + " " + Quoted(location) + "\n";
    if (difference.before == nullptr) text += LabelledLine("note", location.GetNote()) + CriteriaLines(location);
    for (const FieldDifference& field : difference.fields)
      text += "  " + field.field + ": " + ValueText(field.before) + " -> " + ValueText(field.after) + "\n";
  }
  return text;
}

Json DifferencesJson(const Differences& differences) {
  Json array = Json::array();
  for (const LocationDifference& difference : differences) {
    const CQeLocation& location = difference.after != nullptr ? *difference.after : *difference.before;
    Json entry = {
        {"difference", Word(difference, kMade)}, {"id", ToUtf8(location.Id())}, {"name", ToUtf8(location.Name())}};
    if (difference.before == nullptr || difference.after == nullptr) {
      entry["location"] = LocationDetails(location);
    } else {
      entry["fields"] = Json::array();
      for (const FieldDifference& field : difference.fields)
        entry["fields"].push_back({{"field", field.field}, {"before", field.before}, {"after", field.after}});
    }
    array.push_back(std::move(entry));
  }
  return array;
}

void Report(const Options& options, const std::string& action, const Differences& differences, const Words& words,
            const std::string& summary) {
  if (options.json)
    Print(ToLine({{"action", action}, {"differences", DifferencesJson(differences)}}));
  else
    Print(DifferencesText(differences, words) + summary + "\n");
}

void NoteFindingsIn(const LocationSet& set, const Differences& differences) {
  // As location set, which says nothing of criteria when it changes the name.
  const auto isJudged = [](const FieldDifference& difference) {
    return difference.field != "name" && difference.field != "note" && difference.field != "place";
  };
  std::vector<std::wstring> ids;
  for (const LocationDifference& difference : differences)
    if (difference.after != nullptr &&
        (difference.before == nullptr || std::any_of(difference.fields.begin(), difference.fields.end(), isJudged)))
      ids.push_back(difference.after->Id());
  NoteFindings(set, ids);
}

bool IsReg(const RollOut& rollOut) {
  if (rollOut.format != RollOut::Format::kByName) return rollOut.format == RollOut::Format::kReg;
  constexpr std::wstring_view kEnd = L".reg";
  return rollOut.file.size() >= kEnd.size() &&
         ::_wcsicmp(rollOut.file.c_str() + rollOut.file.size() - kEnd.size(), kEnd.data()) == 0;
}

// Stores `set` in the place of what the edit has read, unless they are the same.
ExitCode Store(const Options& options, StoredSetEdit& edit, LocationSet set, const std::string& action,
               const std::string& summary, const std::string& unchanged) {
  const LocationSet before = std::exchange(edit.locations, std::move(set));
  const Differences differences = Compare(before, edit.locations);
  if (differences.empty()) {
    Report(options, "unchanged", {}, kMade, unchanged);
    return kDone;
  }
  edit.Save();
  Report(options, action, differences, kMade, summary);
  TellAboutServices();
  NoteFindingsIn(edit.locations, differences);
  return kDone;
}

}  // namespace

ExitCode ExportSet(const Options& options) {
  const LocationSet set = ReadLocations();
  if (const auto at = FindWithoutOwnId(set)) {
    const CQeLocation& location = set[*at];
    throw CommandError(kFailed, location.Id().empty()
                                    ? "the location \"" + Printable(location.Name()) +
                                          "\" has no ID, without which it cannot be found again. Remove it with \"qela "
                                          "location remove\", and add it anew"
                                    : "a second location has the ID of " + Quoted(location) +
                                          ". \"qela location remove " + Printable(location.Id()) +
                                          "\" removes the first of them");
  }
  const std::string text = IsReg(options.rollOut) ? SetAsReg(set) : SetAsJson(set);
  if (options.rollOut.file == L"-") {
    Print(text);
    return kDone;
  }
  WriteFileBytes(options.rollOut.file, text);
  if (options.json)
    Print(ToLine({{"action", "exported"}, {"file", ToUtf8(options.rollOut.file)}, {"locations", set.size()}}));
  else
    Print("Exported " + Counted(set.size(), "location") + " to " + Printable(options.rollOut.file) + ".\n");
  return kDone;
}

ExitCode ApplySet(const Options& options) {
  const RollOut& rollOut = options.rollOut;
  const LocationSet file = ReadSetFile(rollOut.file);
  const std::string unchanged = "The stored set is as in the file already.";
  if (rollOut.dryRun) {
    const LocationSet stored = ReadLocations();
    const LocationSet applied = Applied(stored, file, rollOut.deleteMissing);
    const Differences differences = Compare(stored, applied);
    const bool areSame = differences.empty();
    Report(options, areSame ? "unchanged" : "planned", differences, kPlanned,
           areSame ? unchanged : Counted(differences.size(), "location") + " in all. Nothing was changed.");
    NoteFindingsIn(applied, differences);
    return areSame ? kDone : kDifferences;
  }
  StoredSetEdit edit;
  LocationSet applied = Applied(edit.locations, file, rollOut.deleteMissing);
  return Store(options, edit, std::move(applied), "applied",
               "Applied " + ShownFileName(rollOut.file) + ". \"qela restore\" brings back what was stored before.",
               unchanged);
}

ExitCode DiffSet(const Options& options) {
  const LocationSet file = ReadSetFile(options.rollOut.file);
  const LocationSet stored = ReadLocations();
  // A location that would be stored as it is stored already is no difference, however it is spelled.
  const LocationSet applied = Applied(stored, file, true);
  const Differences differences = Compare(stored, applied);
  Report(options, "compared", differences, kCompared,
         differences.empty() ? "The stored set and the file are the same."
                             : Counted(differences.size(), "location") + " in all. Before the arrow: stored.");
  return differences.empty() ? kDone : kDifferences;
}

ExitCode ValidateSet(const Options& options) {
  const LocationSet set = ReadSetFile(options.rollOut.file);
  if (options.json)
    Print(ToLine({{"valid", true}, {"locations", set.size()}}));
  else
    Print(ShownFileName(options.rollOut.file) + " holds a set of " + Counted(set.size(), "location") +
          " that can be applied.\n");
  return kDone;
}

ExitCode RestoreSet(const Options& options) {
  StoredSetEdit edit;
  return Store(options, edit, StoredSetEdit::Former(), "restored",
               "Restored the former set. \"qela restore\" once more brings back the newer one.",
               "The former set is the same as the stored one.");
}

// The edits of single locations: each reads the stored set, changes one location and writes the set, without a service.
#include <algorithm>

#include "AdapterView.h"
#include "Commands.h"
#include "EditMessages.h"
#include "FwClient/Service/QeLaLib/CriteriaValue.h"
#include "Json.h"
#include "Lint.h"
#include "LocationText.h"
#include "Output.h"
#include "StoredSet.h"
#include "Text.h"

namespace {

void Report(const Options& options, const CQeLocation& location, const std::string& action, const std::string& text) {
  if (options.json)
    Print(ToLine({{"id", ToUtf8(location.Id())}, {"name", ToUtf8(location.Name())}, {"action", action}}));
  else
    Print(text + "\n");
}

void NoteSimilarNames(const LocationSet& set, const CQeLocation& named) {
  for (const CQeLocation& location : set)
    if (location.Id() != named.Id() && location.Name() != named.Name() &&
        WithoutCaseAndBlanks(location.Name()) == WithoutCaseAndBlanks(named.Name()))
      Note("the name differs from that of " + Quoted(location) + " only in case or blanks");
}

// Names are no keys: the library takes two locations of one name. An administrator hardly ever means it, and could from
// then on tell the two apart only by their IDs, so it has to be asked for.
void RequireFreeName(const LocationSet& set, const std::wstring& name, const CQeLocation* except, bool force) {
  const bool taken = std::any_of(set.begin(), set.end(), [&](const CQeLocation& location) {
    return &location != except && location.Name() == name;
  });
  if (taken && !force)
    throw CommandError(kNoSuchLocation, "a location named \"" + Printable(name) +
                                            "\" is stored already; --force lets another one have this name");
}

void AddFromAdapter(CQeLocation& location, std::uint32_t index) {
  const SharedAdapters adapters = TakeAdapters();
  const auto adapter =
      std::find_if(adapters->begin(), adapters->end(), [&](const AdapterProps& each) { return each.ifIndex == index; });
  if (adapter == adapters->end()) {
    std::string message = "no adapter that is up has the index " + std::to_string(index) + "; there are:";
    for (const AdapterProps& each : *adapters)
      message += "\n  " + std::to_string(each.ifIndex) + " " + Printable(each.description);
    throw CommandError(kFailed, message);
  }
  const auto add = [&](LOCATION_CRITERIA_TYPE kind, const std::wstring& value) {
    if (!value.empty()) location.AddCriteria(&kind, value);
  };
  add(LCT_DNS_SUFFIX, adapter->dnsSuffix);
  for (const std::wstring& gateway : adapter->gateways) add(LCT_DEFAULT_GATEWAY, gateway);
  add(LCT_DHCP_SERVER, adapter->dhcpServer);
  add(LCT_DHCP_SERVER, adapter->dhcpV6Server);
  for (const std::wstring& server : adapter->dnsServers) add(LCT_DNS_SERVER, server);
  add(LCT_PRIMARY_WINS, adapter->winsPrimary);
  add(LCT_SECONDARY_WINS, adapter->winsSecondary);
  PrintDiagnostic("Criteria of adapter " + std::to_string(index) + ", " + Printable(adapter->description) + ":\n" +
                  CriteriaLines(location));
}

// As they are stored, which is how the library would not find all of them: it puts what it looks for into a form of its
// own, and a set that others wrote need not be in it.
void SetValues(CQeLocation& location, LOCATION_CRITERIA_TYPE kind, std::vector<std::wstring> values) {
  CQeLocationCriterias criteria = location.Criterias();
  criteria.SetTexts(kind, std::move(values));
  location.SetCriterias(std::move(criteria));
}

void Apply(const CriterionEdit& edit, bool isFirstOfKind, CQeLocation& location) {
  using Change = CriterionEdit::Change;
  if (edit.change == Change::kRemove) {
    std::vector<std::wstring> values = location.Criterias().Texts(edit.kind);
    if (std::erase(values, edit.value) == 0 && std::erase(values, NormalizeCriteriaValue(edit.value)) == 0)
      throw CommandError(kFailed, "the location has no criterion \"" + Printable(edit.value) +
                                      "\" of this kind. Nothing was changed.");
    SetValues(location, edit.kind, std::move(values));
    return;
  }
  if (edit.change == Change::kClear || (edit.change == Change::kReplace && isFirstOfKind))
    SetValues(location, edit.kind, {});
  if (edit.change != Change::kClear && location.AddCriteria(&edit.kind, edit.value) == LCR_ALREADY_PRESENT)
    Note("\"" + Printable(edit.value) + "\" is given twice and stored once");
}

void Apply(const LocationEdit& edit, CQeLocation& location) {
  if (edit.name) location.SetName(*edit.name);
  if (edit.note) location.SetNote(*edit.note);
  if (edit.enabled) location.SetEnabled(&*edit.enabled);
  if (edit.fromAdapter) AddFromAdapter(location, *edit.fromAdapter);
  for (auto change = edit.criteria.begin(); change != edit.criteria.end(); ++change) {
    const bool isFirst = std::none_of(edit.criteria.begin(), change, [&](const CriterionEdit& earlier) {
      return earlier.kind == change->kind && earlier.change == change->change;
    });
    Apply(*change, isFirst, location);
  }
  if (edit.managementServer) {
    constexpr LOCATION_CRITERIA_TYPE kKind = LCT_ZELT_REACHABLE;
    if (*edit.managementServer)
      location.AddCriteria(&kKind, {});
    else
      location.RemoveCriteria(&kKind, {});
  }
}

bool AreSame(const CQeLocation& left, const CQeLocation& right) { return EncodeSet({left}) == EncodeSet({right}); }

// Changes the location that the options name.
ExitCode Change(const Options& options, const LocationEdit& change, const std::string& action,
                const std::string& actionAtBeginning) {
  StoredSetEdit edit;
  CQeLocation& location = edit.locations[Find(edit.locations, options.location)];
  const CQeLocation before = location;
  Apply(change, location);
  if (AreSame(before, location)) {
    Report(options, location, "unchanged", Quoted(location) + " is as asked for already.");
    return kDone;
  }
  if (change.name) {
    RequireFreeName(edit.locations, *change.name, &location, change.force);
    NoteSimilarNames(edit.locations, location);
  }
  edit.Save();
  Report(options, location, action, actionAtBeginning + " " + Quoted(location) + ".");
  TellAboutServices();
  if (!change.criteria.empty() || change.managementServer) NoteFindings(edit.locations, location.Id());
  return kDone;
}

}  // namespace

ExitCode AddLocation(const Options& options) {
  const LocationEdit& change = options.edit;
  StoredSetEdit edit;
  LocationSet& set = edit.locations;
  CQeLocation location;
  if (change.id) location.SetId(*change.id);
  location.SetName(options.location);
  location.SetNote({});
  Apply(change, location);
  const auto stored =
      std::find_if(set.begin(), set.end(), [&](const CQeLocation& each) { return each.Id() == location.Id(); });
  if (stored != set.end()) {
    // So that a script may run again.
    if (AreSame(*stored, location)) {
      Report(options, location, "unchanged", Quoted(location) + " is stored already.");
      return kDone;
    }
    throw CommandError(kNoSuchLocation, "a location with this ID is stored already, and is another one: " +
                                            Quoted(*stored) + "; \"qela location set\" changes it");
  }
  RequireFreeName(set, location.Name(), nullptr, change.force);
  NoteSimilarNames(set, location);
  set.push_back(location);
  edit.Save();
  Report(options, location, "added", "Added " + Quoted(location) + ".");
  TellAboutServices();
  NoteFindings(set, location.Id());
  return kDone;
}

ExitCode SetLocation(const Options& options) {
  if (options.edit == LocationEdit())
    throw CommandError(kWrongUsage, "nothing is named to be changed; \"qela location set --help\" shows what can be");
  return Change(options, options.edit, "changed", "Changed");
}

ExitCode RenameLocation(const Options& options) { return Change(options, options.edit, "renamed", "Renamed"); }

ExitCode EnableLocation(const Options& options) {
  LocationEdit edit;
  edit.enabled = true;
  return Change(options, edit, "enabled", "Enabled");
}

ExitCode DisableLocation(const Options& options) {
  LocationEdit edit;
  edit.enabled = false;
  return Change(options, edit, "disabled", "Disabled");
}

ExitCode MoveLocation(const Options& options) {
  StoredSetEdit edit;
  LocationSet& set = edit.locations;
  using Difference = LocationSet::difference_type;
  const std::size_t from = Find(set, options.location);
  std::size_t to = 0;  // in the set without the location
  switch (options.edit.place) {
    case LocationEdit::Place::kFirst:
      break;
    case LocationEdit::Place::kLast:
      to = set.size() - 1;
      break;
    case LocationEdit::Place::kBefore:
    case LocationEdit::Place::kAfter: {
      const std::size_t neighbour = Find(set, options.edit.neighbour);
      if (neighbour == from) throw CommandError(kWrongUsage, "a location cannot be moved before or after itself");
      to = neighbour - (neighbour > from ? 1 : 0) + (options.edit.place == LocationEdit::Place::kAfter ? 1 : 0);
      break;
    }
  }
  const CQeLocation location = set[from];
  if (to == from) {
    Report(options, location, "unchanged", Quoted(location) + " is in this place already.");
    return kDone;
  }
  set.erase(set.begin() + static_cast<Difference>(from));
  set.insert(set.begin() + static_cast<Difference>(to), location);
  edit.Save();
  Report(options, location, "moved", "Moved " + Quoted(location) + ".");
  TellAboutServices();
  return kDone;
}

ExitCode RemoveLocation(const Options& options) {
  StoredSetEdit edit;
  const std::size_t at = Find(edit.locations, options.location);
  const CQeLocation location = edit.locations[at];
  edit.locations.erase(edit.locations.begin() + static_cast<LocationSet::difference_type>(at));
  edit.Save();
  Report(options, location, "removed", "Removed " + Quoted(location) + ".");
  TellAboutServices();
  return kDone;
}

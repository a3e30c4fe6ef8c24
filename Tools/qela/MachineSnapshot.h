// A recorded machine: what the library would see there, kept in a file of which Docs/machine.schema.json tells the
// form.
#pragma once

#include <QeLaCriteria.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"
#include "FwClient/Service/QeLaLib/LocationMatcher.h"
#include "LocationSet.h"

// What is known of an answer besides, for people.
struct ProbeNote {
  std::optional<std::chrono::milliseconds> took;
  std::vector<std::string> details;
  std::string advice;  // what would make it a yes
};

struct MachineSnapshot {
  using Answers = std::map<std::wstring, bool>;  // by criterion, exactly as the location has it

  std::wstring machine;  // a label; in the file it may be missing, and is then the file's name
  std::string recorded;  // when
  std::vector<AdapterProps> adapters;
  Answers registry;
  Answers httpsHosts;
  std::optional<bool> managementServer;
  // Of who has just asked; no file holds them.
  std::map<std::pair<LOCATION_CRITERIA_TYPE, std::wstring>, ProbeNote> notes;

  // Whether the name of a file ends as theirs do.
  static bool IsSnapshotFile(const std::wstring& path);

  // What the probe of this kind answered for the text (none for the management server); nothing where it was not asked.
  std::optional<bool> AnswerTo(LOCATION_CRITERIA_TYPE kind, const std::wstring& text) const;
};

// Asks each probe once for everything that a location of the set names. `onProbe` is told what is about to be asked.
void RecordAnswers(MachineSnapshot& machine, const LocationSet& set, const LocationProbes& probes,
                   const std::function<void(LOCATION_CRITERIA_TYPE kind, const std::wstring& text)>& onProbe);

// The file's content. Throws CommandError for a text that is not valid UTF-16, which no JSON text can hold: what stood
// in its place would be compared as another text.
std::string MachineAsJson(const MachineSnapshot& machine, bool onOneLine);

// Throws CommandError, with the place in the file, for anything but a whole snapshot. A snapshot that left something
// out would be taken for a machine that does not have it.
MachineSnapshot ReadMachine(const std::wstring& path);
MachineSnapshot ParseMachine(const std::string& json, const std::wstring& path);

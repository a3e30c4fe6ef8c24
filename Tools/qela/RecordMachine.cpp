#include "AdapterView.h"
#include "Commands.h"
#include "FileBytes.h"
#include "FwClient/Service/QeLaLib/HostComState.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"
#include "Json.h"
#include "MachineSnapshot.h"
#include "Output.h"
#include "StoredSet.h"
#include "TestSet.h"
#include "Text.h"

namespace {

void AskProbes(MachineSnapshot& machine, const LocationSet& set) {
  const ComBracket com;  // as around a calculation of the library's
  const LocationProbes probes{[](const std::wstring& text) { return IsRegistryKeyCriterionMet(text) != 0; },
                              IsDomainReachable, CheckZeltReachability};
  // A host that is silent takes its time, and who waits should see for what.
  const bool isWatched = IsTerminal(STD_ERROR_HANDLE);
  RecordAnswers(machine, set, probes, [&](LOCATION_CRITERIA_TYPE kind, const std::wstring& text) {
    if (isWatched) PrintDiagnostic("qela: asking: " + InWords({kind, text}) + "\n");
  });
}

}  // namespace

ExitCode RecordMachine(const Options& options) {
  const MachineOptions& asked = options.machines;
  MachineSnapshot machine;
  machine.machine = asked.label;
  machine.recorded = TimeNow();
  // Read first: an error in it should not cost the time of a snapshot.
  const LocationSet set = !asked.probes       ? LocationSet()
                          : asked.set.empty() ? ReadLocations()
                                              : ReadSetToTest(asked.set);
  machine.adapters = *TakeAdapters();
  if (asked.probes) AskProbes(machine, set);
  const bool toOutput = asked.file.empty() || asked.file == L"-";
  const std::string content = MachineAsJson(machine, toOutput && options.json);
  if (toOutput) {
    Print(content);
    return kDone;
  }
  WriteFileBytes(asked.file, content);
  const std::size_t answers =
      machine.registry.size() + machine.httpsHosts.size() + (machine.managementServer.has_value() ? 1 : 0);
  if (options.json)
    Print(ToLine({{"file", ToUtf8(asked.file)}, {"adapters", machine.adapters.size()}, {"answers", answers}}));
  else
    Print("Recorded " + Counted(machine.adapters.size(), "adapter") + " and " + Counted(answers, "answer") +
          " of probes in " + Printable(asked.file) + ".\n");
  return kDone;
}

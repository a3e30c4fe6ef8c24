#include "AdapterView.h"
#include "AskProbes.h"
#include "Commands.h"
#include "FileBytes.h"
#include "Json.h"
#include "MachineSnapshot.h"
#include "Output.h"
#include "StoredSet.h"
#include "TestSet.h"
#include "Text.h"

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

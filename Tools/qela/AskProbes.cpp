#include "AskProbes.h"

#include "FwClient/Service/QeLaLib/HostComState.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"
#include "Output.h"
#include "TestSet.h"

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

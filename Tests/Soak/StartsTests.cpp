// Ten thousand starts and stops of discovery, and the library loaded anew after every ten.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <memory>

#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Soak/LibraryStarts.h"
#include "Tests/Soak/QuietLog.h"
#include "Tests/Soak/SoakRun.h"
#include "Tests/Support/KeptImports.h"
#include "Tests/Support/ServiceLibrary.h"

namespace {

// A load takes a hundred times as long as a start.
constexpr unsigned kStartsOfALoad = 250;

void Told(std::shared_ptr<_IEnumQeLocations>) {}

// The loads use either instance in turn. All calls reach the system.
TEST(Soak, StartsAndStopsLeaveThreeHandlesForEachRestartAndNothingElse) {
  SoakRun run({.name = "starts", .unit = "starts and stops", .few = 500, .whole = 10'000});
  const QuietLog log(run);
  const RedirectedMachineHive registry;
  const KeptImports imports;
  for (bool isCounted = false; run.GoesOn(); isCounted = !isCounted) {
    ServiceLibrary library;
    LibraryStarts starts(library.Module());
    std::shared_ptr<_IQeLaApiSmart> shared;
    if (!isCounted) shared = library.SmartApi();
    _IQeLaApiSmart& service = isCounted ? *library.Api() : *shared;
    for (unsigned i = 0; i < kStartsOfALoad && run.GoesOn(); ++i) {
      run.Do("StartDiscovery", [&] { run.Expect(service.StartDiscovery(&Told), "discovery does not start"); });
      run.Do("StopDiscovery", [&] { run.Expect(service.StopDiscovery(), "discovery does not stop"); });
      run.Expect(starts.HaveEnded(), "discovery has stopped and its thread runs");
      if (i > 0) run.KeepHandles(3);
      run.Count();
    }
    run.Expect(!isCounted || library.Api()->Release() == 0, "the service lives on");
    shared.reset();
    run.KeepHandles(-3 * (static_cast<std::ptrdiff_t>(starts.Count()) - 1));
    run.Expect(starts.Unload(library), "a start has not left its three handles open");
    run.Expect(::GetModuleHandleW(L"QeLaLib.dll") == nullptr, "the library stays loaded");
  }
  run.ExpectFlat();
}

}  // namespace

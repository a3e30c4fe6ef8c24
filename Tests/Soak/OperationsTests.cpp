// Sixteen threads call everything at once while the addresses never rest.
#include <windows.h>

#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Soak/Caller.h"
#include "Tests/Soak/LibraryStarts.h"
#include "Tests/Soak/Machine.h"
#include "Tests/Soak/QuietLog.h"
#include "Tests/Soak/SoakRun.h"
#include "Tests/Support/ServiceLibrary.h"

namespace {

constexpr unsigned kThreads = 16;
// Of so many operations one is a change of address; of so many changes one takes the adapter away.
constexpr unsigned kOperationsOfAChange = 8;
constexpr unsigned kChangesOfAFailure = 16;

SoakRun* g_run;

void Told(std::shared_ptr<_IEnumQeLocations> current) {
  g_run->DoInside("the callback", [&] {
    Caller::ExpectWhole(*g_run, *current);
    Caller::ExpectOneNetwork(*g_run, *current);
  });
}

TEST(Soak, OperationsOfSixteenThreadsOnBothInstancesAnswerRightWhileAddressesChange) {
  const ServiceLibrary library;
  SoakRun run({.name = "operations", .unit = "operations", .few = 10'000, .whole = 2'000'000});
  g_run = &run;
  const QuietLog log(run);
  const RedirectedMachineHive registry;
  Machine machine(library.Module());
  LibraryStarts starts(library.Module());
  _IQeLaApi& counted = *library.Api();
  const std::shared_ptr<_IQeLaApiSmart> shared = library.SmartApi();
  Caller::SetCallbacks(&Told);

  std::atomic<std::size_t> startsKept{0};
  const auto host = [&](unsigned number) {
    std::mt19937 random(number);
    Caller ofCounted(run, counted, &counted, Caller::Among::kOthersOnly, random());
    Caller ofShared(run, *shared, nullptr, Caller::Among::kOthersOnly, random());
    while (run.GoesOn()) {
      if (random() % kOperationsOfAChange == 0) {
        run.Do("a change of address", [&] {
          const unsigned network = random() % (kNetworks + kNetworks / kChangesOfAFailure);
          if (network < kNetworks)
            machine.Move(network);
          else
            machine.Unplug();
          machine.Adapters().ClearCalls();
        });
      }
      Caller& caller = random() % 2 == 0 ? ofCounted : ofShared;
      const Caller::Operation& operation = caller.Choose();
      run.Do(operation.name, [&] { caller.Call(operation); });
      // Two events and a thread of each start but the latest of either instance.
      const std::size_t count = starts.Count();
      run.KeepHandles(3 * static_cast<std::ptrdiff_t>(count - startsKept.exchange(count)));
      run.Count();
    }
  };
  std::vector<std::thread> hosts;
  for (unsigned number = 0; number < kThreads; ++number) hosts.emplace_back(host, number);
  for (std::thread& each : hosts) each.join();
  run.ExpectFlat();

  for (_IQeLaApiSmart* service : {static_cast<_IQeLaApiSmart*>(&counted), shared.get()}) {
    service->StartDiscovery(&Told);
    service->StopDiscovery();
  }
  EXPECT_TRUE(starts.WaitForEnd());
}

}  // namespace

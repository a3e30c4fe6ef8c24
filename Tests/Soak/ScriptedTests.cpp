// A hundred thousand changes of address, scripted: at every moment, one by one and in bursts.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <utility>

#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Soak/LibraryStarts.h"
#include "Tests/Soak/Machine.h"
#include "Tests/Soak/QuietLog.h"
#include "Tests/Soak/SoakRun.h"
#include "Tests/Soak/ToldHost.h"
#include "Tests/Support/ServiceLibrary.h"

namespace {

TEST(Soak, ScriptedChangesOfAddressAreToldInOrderAndNoneIsLost) {
  const ServiceLibrary library;
  SoakRun run({.name = "scripted", .unit = "changes", .few = 2'000, .whole = 100'000});
  const QuietLog log(run);
  const RedirectedMachineHive registry;
  Machine machine(library.Module());
  LibraryStarts starts(library.Module());
  const std::shared_ptr<_IQeLaApiSmart> service = library.SmartApi();
  ToldHost host(run, *service);
  std::mt19937 random(1);
  std::uint64_t changes = 0;  // inside the host's callback too, while this thread waits
  const auto move = [&] {
    ++changes;
    machine.Move(host.MovesOn(random()));
  };

  // It starts inside a network, of which the host hears with the first refresh.
  run.Expect(service->StartDiscovery(&ToldHost::Told), "discovery does not start");
  host.IsAt(0);
  run.Expect(service->Save(), "Save fails");
  host.ExpectTold();

  // Changes and what may stand in their way. After each the host must be right.
  struct Scene {
    const char* name;
    std::function<void()> act;
  };
  const Scene scenes[] = {{"one change", move},
                          {"a burst of changes",
                           [&] {
                             for (unsigned i = 2 + random() % 10; i > 0; --i) move();
                           }},
                          {"a change inside the callback",
                           [&] {
                             host.OnTold(move);
                             move();
                           }},
                          {"a change while the adapters are read",
                           [&] {
                             machine.Adapters().OnCall([&] {
                               machine.Adapters().OnCall(nullptr);
                               move();
                             });
                             move();
                           }},
                          {"a change together with a refresh",
                           [&] {
                             run.Expect(service->Save(), "Save fails");
                             move();
                             run.Expect(service->Save(), "Save fails");
                           }},
                          {"a change that moves nothing",
                           [&] {
                             machine.ChangeSomethingElse();
                             ++changes;
                             move();
                           }},
                          {"a change while discovery is stopped", [&] {
                             run.Expect(service->StopDiscovery(), "discovery does not stop");
                             move();
                             run.Expect(service->StartDiscovery(&ToldHost::Told), "discovery does not start");
                             run.KeepHandles(3);
                           }}};
  std::discrete_distribution<std::size_t> choose({8, 4, 2, 2, 2, 2, 1});
  while (run.GoesOn()) {
    const Scene& scene = scenes[choose(random)];
    run.Do(scene.name, [&] {
      scene.act();
      host.ExpectTold();
    });
    machine.Adapters().ClearCalls();
    run.Count(std::exchange(changes, 0));
  }
  run.ExpectFlat();
  EXPECT_TRUE(service->StopDiscovery());
  EXPECT_TRUE(starts.WaitForEnd());
}

}  // namespace

// Ten thousand changes of the machine's own addresses: run by Scripts/soak-job.sh, in a network of its own.
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <random>

#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Soak/LibraryStarts.h"
#include "Tests/Soak/Machine.h"
#include "Tests/Soak/QuietLog.h"
#include "Tests/Soak/SoakRun.h"
#include "Tests/Soak/ToldHost.h"
#include "Tests/Support/ServiceLibrary.h"

namespace {

constexpr unsigned kMostMovesOfABurst = 8;

TEST(Soak, RealChangesOfAddressReachTheHostInOrder) {
  std::FILE* const ip = Options().ipCommands;
  if (ip == nullptr) GTEST_SKIP() << "needs a machine whose addresses it may change";
  const ServiceLibrary library;
  SoakRun run({.name = "real", .unit = "changes", .few = 300, .whole = 10'000});
  const QuietLog log(run);
  const RedirectedMachineHive registry;
  LibraryStarts starts(library.Module());
  const std::shared_ptr<_IQeLaApiSmart> service = library.SmartApi();
  ToldHost host(run, *service);
  std::mt19937 random(1);
  run.Expect(service->StartDiscovery(&ToldHost::Told), "discovery does not start");

  // A move is a new route and then two changes, since only addresses are told of: the new one comes before the old one
  // goes, and with it the last of its interface's and all routes.
  unsigned from = kNetworks;
  std::uint64_t changes = 0;
  const auto move = [&] {
    const unsigned to = host.MovesOn(random());
    std::fprintf(ip, "route replace default via 10.20.%u.1 dev wifi0 onlink\naddress add 10.20.%u.15/24 dev wifi0\n",
                 to, to);
    ++changes;
    if (from == kNetworks) {
      from = to;
      return;
    }
    std::fprintf(ip, "address del 10.20.%u.15/24 dev wifi0\n", std::exchange(from, to));
    ++changes;
  };
  while (run.GoesOn()) {
    run.Do("changes of address", [&] {
      // One by one, so that each is seen, and in bursts.
      for (unsigned moves = random() % 2 == 0 ? 1 : 1 + random() % kMostMovesOfABurst; moves > 0; --moves) move();
      std::fflush(ip);
      host.ExpectTold();
    });
    run.Count(std::exchange(changes, 0));
  }
  run.ExpectFlat();
  EXPECT_TRUE(service->StopDiscovery());
  EXPECT_TRUE(starts.WaitForEnd());
}

}  // namespace

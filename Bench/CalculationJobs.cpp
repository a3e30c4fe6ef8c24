// One calculation over many locations.
#include <string>

#include "Bench/FloorCalculation.h"
#include "Bench/Job.h"
#include "Bench/MeasuredService.h"

namespace {

constexpr std::size_t kLocations = 1000;
constexpr std::size_t kAdapters = 9;

void Calculate(Run& run, Shape shape) {
  const PlainSet set = LocationsOf(shape, run.Size(kLocations));
  MeasuredService service(Adapters(kAdapters), set);
  FloorCalculation floor(set, kAdapters);
  if (run.IsFirst())
    if (const std::string difference = service.Difference(floor); !difference.empty()) return run.Fail(difference);
  run.Compare([&] { service.Calculate(); }, [&] { floor.Load(); });
}

}  // namespace

void AddCalculationJobs(Jobs& jobs) {
  for (const NamedShape& shape : kShapes)
    jobs.push_back({.name = std::string("calculation 1000 x 9, ") + shape.name,
                    .goal = {.factor = 1.5},
                    .measure = [shape](Run& run) { Calculate(run, shape.shape); }});
}

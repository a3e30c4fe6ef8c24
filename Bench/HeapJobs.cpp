// What a calculation asks of the heap.
#include <algorithm>
#include <cstddef>
#include <string>

#include "Bench/HeapMeter.h"
#include "Bench/Job.h"
#include "Bench/MeasuredService.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"

namespace {

constexpr std::size_t kLocations = 1000;
constexpr std::size_t kManyLocations = 100'000;
constexpr std::size_t kAdapters = 9;
constexpr double kMostBytesBeside = 64 * 1024;

std::size_t CurrentOf(Shape shape) {
  switch (shape) {
    case Shape::kOneInTenCurrent:
      return kLocations / 10;
    case Shape::kAllCurrent:
    case Shape::kNoCriteria:
      return kLocations;
    default:
      return 0;
  }
}

// Of the second calculation: the first makes what is kept.
std::size_t AllocationsOfACalculation(const PlainSet& set) {
  MeasuredService service(Adapters(kAdapters), set);
  service.Calculate();
  const HeapWatch heap(service.Module());
  service.Calculate();
  return heap.Allocations();
}

void CountAllocations(Run& run, Shape shape) {
  run.Tell(static_cast<double>(AllocationsOfACalculation(LocationsOf(shape, run.Size(kLocations)))),
           static_cast<double>(AllocationsOfACalculation({})));
}

// The most that is held in between, beyond what is held before or after.
void MeasurePeak(Run& run, Shape shape) {
  MeasuredService service(Adapters(kAdapters), LocationsOf(shape, run.Size(kManyLocations)));
  service.Calculate();
  const HeapMeter meter(service.Module());
  service.Calculate();
  run.Tell(static_cast<double>(meter.HeldAtMost() - std::max<std::ptrdiff_t>(meter.Held(), 0)));
}

}  // namespace

void AddHeapJobs(Jobs& jobs) {
  for (const NamedShape& shape : kShapes)
    jobs.push_back({.name = std::string("mallocs 1000 x 9, ") + shape.name,
                    .unit = Unit::kCount,
                    .goal = {.factor = 1, .constant = static_cast<double>(CurrentOf(shape.shape))},
                    .measure = [shape](Run& run) { CountAllocations(run, shape.shape); },
                    .pace = Job::Pace::kOnce});
  for (const Shape shape : {Shape::kOneInTenCurrent, Shape::kSuffixLiteral})
    jobs.push_back({.name = std::string("peak memory 100000 x 9, ") +
                            (shape == Shape::kSuffixLiteral ? "suffix literal" : "one in ten current"),
                    .unit = Unit::kBytes,
                    .goal = {.constant = kMostBytesBeside},
                    .measure = [shape](Run& run) { MeasurePeak(run, shape); },
                    .pace = Job::Pace::kOnce});
}

// How the time of a calculation grows: the exponent of the power of the size that fits best.
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "Bench/Job.h"
#include "Bench/MeasuredService.h"

namespace {

constexpr std::size_t kAdapters = 9;
constexpr double kSteepest = 1.05;
constexpr double kMeasuredNs = 50e6;  // at each size
constexpr std::size_t kFewestTimes = 5;

double TimeOf(MeasuredService& service) {
  service.Calculate();
  std::vector<double> times;
  const Stopwatch all;
  do {
    const Stopwatch one;
    service.Calculate();
    times.push_back(one.Nanoseconds());
  } while (times.size() < kFewestTimes || all.Nanoseconds() < kMeasuredNs);
  return Median(std::move(times));
}

// The slope of the logarithms, by least squares.
double Exponent(const std::vector<std::size_t>& sizes, const std::vector<double>& times) {
  const auto count = static_cast<double>(sizes.size());
  double x = 0;
  double y = 0;
  double xx = 0;
  double xy = 0;
  for (std::size_t i = 0; i < sizes.size(); ++i) {
    const double size = std::log(static_cast<double>(sizes[i]));
    const double time = std::log(times[i]);
    x += size;
    y += time;
    xx += size * size;
    xy += size * time;
  }
  return (count * xy - x * y) / (count * xx - x * x);
}

// `time` tells how long a calculation of a size takes.
void Grow(Run& run, std::vector<std::size_t> sizes, const std::function<double(std::size_t)>& time) {
  if (run.IsSmoke()) sizes.resize(2);
  std::vector<double> times;
  for (const std::size_t size : sizes) times.push_back(time(size));
  run.Tell(Exponent(sizes, times));
}

void GrowLocations(Run& run, Shape shape) {
  Grow(run, {100, 1000, 10'000, 100'000}, [shape](std::size_t size) {
    MeasuredService service(Adapters(kAdapters), LocationsOf(shape, size));
    return TimeOf(service);
  });
}

// Every adapter matches every location.
void GrowAdapters(Run& run) {
  Grow(run, {1, 10, 100, 1000}, [](std::size_t size) {
    PlainSet set = LocationsOf(Shape::kNoCriteria, 10);
    for (PlainLocation& location : set) location.texts[LCT_DEFAULT_GATEWAY] = {L"10.0.99.1"};
    MeasuredService service(Adapters(size), set);
    return TimeOf(service);
  });
}

// The last gateway is that of an adapter. From 100 on: below, the snapshot takes all the time, and would hide even
// quadratic growth from the fit.
void GrowGateways(Run& run) {
  Grow(run, {100, 1000, 10'000}, [](std::size_t size) {
    PlainSet set(1);
    set[0].id = L"many";
    auto& gateways = set[0].texts[LCT_DEFAULT_GATEWAY];
    for (std::size_t i = 1; i < size; ++i)
      gateways.push_back(L"10.200." + std::to_wstring(i / 250) + L"." + std::to_wstring(i % 250));
    gateways.emplace_back(L"10.0.3.1");
    MeasuredService service(Adapters(kAdapters), set);
    return TimeOf(service);
  });
}

void TimeManyLocations(Run& run) {
  MeasuredService service(Adapters(kAdapters), LocationsOf(Shape::kOneInTenCurrent, run.Size(100'000)));
  run.Tell(TimeOf(service));
}

}  // namespace

void AddGrowthJobs(Jobs& jobs) {
  const auto add = [&](const std::string& name, std::function<void(Run&)> measure) {
    jobs.push_back({.name = "growth with " + name,
                    .unit = Unit::kNone,
                    .goal = {.constant = kSteepest},
                    .measure = std::move(measure),
                    .pace = Job::Pace::kOnce});
  };
  add("100 to 100000 locations, none current", [](Run& run) { GrowLocations(run, Shape::kGatewayMiss); });
  add("100 to 100000 locations, one in ten current", [](Run& run) { GrowLocations(run, Shape::kOneInTenCurrent); });
  add("100 to 100000 locations, all current", [](Run& run) { GrowLocations(run, Shape::kAllCurrent); });
  add("100 to 100000 locations, distinct suffixes", [](Run& run) { GrowLocations(run, Shape::kSuffixLiteral); });
  add("1 to 1000 adapters", GrowAdapters);
  add("100 to 10000 gateways of a current location", GrowGateways);
  jobs.push_back({.name = "calculation 100000 x 9, one in ten current",
                  .goal = {.constant = 50e6},
                  .measure = TimeManyLocations,
                  .pace = Job::Pace::kOnce});
}

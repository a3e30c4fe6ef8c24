// One line of the report: what is measured, against what, and what is wanted.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "Bench/Stopwatch.h"

enum class Unit { kTime, kBytes, kCount, kNone };  // time is in nanoseconds

// The job holds when its own figure is at most `factor` times the floor's plus `constant`. A factor of 0: there is no
// floor.
struct Goal {
  double factor = 0;
  double constant = 0;
};

double Median(std::vector<double> values);

// One repetition of a job.
class Run {
 public:
  Run(benchmark::State& state, bool isSmoke, bool isFirst) : m_state(state), m_isSmoke(isSmoke), m_isFirst(isFirst) {}

  // A smoke run shows that the job works: sizes are small, and nobody reads the figures.
  bool IsSmoke() const { return m_isSmoke; }
  std::size_t Size(std::size_t size) const { return m_isSmoke ? std::min<std::size_t>(size, 50) : size; }
  // The first run of the job in the process: the one that compares what the two sides do.
  bool IsFirst() const { return m_isFirst; }

  // Times both sides in turns, whole batches of each, so that what disturbs the machine disturbs both. The figures are
  // the medians, divided by what one call of a side is worth.
  template <typename Own, typename Floor>
  void Compare(Own own, Floor floor, double worth = 1);

  // The same for sides that time themselves and return nanoseconds.
  template <typename Own, typename Floor>
  void CompareTimes(Own own, Floor floor, double worth = 1);

  // The figures of a job that finds them itself. Such a job runs once a repetition.
  void Tell(double own, double floor = 0);

  // The job cannot be measured: the report says why, and the program fails.
  void Fail(const std::string& why) { m_state.SkipWithError(why); }

 private:
  static constexpr double kShortestBatchNs = 20'000;

  template <typename Side>
  static double Time(Side& side, std::size_t batch) {
    const Stopwatch watch;
    for (std::size_t i = 0; i < batch; ++i) side();
    return watch.Nanoseconds();
  }
  void SetFigures(double own, double floor);

  benchmark::State& m_state;
  bool m_isSmoke;
  bool m_isFirst;
};

struct Job {
  enum class Pace { kRepeated, kOnce };

  std::string name;
  Unit unit = Unit::kTime;
  Goal goal;
  std::function<void(Run& run)> measure;
  Pace pace = Pace::kRepeated;  // kOnce: `measure` calls Run::Tell
};

using Jobs = std::vector<Job>;

// One a source file.
void AddCalculationJobs(Jobs& jobs);
void AddHeapJobs(Jobs& jobs);
void AddPackingJobs(Jobs& jobs);
void AddEditJobs(Jobs& jobs);
void AddAddressJobs(Jobs& jobs);
void AddNetworkJobs(Jobs& jobs);
void AddModuleJobs(Jobs& jobs);
void AddLogJobs(Jobs& jobs);
void AddLogFileJobs(Jobs& jobs);
void AddGrowthJobs(Jobs& jobs);

template <typename Own, typename Floor>
void Run::Compare(Own own, Floor floor, double worth) {
  // What is made at the first call is no cost of the later ones.
  own();
  floor();
  std::size_t batch = 1;
  while (std::min(Time(own, batch), Time(floor, batch)) < kShortestBatchNs) batch *= 2;

  CompareTimes([&] { return Time(own, batch); }, [&] { return Time(floor, batch); },
               worth * static_cast<double>(batch));
}

template <typename Own, typename Floor>
void Run::CompareTimes(Own own, Floor floor, double worth) {
  std::vector<double> ownTimes;
  std::vector<double> floorTimes;
  bool ownFirst = false;
  for (auto _ : m_state) {
    ownFirst = !ownFirst;
    if (ownFirst) ownTimes.push_back(own());
    floorTimes.push_back(floor());
    if (!ownFirst) ownTimes.push_back(own());
    m_state.SetIterationTime((ownTimes.back() + floorTimes.back()) * 1e-9);
  }
  SetFigures(Median(std::move(ownTimes)) / worth, Median(std::move(floorTimes)) / worth);
}

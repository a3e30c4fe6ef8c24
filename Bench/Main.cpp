// QeLaBench: measures the shipped library against bare loops that do the same work. README.md tells how to read it.
#include <benchmark/benchmark.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <regex>
#include <string>
#include <utility>

#include "Bench/Job.h"
#include "Bench/Report.h"

namespace {

constexpr double kSecondsARepetition = 0.25;

enum ExitCode { kAllHold = 0, kSomeMissed = 1, kBadArguments = 2 };

Jobs AllJobs() {
  Jobs jobs;
  AddModuleJobs(jobs);  // first: a process that has had further threads loads ten times slower under Wine
  AddCalculationJobs(jobs);
  AddHeapJobs(jobs);
  AddPackingJobs(jobs);
  AddEditJobs(jobs);
  AddAddressJobs(jobs);
  AddNetworkJobs(jobs);
  AddLogJobs(jobs);
  AddLogFileJobs(jobs);
  AddGrowthJobs(jobs);
  return jobs;
}

void Register(const Job& job, int repetitions, bool isSmoke) {
  auto* const registered =
      benchmark::RegisterBenchmark(job.name, [&job, isSmoke, isFirst = true](benchmark::State& state) mutable {
        Run run(state, isSmoke, std::exchange(isFirst, false));
        job.measure(run);
        // What the fakes complain of by way of the test library.
        if (testing::Test::HasFailure()) run.Fail("a fake was used wrongly");
      });
  registered->UseManualTime()->Repetitions(repetitions);
  if (isSmoke || job.pace == Job::Pace::kOnce)
    registered->Iterations(1);
  else
    registered->MinTime(kSecondsARepetition);
}

}  // namespace

int main(int argc, char** argv) {
  bool asJson = false;
  bool list = false;
  bool isSmoke = false;
  int repetitions = 5;
  std::string filter = ".";
  CLI::App app("Measures the library against bare loops that do the same work.", "QeLaBench");
  app.add_flag("--json", asJson, "Print one JSON document instead of lines");
  app.add_flag("--list", list, "Print the names of the jobs and measure nothing");
  app.add_flag("--smoke", isSmoke, "Run each job once, small, to see that it works; goals do not count");
  app.add_option("--repetitions", repetitions, "How often each job is measured")->check(CLI::Range(1, 1000));
  app.add_option("--filter", filter, "Measure only the jobs whose names this expression matches")
      ->check([](const std::string& text) -> std::string {
        try {
          const std::regex expression(text, std::regex::extended);
          return {};
        } catch (const std::regex_error& error) {
          return error.what();
        }
      });
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kAllHold : kBadArguments;
  }

  Jobs jobs = AllJobs();
  const std::regex expression(filter, std::regex::extended);
  std::erase_if(jobs, [&](const Job& job) { return !std::regex_search(job.name, expression); });
  if (jobs.empty()) {
    std::fputs("QeLaBench: no job has such a name (--list shows them)\n", stderr);
    return kBadArguments;
  }
  if (list) {
    for (const Job& job : jobs) std::puts(job.name.c_str());
    return kAllHold;
  }

  ::testing::InitGoogleTest();
  for (const Job& job : jobs) Register(job, isSmoke ? 1 : repetitions, isSmoke);
  Report report(jobs, asJson, !isSmoke);
  benchmark::RunSpecifiedBenchmarks(&report, nullptr, ".");
  return report.Count(kOk) + report.Count(kRan) == jobs.size() ? kAllHold : kSomeMissed;
}

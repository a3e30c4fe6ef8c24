// What becomes of the figures: one line a job, or one JSON document.
#pragma once

#include <benchmark/benchmark.h>

#include <array>
#include <map>
#include <string>
#include <vector>

#include "Bench/Job.h"

// The names under which a run hands over its figures.
inline constexpr char kOwnCounter[] = "own";
inline constexpr char kFloorCounter[] = "floor";

// A job's medians over its repetitions.
struct Result {
  std::string job;
  Unit unit{};
  Goal goal;
  double own = 0;
  double floor = 0;
  double ratio = 0;  // the median of the ratios; 0 without a floor
  bool holds = false;
  std::string failure;  // why there are no figures; empty when there are
};

// Prints each job's line when its repetitions are done; or with `asJson` all of them, as one document, at the end.
class Report final : public benchmark::BenchmarkReporter {
 public:
  Report(const Jobs& jobs, bool asJson);

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  const std::vector<Result>& Results() const { return m_results; }

 private:
  void PrintLine(const std::array<std::string, 6>& cells) const;

  std::map<std::string, const Job*> m_jobs;
  std::size_t m_nameWidth = 0;
  bool m_asJson;
  std::vector<Result> m_results;
};

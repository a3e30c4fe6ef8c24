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

inline constexpr char kOk[] = "ok";
inline constexpr char kMissed[] = "MISSED";
inline constexpr char kFailed[] = "FAILED";
inline constexpr char kRan[] = "ran";  // not judged

// A job's medians over its repetitions.
struct Result {
  std::string job;
  Unit unit{};
  Goal goal;
  double own = 0;
  double floor = 0;
  double ratio = 0;  // the median of the ratios; 0 without a floor
  std::string verdict;
  std::string failure;  // why there are no figures; empty when there are
};

// Prints each job's line when its repetitions are done; or with `asJson` all of them, as one document, at the end.
class Report final : public benchmark::BenchmarkReporter {
 public:
  // Without `judges`, a job has only to run.
  Report(const Jobs& jobs, bool asJson, bool judges);

  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;
  void Finalize() override;

  std::size_t Count(const std::string& verdict) const;

 private:
  void PrintLine(const std::array<std::string, 6>& cells) const;

  std::map<std::string, const Job*> m_jobs;
  std::size_t m_nameWidth = 0;
  bool m_asJson;
  bool m_judges;
  std::vector<Result> m_results;
};

#include "Bench/Report.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <format>
#include <nlohmann/json.hpp>

namespace {

std::string Figure(Unit unit, double value) {
  switch (unit) {
    case Unit::kTime:
      if (value < 1e3) return std::format("{:.1f} ns", value);
      if (value < 1e6) return std::format("{:.2f} us", value / 1e3);
      return std::format("{:.2f} ms", value / 1e6);
    case Unit::kBytes:
      return std::format("{:.0f} B", value);
    case Unit::kCount:
      return std::format("{:.0f}", value);
    case Unit::kNone:
      break;
  }
  return std::format("{:.3f}", value);
}

// "<= 1.5 x + 30 us"
std::string GoalText(Unit unit, const Goal& goal) {
  const auto shortened = [&](double value) {
    if (unit == Unit::kTime)
      return value < 1e6 ? std::format("{:g} us", value / 1e3) : std::format("{:g} ms", value / 1e6);
    return unit == Unit::kBytes ? std::format("{:.0f} B", value) : std::format("{:g}", value);
  };
  std::string text = "<= ";
  if (goal.factor > 0) text += std::format("{:g} x", goal.factor);
  if (goal.factor > 0 && goal.constant > 0) text += " + ";
  if (goal.constant > 0 || goal.factor == 0)
    text += unit == Unit::kNone ? std::format("{:g}", goal.constant) : shortened(goal.constant);
  return text;
}

const char* NameOf(Unit unit) {
  switch (unit) {
    case Unit::kTime:
      return "ns";
    case Unit::kBytes:
      return "bytes";
    case Unit::kCount:
      return "count";
    case Unit::kNone:
      break;
  }
  return "none";
}

nlohmann::ordered_json JsonOf(const Result& result) {
  nlohmann::ordered_json json;
  json["job"] = result.job;
  json["unit"] = NameOf(result.unit);
  if (result.failure.empty()) {
    json["own"] = result.own;
    if (result.goal.factor > 0) {
      json["floor"] = result.floor;
      json["ratio"] = result.ratio;
    }
  } else {
    json["failure"] = result.failure;
  }
  json["goal"] = {{"factor", result.goal.factor}, {"constant", result.goal.constant}};
  json["verdict"] = result.verdict;
  return json;
}

}  // namespace

Report::Report(const Jobs& jobs, bool asJson, bool judges) : m_asJson(asJson), m_judges(judges) {
  for (const Job& job : jobs) {
    m_jobs[job.name] = &job;
    m_nameWidth = std::max(m_nameWidth, job.name.size());
  }
}

bool Report::ReportContext(const Context&) {
  if (!m_asJson) PrintLine({"job", "own", "floor", "ratio", "goal", "verdict"});
  return true;
}

void Report::PrintLine(const std::array<std::string, 6>& cells) const {
  std::fputs(std::format("{:{}} {:>10} {:>10} {:>8}  {:16} {}\n", cells[0], m_nameWidth, cells[1], cells[2], cells[3],
                         cells[4], cells[5])
                 .c_str(),
             stdout);
  std::fflush(stdout);
}

// Called for each job with all its repetitions, and once more with the library's own statistics of them.
void Report::ReportRuns(const std::vector<Run>& runs) {
  if (runs.empty() || runs.front().run_type == Run::RT_Aggregate) return;
  const Job& job = *m_jobs.at(runs.front().run_name.function_name);
  Result result;
  result.job = job.name;
  result.unit = job.unit;
  result.goal = job.goal;
  std::vector<double> own;
  std::vector<double> floor;
  std::vector<double> ratio;
  std::vector<double> beyond;  // what the goal allows
  for (const Run& run : runs) {
    if (run.skipped != benchmark::internal::NotSkipped) {
      result.failure = run.skip_message;
      continue;
    }
    own.push_back(run.counters.at(kOwnCounter).value);
    floor.push_back(run.counters.at(kFloorCounter).value);
    ratio.push_back(floor.back() > 0 ? own.back() / floor.back() : 0);
    beyond.push_back(own.back() - (job.goal.factor * floor.back() + job.goal.constant));
  }
  result.own = Median(own);
  result.floor = Median(floor);
  result.ratio = Median(ratio);
  if (!result.failure.empty())
    result.verdict = kFailed;
  else if (m_judges)
    result.verdict = Median(beyond) <= 0 ? kOk : kMissed;
  else
    result.verdict = kRan;
  if (!m_asJson) {
    const auto figure = [&](double value, bool isThere) {
      return isThere && result.failure.empty() ? Figure(job.unit, value) : "-";
    };
    const bool hasFloor = job.goal.factor > 0;
    PrintLine({job.name, figure(result.own, true), figure(result.floor, hasFloor),
               hasFloor && result.failure.empty() ? std::format("{:.2f} x", result.ratio) : "-",
               GoalText(job.unit, job.goal), result.verdict + (result.failure.empty() ? "" : ": " + result.failure)});
  }
  m_results.push_back(std::move(result));
}

std::size_t Report::Count(const std::string& verdict) const {
  return static_cast<std::size_t>(std::count_if(m_results.begin(), m_results.end(),
                                                [&](const Result& result) { return result.verdict == verdict; }));
}

void Report::Finalize() {
  if (m_asJson) {
    nlohmann::ordered_json document;
    document["jobs"] = nlohmann::ordered_json::array();
    for (const Result& result : m_results) document["jobs"].push_back(JsonOf(result));
    document["missed"] = Count(kMissed);
    document["failed"] = Count(kFailed);
    std::puts(document.dump(2).c_str());
  } else {
    std::puts(std::format("{} jobs: {} ok, {} missed, {} failed", m_results.size(), Count(kOk) + Count(kRan),
                          Count(kMissed), Count(kFailed))
                  .c_str());
  }
}

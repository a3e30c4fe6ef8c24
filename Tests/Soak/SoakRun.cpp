#include "Tests/Soak/SoakRun.h"

#include <psapi.h>

#include <algorithm>
#include <format>
#include <fstream>

#include "Tests/Support/ProcessCounts.h"

namespace {

// Evenly over the run; those of the first fifth are dropped: what the system and the runtime make once and keep.
constexpr std::size_t kSamples = 250;
constexpr std::size_t kWarmUp = 50;
constexpr std::uint64_t kTellMs = 10'000;

// What must not grow. A leak grows by its size with each operation that has it: 64 bytes (80 with the heap's own) in
// one of 22 kinds of operations are 36 KiB in 10,000. The bounds lie below that, and far above what is left of the
// noise after some 100,000 operations. Over a short run the slope of a single step of the heap's may lie above them by
// chance; so growth counts only when it comes to more than such steps.
struct Measure {
  const char* name;
  double bound;  // for 10,000 units of work
  double steps;
  double stepsAtFirst;
  int width;  // in the report
};
constexpr Measure kMeasuresTaken[] = {{"handles", 1, 8, 8, 12},
                                      {"threads", 1, 4, 4, 10},
                                      {"private KiB", 16, 512, 4096, 14},
                                      {"working set KiB", 16, 512, 4096, 16}};
constexpr double kLongSeconds = 30;
constexpr double kUnitsOfABound = 10'000;

// The system's own number of them is 0 under Wine.
std::size_t CountPrivateBytes() {
  std::size_t bytes = 0;
  MEMORY_BASIC_INFORMATION region{};
  for (const char* at = nullptr; ::VirtualQuery(at, &region, sizeof region) != 0;
       at = static_cast<const char*>(region.BaseAddress) + region.RegionSize)
    if (region.State == MEM_COMMIT && region.Type == MEM_PRIVATE) bytes += region.RegionSize;
  return bytes;
}

}  // namespace

SoakOptions& Options() {
  static SoakOptions options;
  return options;
}

SoakRun::SoakRun(const Job& job)
    : m_job(job),
      m_most(Options().whole         ? job.whole
             : Options().seconds > 0 ? UINT64_MAX
                                     : job.few),
      m_watchdog(Options().silenceMs, [this] { Tick(); }) {
  m_samples.reserve(kSamples - kWarmUp);
  m_sampler = std::thread([this] { TakeSamples(); });
}

SoakRun::~SoakRun() {
  ::SetEvent(m_end);
  m_sampler.join();
  for (HANDLE event : {m_end, m_sampleIsDue, m_sampleIsTaken}) ::CloseHandle(event);
}

double SoakRun::Part() const {
  if (Options().seconds > 0) return static_cast<double>(::GetTickCount64() - m_begin) / (Options().seconds * 1000);
  return static_cast<double>(m_done) / static_cast<double>(m_most);
}

void SoakRun::Count(std::uint64_t done) {
  m_done += done;
  const double part = Part();
  if (part >= 1) m_isOver = true;
  const auto due = static_cast<std::size_t>(part * kSamples);
  if (due <= m_due || m_isSampling.exchange(true)) return;
  m_due = due;
  if (due > kWarmUp) {
    const Watchdog::Doing doing(m_watchdog, "waiting for a sample");
    ::SetEvent(m_sampleIsDue);
    ::WaitForSingleObject(m_sampleIsTaken, INFINITE);
  }
  m_isSampling = false;
}

// All samples are taken by one thread. The system's list of handles needs memory for each handle that is kept, which it
// would take anew for each thread that asks.
void SoakRun::TakeSamples() {
  const HANDLE events[] = {m_end, m_sampleIsDue};
  while (::WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0 + 1) {
    ::AcquireSRWLockExclusive(&m_acts);
    if (m_samples.size() < m_samples.capacity()) Take();
    ::ReleaseSRWLockExclusive(&m_acts);
    ::SetEvent(m_sampleIsTaken);
  }
}

void SoakRun::Take() {
  PROCESS_MEMORY_COUNTERS memory{};
  ::K32GetProcessMemoryInfo(::GetCurrentProcess(), &memory, sizeof memory);
  constexpr double kKiB = 1024;
  m_samples.push_back(
      {static_cast<double>(m_done),
       {static_cast<double>(CountHandles()) - static_cast<double>(m_kept), static_cast<double>(CountThreads()),
        static_cast<double>(CountPrivateBytes()) / kKiB, static_cast<double>(memory.WorkingSetSize) / kKiB}});
}

void SoakRun::Tick() {
  const std::uint64_t now = ::GetTickCount64();
  if (now - m_told < kTellMs) return;
  m_told = now;
  std::fprintf(stderr, "%s: %llu %s, %.0f %%, %llu s\n", m_job.name, m_done.load(), m_job.unit,
               std::min(Part(), 1.0) * 100, (now - m_begin) / 1000);
}

void SoakRun::ExpectFlat() {
  const double seconds = static_cast<double>(::GetTickCount64() - m_begin) / 1000;
  const bool isLong = Options().whole || Options().seconds >= kLongSeconds;
  const double work = m_samples.empty() ? 0 : m_samples.back().done - m_samples.front().done;
  std::string line = std::format("{:<12}{:>10} {:<18}{:>6.0f}", m_job.name, m_done.load(), m_job.unit, seconds);
  for (std::size_t i = 0; i < kMeasures; ++i) {
    const Measure& measure = kMeasuresTaken[i];
    std::vector<Point> points;
    for (const Sample& sample : m_samples) points.push_back({sample.done / kUnitsOfABound, sample.measures[i]});
    const Slope slope = TheilSen(points);
    line += std::format("{:>{}.2f}", slope.median, measure.width);
    EXPECT_FALSE(slope.least > measure.bound &&
                 slope.least * work / kUnitsOfABound > (isLong ? measure.steps : measure.stepsAtFirst))
        << measure.name << " grow by at least " << slope.least << " in " << kUnitsOfABound << " " << m_job.unit
        << ", from " << points.front().measure << " to " << points.back().measure;
  }
  line += ::testing::Test::HasFailure() ? "  FAILED\n" : "  flat\n";
  if (Options().report.empty()) return;
  std::ofstream(Options().report, std::ios::app) << line;
}

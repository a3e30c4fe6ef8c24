// What qela reads out of a log, against reading the log's lines.
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <format>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Bench/Job.h"
#include "Bench/MeasuredService.h"
#include "Bench/TemporaryFile.h"
#include "FwClient/Common/Utilities/LenientUtf.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "Tools/qela/LogFile.h"

namespace {

constexpr std::size_t kLocations = 500;
constexpr std::size_t kAdapters = 3;
constexpr std::string_view kNumber = "######";  // in the names, for that of the calculation
constexpr const wchar_t* kAsked = L"Location 7 ";

// A megabyte that the library itself has logged, as LogLib writes it.
std::string OneCalculation() {
  PlainSet set = LocationsOf(Shape::kTwoOfThreeKinds, kLocations);
  for (PlainLocation& location : set) location.name += L" " + LenientUtf::ToWide(kNumber);
  std::string log;
  for (const std::wstring& text : MeasuredService(Adapters(kAdapters), set).LogOfCalculation()) {
    log += "2025-11-21T02:44:06.736+01:00\t8\tFirewallBL\tFIREWALL\tFwClient/Service/QeLaLib/LocationMatching.cpp:6\t";
    for (const char letter : LenientUtf::ToUtf8(text))
      log += letter == '\n' ? "\\n" : letter == '\t' ? "\\t" : letter == '\\' ? "\\\\" : std::string(1, letter);
    log += '\n';
  }
  return log;
}

// Calculation after calculation, each with names of its own.
struct LargeLog {
  explicit LargeLog(std::size_t bytes) {
    std::string block = OneCalculation();
    std::vector<std::size_t> numbers;
    for (std::size_t at = block.find(kNumber); at != std::string::npos; at = block.find(kNumber, at + 1))
      numbers.push_back(at);
    UniqueKernelHandle handle(::CreateFileW(file.path, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr));
    while (size < bytes) {
      const std::string number = std::format("{:0{}}", ++calculations, kNumber.size());
      for (const std::size_t at : numbers) block.replace(at, number.size(), number);
      DWORD written = 0;
      if (!::WriteFile(handle.get(), block.data(), static_cast<DWORD>(block.size()), &written, nullptr)) return;
      size += block.size();
    }
    isWritten = true;
  }

  std::wstring LastName() const {
    return kAsked + LenientUtf::ToWide(std::format("{:0{}}", calculations, kNumber.size()));
  }

  TemporaryFile file;
  std::size_t size = 0;
  std::uint64_t calculations = 0;
  bool isWritten = false;
};

const LargeLog& TheLog(const Run& run) {
  static const LargeLog log(run.IsSmoke() ? 4 << 20 : 1 << 30);
  return log;
}

// The bare loop: blocks of the best size, and in them each line's end.
std::uint64_t CountLines(const wchar_t* path) {
  constexpr std::size_t kBlock = 256 << 10;
  const auto block = std::make_unique_for_overwrite<char[]>(kBlock);
  const UniqueKernelHandle file(
      ::CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr));
  std::uint64_t lines = 0;
  DWORD read = 0;
  while (::ReadFile(file.get(), block.get(), kBlock, &read, nullptr) && read != 0) {
    const char* const end = block.get() + read;
    for (const char* at = block.get();
         (at = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)))) != nullptr; ++at)
      ++lines;
  }
  return lines;
}

template <typename Own>
void Measure(Run& run, const Own& own) {
  const LargeLog& log = TheLog(run);
  if (!log.isWritten) return run.Fail("the log cannot be written");
  const std::uint64_t lines = CountLines(log.file.path);  // and the file is in memory
  if (lines < log.calculations * kLocations) return run.Fail("the log has too few lines");
  const Stopwatch bare;
  CountLines(log.file.path);
  const double floor = bare.Nanoseconds();
  const Stopwatch watch;
  const std::string failure = own(log);
  const double time = watch.Nanoseconds();
  if (!failure.empty()) return run.Fail(failure);
  run.Tell(time, floor);
}

std::string Find(const LargeLog& log, const LogQuery& query) {
  const std::optional<FoundCalculation> found = FindCalculation({log.file.path}, query);
  if (!found || found->calculations != log.calculations) return "not every calculation was found";
  const std::wstring decision =
      L"IsCurrentLocation returning matched criterias 0 for location " + log.LastName() + L"...";
  for (const FoundCalculation::Message& message : found->messages)
    if (message.text == decision) return {};
  return "it is not the last calculation";
}

std::string ReadAll(const LargeLog& log) {
  std::uint64_t calculations = 0;
  ReadLog({log.file.path}, [&](const LoggedMessage& message) {
    if (message.text == L"Calculating current locations...") ++calculations;
  });
  return calculations == log.calculations ? "" : "not every calculation was read";
}

}  // namespace

void AddLogFileJobs(Jobs& jobs) {
  const auto add = [&](std::string name, double factor, auto own) {
    jobs.push_back({.name = std::move(name),
                    .goal = {.factor = factor},
                    .measure = [own](Run& run) { Measure(run, own); },
                    .pace = Job::Pace::kOnce});
  };
  add("log of 1 GB, the last calculation", 4, [](const LargeLog& log) { return Find(log, {}); });
  add("log of 1 GB, the last of a location", 4, [](const LargeLog& log) { return Find(log, {{}, log.LastName()}); });
  add("log of 1 GB, every message", 6, ReadAll);
}

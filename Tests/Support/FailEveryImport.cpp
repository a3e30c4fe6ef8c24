#include "Tests/Support/FailEveryImport.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <format>
#include <limits>
#include <optional>
#include <random>
#include <string_view>
#include <thread>
#include <vector>

#include "Tests/Support/ImportFailures.h"

namespace {

constexpr DWORD kLongestRunMs = 30'000;
constexpr int kMostFailures = 8;
// A run that fails may do things again, but not without end and without rest.
constexpr std::uint64_t kMostCallsOfARun = 20'000;
constexpr std::uint64_t kMostTimesTheCalls = 8;

// Tells what fails at the moment when the program ends by it.
class Culprit {
 public:
  Culprit()
      : m_handler(::SetUnhandledExceptionFilter(&OnException)),
        m_abort(std::signal(SIGABRT, &OnAbort)),
        m_watchdog([this] { Watch(); }) {}
  ~Culprit() {
    m_ending = true;
    ::SetEvent(m_next);
    m_watchdog.join();
    std::signal(SIGABRT, m_abort);
    ::SetUnhandledExceptionFilter(m_handler);
    ::CloseHandle(m_next);
  }
  Culprit(const Culprit&) = delete;
  Culprit& operator=(const Culprit&) = delete;

  void Is(const std::string& text) {
    std::snprintf(s_text, sizeof s_text, "%s", text.c_str());
    ::SetEvent(m_next);
  }

 private:
  static void Tell(const char* what) {
    std::fprintf(stderr, "%s %s\n", what, s_text);
    std::fflush(stderr);
  }
  static LONG WINAPI OnException(EXCEPTION_POINTERS*) {
    Tell("A crash");
    return EXCEPTION_CONTINUE_SEARCH;
  }
  static void OnAbort(int) { Tell("The end of the process"); }
  void Watch() {
    for (;;) {
      const DWORD waited = ::WaitForSingleObject(m_next, kLongestRunMs);
      if (m_ending) return;
      if (waited == WAIT_OBJECT_0) continue;
      Tell("No end");
      ::TerminateProcess(::GetCurrentProcess(), 1);
    }
  }

  static inline char s_text[500] = "without a failure";
  HANDLE m_next = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::atomic<bool> m_ending = false;
  LPTOP_LEVEL_EXCEPTION_FILTER m_handler;
  void (*m_abort)(int);
  std::thread m_watchdog;
};

// What the environment chooses.
struct Choice {
  std::optional<std::uint32_t> calls;
  bool withAllErrors = false;
  std::string name;  // empty: all imports
  std::optional<std::uint32_t> call;
  std::optional<ImportFaults::Mode> mode;
  std::optional<std::int64_t> error;
  std::uint32_t part = 0;
  std::uint32_t parts = 1;
  std::uint32_t seed = 0;
  std::string report;
};

std::string Environment(const char* name) {
  const char* const text = std::getenv(name);
  return text != nullptr ? text : "";
}

template <typename Number>
std::optional<Number> ReadNumber(std::string_view text, const char* where) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size()) return number;
  ADD_FAILURE() << where << " has no number where it says \"" << text << '"';
  return std::nullopt;
}

// The day in UTC, as a number that can be read.
std::uint32_t Today() {
  const std::chrono::year_month_day day(std::chrono::floor<std::chrono::days>(std::chrono::system_clock::now()));
  return static_cast<std::uint32_t>(static_cast<int>(day.year())) * 10'000 + static_cast<unsigned>(day.month()) * 100 +
         static_cast<unsigned>(day.day());
}

Choice ReadChoice() {
  Choice choice;
  choice.report = Environment("TORTURE_REPORT");
  const std::string seed = Environment("TORTURE_SEED");
  choice.seed = seed.empty() ? Today() : ReadNumber<std::uint32_t>(seed, "TORTURE_SEED").value_or(0);
  const std::string calls = Environment("TORTURE_CALLS");
  const std::string only = Environment("TORTURE_ONLY");
  choice.withAllErrors = calls == "all" || (calls.empty() && !only.empty());
  if (choice.withAllErrors)
    choice.calls = std::numeric_limits<std::uint32_t>::max();
  else if (!calls.empty())
    choice.calls = ReadNumber<std::uint32_t>(calls, "TORTURE_CALLS");
  std::string_view rest = only;
  const auto take = [&] {
    const std::string_view part = rest.substr(0, rest.find(':'));
    rest.remove_prefix(std::min(part.size() + 1, rest.size()));
    return part;
  };
  choice.name = take();
  if (!rest.empty()) choice.call = ReadNumber<std::uint32_t>(take(), "TORTURE_ONLY");
  if (const std::string_view mode = take(); !mode.empty()) {
    EXPECT_TRUE(mode == "once" || mode == "on") << "TORTURE_ONLY knows once and on, not \"" << mode << '"';
    choice.mode = mode == "once" ? ImportFaults::Mode::kOnce : ImportFaults::Mode::kFromThenOn;
  }
  if (!rest.empty()) choice.error = ReadNumber<std::int64_t>(rest, "TORTURE_ONLY");
  if (const std::string part = Environment("TORTURE_PART"); !part.empty()) {
    const std::size_t slash = std::min(part.find('/'), part.size() - 1);
    choice.part = ReadNumber<std::uint32_t>(part.substr(0, slash), "TORTURE_PART").value_or(0);
    choice.parts = std::max(ReadNumber<std::uint32_t>(part.substr(slash + 1), "TORTURE_PART").value_or(1), 1U);
  }
  return choice;
}

// What tells one failure of a function from the others: the error that it leaves or, without one, what it returns.
std::int64_t ErrorOf(const ImportFailure& failure) {
  return failure.error != ERROR_SUCCESS ? std::int64_t{failure.error} : static_cast<std::int64_t>(failure.result);
}

// What fails together, and how often it was called.
struct Target {
  std::string name;
  std::vector<std::size_t> imports;
  std::uint32_t calls;
  const std::vector<ImportFailure>* failures;
  bool givesMemory;
};

// What was called since the calls were forgotten.
std::vector<Target> TargetsOf(const ImportFaults& faults) {
  std::vector<Target> targets;
  Target memory{"memory", {}, 0, nullptr, true};
  for (std::size_t i = 0; i < faults.Names().size(); ++i) {
    const ImportRule* const rule = FindImportRule(faults.Names()[i]);
    const std::uint32_t calls = faults.Calls(i);
    if (rule == nullptr || rule->failures.empty() || calls == 0) continue;
    targets.push_back({rule->name, {i}, calls, &rule->failures, rule->givesMemory});
    if (!rule->givesMemory) continue;
    memory.imports.push_back(i);
    memory.calls += calls;
    memory.failures = &rule->failures;
  }
  if (memory.imports.size() > 1) targets.push_back(memory);
  return targets;
}

// All of them, or the first and some that the seed chooses, for each function others.
std::set<std::uint32_t> ChosenCalls(const Target& target, std::uint32_t most, std::uint32_t seed) {
  std::set<std::uint32_t> chosen;
  if (target.calls <= most) {
    for (std::uint32_t call = 1; call <= target.calls; ++call) chosen.insert(call);
    return chosen;
  }
  for (const char letter : target.name) seed = seed * 31 + static_cast<unsigned char>(letter);
  std::mt19937 random(seed);
  if (most > 0) chosen.insert(1);
  while (chosen.size() < most) chosen.insert(random() % target.calls + 1);
  return chosen;
}

const ::testing::TestInfo& ThisTest() { return *::testing::UnitTest::GetInstance()->current_test_info(); }
int Failures() { return ThisTest().result()->total_part_count(); }
std::string SceneName() { return std::string(ThisTest().test_suite_name()) + '.' + ThisTest().name(); }

void Report(const std::string& file, const std::string& line) {
  if (file.empty()) return;
  std::FILE* const report = std::fopen(file.c_str(), "ab");
  ASSERT_NE(report, nullptr) << "TORTURE_REPORT cannot be written: " << file;
  std::fprintf(report, "%s\t%s\n", SceneName().c_str(), line.c_str());
  std::fclose(report);
}

// What cannot fail, or is not called.
void ReportOthers(const std::string& file, const ImportFaults& faults) {
  if (file.empty()) return;
  for (std::size_t i = 0; i < faults.Names().size(); ++i) {
    const ImportRule* const rule = FindImportRule(faults.Names()[i]);
    if (rule == nullptr || (!rule->failures.empty() && faults.Calls(i) != 0)) continue;
    Report(file, std::format("{}\t{}\t0\t0\t{}\tok", rule->name, faults.Calls(i),
                             rule->whyNever != nullptr ? rule->whyNever : "it is not called"));
  }
}

}  // namespace

std::set<std::string> FailEveryImport(const WithModule& withModule, std::uint32_t mostCalls, const Scene& scene) {
  const Choice choice = ReadChoice();
  const std::uint32_t most = choice.calls.value_or(mostCalls);
  Culprit culprit;
  std::set<std::string> called;
  const auto noteCalls = [&](const ImportFaults& faults) {
    for (std::size_t i = 0; i < faults.Names().size(); ++i)
      if (faults.Calls(i) != 0) called.insert(faults.Names()[i]);
  };
  std::vector<Target> targets;
  std::uint64_t mostCallsOfARun = 0;
  const auto runWithout = [&] {
    Attempt attempt;
    scene(attempt);
  };
  withModule([&](ImportFaults& faults) {
    runWithout();  // what the process makes once
    faults.ForgetCalls();
    runWithout();
    targets = TargetsOf(faults);
    mostCallsOfARun = faults.AllCalls() * kMostTimesTheCalls + kMostCallsOfARun;
    noteCalls(faults);
    ReportOthers(choice.report, faults);
  });
  EXPECT_FALSE(targets.empty()) << "the scene reaches nothing that could fail";
  const int before = Failures();
  for (const Target& target : targets) {
    const bool chosen = choice.name.empty() || choice.name == target.name;
    const int failuresBefore = Failures();
    std::uint32_t putIn = 0;
    std::uint32_t reached = 0;
    std::set<std::int64_t> errors;
    const auto fail = [&](std::uint32_t call, ImportFailure failure, ImportFaults::Mode mode) {
      if (Failures() - before > kMostFailures || (choice.mode && *choice.mode != mode)) return;
      const bool once = mode == ImportFaults::Mode::kOnce;
      const std::string text = std::format(
          "when call {} of {} of {} {} with result {} and error {}, which is repeated by\n"
          "  ./dev torture --scene {} --import {}:{}:{}:{}",
          call, target.calls, target.name, once ? "fails" : "and all later ones fail",
          static_cast<std::int64_t>(failure.result), failure.error, SceneName(), target.name, call,
          once ? "once" : "on", ErrorOf(failure));
      SCOPED_TRACE(text);
      withModule([&](ImportFaults& faults) {
        culprit.Is(text);
        faults.ForgetCalls();
        faults.FailAt(target.imports, call, mode, failure);
        Attempt attempt(faults, mode, failure.error, target.givesMemory);
        scene(attempt);
        ++putIn;
        errors.insert(ErrorOf(failure));
        reached += faults.StopFailing() ? 1U : 0U;
        EXPECT_LE(faults.AllCalls(), mostCallsOfARun) << "it does not rest";
        noteCalls(faults);
        SCOPED_TRACE("afterwards");
        culprit.Is("afterwards, " + text);
        runWithout();
        noteCalls(faults);
      });
    };
    bool withFirst = false;
    std::set<std::uint32_t> calls;
    if (chosen) calls = choice.call ? std::set{*choice.call} : ChosenCalls(target, most, choice.seed);
    for (const std::uint32_t call : calls) {
      if (call % choice.parts != choice.part % choice.parts) continue;
      withFirst |= call == 1;
      for (std::size_t i = 0; i < target.failures->size(); ++i) {
        if (choice.error && *choice.error != ErrorOf((*target.failures)[i])) continue;
        if (!choice.withAllErrors && call != 1 && i != call % target.failures->size()) continue;
        fail(call, (*target.failures)[i], ImportFaults::Mode::kOnce);
        fail(call, (*target.failures)[i], ImportFaults::Mode::kFromThenOn);
      }
    }
    EXPECT_TRUE(reached != 0 || putIn == 0 || !withFirst) << target.name << " is not called again";
    if (putIn == 0)
      for (const ImportFailure& failure : *target.failures) errors.insert(ErrorOf(failure));
    std::string list;
    for (const std::int64_t error : errors) list += (list.empty() ? "" : ",") + std::to_string(error);
    Report(choice.report, std::format("{}\t{}\t{}\t{}\t{}\t{}", target.name, target.calls, putIn, reached, list,
                                      Failures() == failuresBefore ? "ok" : "failed"));
  }
  return called;
}

void ExpectKnownImports(const ImportFaults& faults) {
  for (const std::string& name : faults.Names()) {
    const ImportRule* const rule = FindImportRule(name);
    ASSERT_NE(rule, nullptr) << name << " is imported, and nothing tells how it fails";
    std::set<std::int64_t> errors;
    for (const ImportFailure& failure : rule->failures)
      EXPECT_TRUE(errors.insert(ErrorOf(failure)).second) << name << " has two failures of one number";
  }
}

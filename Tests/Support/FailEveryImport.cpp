#include "Tests/Support/FailEveryImport.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <thread>
#include <vector>

#include "Tests/Support/ImportFailures.h"

namespace {

constexpr DWORD kLongestRunMs = 30'000;
constexpr int kMostFailures = 8;

// Tells what fails at the moment when the program ends by it.
class Culprit {
 public:
  Culprit()
      : m_handler(::AddVectoredExceptionHandler(1, &OnException)),
        m_abort(std::signal(SIGABRT, &OnAbort)),
        m_watchdog([this] { Watch(); }) {}
  ~Culprit() {
    m_ending = true;
    ::SetEvent(m_next);
    m_watchdog.join();
    std::signal(SIGABRT, m_abort);
    ::RemoveVectoredExceptionHandler(m_handler);
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
  static LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers) {
    constexpr DWORD kError = 0xC0000000;  // neither C++'s exceptions nor the debugger's news
    if ((pointers->ExceptionRecord->ExceptionCode & kError) == kError) Tell("A crash");
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

  static inline char s_text[300] = "without a failure";
  HANDLE m_next = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
  std::atomic<bool> m_ending = false;
  void* m_handler;
  void (*m_abort)(int);
  std::thread m_watchdog;
};

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
  Target memory{"what gives memory", {}, 0, nullptr, true};
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

// All of them, or the first half of the most one by one and the second spread over the rest, the last one included.
std::vector<std::uint32_t> ChosenCalls(std::uint32_t calls, std::uint32_t most) {
  std::vector<std::uint32_t> chosen;
  const std::uint32_t oneByOne = calls <= most ? calls : most / 2;
  const std::uint32_t spread = most - most / 2;
  for (std::uint32_t call = 1; call <= oneByOne; ++call) chosen.push_back(call);
  for (std::uint32_t i = 1; calls > most && i <= spread; ++i)
    chosen.push_back(oneByOne + (calls - oneByOne) * i / spread);
  return chosen;
}

int Failures() { return ::testing::UnitTest::GetInstance()->current_test_info()->result()->total_part_count(); }

}  // namespace

std::set<std::string> FailEveryImport(const WithModule& withModule, std::uint32_t mostCalls, const Scene& scene) {
  Culprit culprit;
  std::set<std::string> called;
  const auto noteCalls = [&](const ImportFaults& faults) {
    for (std::size_t i = 0; i < faults.Names().size(); ++i)
      if (faults.Calls(i) != 0) called.insert(faults.Names()[i]);
  };
  std::vector<Target> targets;
  const auto runWithout = [&] {
    Attempt attempt;
    scene(attempt);
  };
  withModule([&](ImportFaults& faults) {
    runWithout();  // what the process makes once
    faults.ForgetCalls();
    runWithout();
    targets = TargetsOf(faults);
    noteCalls(faults);
  });
  EXPECT_FALSE(targets.empty()) << "the scene reaches nothing that could fail";
  const int before = Failures();
  for (const Target& target : targets) {
    bool reached = false;
    const auto fail = [&](std::uint32_t call, ImportFailure failure, ImportFaults::Mode mode) {
      if (Failures() - before > kMostFailures) return;
      const std::string text =
          "when call " + std::to_string(call) + " of " + std::to_string(target.calls) + " of " + target.name +
          (mode == ImportFaults::Mode::kOnce ? " fails" : " and all later ones fail") + " with result " +
          std::to_string(failure.result) + " and error " + std::to_string(failure.error);
      SCOPED_TRACE(text);
      withModule([&](ImportFaults& faults) {
        culprit.Is(text);
        faults.FailAt(target.imports, call, mode, failure);
        Attempt attempt(faults, mode, failure.error);
        scene(attempt);
        reached |= faults.StopFailing();
        SCOPED_TRACE("afterwards");
        culprit.Is("afterwards, " + text);
        runWithout();
        noteCalls(faults);
      });
    };
    for (const std::uint32_t call : ChosenCalls(target.calls, mostCalls)) {
      for (std::size_t i = 0; i < target.failures->size(); ++i) {
        if (call != 1 && i != call % target.failures->size()) continue;
        fail(call, (*target.failures)[i], ImportFaults::Mode::kOnce);
        fail(call, (*target.failures)[i], ImportFaults::Mode::kFromThenOn);
      }
    }
    EXPECT_TRUE(reached || Failures() - before > kMostFailures) << target.name << " is not called again";
  }
  return called;
}

void ExpectKnownImports(const ImportFaults& faults) {
  for (const std::string& name : faults.Names())
    EXPECT_NE(FindImportRule(name), nullptr) << name << " is imported, and nothing tells how it fails";
}

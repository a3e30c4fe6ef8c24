// A host that calls back in wherever the library calls it: from the callback, the log sink, the error printer, the
// functions of the lock, its own locations, and the function that hands out its COM record.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Soak/Caller.h"
#include "Tests/Soak/LibraryStarts.h"
#include "Tests/Soak/Machine.h"
#include "Tests/Soak/QuietLog.h"
#include "Tests/Soak/SoakRun.h"
#include "Tests/Support/HostLocation.h"
#include "Tests/Support/KeptImports.h"
#include "Tests/Support/ServiceLibrary.h"

namespace {

// As hosts declare it.
struct HostRecord {
  CRITICAL_SECTION lock;
  bool hostComActive;
  bool forceComInit;
  std::uint32_t initCount;
  std::uint32_t uninitCount;
};

HostRecord g_record{};
CRITICAL_SECTION g_serviceLock;

// Of so many occasions the host takes one.
constexpr unsigned kOccasions = 16;
constexpr unsigned kLocksOccasions = 64;
constexpr unsigned kThreads = 3;
constexpr std::uint64_t kOperationsOfALoad = 2'500;

// The host calls from inside a call, and from inside that once more, but no deeper: each makes further ones.
class Depth {
 public:
  Depth() : m_depth(Get()) { Set(m_depth + 1); }
  ~Depth() { Set(m_depth); }
  Depth(const Depth&) = delete;
  Depth& operator=(const Depth&) = delete;
  bool IsWithin() const { return m_depth < 2; }

 private:
  // Not thread_local, which would take memory from the heap that is watched.
  static inline const DWORD s_slot = ::TlsAlloc();
  static std::intptr_t Get() { return reinterpret_cast<std::intptr_t>(::TlsGetValue(s_slot)); }
  static void Set(std::intptr_t depth) { ::TlsSetValue(s_slot, reinterpret_cast<void*>(depth)); }

  const std::intptr_t m_depth;
};

// One load of the library with one of its instances: the host calls it back under its lock, and with two instances the
// two locks would be taken in either order.
class Host {
 public:
  Host(SoakRun& run, const ServiceLibrary& library, LibraryStarts& starts, unsigned number)
      : m_run(run), m_library(library), m_starts(starts), m_isCounted(number % 2 == 0), m_seed(number * 1000) {
    g_record.hostComActive = number % 3 == 0;
    g_record.forceComInit = number % 3 == 1;
    g_record.initCount = g_record.uninitCount = 0;
    s_enter = m_enter.Original<void WINAPI(CRITICAL_SECTION*)>();
    s_leave = m_leave.Original<void WINAPI(CRITICAL_SECTION*)>();
    s_current = this;
    if (!m_isCounted) m_shared = m_library.SmartApi(&g_serviceLock);
    m_service = m_isCounted ? m_library.Api() : m_shared.get();
    m_run.Expect(m_wasAsked, "the host is not asked for its COM record");
  }
  ~Host() {
    m_isQuiet = true;
    m_run.Do("ending discovery", [&] {
      do {
        m_service.load()->StartDiscovery(&Told);
        m_service.load()->StopDiscovery();
      } while (!m_starts.HaveEnded());
    });
    m_run.Expect(g_record.initCount == g_record.uninitCount,
                 "beginnings and ends of calculations differ:", g_record.initCount, g_record.uninitCount);
    m_service = nullptr;
    m_shared.reset();
    m_run.Expect(m_library.Api()->Release() == 0, "the service lives on");
    s_current = nullptr;
  }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void Work() {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < kThreads; ++i)
      threads.emplace_back([this] {
        std::minstd_rand random(++m_seed);
        while (m_run.GoesOn() && m_operations++ < kOperationsOfALoad) {
          m_run.Do("a change of address", [&] {
            m_machine.Move(random() % kNetworks);
            m_machine.Adapters().ClearCalls();
          });
          m_run.Do("an operation", [&] { CallAny(random()); });
          m_run.Do("a location of the host's", [&] { UpdateOwnLocation(); });
          m_run.Count();
        }
      });
    for (std::thread& thread : threads) thread.join();
  }

  // The library calls the host here.
  static void WhenCalled(const char* where, unsigned occasions = kOccasions) {
    Host* const self = s_current;
    if (self == nullptr || self->m_isQuiet || self->m_service == nullptr) return;
    const Depth depth;
    const unsigned occasion = ++self->m_seed;
    if (depth.IsWithin() && std::minstd_rand(occasion)() / 7 % occasions == 0)
      self->m_run.DoInside(where, [&] { self->CallAny(occasion); });
  }
  // The first calculation of a load looks for the record, while the instance is being made: another one is asked.
  static HostRecord* Record() {
    Host* const self = s_current;
    if (self != nullptr && !std::exchange(self->m_wasAsked, true)) {
      self->m_run.DoInside("the function of the COM record", [&] {
        _IQeLaApiSmart* const other = self->m_isCounted ? self->m_library.SmartApi().get() : self->m_library.Api();
        self->m_run.Expect(other->Save(), "Save fails");
        Caller::ExpectWhole(self->m_run, *other->GetCurrentLocations());
      });
    }
    return &g_record;
  }
  static void Told(std::shared_ptr<_IEnumQeLocations> current) {
    Caller::ExpectWhole(s_current->m_run, *current);
    for (int i = 0; i < 4; ++i) WhenCalled("the callback", 1);
  }

 private:
  void CallAny(unsigned seed) {
    _IQeLaApiSmart& service = *m_service;
    Caller caller(m_run, service, m_isCounted ? m_library.Api() : nullptr, Caller::Among::kOneselfToo, seed);
    caller.Call(caller.Choose());
  }
  // It is asked under the lock for its ID, which nobody has.
  void UpdateOwnLocation() {
    const auto location = std::make_shared<HostLocation>();
    location->onId = [] {
      WhenCalled("a location of the host's", 1);
      return L"of the host's own";
    };
    m_run.Expect(m_service.load()->UpdateLocation(location) == LSR_FAILED, "an unknown location is updated");
  }

  static void WINAPI Enter(CRITICAL_SECTION* section) {
    if (section == &g_serviceLock || section == &g_record.lock) WhenCalled("entering a lock", kLocksOccasions);
    s_enter(section);
  }
  static void WINAPI Leave(CRITICAL_SECTION* section) {
    s_leave(section);
    if (section == &g_serviceLock || section == &g_record.lock) WhenCalled("leaving a lock", kLocksOccasions);
  }

  static inline Host* s_current = nullptr;
  static inline void(WINAPI* s_enter)(CRITICAL_SECTION*);
  static inline void(WINAPI* s_leave)(CRITICAL_SECTION*);

  SoakRun& m_run;
  const ServiceLibrary& m_library;
  LibraryStarts& m_starts;
  const bool m_isCounted;
  std::atomic<unsigned> m_seed;
  std::atomic<std::uint64_t> m_operations{0};
  std::atomic<bool> m_isQuiet{false};
  bool m_wasAsked = false;
  Machine m_machine{m_library.Module()};
  ImportPatch m_enter{m_library.Module(), "EnterCriticalSection", &Enter};
  ImportPatch m_leave{m_library.Module(), "LeaveCriticalSection", &Leave};
  std::shared_ptr<_IQeLaApiSmart> m_shared;
  std::atomic<_IQeLaApiSmart*> m_service{nullptr};
};

}  // namespace

// This program is the host.
extern "C" __declspec(dllexport) void* CisbMs();
extern "C" __declspec(dllexport) void* CisbMs() {
  return g_record.lock.DebugInfo != nullptr ? Host::Record() : nullptr;
}

namespace {

TEST(Soak, ReentrantHostsCallBackInFromWhereverTheyAreCalled) {
  SoakRun run({.name = "reentrant", .unit = "operations", .few = 5'000, .whole = 100'000});
  ::InitializeCriticalSection(&g_serviceLock);
  ::InitializeCriticalSection(&g_record.lock);
  QuietLog log(run);
  log.onEvent = [](const LogUtils::LogRecord&) { Host::WhenCalled("the log sink"); };
  const RedirectedMachineHive registry;
  const KeptImports imports;
  Caller::SetCallbacks(&Host::Told, [] { Host::WhenCalled("the error printer", 2); });
  for (unsigned number = 0; run.GoesOn(); ++number) {
    ServiceLibrary library;
    LibraryStarts starts(library.Module());
    Host(run, library, starts, number).Work();
    run.Expect(starts.Unload(library), "a start has not left its three handles open");
  }
  run.ExpectFlat();
  ::DeleteCriticalSection(&g_record.lock);
  ::DeleteCriticalSection(&g_serviceLock);
}

}  // namespace

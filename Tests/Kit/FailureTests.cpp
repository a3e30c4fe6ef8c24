// Windows refuses, and memory runs out: a status, nothing left behind, and the next call works.
#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "ScriptedWindows/ImportTable/HandleLedger.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"
#include "ScriptedWindows/ImportTable/PlannedFailures.h"
#include "Tests/Kit/KitTest.h"

namespace {

// In the process: what one module allocates, another one frees.
std::size_t BlocksOnTheHeap() {
  HANDLE heap = ::GetProcessHeap();
  ::HeapLock(heap);
  std::size_t blocks = 0;
  PROCESS_HEAP_ENTRY entry{};
  while (::HeapWalk(heap, &entry))
    if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0) ++blocks;
  ::HeapUnlock(heap);
  return blocks;
}

// As HeapWatch.h's, for the kit. Whether something is left shows when it is left again and again.
template <typename Scenario>
void FailEveryAllocationAgainAndAgain(HMODULE kit, Scenario scenario) {
  constexpr int kRounds = 12;
  constexpr int kFirstRounds = 4;  // what is made once is made by then
  WarmUpExceptions(kit);
  for (const HeapWatch::Failing failing : {HeapWatch::Failing::kOnce, HeapWatch::Failing::kFromThenOn}) {
    std::size_t n = 0;
    bool failed = false;
    do {
      std::size_t blocks = 0;
      for (int round = 0; round < kRounds; ++round) {
        if (round == kFirstRounds) blocks = BlocksOnTheHeap();
        HeapWatch heap(kit);
        scenario([&](auto operation) {
          heap.FailAt(n, failing);
          operation();
          failed = heap.StopFailing();
        });
      }
      EXPECT_LT(BlocksOnTheHeap(), blocks + kRounds - kFirstRounds) << "when allocation " << n << " fails";
      ++n;
    } while (failed);
  }
}

// The Windows calls that the kit makes, each of which can be made to fail; what they open is entered in the books.
class FailingWindows : public PlannedFailures, public OnlyOne<FailingWindows> {
 public:
  explicit FailingWindows(HMODULE module) {
    const auto patch = [&](const char* function, auto* replacement) {
      m_patches.try_emplace(function, module, function, replacement);
    };
    patch("CreateEventW", &CreateEventW);
    patch("CreateThread", &CreateThread);
    patch("CloseHandle", &CloseHandle);
    patch("RegOpenKeyExW", &RegOpenKeyExW);
    patch("RegCloseKey", &RegCloseKey);
    patch("RegGetValueW", &RegGetValueW);
    patch("RegNotifyChangeKeyValue", &RegNotifyChangeKeyValue);
    patch("WaitForMultipleObjects", &WaitForMultipleObjects);
    patch("GetModuleHandleExW", &GetModuleHandleExW);
    patch("GetModuleHandleW", &GetModuleHandleW);
    patch("GetProcAddress", &GetProcAddress);
    patch("FindResourceW", &FindResourceW);
    patch("SizeofResource", &SizeofResource);
    patch("LoadResource", &LoadResource);
    patch("LockResource", &LockResource);
  }

  HandleLedger ledger;

 private:
  template <typename Function>
  static Function* Real(Function*, const char* name) {
    return Current().m_patches.at(name).template Original<Function>();
  }
  // Whether the call is to fail; its error is set then.
  static bool Fails(const char* name) {
    const DWORD error = Current().NextError(name);
    if (error != ERROR_SUCCESS) ::SetLastError(error);
    return error != ERROR_SUCCESS;
  }
  static void Opened(const char* name, const char* closer, const void* handle) {
    if (handle != nullptr) Current().ledger.Opened(name, closer, handle);
  }

  static HANDLE WINAPI CreateEventW(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) {
    if (Fails("CreateEventW")) return nullptr;
    HANDLE handle = Real(&CreateEventW, "CreateEventW")(security, manual, set, name);
    Opened("CreateEventW", "CloseHandle", handle);
    return handle;
  }
  static HANDLE WINAPI CreateThread(SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                                    void* argument, DWORD flags, DWORD* id) {
    if (Fails("CreateThread")) return nullptr;
    HANDLE handle = Real(&CreateThread, "CreateThread")(security, stack, start, argument, flags, id);
    Opened("CreateThread", "CloseHandle", handle);
    return handle;
  }
  static BOOL WINAPI CloseHandle(HANDLE handle) {
    Current().ledger.Closed("CloseHandle", handle);
    return Real(&CloseHandle, "CloseHandle")(handle);
  }
  static LSTATUS WINAPI RegOpenKeyExW(HKEY hive, const wchar_t* path, DWORD options, REGSAM access, HKEY* key) {
    if (const DWORD error = Current().NextError("RegOpenKeyExW"); error != ERROR_SUCCESS)
      return static_cast<LSTATUS>(error);
    const LSTATUS status = Real(&RegOpenKeyExW, "RegOpenKeyExW")(hive, path, options, access, key);
    if (status == ERROR_SUCCESS) Opened("RegOpenKeyExW", "RegCloseKey", *key);
    return status;
  }
  static LSTATUS WINAPI RegCloseKey(HKEY key) {
    Current().ledger.Closed("RegCloseKey", key);
    return Real(&RegCloseKey, "RegCloseKey")(key);
  }
  static LSTATUS WINAPI RegGetValueW(HKEY hive, const wchar_t* path, const wchar_t* name, DWORD flags, DWORD* type,
                                     void* data, DWORD* size) {
    if (const DWORD error = Current().NextError("RegGetValueW"); error != ERROR_SUCCESS)
      return static_cast<LSTATUS>(error);
    return Real(&RegGetValueW, "RegGetValueW")(hive, path, name, flags, type, data, size);
  }
  static LSTATUS WINAPI RegNotifyChangeKeyValue(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous) {
    if (const DWORD error = Current().NextError("RegNotifyChangeKeyValue"); error != ERROR_SUCCESS)
      return static_cast<LSTATUS>(error);
    return Real(&RegNotifyChangeKeyValue, "RegNotifyChangeKeyValue")(key, subtree, filter, event, asynchronous);
  }
  static DWORD WINAPI WaitForMultipleObjects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
    if (Fails("WaitForMultipleObjects")) return WAIT_FAILED;
    return Real(&WaitForMultipleObjects, "WaitForMultipleObjects")(count, handles, all, milliseconds);
  }
  static BOOL WINAPI GetModuleHandleExW(DWORD flags, const wchar_t* name, HMODULE* module) {
    if (Fails("GetModuleHandleExW")) return FALSE;
    return Real(&GetModuleHandleExW, "GetModuleHandleExW")(flags, name, module);
  }
  static HMODULE WINAPI GetModuleHandleW(const wchar_t* name) {
    return Fails("GetModuleHandleW") ? nullptr : Real(&GetModuleHandleW, "GetModuleHandleW")(name);
  }
  static FARPROC WINAPI GetProcAddress(HMODULE module, const char* name) {
    return Fails("GetProcAddress") ? nullptr : Real(&GetProcAddress, "GetProcAddress")(module, name);
  }
  static HRSRC WINAPI FindResourceW(HMODULE module, const wchar_t* name, const wchar_t* type) {
    return Fails("FindResourceW") ? nullptr : Real(&FindResourceW, "FindResourceW")(module, name, type);
  }
  static DWORD WINAPI SizeofResource(HMODULE module, HRSRC resource) {
    return Fails("SizeofResource") ? 0 : Real(&SizeofResource, "SizeofResource")(module, resource);
  }
  static HGLOBAL WINAPI LoadResource(HMODULE module, HRSRC resource) {
    return Fails("LoadResource") ? nullptr : Real(&LoadResource, "LoadResource")(module, resource);
  }
  static void* WINAPI LockResource(HGLOBAL resource) {
    return Fails("LockResource") ? nullptr : Real(&LockResource, "LockResource")(resource);
  }

  std::map<std::string, ImportPatch> m_patches;
};

std::uint8_t g_bytes[1000];
std::uint32_t g_room;

class KitFailures : public KitTest {
 protected:
  // The worker is at its end before the fakes go.
  void CloseAndWait() {
    if (m_service == nullptr) return;
    EXPECT_EQ(qela_close(m_service), QELA_STATUS_OK);
    Forget();
    EXPECT_TRUE(m_threads.Count() == 0 || m_threads.WaitForEnd());
  }
};

// From opening to closing, with one more call failing each time until none is left to fail.
TEST_F(KitFailures, EveryCallOfWindowsMayFail) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Open();  // the library's instance stays, and is made without failures
  CloseAndWait();
  std::size_t made = 0;
  std::size_t number = 1;
  do {
    FailingWindows windows(Kit());
    windows.FailCallNumber(number);
    ToldHost host;
    const qela_options options = QELA_OPTIONS_INIT;
    qela_status status = qela_open(&options, &m_service);
    EXPECT_EQ(status == QELA_STATUS_OK, m_service != nullptr) << qela_status_text(status);
    if (status == QELA_STATUS_OK) {
      status = qela_start(m_service, &ToldHost::OnChange, &host);
      if (status == QELA_STATUS_OK)
        EXPECT_TRUE(host.Take().has_value()) << "the host is not called";
      else
        EXPECT_EQ(status, QELA_STATUS_SYSTEM_ERROR);
      EXPECT_EQ(qela_save(m_service), QELA_STATUS_OK);
    } else {
      EXPECT_EQ(status, QELA_STATUS_SYSTEM_ERROR);
    }
    qela_versions versions{};
    versions.size = sizeof versions;
    status = qela_get_versions(&versions);
    EXPECT_TRUE(status == QELA_STATUS_OK || status == QELA_STATUS_SYSTEM_ERROR);
    status = qela_set_log_callback(nullptr, nullptr, QELA_LOG_ALL);
    EXPECT_TRUE(status == QELA_STATUS_OK || status == QELA_STATUS_NOT_SUPPORTED);
    status = qela_set_credentials_callback(nullptr, nullptr);
    EXPECT_TRUE(status == QELA_STATUS_OK || status == QELA_STATUS_NOT_SUPPORTED);
    CloseAndWait();
    EXPECT_THAT(windows.ledger.Leaks(), testing::IsEmpty()) << "at call " << number;
    EXPECT_THAT(windows.ledger.Mistakes(), testing::IsEmpty()) << "at call " << number;
    made = windows.FallibleCalls();
    if (HasFailure()) {
      ADD_FAILURE() << "at call " << number;
      return;
    }
  } while (number++ <= made);
  EXPECT_GT(number, 25u) << "fewer calls than the kit makes";
}

TEST_F(KitFailures, AWorkerWhoseWaitsFailPausesAndStillTells) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Open();
  ToldHost host;
  FailingWindows windows(Kit());
  windows.Fail("WaitForMultipleObjects", ERROR_INVALID_HANDLE);
  windows.Fail("WaitForMultipleObjects", ERROR_INVALID_HANDLE, 2);
  Start(host);
  ExpectTold(host, {L"office"});
  Move({});
  ExpectTold(host, {});
  CloseAndWait();
}

// Every allocation of the kit's own, in every function, once and for good.
TEST_F(KitFailures, MemoryThatRunsOutIsAStatus) {
  Open();
  qela_location* const location = NewLocation(L"an identifier that needs memory of its own", kOfficeGateway);
  EXPECT_EQ(qela_location_add_criterion(location, QELA_CRITERION_ZELT_REACHABLE, nullptr), QELA_STATUS_OK);
  Add(L"a stored location's identifier");
  const std::function<qela_status()> functions[] = {
      [&] {
        qela_location* made = nullptr;
        const qela_status status = qela_create_location(m_service, &made);
        EXPECT_EQ(made != nullptr, status == QELA_STATUS_OK);
        return made != nullptr ? qela_location_release(made) : status;
      },
      [&] {
        qela_locations* made = nullptr;
        const qela_status status = qela_get_locations(m_service, &made);
        EXPECT_EQ(made != nullptr, status == QELA_STATUS_OK);
        return made != nullptr ? qela_locations_release(made) : status;
      },
      [&] {
        qela_location* made = nullptr;
        const qela_status status = qela_get_location(m_service, L"a stored location's identifier", &made);
        EXPECT_EQ(made != nullptr, status == QELA_STATUS_OK);
        return made != nullptr ? qela_location_release(made) : status;
      },
      [&] {
        qela_criteria* made = nullptr;
        const qela_status status = qela_location_get_criteria(location, &made);
        EXPECT_EQ(made != nullptr, status == QELA_STATUS_OK);
        return made != nullptr ? qela_criteria_release(made) : status;
      },
      [&] { return qela_location_set_name(location, L"a name that needs memory of its own"); },
      [&] {
        return qela_location_remove_criterion(location, QELA_CRITERION_DNS_SUFFIX,
                                              L"a long text, for which there is none") == QELA_STATUS_NOT_FOUND
                   ? QELA_STATUS_OK
                   : QELA_STATUS_OUT_OF_MEMORY;
      },
      [&] {
        g_room = 1000;
        return qela_location_to_bytes(location, g_bytes, &g_room);
      },
      [&] { return qela_location_from_bytes(location, g_bytes, g_room); },
      [&] {
        std::int32_t matches = 0;
        const wchar_t* const addresses[] = {L"an address that needs memory of its own"};
        return qela_match_addresses(m_service, addresses, 1, QELA_ADDRESS_SINGLE, L"10.0.0.1", L"", &matches);
      },
      [&] {
        std::int32_t matches = 0;
        const std::uint32_t indexes[] = {1, 2, 3};
        return qela_is_adapter_media_type(m_service, 1, indexes, 3, &matches);
      },
      [&] {
        const std::uint32_t indexes[] = {1, 2, 3};
        return qela_location_set_adapters(location, indexes, 3);
      },
      [&] {
        return qela_update_location(m_service, location) == QELA_STATUS_OUT_OF_MEMORY ? QELA_STATUS_OUT_OF_MEMORY
                                                                                      : QELA_STATUS_OK;
      },
      [&] { return qela_save(m_service); },
      [&] { return qela_load(m_service); },
  };
  std::size_t number = 0;
  for (const auto& function : functions) {
    SCOPED_TRACE("function " + std::to_string(number++));
    ASSERT_EQ(function(), QELA_STATUS_OK) << "with enough memory";
    FailEveryAllocationAgainAndAgain(Kit(), [&](auto attempt) {
      qela_status status = QELA_STATUS_OK;
      attempt([&] { status = function(); });
      EXPECT_TRUE(status == QELA_STATUS_OK || status == QELA_STATUS_OUT_OF_MEMORY) << qela_status_text(status);
    });
    EXPECT_EQ(function(), QELA_STATUS_OK) << "afterwards";
  }
}

TEST_F(KitFailures, MemoryThatRunsOutWhileOpeningAndStartingIsAStatus) {
  Open();
  CloseAndWait();
  ToldHost host;
  FailEveryAllocationAgainAndAgain(Kit(), [&](auto attempt) {
    const qela_options options = QELA_OPTIONS_INIT;
    qela_status opened = QELA_STATUS_OK;
    qela_status started = QELA_STATUS_OK;
    attempt([&] {
      opened = qela_open(&options, &m_service);
      if (opened == QELA_STATUS_OK) started = qela_start(m_service, &ToldHost::OnChange, &host);
    });
    EXPECT_TRUE(opened == QELA_STATUS_OK || opened == QELA_STATUS_OUT_OF_MEMORY) << qela_status_text(opened);
    EXPECT_TRUE(started == QELA_STATUS_OK || started == QELA_STATUS_OUT_OF_MEMORY) << qela_status_text(started);
    CloseAndWait();
  });
}

TEST_F(KitFailures, AnErrorLineThatThereIsNoMemoryForIsLost) {
  static std::string line;
  ASSERT_EQ(qela_set_error_callback([](const char* text, void*) { line = text; }, nullptr), QELA_STATUS_OK);
  qela_location* const location = NewLocation(L"id");
  std::vector<std::string> lines;
  FailEveryAllocationAgainAndAgain(Kit(), [&](auto attempt) {
    line.clear();
    const std::uint8_t bad = 0xc1;
    qela_status status = QELA_STATUS_OK;
    attempt([&] { status = qela_location_from_bytes(location, &bad, 1); });
    EXPECT_TRUE(status == QELA_STATUS_BAD_DATA || status == QELA_STATUS_OUT_OF_MEMORY) << qela_status_text(status);
    if (status == QELA_STATUS_BAD_DATA) lines.push_back(line);
  });
  EXPECT_EQ(qela_set_error_callback(nullptr, nullptr), QELA_STATUS_OK);
  EXPECT_NE(std::find(lines.begin(), lines.end(), ""), lines.end());
  ASSERT_FALSE(lines.empty());
  EXPECT_NE(lines.back().find("CQeLocation"), std::string::npos) << lines.back();
}

// While one lives, the next allocation of the module fails on the first other thread that calls a function of the
// kit's.
class OneFailureElsewhere : public OnlyOne<OneFailureElsewhere> {
 public:
  explicit OneFailureElsewhere(HMODULE module) : m_heap(module) {}

  bool HasFailed() { return m_heap.StopFailing(); }

 private:
  static BOOL WINAPI TryEnter(CRITICAL_SECTION* section) {
    OneFailureElsewhere& self = Current();
    if (::GetCurrentThreadId() != self.m_testsThread && !self.m_isDue.exchange(true)) self.m_heap.FailAt(0);
    return ::TryEnterCriticalSection(section);
  }

  const DWORD m_testsThread = ::GetCurrentThreadId();
  std::atomic<bool> m_isDue = false;
  HeapWatch m_heap;
  ImportPatch m_patch{::GetModuleHandleW(L"QeLaC.dll"), "TryEnterCriticalSection", &TryEnter};
};

// Of no current location the library reports nothing that would make the worker look.
TEST_F(KitFailures, AWorkerThatLacksMemoryTriesAgainAndTells) {
  Open();
  WarmUpExceptions(Kit());
  ToldHost host;
  OneFailureElsewhere failure(Kit());
  Start(host);
  ExpectTold(host, {});
  EXPECT_TRUE(failure.HasFailed());
  CloseAndWait();
}

// Sees when the worker of the kit waits, and comes in between where it begins to look.
class WatchedWorker : public OnlyOne<WatchedWorker> {
 public:
  // For news alone, without looking by itself.
  bool WaitUntilItRests() { return ::WaitForSingleObject(m_rests.get(), 10'000) == WAIT_OBJECT_0; }
  // Runs on the worker's thread, as it begins to look the next time.
  void BeforeItLooks(std::function<void()> action) {
    m_action = std::move(action);
    m_isDue = true;
  }
  // After it has looked, and once more for the news that this was.
  bool WaitUntilItHasLooked() { return ::WaitForSingleObject(m_hasLooked.get(), 10'000) == WAIT_OBJECT_0; }

 private:
  static DWORD WINAPI Wait(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
    WatchedWorker& self = Current();
    if (milliseconds == INFINITE) ::SetEvent(self.m_rests.get());
    if (self.m_isDone && self.m_waits++ == 1) ::SetEvent(self.m_hasLooked.get());
    const DWORD result = ::WaitForMultipleObjects(count, handles, all, milliseconds);
    ::ResetEvent(self.m_rests.get());
    return result;
  }
  static BOOL WINAPI TryEnter(CRITICAL_SECTION* section) {
    WatchedWorker& self = Current();
    const BOOL entered = ::TryEnterCriticalSection(section);
    if (entered && ::GetCurrentThreadId() != self.m_testsThread && self.m_isDue.exchange(false)) {
      self.m_action();
      self.m_isDone = true;
    }
    return entered;
  }

  const DWORD m_testsThread = ::GetCurrentThreadId();
  std::function<void()> m_action;
  std::atomic<bool> m_isDue = false, m_isDone = false;
  int m_waits = 0;  // since then
  UniqueKernelHandle m_rests{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  UniqueKernelHandle m_hasLooked{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  ImportPatch m_wait{::GetModuleHandleW(L"QeLaC.dll"), "WaitForMultipleObjects", &Wait};
  ImportPatch m_tryEnter{::GetModuleHandleW(L"QeLaC.dll"), "TryEnterCriticalSection", &TryEnter};
};

// The library does not report the same list twice. So where the host was not told what it reported, because another set
// was loaded by then, the worker has to look by itself, and it does so if it could not even read the report.
TEST_F(KitFailures, AReportThatCannotBeReadForWantOfMemoryMakesTheWorkerLook) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}, {"home", "192.168.0.1"}});
  qela_options options = QELA_OPTIONS_INIT;
  options.flags = QELA_OPEN_NO_RELOAD;
  Open(options);
  WarmUpExceptions(Kit());
  ToldHost host;
  WatchedWorker worker;
  Start(host);
  ExpectTold(host, {L"office"});
  Move({"192.168.0.1"});
  ExpectTold(host, {L"home"});
  ASSERT_TRUE(worker.WaitUntilItRests());
  HeapWatch heap(Kit());
  m_adapters.OnCall([&] {
    heap.FailAt(0);
    worker.BeforeItLooks([&] {
      m_adapters.OnCall(nullptr);
      StoreAsSomebodyElse({{"home", "10.0.0.1"}, {"office", "192.168.0.1"}});
      EXPECT_EQ(qela_load(m_service), QELA_STATUS_OK);
    });
  });
  Move({"10.0.0.1"});
  ASSERT_TRUE(worker.WaitUntilItHasLooked());
  EXPECT_TRUE(heap.StopFailing());
  EXPECT_EQ(host.Untaken(), 0u);
  Move({"192.168.0.1"});
  ExpectTold(host, {L"office"});
  CloseAndWait();
}

TEST_F(KitFailures, MemoryThatTheLibraryLacksToStartIsAStatus) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Open();
  WarmUpExceptions(Library());
  ToldHost host;
  {
    HeapWatch heap(Library());
    heap.FailAt(0);
    EXPECT_EQ(qela_start(m_service, &ToldHost::OnChange, &host), QELA_STATUS_OUT_OF_MEMORY);
    EXPECT_TRUE(heap.StopFailing());
  }
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_NOT_STARTED);
  Start(host);
  ExpectTold(host, {L"office"});
  CloseAndWait();
}

// The library's thread ends after a start has taken it for its own, so the worker starts another one.
TEST_F(KitFailures, AThreadThatIsReplacedIsReplacedLaterWhereMemoryLacks) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}, {"home", "192.168.0.1"}});
  Open();
  WarmUpExceptions(Library());
  ToldHost host;
  Start(host);
  ExpectTold(host, {L"office"});
  Gate calculating;
  ASSERT_TRUE(Listens());
  m_adapters.OnCall([&] { calculating.Pass(); });
  m_changes.Fire();
  ASSERT_TRUE(calculating.WaitUntilReached());
  EXPECT_EQ(qela_stop(m_service), QELA_STATUS_OK);
  m_adapters.OnCall(nullptr);
  static HeapWatch* heap;
  static std::atomic<int> timeouts;
  static decltype(&::WaitForMultipleObjects) wait;
  HeapWatch watch(Library());
  heap = &watch;
  timeouts = 0;
  const ImportPatch patch(
      Kit(), "WaitForMultipleObjects", +[](DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) -> DWORD {
        const DWORD result = wait(count, handles, all, milliseconds);
        if (result == WAIT_TIMEOUT && timeouts++ == 0) heap->FailAt(0);
        return result;
      });
  wait = patch.Original<DWORD(DWORD, const HANDLE*, BOOL, DWORD)>();
  Start(host);
  calculating.Open();
  ExpectTold(host, {L"office"});
  Move({"192.168.0.1"});
  ExpectTold(host, {L"home"});
  EXPECT_TRUE(watch.StopFailing());
  CloseAndWait();
}

// The first handles that a process asks about, of which there are none yet.
TEST(KitHandles, ThatThereIsNoMemoryToLookForAreInvalid) {
  const HMODULE kit = ::GetModuleHandleW(L"QeLaC.dll");
  WarmUpExceptions(kit);
  auto* const location = reinterpret_cast<qela_location*>(0x1000);
  HeapWatch heap(kit);
  heap.FailAt(0);
  std::uint32_t length = 0;
  EXPECT_EQ(qela_location_get_id(location, nullptr, &length), QELA_STATUS_INVALID_HANDLE);
  if (!heap.StopFailing()) GTEST_SKIP() << "needs a process of its own";
  heap.FailAt(0);
  EXPECT_EQ(qela_location_release(location), QELA_STATUS_INVALID_HANDLE);
  EXPECT_TRUE(heap.StopFailing());
}

}  // namespace

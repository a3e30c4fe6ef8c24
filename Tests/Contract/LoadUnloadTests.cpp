// Loading and unloading the library again and again, and unloading it while its thread runs. Nothing is replaced here,
// since the library must really go: adapters and address changes are the machine's.
#include <winsock2.h>
#include <windows.h>
#include <unwind.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Contract/DiscoveryTest.h"
#include "Tests/Support/KeptImports.h"
#include "Tests/Support/LoadNotice.h"
#include "Tests/Support/ProcessCounts.h"

namespace {

constexpr DWORD kSlots = 64 + 1024;  // that a process has; the library reads all of them when it cleans up

// The memory and the thread-local slots that the library takes from its very first instruction, before a test could
// replace anything by itself, to its last.
class LoadWatch {
 public:
  LoadWatch() { s_current = this; }
  ~LoadWatch() { s_current = nullptr; }
  LoadWatch(const LoadWatch&) = delete;
  LoadWatch& operator=(const LoadWatch&) = delete;

  // The allocation number `n` of each load fails, or it and all later ones of the load; 0 is the first.
  void FailAt(std::ptrdiff_t n, bool fromThenOn) {
    m_failAt = n;
    m_fromThenOn = fromThenOn;
  }
  // From here on there is memory again. Returns whether an allocation has failed.
  bool StopFailing() {
    m_failAt = -1;
    return m_failed;
  }

  // The slot that is taken as number `n` is this one, whatever the process has there: the library alone sees it.
  void GiveSlot(int n, DWORD slot) {
    m_giveAt = n;
    m_slotToGive = slot;
  }

  int Loads() const { return m_loads; }
  std::size_t BytesLeft() const {
    std::size_t bytes = 0;
    for (const auto& [block, size] : m_blocks) bytes += size;
    return bytes;
  }
  int SlotsLeft() const { return m_slots; }
  DWORD HighestSlotRead() const { return m_highestSlot; }

 private:
  void OnLoad(HMODULE module) {
    m_patches.clear();
    ++m_loads;
    m_allocations = 0;
    const auto patch = [&](const char* function, auto* replacement) {
      m_patches.push_back(std::make_unique<ImportPatch>(module, function, replacement));
    };
    patch("malloc", &Malloc);
    patch("calloc", &Calloc);
    patch("realloc", &Realloc);
    patch("_strdup", &Strdup);
    patch("free", &Free);
    patch("TlsAlloc", &MakeSlot);
    patch("TlsFree", &FreeSlot);
    patch("TlsGetValue", &ReadSlot);
    patch("TlsSetValue", &WriteSlot);
  }

  static void* Taken(void* block, std::size_t bytes) {
    const std::lock_guard lock(s_current->m_mutex);
    if (block != nullptr) s_current->m_blocks[block] = bytes;
    return block;
  }
  static void* Given(void* block) {
    const std::lock_guard lock(s_current->m_mutex);
    s_current->m_blocks.erase(block);
    return block;
  }
  static bool Fails() {
    LoadWatch& self = *s_current;
    if (self.m_failAt < 0) return false;
    const std::ptrdiff_t number = self.m_allocations++;
    const bool fails = self.m_fromThenOn ? number >= self.m_failAt : number == self.m_failAt;
    if (fails) self.m_failed = true;
    return fails;
  }
  static void* Malloc(std::size_t bytes) { return Fails() ? nullptr : Taken(std::malloc(bytes), bytes); }
  static void* Calloc(std::size_t count, std::size_t bytes) {
    return Fails() ? nullptr : Taken(std::calloc(count, bytes), count * bytes);
  }
  static void* Realloc(void* block, std::size_t bytes) {
    return Fails() ? nullptr : Taken(std::realloc(Given(block), bytes), bytes);
  }
  static char* Strdup(const char* text) {
    if (Fails()) return nullptr;
    return static_cast<char*>(Taken(::_strdup(text), std::string_view(text).size() + 1));
  }
  static void Free(void* block) { std::free(Given(block)); }
  static DWORD WINAPI MakeSlot() {
    if (s_current->m_slots++ == s_current->m_giveAt) return s_current->m_given = s_current->m_slotToGive;
    return ::TlsAlloc();
  }
  static BOOL WINAPI FreeSlot(DWORD slot) {
    --s_current->m_slots;
    if (slot == s_current->m_given) return TRUE;
    return ::TlsFree(slot);
  }
  static void* WINAPI ReadSlot(DWORD slot) {
    if (slot > s_current->m_highestSlot) s_current->m_highestSlot = slot;
    if (slot != s_current->m_given) return ::TlsGetValue(slot);
    ::SetLastError(ERROR_SUCCESS);
    return t_given;
  }
  static BOOL WINAPI WriteSlot(DWORD slot, void* value) {
    if (slot != s_current->m_given) return ::TlsSetValue(slot, value);
    t_given = value;
    return TRUE;
  }

  static inline LoadWatch* s_current = nullptr;
  static inline thread_local void* t_given = nullptr;
  std::mutex m_mutex;
  std::map<void*, std::size_t> m_blocks;
  std::atomic<int> m_slots{0};
  std::atomic<DWORD> m_highestSlot{0};
  int m_giveAt = -1;
  DWORD m_slotToGive = 0;
  DWORD m_given = TLS_OUT_OF_INDEXES;
  int m_loads = 0;
  std::ptrdiff_t m_failAt = -1;
  std::ptrdiff_t m_allocations = 0;
  bool m_fromThenOn = false;
  bool m_failed = false;
  std::vector<std::unique_ptr<ImportPatch>> m_patches;
  LoadNotice m_notice{L"QeLaLib.dll", [this](HMODULE module) { OnLoad(module); }, [this] { m_patches.clear(); }};
};

bool IsLoaded() { return ::GetModuleHandleW(L"QeLaLib.dll") != nullptr; }

class LoadUnload : public ::testing::Test {
 protected:
  // Two locks of the runtime's, which nobody can reach.
  static constexpr std::size_t kBytesKept = 48;

  LogRecorder m_log;
  RedirectedMachineHive m_registry;
  const KeptImports m_imports;
};

// What a host may do with the library between loading and unloading it.
struct Visit {
  const char* name;
  void (*use)(ServiceLibrary& library);
};
const Visit kVisits[] = {
    {"WithoutAnyCall", [](ServiceLibrary&) {}},
    {"WithTheSharedInstance",
     [](ServiceLibrary& library) { library.SmartApi()->AddLocation(library.SmartApi()->CreateLocation()); }},
    {"WithTheCountedInstance",
     [](ServiceLibrary& library) {
       library.Api()->RemoveAllLocations();
       EXPECT_EQ(library.Api()->Release(), 0u);
     }},
    {"WithDiscovery",
     [](ServiceLibrary& library) {
       const std::shared_ptr<_IQeLaApiSmart> service = library.SmartApi();
       EXPECT_TRUE(service->StartDiscovery(&HostCallback::First));
       EXPECT_TRUE(service->StopDiscovery());
     }},
    // Bytes that are no set make it throw inside, on the thread that loads it and on one that is gone before it is.
    {"WithExceptions", [](ServiceLibrary& library) {
       const std::shared_ptr<_IQeLocation> location = library.SmartApi()->CreateLocation();
       EXPECT_FALSE(location->DeserializeFromBytes({0xc1}));
       // A plain thread: the test's own thread library would keep a handle.
       const auto throwInside = [](void* argument) -> DWORD {
         return static_cast<_IQeLocation*>(argument)->DeserializeFromBytes({0xc1}) ? 1 : 0;
       };
       HANDLE thread = ::CreateThread(nullptr, 0, throwInside, location.get(), 0, nullptr);
       EXPECT_EQ(::WaitForSingleObject(thread, 10'000), WAIT_OBJECT_0);
       ::CloseHandle(thread);
     }}};

class LoadUnloadAfter : public LoadUnload, public ::testing::WithParamInterface<Visit> {};

TEST_P(LoadUnloadAfter, ThousandTimesNothingGrows) {
  constexpr int kTimes = 1000;
  constexpr int kWarmUp = 20;  // what the system makes once and keeps
  const auto visit = [this] {
    {
      ServiceLibrary library;
      GetParam().use(library);
    }
    m_log.Clear();
    ASSERT_FALSE(IsLoaded());
  };
  for (int i = 0; i < kWarmUp; ++i) visit();
  const std::size_t handles = CountHandles();
  const LoadWatch watch;
  for (int i = 0; i < kTimes && !HasFailure(); ++i) visit();
  EXPECT_EQ(watch.Loads(), kTimes);
  EXPECT_EQ(CountHandles(), handles);
  EXPECT_EQ(watch.SlotsLeft(), 0);
  EXPECT_LE(watch.BytesLeft(), kBytesKept * kTimes);
}

INSTANTIATE_TEST_SUITE_P(Visits, LoadUnloadAfter, ::testing::ValuesIn(kVisits),
                         [](const auto& visit) { return visit.param.name; });

// One is the runtime's for its record of the thread, the other one its own to give back.
TEST_F(LoadUnload, GivesBackBothSlotsAndTheRecordWhicheverSlotsTheyAre) {
  for (const DWORD slot : {DWORD{0}, DWORD{1}, kSlots - 2, kSlots - 1}) {
    for (const int n : {0, 1}) {
      SCOPED_TRACE(std::to_string(slot) + " as number " + std::to_string(n));
      LoadWatch watch;
      watch.GiveSlot(n, slot);
      ServiceLibrary library;
      EXPECT_EQ(watch.SlotsLeft(), 2);
      library.Unload();
      EXPECT_EQ(watch.SlotsLeft(), 0);
      EXPECT_LE(watch.BytesLeft(), kBytesKept);
    }
  }
}

// The runtime knows nothing of that thread before.
TEST_F(LoadUnload, GivesItsSlotBackWhereAThreadUnloadsItThatNeverCalledIt) {
  const LoadWatch watch;
  HMODULE module = ::LoadLibraryW(L"QeLaLib.dll");
  ASSERT_NE(module, nullptr);
  HANDLE thread = ::CreateThread(
      nullptr, 0,
      +[](void* loaded) -> DWORD { return static_cast<DWORD>(::FreeLibrary(static_cast<HMODULE>(loaded))); }, module, 0,
      nullptr);
  EXPECT_EQ(::WaitForSingleObject(thread, 10'000), WAIT_OBJECT_0);
  ::CloseHandle(thread);
  EXPECT_FALSE(IsLoaded());
  EXPECT_EQ(watch.SlotsLeft(), 0);
  EXPECT_EQ(watch.HighestSlotRead(), kSlots - 1);
}

// Whoever unloads it on the way out of a failure still has the error to tell.
TEST_F(LoadUnload, KeepsTheErrorOfTheThreadThatUnloadsIt) {
  ServiceLibrary library;
  EXPECT_FALSE(library.SmartApi()->CreateLocation()->DeserializeFromBytes({0xc1}));
  ::SetLastError(1234);
  library.Unload();
  EXPECT_EQ(::GetLastError(), 1234u);
  EXPECT_FALSE(IsLoaded());
}

// The events and the thread of one start of discovery, seen while the library is loaded.
class UnloadWithThread : public LoadUnload {
 protected:
  void StartDiscovery() {
    static HANDLE stop;
    static HANDLE(WINAPI * realEvent)(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*);
    stop = nullptr;
    const ImportPatch event(
        m_library.Module(), "CreateEventW",
        +[](SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) -> HANDLE {
          HANDLE made = realEvent(security, manual, set, name);
          if (stop == nullptr) stop = made;
          return made;
        });
    realEvent = event.Original<HANDLE WINAPI(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*)>();
    static HANDLE thread;
    static HANDLE(WINAPI * realThread)(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*);
    const ImportPatch create(
        m_library.Module(), "CreateThread",
        +[](SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start, void* argument, DWORD flags,
            DWORD* id) -> HANDLE {
          HANDLE made = realThread(security, stack, start, argument, flags, id);
          ::DuplicateHandle(::GetCurrentProcess(), made, ::GetCurrentProcess(), &thread, 0, FALSE,
                            DUPLICATE_SAME_ACCESS);
          return made;
        });
    realThread =
        create.Original<HANDLE WINAPI(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*)>();
    EXPECT_TRUE(m_library.SmartApi()->StartDiscovery(&HostCallback::First));
    m_stop = stop;
    m_thread = thread;
  }
  bool ThreadEnds() const { return ::WaitForSingleObject(m_thread, 10'000) == WAIT_OBJECT_0; }
  ~UnloadWithThread() override { ::CloseHandle(m_thread); }

  ServiceLibrary m_library;
  HANDLE m_stop = nullptr;
  HANDLE m_thread = nullptr;
};

TEST_F(UnloadWithThread, LibraryStaysAsLongAsItsThreadAndWorksOn) {
  StartDiscovery();
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  m_library.Unload();
  EXPECT_TRUE(IsLoaded());
  EXPECT_TRUE(service->Save());
  EXPECT_TRUE(m_log.WaitFor(L"The location discovery thread received a refresh notification"));
  {
    // Held while it is told to stop, since the host's own call must return into it.
    const ServiceLibrary again;
    EXPECT_TRUE(service->StopDiscovery());
    EXPECT_TRUE(ThreadEnds());
    const_cast<std::shared_ptr<_IQeLaApiSmart>&>(service).reset();
  }
  EXPECT_FALSE(IsLoaded());
}

// Nobody else holds the library when the thread ends: the thread takes it away and destroys the service with it.
TEST_F(UnloadWithThread, ThreadThatEndsLastUnloadsTheLibrary) {
  StartDiscovery();
  m_library.Unload();
  EXPECT_TRUE(IsLoaded());
  ::SetEvent(m_stop);
  EXPECT_TRUE(ThreadEnds());
  EXPECT_FALSE(IsLoaded());
  EXPECT_EQ(m_log.Count(L"Location discovery thread stopping..."), 1u);
}

// The destruction finds discovery on and waits for the thread that it runs on.
TEST_F(UnloadWithThread, ThreadThatEndsLastWaitsASecondForItself) {
  StartDiscovery();
  m_library.Unload();
  const auto begin = std::chrono::steady_clock::now();
  ::SetEvent(m_stop);
  EXPECT_TRUE(ThreadEnds());
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(950)) << "1000 by a coarse clock";
}

TEST_F(UnloadWithThread, StopLetsTheLibraryGo) {
  StartDiscovery();
  EXPECT_TRUE(m_library.SmartApi()->StopDiscovery());
  EXPECT_TRUE(IsLoaded());
  m_library.Unload();
  EXPECT_FALSE(IsLoaded());
}

// A library that loaded works, and throws where memory is gone, on a thread that never threw.
bool SavesAndThrowsWithoutMemory() {
  const ServiceLibrary library;
  const std::shared_ptr<_IQeLaApiSmart> service = library.SmartApi();
  service->AddLocation(service->CreateLocation());
  bool saved = true;
  HeapWatch heap(library.Module());
  OtherThread([&] {
    heap.FailAt(0, HeapWatch::Failing::kFromThenOn);
    try {
      saved = service->Save();
    } catch (const std::bad_alloc&) {
      saved = false;
    }
    heap.StopFailing();
  }).Join();
  return !saved && service->Save();
}

// Loads the library in a process of its own while one allocation of the load fails, or it and all that follow. The last
// value is that for a load which makes fewer allocations.
enum LoadOutcome : int { kLoadFails = 100, kLoadedAndWorks, kNothingFailed };
int LoadWithoutMemoryOutcome(std::ptrdiff_t n, bool fromThenOn) {
  int outcome = 0;
  EXPECT_EXIT(
      {
        const LogRecorder log;
        const RedirectedMachineHive registry;
        LoadWatch watch;
        watch.FailAt(n, fromThenOn);
        const HMODULE module = ::LoadLibraryW(L"QeLaLib.dll");
        if (!watch.StopFailing()) std::exit(kNothingFailed);
        // In a process of its own, so that nothing has to be given back.
        if (module == nullptr) ::ExitProcess(kLoadFails);
        ::ExitProcess(SavesAndThrowsWithoutMemory() ? kLoadedAndWorks : 1);
      },
      [&](int code) {
        outcome = code;
        return true;
      },
      "");
  return outcome;
}

class LoadWithoutMemory : public ::testing::TestWithParam<bool> {};

TEST_P(LoadWithoutMemory, FailsOrGivesALibraryThatWorksAndNeverEndsTheHost) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr int kMost = 24;  // a fixed number: the processes find their own one by counting
  int failed = 0;
  int outcome = 0;
  for (int n = 0; n < kMost; ++n) {
    outcome = LoadWithoutMemoryOutcome(n, GetParam());
    EXPECT_TRUE(outcome >= kLoadFails && outcome <= kNothingFailed) << "allocation " << n << ": ended with " << outcome;
    if (outcome == kLoadFails) ++failed;
  }
  EXPECT_EQ(outcome, kNothingFailed) << "a load makes more allocations than were tried";
  EXPECT_GT(failed, 0);
}

INSTANTIATE_TEST_SUITE_P(Failing, LoadWithoutMemory, ::testing::Bool(),
                         [](const auto& fromThenOn) { return fromThenOn.param ? "FromThenOn" : "Once"; });

// The runtime ends the process then, which comes to a load that fails.
TEST(LoadWithoutAHandle, FailsForWantOfMemory) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        std::optional<ImportPatch> patch;
        const auto onLoad = [&](HMODULE module) {
          patch.emplace(
              module, "DuplicateHandle", +[](HANDLE, HANDLE, HANDLE, HANDLE*, DWORD, BOOL, DWORD) -> BOOL {
                ::SetLastError(ERROR_NO_SYSTEM_RESOURCES);
                return FALSE;
              });
        };
        const LoadNotice notice(L"QeLaLib.dll", onLoad, [&] { patch.reset(); });
        const HMODULE module = ::LoadLibraryW(L"QeLaLib.dll");
        ::ExitProcess(module == nullptr ? ::GetLastError() : 1000);
      },
      ::testing::ExitedWithCode(ERROR_NOT_ENOUGH_MEMORY), "");
}

// A process that ends while both instances discover: the system has ended their threads by then, wherever they were.
TEST(ProcessEnd, DoesNotWaitForThreadsThatAreNoMore) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        ServiceLibrary library;
        const LogRecorder log;
        const RedirectedMachineHive registry;
        library.SmartApi()->StartDiscovery(&HostCallback::First);
        library.Api()->StartDiscovery(&HostCallback::Second);
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

// Threads that were ended in the middle may hold the locks that cleaning up takes.
TEST(ProcessEnd, LeavesTheRuntimesMemoryToTheSystem) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const ServiceLibrary library;
        const ImportPatch patch(
            library.Module(), "TlsGetValue", +[](DWORD slot) -> void* {
              if (slot == kSlots - 1) ::TerminateProcess(::GetCurrentProcess(), 1);
              return ::TlsGetValue(slot);
            });
        std::exit(0);
      },
      ::testing::ExitedWithCode(0), "");
}

// An exception of no language that the library knows: of one that it knows, the thrower's runtime says what becomes.
[[noreturn]] void ThrowWhatNobodyKnows() {
  static _Unwind_Exception exception{};
  exception.exception_class = 1;
  _Unwind_RaiseException(&exception);
  ::TerminateProcess(::GetCurrentProcess(), 1);
  __builtin_unreachable();
}

// Only while it is loaded or unloaded, what nothing can handle ends no more than that.
TEST(ProcessEnd, IsWhatAFailureThatNothingCanHandleComesTo) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const ServiceLibrary library;
        const LogRecorder log;
        const RedirectedMachineHive registry;
        const ImportPatch end(
            library.Module(), "abort", +[]() -> void { ::TerminateProcess(::GetCurrentProcess(), 78); });
        const ImportPatch close(library.Module(), "RegCloseKey", +[](HKEY) -> LSTATUS { ThrowWhatNobodyKnows(); });
        library.SmartApi()->Save();
        std::exit(0);
      },
      ::testing::ExitedWithCode(78), "");
}

}  // namespace

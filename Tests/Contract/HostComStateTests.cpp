// COM around a calculation, and the record through which a host may coordinate it.
#include <windows.h>
#include <objbase.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/StoredSet.h"

namespace {

// The record as hosts declare it.
struct HostRecord {
  CRITICAL_SECTION lock;
  bool hostComActive;
  bool forceComInit;
  std::uint32_t initCount;
  std::uint32_t uninitCount;
};

HostRecord g_record;
HostRecord* g_handedOut = nullptr;
int g_lookUps = 0;
std::function<void()> g_onLookUp;

}  // namespace

// This program is the host.
extern "C" __declspec(dllexport) void* CisbMs();
extern "C" __declspec(dllexport) void* CisbMs() {
  ++g_lookUps;
  if (g_onLookUp) std::exchange(g_onLookUp, nullptr)();
  return g_handedOut;
}

namespace {

HRESULT g_initResult = S_OK;
std::function<void()> g_onInit;
std::function<void()> g_onUninit;
std::vector<std::string> g_calls;

HRESULT WINAPI FakeCoInitializeEx(void* reserved, DWORD model) {
  EXPECT_EQ(reserved, nullptr);
  EXPECT_EQ(model, static_cast<DWORD>(COINIT_MULTITHREADED));
  g_calls.emplace_back("init");
  if (g_onInit) g_onInit();
  return g_initResult;
}
void WINAPI FakeCoUninitialize() {
  g_calls.emplace_back("uninit");
  if (g_onUninit) g_onUninit();
}

FARPROC(WINAPI* g_getProcAddress)(HMODULE, const char*);
int g_askedForExport = 0;
bool g_exportIsThere = true;
FARPROC WINAPI FakeGetProcAddress(HMODULE module, const char* name) {
  if (!IS_INTRESOURCE(name) && std::string(name) == "CisbMs") {
    EXPECT_EQ(module, ThisProgram());
    ++g_askedForExport;
    if (!g_exportIsThere) {
      ::SetLastError(ERROR_PROC_NOT_FOUND);
      return nullptr;
    }
  }
  return g_getProcAddress(module, name);
}

using Calls = std::vector<std::string>;

class ComOfACalculation : public ServiceTest {
 protected:
  ComOfACalculation() {
    g_getProcAddress = m_getProcAddress.Original<FARPROC WINAPI(HMODULE, const char*)>();
    g_handedOut = nullptr;
    g_lookUps = g_askedForExport = 0;
    g_exportIsThere = true;
    g_initResult = S_OK;
    g_calls.clear();
  }
  ~ComOfACalculation() override {
    g_onInit = nullptr;
    g_onUninit = nullptr;
  }

  // What one more calculation calls.
  Calls CallsOfASave() {
    const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
    g_calls.clear();
    m_log.Clear();
    EXPECT_TRUE(service->Save());
    return g_calls;
  }

  ImportPatch m_init{Module(), "CoInitializeEx", &FakeCoInitializeEx};
  ImportPatch m_uninit{Module(), "CoUninitialize", &FakeCoUninitialize};
  ImportPatch m_getProcAddress{Module(), "GetProcAddress", &FakeGetProcAddress};
};

TEST_F(ComOfACalculation, EnclosesTheWholeOfIt) {
  std::size_t linesAtInit = 99;
  std::size_t linesAtUninit = 0;
  g_onInit = [&] { linesAtInit = m_log.Events().size(); };
  g_onUninit = [&] { linesAtUninit = m_log.Events().size(); };
  EXPECT_EQ(CallsOfASave(), (Calls{"init", "uninit"}));
  EXPECT_EQ(linesAtInit, 0u);
  EXPECT_EQ(linesAtUninit, m_log.Events().size());
}

TEST_F(ComOfACalculation, StartsAndEndsUnderTheLockOfTheService) {
  CRITICAL_SECTION lock;
  ::InitializeCriticalSection(&lock);
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi(&lock);
  int underLock = 0;
  g_onInit = g_onUninit = [&] { underLock += lock.RecursionCount > 0 ? 1 : 0; };
  CallsOfASave();
  EXPECT_EQ(underLock, 2);
}

TEST_F(ComOfACalculation, IsPairedWithoutAnExportOfTheHost) {
  g_exportIsThere = false;
  m_library.SmartApi();
  m_library.Api();
  EXPECT_EQ(g_calls, (Calls{"init", "uninit", "init", "uninit"}));
  EXPECT_EQ(g_askedForExport, 1) << "the answer holds for the life of the process";
  g_exportIsThere = true;
  EXPECT_EQ(CallsOfASave(), (Calls{"init", "uninit"}));
  EXPECT_EQ(g_askedForExport, 1);
  EXPECT_EQ(g_lookUps, 0);
}

TEST_F(ComOfACalculation, IsPairedWhenTheHostHandsOutNoRecord) {
  g_handedOut = nullptr;
  m_library.SmartApi();
  g_handedOut = &g_record;
  EXPECT_EQ(CallsOfASave(), (Calls{"init", "uninit"}));
  m_library.Api();
  EXPECT_EQ(g_lookUps, 1);
  EXPECT_EQ(g_askedForExport, 1);
}

TEST_F(ComOfACalculation, IsPairedWhenTheMainProgramCannotBeFound) {
  const ImportPatch noModule(
      Module(), "GetModuleHandleA", +[](const char*) -> HMODULE {
        ::SetLastError(0);
        return nullptr;
      });
  m_library.SmartApi();
  EXPECT_EQ(CallsOfASave(), (Calls{"init", "uninit"}));
  EXPECT_EQ(g_askedForExport, 0);
}

TEST_F(ComOfACalculation, IsPairedWhenItWasInitialisedBefore) {
  m_library.SmartApi();
  g_initResult = S_FALSE;
  EXPECT_EQ(CallsOfASave(), (Calls{"init", "uninit"}));
  EXPECT_TRUE(m_log.Texts(3).empty());
}

TEST_F(ComOfACalculation, FailureIsLoggedAndTheCalculationGoesOnWithoutAnEnd) {
  m_library.SmartApi()->AddLocation(NewLocation(*m_library.SmartApi(), L"A"));
  g_initResult = RPC_E_CHANGED_MODE;
  EXPECT_EQ(CallsOfASave(), Calls{"init"});
  EXPECT_EQ(m_log.Texts(3), Ids{L"QeLaLib failed to init COM, hr 0x80010106"});
  ASSERT_GE(m_log.Texts().size(), 2u);
  EXPECT_EQ(m_log.Texts()[0], L"QeLaLib failed to init COM, hr 0x80010106");
  EXPECT_EQ(m_log.Texts()[1], L"Calculating current locations...");
  EXPECT_EQ(CurrentIds(*m_library.SmartApi()), Ids{L"A"});
}

TEST_F(ComOfACalculation, IsEndedWhenTheSnapshotFails) {
  m_library.SmartApi();
  m_adapters.Set({});
  EXPECT_EQ(CallsOfASave(), (Calls{"init", "uninit"}));
}

// The same with a host that coordinates.
class HostComRecord : public ComOfACalculation {
 protected:
  HostComRecord() {
    g_record = {};
    ::InitializeCriticalSection(&g_record.lock);
    g_handedOut = &g_record;
  }
  ~HostComRecord() override { ::DeleteCriticalSection(&g_record.lock); }
};

TEST_F(HostComRecord, CountsTheFirstCalculation) {
  m_library.Api();
  EXPECT_EQ(g_record.initCount, 1u);
  EXPECT_EQ(g_record.uninitCount, 1u);
}

TEST_F(HostComRecord, IsLookedUpOnceInAProcess) {
  m_library.Api();
  m_library.SmartApi();
  CallsOfASave();
  EXPECT_EQ(g_lookUps, 1);
  EXPECT_EQ(g_askedForExport, 1);
  EXPECT_EQ(g_record.initCount, 3u) << "it belongs to all instances";
}

// The host's function may use the library, which then has no answer yet and asks again.
TEST_F(HostComRecord, FunctionOfTheHostMayCallTheLibrary) {
  g_onLookUp = [this] {
    _IQeLaApi& raw = *m_library.Api();
    EXPECT_EQ(raw.AddLocation(NewLocation(raw, L"A")), LSR_OK);
    EXPECT_EQ(CurrentIds(raw), Ids{L"A"});
  };
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  EXPECT_EQ(g_lookUps, 2);
  EXPECT_EQ(g_record.initCount, 3u);
  EXPECT_EQ(g_record.uninitCount, 3u);
  EXPECT_EQ(CallsOfASave(), (Calls{"init", "uninit"}));
  EXPECT_EQ(g_lookUps, 2) << "the first answer holds";
}

// The one that is answered first decides for both.
TEST_F(HostComRecord, LaterAnswerChangesNothing) {
  g_onLookUp = [this] {
    m_library.Api();
    g_handedOut = nullptr;
  };
  m_library.SmartApi();
  EXPECT_EQ(g_record.initCount, 2u);
  CallsOfASave();
  EXPECT_EQ(g_record.initCount, 3u);
}

TEST_F(HostComRecord, NoThreadWaitsForAnothersLookUp) {
  HANDLE asked = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE answered = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  g_onLookUp = [&] {
    ::SetEvent(asked);
    EXPECT_EQ(::WaitForSingleObject(answered, 10'000), WAIT_OBJECT_0) << "the other instance is held up";
  };
  {
    const OtherThread first([this] { m_library.SmartApi(); });
    EXPECT_EQ(::WaitForSingleObject(asked, 10'000), WAIT_OBJECT_0);
    m_library.Api();
    ::SetEvent(answered);
  }
  EXPECT_EQ(g_lookUps, 2);
  EXPECT_EQ(g_record.initCount, 2u);
  ::CloseHandle(asked);
  ::CloseHandle(answered);
}

// The start is left out when COM is active and not forced, the end whenever COM is active then; both counts rise.
TEST_F(HostComRecord, FlagsDecideAtTheStartAndAgainAtTheEnd) {
  m_library.SmartApi();
  for (unsigned bits = 0; bits < 16; ++bits) {
    const bool activeAtStart = (bits & 1) != 0;
    const bool forcedAtStart = (bits & 2) != 0;
    const bool activeAtEnd = (bits & 4) != 0;
    const bool forcedAtEnd = (bits & 8) != 0;
    g_record.hostComActive = activeAtStart;
    g_record.forceComInit = forcedAtStart;
    m_adapters.OnCall([&] {
      g_record.hostComActive = activeAtEnd;
      g_record.forceComInit = forcedAtEnd;
    });
    g_record.initCount = 10;
    g_record.uninitCount = 20;
    Calls expected;
    if (!activeAtStart || forcedAtStart) expected.emplace_back("init");
    if (!activeAtEnd) expected.emplace_back("uninit");
    EXPECT_EQ(CallsOfASave(), expected) << "bits " << bits;
    EXPECT_EQ(g_record.initCount, 11u) << "bits " << bits;
    EXPECT_EQ(g_record.uninitCount, 21u) << "bits " << bits;
  }
}

TEST_F(HostComRecord, FailedStartCountsNoEnd) {
  m_library.SmartApi();
  g_initResult = E_OUTOFMEMORY;
  EXPECT_EQ(CallsOfASave(), Calls{"init"});
  EXPECT_EQ(g_record.initCount, 2u);
  EXPECT_EQ(g_record.uninitCount, 1u);
  EXPECT_EQ(m_log.Texts(3), Ids{L"QeLaLib failed to init COM, hr 0x8007000e"});
}

TEST_F(HostComRecord, LeftOutStartIsASuccess) {
  m_library.SmartApi();
  g_record.hostComActive = true;
  g_initResult = E_FAIL;
  EXPECT_EQ(CallsOfASave(), Calls{});
  EXPECT_EQ(g_record.uninitCount, 2u);
  EXPECT_TRUE(m_log.Texts(3).empty());
}

TEST_F(HostComRecord, LockIsFreeWhileComIsCalledAndWhileTheAdaptersAreRead) {
  m_library.SmartApi();
  bool everHeld = false;
  const auto check = [&] { everHeld = everHeld || !OtherThreadCanEnter(g_record.lock); };
  g_onInit = check;
  g_onUninit = check;
  m_adapters.OnCall(check);
  EXPECT_EQ(CallsOfASave(), (Calls{"init", "uninit"}));
  EXPECT_FALSE(everHeld);
  EXPECT_TRUE(OtherThreadCanEnter(g_record.lock));
}

void(WINAPI* g_enter)(CRITICAL_SECTION*);
void(WINAPI* g_leave)(CRITICAL_SECTION*);
std::vector<std::pair<std::uint32_t, std::uint32_t>> g_countsAtBorders;

void WINAPI NoteEnter(CRITICAL_SECTION* section) {
  g_enter(section);
  if (section == &g_record.lock) g_countsAtBorders.emplace_back(g_record.initCount, g_record.uninitCount);
}
void WINAPI NoteLeave(CRITICAL_SECTION* section) {
  if (section == &g_record.lock) g_countsAtBorders.emplace_back(g_record.initCount, g_record.uninitCount);
  g_leave(section);
}

TEST_F(HostComRecord, CountersRiseInsideTheLock) {
  m_library.SmartApi();
  const ImportPatch enter(Module(), "EnterCriticalSection", &NoteEnter);
  const ImportPatch leave(Module(), "LeaveCriticalSection", &NoteLeave);
  g_enter = enter.Original<void WINAPI(CRITICAL_SECTION*)>();
  g_leave = leave.Original<void WINAPI(CRITICAL_SECTION*)>();
  g_countsAtBorders.clear();
  CallsOfASave();
  EXPECT_EQ(g_countsAtBorders, (std::vector<std::pair<std::uint32_t, std::uint32_t>>{{1, 1}, {2, 1}, {2, 1}, {2, 2}}));
}

// The system's own COM, on a host thread that uses it as well.
TEST(RealCom, OfTheHostsThreadStaysInitialised) {
  LogRecorder log;
  const ServiceLibrary library;
  StoredRegistry registry(library.Module());
  const FakeAdapters adapters(library.Module());
  ASSERT_EQ(::CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
  const std::shared_ptr<_IQeLaApiSmart> service = library.SmartApi();
  EXPECT_TRUE(service->Save());
  EXPECT_EQ(::CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_FALSE) << "still initialised";
  ::CoUninitialize();
  ::CoUninitialize();
  EXPECT_TRUE(service->Save());
  EXPECT_EQ(::CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK) << "and ended by its owner alone";
  ::CoUninitialize();
  EXPECT_TRUE(log.Texts(3).empty());
}

}  // namespace

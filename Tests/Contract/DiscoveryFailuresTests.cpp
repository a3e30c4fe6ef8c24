// Discovery where the system refuses: no event, no thread, no notification, no memory, a callback that throws.
#include <winsock2.h>
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "Tests/Contract/DiscoveryTest.h"

namespace {

using ::testing::ElementsAre;

// What a test lets fail; a call forwards otherwise.
struct Failures {
  int eventsLeft = -1;  // how many events can still be made; -1 for any number
  bool getModuleHandle = false;
  bool createThread = false;
  int duplicatesLeft = -1;  // as eventsLeft
};
Failures g_failures;

HANDLE(WINAPI* g_createEvent)(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*);
BOOL(WINAPI* g_getModuleHandle)(DWORD, const wchar_t*, HMODULE*);
HANDLE(WINAPI* g_createThread)(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*);

HANDLE WINAPI CreateEventOrFail(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) {
  if (g_failures.eventsLeft == 0) return nullptr;
  if (g_failures.eventsLeft > 0) --g_failures.eventsLeft;
  return g_createEvent(security, manual, set, name);
}
BOOL WINAPI GetModuleHandleOrFail(DWORD flags, const wchar_t* name, HMODULE* module) {
  return g_failures.getModuleHandle ? FALSE : g_getModuleHandle(flags, name, module);
}
HANDLE WINAPI CreateThreadOrFail(SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                                 void* argument, DWORD flags, DWORD* id) {
  return g_failures.createThread ? nullptr : g_createThread(security, stack, start, argument, flags, id);
}

BOOL(WINAPI* g_duplicate)(HANDLE, HANDLE, HANDLE, HANDLE*, DWORD, BOOL, DWORD);
BOOL WINAPI DuplicateOrFail(HANDLE from, HANDLE handle, HANDLE to, HANDLE* copy, DWORD access, BOOL inherit,
                            DWORD options) {
  // The runtime's records of threads use the call too.
  if (handle == ::GetCurrentThread()) return g_duplicate(from, handle, to, copy, access, inherit, options);
  if (g_failures.duplicatesLeft == 0) {
    *copy = INVALID_HANDLE_VALUE;  // what a failed call leaves there is nobody's
    return FALSE;
  }
  if (g_failures.duplicatesLeft > 0) --g_failures.duplicatesLeft;
  EXPECT_FALSE(inherit) << "programs that the host starts have nothing of it";
  return g_duplicate(from, handle, to, copy, access, inherit, options);
}

class FailingStart : public DiscoveryTest {
 protected:
  FailingStart() {
    g_failures = {};
    g_createEvent = m_createEvent.Original<HANDLE WINAPI(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*)>();
    g_getModuleHandle = m_getModuleHandle.Original<BOOL WINAPI(DWORD, const wchar_t*, HMODULE*)>();
    g_duplicate = m_duplicate.Original<BOOL WINAPI(HANDLE, HANDLE, HANDLE, HANDLE*, DWORD, BOOL, DWORD)>();
    g_createThread =
        m_createThread
            .Original<HANDLE WINAPI(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*)>();
  }
  ~FailingStart() override {
    if (m_service != nullptr) EndDiscovery(*m_service);
  }

  // A start that fails says so and nothing else, keeps the callback, and can be tried again.
  void ExpectFailure(const std::vector<std::string>& kept) {
    Store(L"A", kOfficeGateway);
    Join({kOffice});
    EXPECT_FALSE(Service().StartDiscovery(&HostCallback::First));
    EXPECT_EQ(DiscoveryLines(), Lines{});
    EXPECT_EQ(m_threads.Count(), 0u);
    EXPECT_EQ(m_ledger.Leaks(), kept);
    EXPECT_TRUE(Service().StopDiscovery()) << "the callback is stored all the same";
    EXPECT_FALSE(Service().StartDiscovery(&HostCallback::First)) << "no thread, so it is tried again";

    g_failures = {};
    StartDiscovery();
    FireAddressChange();
    ExpectCallbackWith({L"A"});
  }

  ImportPatch m_createEvent{Module(), "CreateEventW", &CreateEventOrFail};
  ImportPatch m_getModuleHandle{Module(), "GetModuleHandleExW", &GetModuleHandleOrFail};
  ImportPatch m_createThread{Module(), "CreateThread", &CreateThreadOrFail};
  ImportPatch m_duplicate{Module(), "DuplicateHandle", &DuplicateOrFail};
};

TEST_F(FailingStart, WithoutAStopEventThereIsNoRefreshEventEither) {
  g_failures.eventsLeft = 0;
  ExpectFailure({});
}

TEST_F(FailingStart, WithoutARefreshEventThereIsNoThread) {
  g_failures.eventsLeft = 1;
  ExpectFailure({"CreateEventW x1"});
}

TEST_F(FailingStart, WithoutAHandleOfItsOwnForTheStopThereIsNoThread) {
  g_failures.duplicatesLeft = 0;
  ExpectFailure({"CreateEventW x2"});
}

TEST_F(FailingStart, WithoutAHandleOfItsOwnForTheRefreshThereIsNoThread) {
  g_failures.duplicatesLeft = 1;
  ExpectFailure({"CreateEventW x2"});
}

TEST_F(FailingStart, WithoutAReferenceToTheLibraryThereIsNoThread) {
  g_failures.getModuleHandle = true;
  ExpectFailure({"CreateEventW x2"});
}

TEST_F(FailingStart, WithoutAThreadTheReferenceToTheLibraryIsGivenBack) {
  g_failures.createThread = true;
  ExpectFailure({"CreateEventW x2"});
}

TEST_F(FailingStart, AfterAnEarlierRunReleaseStillFreesTheService) {
  _IQeLaApi& service = *m_library.Api();
  StartDiscovery(service);
  EXPECT_TRUE(service.StopDiscovery());
  g_failures.createThread = true;
  EXPECT_FALSE(service.StartDiscovery(&HostCallback::First));
  EXPECT_EQ(service.Release(), 0u);
  EXPECT_THAT(m_ledger.Leaks(), ElementsAre("CreateEventW x2", "CreateThread x1")) << "those of the first run";
  EXPECT_THAT(m_ledger.Mistakes(), ElementsAre());
}

// Every allocation of a start in turn.
TEST_F(FailingStart, WithoutMemoryItThrowsOrFailsAndLeavesNoReferenceToTheLibrary) {
  Service();
  bool failed = true;
  for (std::size_t n = 0; failed; ++n) {
    SCOPED_TRACE(n);
    ASSERT_LT(n, 20u);
    HeapWatch heap(Module());
    g_failures.createThread = true;  // what a thread allocates would count as well
    heap.FailAt(n);
    bool thrown = false;
    try {
      EXPECT_FALSE(Service().StartDiscovery(&HostCallback::First));
    } catch (const std::bad_alloc&) {
      thrown = true;
    }
    failed = heap.StopFailing();
    EXPECT_EQ(thrown, failed);
    EXPECT_EQ(m_ledger.Open("GetModuleHandleExW"), 0u);
  }
  g_failures = {};
  StartDiscovery();
}

using Failing = DiscoveryTest;

TEST_F(Failing, WithoutAnEventTheThreadEndsAtOnce) {
  static std::atomic<int> waits;
  waits = 0;
  static DWORD(WINAPI * realWait)(DWORD, const HANDLE*, BOOL, DWORD);
  const ImportPatch wait(
      Module(), "WaitForMultipleObjects", +[](DWORD count, const HANDLE* handles, BOOL all, DWORD ms) -> DWORD {
        ++waits;
        return realWait(count, handles, all, ms);
      });
  realWait = wait.Original<DWORD WINAPI(DWORD, const HANDLE*, BOOL, DWORD)>();
  {
    const ImportPatch event(Module(), "WSACreateEvent", +[]() -> WSAEVENT { return WSA_INVALID_EVENT; });
    EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
    EXPECT_TRUE(m_threads.WaitForEnd());
    EXPECT_EQ(waits, 0);
    EXPECT_EQ(m_changes.Requests(), 0u);
    EXPECT_EQ(m_ledger.Count("WSACloseEvent"), 0u);
    EXPECT_EQ(m_ledger.Open("WSAStartup"), 0u);
    EXPECT_EQ(m_ledger.Open("GetModuleHandleExW"), 0u);
    EXPECT_THAT(DiscoveryLines(), ElementsAre(kStopping));
  }
  StartDiscovery();
  EXPECT_EQ(m_threads.Count(), 2u) << "the first thread has cleared the flag";
  EndDiscovery(Service());
}

// Its event is an ordinary one; only what needs Winsock may fail without it.
TEST_F(Failing, WinsockThatDoesNotStartIsNotEnded) {
  const ImportPatch startup(Module(), "WSAStartup", +[](WORD, WSADATA*) -> int { return WSASYSNOTREADY; });
  StartDiscovery();
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_EQ(m_ledger.Count("WSACleanup"), 0u);
  EXPECT_THAT(m_ledger.Mistakes(), ElementsAre());
}

TEST_F(Failing, RefusedFirstRequestEndsTheThreadAndTheNextStartMakesAnother) {
  m_changes.Script({{ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, false}});
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  EXPECT_TRUE(m_threads.WaitForEnd());
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kStopping));
  EXPECT_EQ(m_ledger.Open("WSACreateEvent"), 0u);
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::Second));
  EXPECT_EQ(m_threads.Count(), 2u);
  EXPECT_TRUE(m_changes.WaitForRequests(2));
}

TEST_F(Failing, ThreadThatEndsBeforeStartReturnsDoesNotBlockTheNextStart) {
  static HANDLE(WINAPI * real)(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*);
  {
    const ImportPatch patch(
        Module(), "CreateThread",
        +[](SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start, void* argument, DWORD flags,
            DWORD* id) -> HANDLE {
          HANDLE thread = real(security, stack, start, argument, flags, id);
          EXPECT_EQ(::WaitForSingleObject(thread, 10'000), WAIT_OBJECT_0);
          return thread;
        });
    real = patch.Original<HANDLE WINAPI(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*)>();
    m_changes.Script({{ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, false}});
    EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  }
  StartDiscovery();
  EXPECT_EQ(m_threads.Count(), 2u);
}

TEST_F(Failing, RequestThatIsRefusedLaterEndsTheThreadAndStopStillSucceeds) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Save();
  m_changes.Script({{ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, false}});
  Join({kOffice});
  m_changes.Fire();
  EXPECT_TRUE(m_threads.WaitForEnd());
  ExpectCallbackWith({L"A"});  // the change that came before was still served
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kRefresh, kSkipped, kChange, kRaising, kStopping));
  EXPECT_TRUE(Service().Save()) << "nobody listens, the set is stored all the same";
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_EQ(m_ledger.Leaks(), (std::vector<std::string>{"CreateEventW x2", "CreateThread x1"}));
}

// A request of an earlier pass still pends when a later one is refused.
TEST_F(Failing, EarlierRequestsAreWithdrawnWhenALaterOneIsRefused) {
  m_changes.LeaveUnmarked();
  StartDiscovery();
  m_changes.Script({{ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, false}});
  EXPECT_TRUE(Service().Save());
  EXPECT_TRUE(m_threads.WaitForEnd());
  EXPECT_EQ(m_changes.Pending(), 0u);
}

struct Accepted {
  const char* name;
  FakeAddressChanges::Answer answer;
};
class AcceptedRequest : public DiscoveryTest, public ::testing::WithParamInterface<Accepted> {};

TEST_P(AcceptedRequest, LetsTheThreadWait) {
  Store(L"A", kOfficeGateway);
  m_changes.Script({GetParam().answer});
  StartDiscovery();
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_EQ(m_changes.Pending(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Answers, AcceptedRequest,
    ::testing::Values(Accepted{"Pending", {ERROR_IO_PENDING, ERROR_IO_PENDING, true}},
                      // The result says it already.
                      Accepted{"PendingWithAnotherLastError", {ERROR_IO_PENDING, ERROR_SUCCESS, true}},
                      // The last error says it.
                      Accepted{"AnotherErrorWithPendingAsLastError", {ERROR_GEN_FAILURE, WSA_IO_PENDING, true}},
                      // The last error of a call that succeeds means nothing.
                      Accepted{"Success", {NO_ERROR, ERROR_INVALID_PARAMETER, true}}),
    [](const auto& accepted) { return accepted.param.name; });

// A wait that answers out of turn, a number of times, and then as usual. The pauses between them, of 100 ms on the stop
// event, take no time here.
class OddWait : public DiscoveryTest {
 protected:
  OddWait() {
    s_pauses = 0;
    s_sleeps = 0;
    s_pauseResult = WAIT_TIMEOUT;
    s_onPause = nullptr;
    s_waitForOne = m_waitForOne.Original<DWORD WINAPI(HANDLE, DWORD)>();
  }
  ~OddWait() override {
    if (m_service != nullptr) EndDiscovery(*m_service);
  }

  static DWORD WINAPI WaitForOne(HANDLE handle, DWORD ms) {
    if (ms != 100) return s_waitForOne(handle, ms);
    ++s_pauses;
    if (s_onPause) s_onPause();
    if (s_pauseResult != WAIT_TIMEOUT) return s_pauseResult;
    return s_waitForOne(handle, 0);
  }
  static void WINAPI Sleep(DWORD ms) {
    EXPECT_EQ(ms, 100u);
    ++s_sleeps;
  }

  static inline std::atomic<std::size_t> s_pauses;
  static inline std::atomic<std::size_t> s_sleeps;
  static inline DWORD s_pauseResult;
  static inline std::function<void()> s_onPause;
  static inline DWORD(WINAPI* s_waitForOne)(HANDLE, DWORD);
  ImportPatch m_waitForOne{Module(), "WaitForSingleObject", &WaitForOne};
  ImportPatch m_sleep{Module(), "Sleep", &Sleep};
};

TEST_F(OddWait, IsLoggedWithItsResultAndErrorAndTheThreadGoesOn) {
  const struct {
    DWORD result;
    DWORD error;
    const wchar_t* line;
  } cases[] = {{WAIT_FAILED, ERROR_INVALID_HANDLE, L"Location discovery thread got wait result -1, 6..."},
               {WAIT_TIMEOUT, 0, L"Location discovery thread got wait result 258, 0..."},
               {WAIT_ABANDONED_0 + 2, 5, L"Location discovery thread got wait result 130, 5..."},
               {WAIT_OBJECT_0 + 3, 0x80070057, L"Location discovery thread got wait result 3, -2147024809..."}};
  Store(L"A", kOfficeGateway);
  Service();
  m_adapters.ClearCalls();
  for (const auto& odd : cases) {
    SCOPED_TRACE(odd.line);
    m_log.Clear();
    const std::size_t waits = m_waits.Count();
    m_waits.Answer(2, odd.result, odd.error);
    EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
    EXPECT_TRUE(m_waits.WaitForCount(waits + 3));
    EXPECT_EQ(m_adapters.CallCount(), 0u) << "nothing is calculated";
    EXPECT_TRUE(Service().StopDiscovery());
    EXPECT_THAT(DiscoveryLines(), ElementsAre(odd.line, odd.line, kStopping));
    for (const LoggedEvent& event : m_log.Events()) EXPECT_EQ(event.severity, 8);
  }
  StartDiscovery();
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
}

TEST_F(OddWait, MakesNoSecondRequestWhileOnePends) {
  m_waits.Answer(50, WAIT_FAILED, ERROR_INVALID_HANDLE);
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  EXPECT_TRUE(m_waits.WaitForCount(51));
  EXPECT_EQ(m_changes.Requests(), 1u);
}

TEST_F(OddWait, ArmsAnewOnEveryPassWhereNothingShowsAsPending) {
  m_changes.LeaveUnmarked();
  m_waits.Answer(5, WAIT_FAILED, ERROR_INVALID_HANDLE);
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  EXPECT_TRUE(m_waits.WaitForCount(6));
  EXPECT_EQ(m_changes.Requests(), 6u);
}

TEST_F(OddWait, ThatFailsForGoodIsTriedAfterAPauseEachTime) {
  m_waits.Answer(1000, WAIT_FAILED, ERROR_INVALID_HANDLE);
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  EXPECT_TRUE(m_waits.WaitForCount(1001));
  EXPECT_EQ(s_pauses, 1000u);
  EXPECT_EQ(s_sleeps, 0u);
}

TEST_F(OddWait, PauseThatFailsAsWellIsSlept) {
  s_pauseResult = WAIT_FAILED;
  m_waits.Answer(10, WAIT_FAILED, ERROR_INVALID_HANDLE);
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  EXPECT_TRUE(m_waits.WaitForCount(11));
  EXPECT_EQ(s_sleeps, 10u);
}

TEST_F(OddWait, StopEndsThePause) {
  Gate gate;
  s_onPause = [&] { gate.Pass(); };
  m_waits.Answer(1, WAIT_FAILED, ERROR_INVALID_HANDLE);
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  EXPECT_TRUE(gate.WaitUntilReached());
  // Signalled while the thread pauses; the host waits its time, since the gate stays shut that long.
  EXPECT_TRUE(Service().StopDiscovery());
  gate.Open();
  EXPECT_TRUE(m_threads.WaitForEnd());
  EXPECT_EQ(m_waits.Count(), 1u) << "no further wait";
}

// A change that comes while the wait fails is still served.
TEST_F(OddWait, ChangeIsServedAllTheSame) {
  Store(L"A", kOfficeGateway);
  s_onPause = [this] {
    s_onPause = nullptr;
    Join({kOffice});
    m_changes.Fire();
  };
  m_waits.Answer(3, WAIT_FAILED, ERROR_INVALID_HANDLE);
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  ExpectCallbackWith({L"A"});
}

TEST_F(Failing, CallbackThatThrowsCostsNothingButItsOwnCall) {
  Store(L"A", kOfficeGateway);
  Store(L"B", L"192.168.1.1");
  StartDiscovery();
  const std::vector<std::function<void()>> throwers{[] { throw std::runtime_error("of the host"); }, [] { throw 1; },
                                                    [] { throw std::bad_alloc(); }};
  for (const std::function<void()>& thrower : throwers) {
    HostCallback::OnCall(thrower);
    Join({kOffice});
    FireAddressChange();
    ExpectCallbackWith({L"A"});
    Join({"192.168.1.1"});
    Save();
    ExpectCallbackWith({L"B"});
  }
  HostCallback::OnCall(nullptr);
  Join({});
  FireAddressChange();
  ExpectCallbackWith({});
  EXPECT_TRUE(Service().StopDiscovery());
}

// Every allocation that the thread makes for a pass in turn. What it could not do it tries again after 500 ms, which
// take no time here.
class ThreadWithoutMemory : public DiscoveryTest {
 protected:
  ThreadWithoutMemory() {
    s_heap = &m_heap;
    m_waits.CutBoundedWaitsShort();
    // Stored texts are too long to do without memory.
    Store(kHere[0].c_str(), kOfficeGateway);
    Store(kThere[0].c_str(), L"192.168.1.1");
    StartDiscovery(&Callback);
  }
  ~ThreadWithoutMemory() override { EndDiscovery(Service()); }

  // The host has memory.
  static void Callback(std::shared_ptr<_IEnumQeLocations> locations) {
    s_heap->StopFailing();
    HostCallback::First(std::move(locations));
  }

  // The n-th allocation after the line fails, on the thread that logs it.
  void FailAfter(const wchar_t* line, std::size_t n) {
    m_log.OnEvent([=, this](const LoggedEvent& event) {
      if (event.text != line) return;
      m_log.OnEvent(nullptr);
      m_heap.FailAt(n);
    });
  }
  // What the host was told since, until the thread waits without an end. Sets `failed`.
  std::vector<Ids> Told(bool& failed) {
    EXPECT_TRUE(m_waits.WaitForEndlessWait());
    failed = m_heap.StopFailing();
    m_log.OnEvent(nullptr);
    std::vector<Ids> told;
    while (HostCallback::Untaken() > 0) told.push_back(HostCallback::Take()->ids);
    return told;
  }

  static inline const Ids kHere{L"a location whose identifier is too long for a string without memory"};
  static inline const Ids kThere{L"another location whose identifier is too long for a string without memory"};
  // Which allocation of a calculation is the buffer for the adapters; before it comes the address table.
  static constexpr std::size_t kAdapterBuffer = 1;
  static inline HeapWatch* s_heap;
  HeapWatch m_heap{Module()};
};

// A snapshot without memory is a failed one, and as such may be reported first.
TEST_F(ThreadWithoutMemory, TellsTheHostOfAChangeWithoutAFurtherOne) {
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith(kHere);
  bool failed = true;
  std::size_t failures = 0;
  std::size_t reportedFirst = 0;
  for (std::size_t n = 0; failed; ++n) {
    SCOPED_TRACE(n);
    ASSERT_LT(n, 2000u);
    const bool here = n % 2 != 0;
    Join({here ? kOffice : "192.168.1.1"});
    FailAfter(kChange, n);
    FireAddressChange();
    std::vector<Ids> told = Told(failed);
    ASSERT_FALSE(told.empty());
    EXPECT_EQ(told.back(), here ? kHere : kThere);
    told.pop_back();
    if (!told.empty()) {
      EXPECT_EQ(told, std::vector<Ids>{Ids{}});
      ++reportedFirst;
    }
    if (failed) ++failures;
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(failures, 10u);
  EXPECT_GT(reportedFirst, 5u);
  EXPECT_LT(reportedFirst, failures / 2);
}

TEST_F(ThreadWithoutMemory, RaisesWhatASaveFoundWithoutAFurtherOneAndWithoutACalculation) {
  bool failed = true;
  std::size_t failures = 0;
  for (std::size_t n = 0; failed; ++n) {
    SCOPED_TRACE(n);
    ASSERT_LT(n, 2000u);
    const bool here = n % 2 == 0;
    Join({here ? kOffice : "192.168.1.1"});
    FailAfter(kRefresh, n);
    m_adapters.ClearCalls();
    Save();
    EXPECT_EQ(Told(failed), std::vector<Ids>{here ? kHere : kThere});
    EXPECT_EQ(m_adapters.CallCount(), 1u);
    if (failed) ++failures;
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(failures, 5u);
}

TEST_F(ThreadWithoutMemory, TriesAgainAfterHalfASecondUntilThereIsMemory) {
  constexpr std::size_t kTries = 5;
  std::size_t tries = 0;
  m_log.OnEvent([&](const LoggedEvent& event) {
    if (event.text == kCalculating && ++tries <= kTries) m_heap.FailAt(kAdapterBuffer);
  });
  m_waits.OnWait([this] { m_heap.StopFailing(); });
  Join({kOffice});
  m_changes.Fire();
  ExpectCallbackWith(kHere);
  EXPECT_TRUE(m_waits.WaitForCount(kTries + 2));
  EXPECT_EQ(tries, kTries + 1);
  std::vector<DWORD> times;
  for (const WaitWatch::Wait& wait : m_waits.Waits()) times.push_back(wait.ms);
  EXPECT_THAT(times, ElementsAre(INFINITE, 500u, 500u, 500u, 500u, 500u, INFINITE));
  EXPECT_EQ(m_changes.Requests(), 2u) << "the request that pends serves on";
  EXPECT_EQ(m_log.Count(kChange), 1u);
}

TEST_F(ThreadWithoutMemory, StopEndsTheThreadWhileItWaitsForMemory) {
  m_log.OnEvent([&](const LoggedEvent& event) {
    if (event.text == kCalculating) m_heap.FailAt(kAdapterBuffer);
  });
  m_waits.OnWait([this] { m_heap.StopFailing(); });
  m_changes.Fire();
  EXPECT_TRUE(m_waits.WaitForCount(10));
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_TRUE(m_threads.WaitForEnd());
}

// The save that asks for it had no memory for a snapshot either.
TEST_F(ThreadWithoutMemory, RefreshDoesNotStandInForACalculationThatIsOwed) {
  std::atomic<int> calculations = 0;
  m_log.OnEvent([&](const LoggedEvent& event) {
    if (event.text == kCalculating && ++calculations <= 2) m_heap.FailAt(kAdapterBuffer);
  });
  Gate gate;
  Join({kOffice});
  m_waits.OnWait([&] { gate.Pass(); });
  m_changes.Fire();
  EXPECT_TRUE(gate.WaitUntilReached());
  m_waits.OnWait(nullptr);
  EXPECT_TRUE(Service().Save());
  m_heap.StopFailing();
  ExpectNoCallback();
  gate.Open();
  ExpectCallbackWith(kHere);
  EXPECT_EQ(calculations, 3);
}

// Only want of memory is tried again: a snapshot that the system refuses is an answer.
TEST_F(ThreadWithoutMemory, SnapshotThatTheSystemRefusesIsNotTriedAgain) {
  m_adapters.FailAlways(ERROR_NOT_SUPPORTED);
  m_adapters.ClearCalls();
  FireAddressChange();
  EXPECT_EQ(m_adapters.CallCount(), 1u);
  EXPECT_EQ(m_waits.Waits().back().ms, INFINITE);
}

// Two instances' threads meet in the list of what was raised last: one changes it, and stands inside its lock, while
// the other gives back what it could not raise. Replaced calls hold them there.
class ListOfTwoInstances : public ThreadWithoutMemory {
 protected:
  ListOfTwoInstances() {
    s_self = this;
    StartDiscovery(m_other, &HostCallback::Second);
    m_givingBack = ::GetThreadId(m_threads.At(0).thread);
    m_claiming = ::GetThreadId(m_threads.At(1).thread);
  }
  ~ListOfTwoInstances() override {
    m_log.OnEvent(nullptr);
    m_waits.OnWait(nullptr);
    m_other.StopDiscovery();
  }

  // The one thread has claimed an event, and has no memory to raise it once the gate is open; the other one opens it
  // while it claims the next.
  void Meet() {
    m_log.OnEvent([this](const LoggedEvent& event) {
      const DWORD thread = ::GetCurrentThreadId();
      if (thread == m_givingBack && event.text == kRaising && m_list == nullptr) {
        m_gate.Pass();
        m_heap.FailAt(0);
      }
      if (thread == m_claiming && event.text == kRefresh) m_nextIsTheList = true;
    });
    m_waits.OnWait([this] {
      if (::GetCurrentThreadId() == m_givingBack) m_there.Open();
    });
  }

  _IQeLaApi& m_other = *m_library.Api();
  Gate m_gate;

 private:
  static void WINAPI Acquire(SRWLOCK* lock) {
    ListOfTwoInstances& self = *s_self;
    const DWORD thread = ::GetCurrentThreadId();
    if (thread == self.m_givingBack && lock == self.m_list) self.m_there.Open();
    self.m_acquire.Original<void WINAPI(SRWLOCK*)>()(lock);
    if (thread == self.m_claiming && self.m_nextIsTheList.exchange(false)) self.m_list = lock;
  }
  // What it frees inside the lock is the list before the last: all but the count of claims is changed then.
  static void Free(void* block) {
    ListOfTwoInstances& self = *s_self;
    if (::GetCurrentThreadId() == self.m_claiming && self.m_list != nullptr && !self.m_met.exchange(true)) {
      self.m_gate.Open();
      self.m_there.Pass();
    }
    self.m_free.Original<void(void*)>()(block);
  }

  static inline ListOfTwoInstances* s_self;
  DWORD m_givingBack = 0;
  DWORD m_claiming = 0;
  Gate m_there;  // opened when the thread that gives back stands before the lock, or waits for its next turn
  std::atomic<bool> m_nextIsTheList = false;
  std::atomic<SRWLOCK*> m_list = nullptr;
  std::atomic<bool> m_met = false;
  ImportPatch m_acquire{Module(), "AcquireSRWLockExclusive", &Acquire};
  ImportPatch m_free{Module(), "free", &Free};
};

TEST_F(ListOfTwoInstances, EventThatCouldNotBeRaisedIsStillOwedAfterOneOfTheOtherInstance) {
  const Ids there{L"a location of the other instance, with an identifier that needs memory"};
  const Ids both{there[0], L"its second location, whose identifier needs memory as well"};
  Join({kOffice});
  Save();
  ExpectCallbackWith(kHere);
  UntilTheThreadWaits([&] { m_other.AddLocation(NewLocation(m_other, there[0], kOfficeGateway)); });
  ExpectCallbackWith(there, 1);
  Meet();
  EXPECT_TRUE(Service().Save());
  EXPECT_TRUE(m_gate.WaitUntilReached());
  m_other.AddLocation(NewLocation(m_other, both[1], kOfficeGateway));
  ExpectCallbackWith(both, 1);
  ExpectCallbackWith(kHere);
  EXPECT_EQ(m_log.Count(kRaising), 5u) << "the one that could not be raised is told of as well";
}

TEST_F(ThreadWithoutMemory, CallbackThatThrowsIsNotCalledAgain) {
  HostCallback::OnCall([] { throw std::bad_alloc(); });
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith(kHere);
  EXPECT_EQ(m_waits.Waits().back().ms, INFINITE);
  ExpectNoCallback();
}

}  // namespace

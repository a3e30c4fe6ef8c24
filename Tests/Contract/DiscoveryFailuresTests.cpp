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

#include "Tests/Contract/DiscoveryTest.h"
#include "Tests/Support/HeapWatch.h"

namespace {

using ::testing::ElementsAre;

// What a test lets fail; a call forwards otherwise.
struct Failures {
  int eventsLeft = -1;  // how many events can still be made; -1 for any number
  bool getModuleHandle = false;
  bool createThread = false;
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

class FailingStart : public DiscoveryTest {
 protected:
  FailingStart() {
    g_failures = {};
    g_createEvent = m_createEvent.Original<HANDLE WINAPI(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*)>();
    g_getModuleHandle = m_getModuleHandle.Original<BOOL WINAPI(DWORD, const wchar_t*, HMODULE*)>();
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
};

TEST_F(FailingStart, WithoutAStopEventThereIsNoRefreshEventEither) {
  g_failures.eventsLeft = 0;
  ExpectFailure({});
}

TEST_F(FailingStart, WithoutARefreshEventThereIsNoThread) {
  g_failures.eventsLeft = 1;
  ExpectFailure({"CreateEventW x1"});
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

// A wait that answers out of turn, a number of times, and then as usual.
class OddWait : public DiscoveryTest {
 protected:
  OddWait() { s_real = m_wait.Original<DWORD WINAPI(DWORD, const HANDLE*, BOOL, DWORD)>(); }

  static DWORD WINAPI Wait(DWORD count, const HANDLE* handles, BOOL all, DWORD ms) {
    if (s_times == 0) return s_real(count, handles, all, ms);
    --s_times;
    ::SetLastError(s_error);
    return s_result;
  }

  static inline DWORD(WINAPI* s_real)(DWORD, const HANDLE*, BOOL, DWORD);
  static inline int s_times = 0;
  static inline DWORD s_result = 0;
  static inline DWORD s_error = 0;
  ImportPatch m_wait{Module(), "WaitForMultipleObjects", &Wait};
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
    s_result = odd.result;
    s_error = odd.error;
    s_times = 2;
    const std::size_t requests = m_changes.Requests();
    EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
    EXPECT_TRUE(m_changes.WaitForRequests(requests + 3)) << "every pass arms anew";
    EXPECT_EQ(m_adapters.CallCount(), 0u) << "nothing is calculated";
    EXPECT_TRUE(Service().StopDiscovery());
    EXPECT_THAT(DiscoveryLines(), ElementsAre(odd.line, odd.line, kStopping));
    for (const LoggedEvent& event : m_log.Events()) EXPECT_EQ(event.severity, 8);
  }
  StartDiscovery();
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  EndDiscovery(Service());
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

// Every allocation that the thread makes for a change in turn.
class ThreadWithoutMemory : public DiscoveryTest {
 protected:
  ThreadWithoutMemory() { s_heap = &m_heap; }
  ~ThreadWithoutMemory() override { EndDiscovery(Service()); }

  // The host has memory.
  static void Callback(std::shared_ptr<_IEnumQeLocations> locations) {
    s_heap->StopFailing();
    HostCallback::First(std::move(locations));
  }

  static inline HeapWatch* s_heap;
  HeapWatch m_heap{Module()};
};

// Whatever is not raised now is raised by the next change.
TEST_F(ThreadWithoutMemory, LosesThePassButNeitherTheEventNorTheLockNorTheThread) {
  const Ids office{L"a location whose identifier is too long for a string without memory"};
  Store(office[0].c_str(), kOfficeGateway);
  StartDiscovery(&Callback);
  std::size_t nth = 0;
  m_adapters.OnCall([&] {
    if (nth > 0) m_heap.FailAt(nth - 1);
  });
  m_changes.OnRequest([this] { m_heap.StopFailing(); });
  bool failed = true;
  std::size_t rounds = 0;
  while (failed) {
    SCOPED_TRACE(++rounds);
    ASSERT_LT(rounds, 2000u);
    Join({kOffice});
    nth = rounds;
    FireAddressChange();
    failed = m_heap.StopFailing();
    nth = 0;
    FireAddressChange();
    ExpectCallbackWith(office);
    Join({});
    FireAddressChange();
    ExpectCallbackWith({});
    ExpectNoCallback();
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(rounds, 10u);
}

}  // namespace

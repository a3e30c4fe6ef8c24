// The discovery thread: what wakes it, what it decides, and what the host hears.
#include <winsock2.h>
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Tests/Contract/DiscoveryTest.h"

namespace {

using ::testing::ElementsAre;

using Discovery = DiscoveryTest;

TEST_F(Discovery, StopBeforeAnyStartReturnsFalse) {
  EXPECT_FALSE(Service().StopDiscovery());
  EXPECT_FALSE(m_library.Api()->StopDiscovery());
  EXPECT_EQ(m_ledger.Count("CreateEventW"), 0u);
}

TEST_F(Discovery, StopReturnsTrueOnceForEachCallback) {
  StartDiscovery();
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_FALSE(Service().StopDiscovery());
}

TEST_F(Discovery, StopEndsTheThread) {
  StartDiscovery();
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_TRUE(m_threads.HasEnded());
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kStopping));
}

TEST_F(Discovery, TwoStartsMakeOneThreadAndTheSecondCallbackReplacesTheFirst) {
  Store(L"A", kOfficeGateway);
  StartDiscovery(&HostCallback::First);
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::Second));
  EXPECT_EQ(m_threads.Count(), 1u);
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"}, 1);
  ExpectNoCallback();
}

TEST_F(Discovery, ChangeOfTheListIsRaisedOnceAndAnEqualListNotAtAll) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  FireAddressChange();
  FireAddressChange();
  ExpectNoCallback();
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kRaising, kChange, kSkipped, kChange, kSkipped));
}

TEST_F(Discovery, MachineAtNoLocationIsNotReported) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  FireAddressChange();
  ExpectNoCallback();
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kSkipped));
}

TEST_F(Discovery, LeavingTheLastLocationIsReported) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  Join({});
  FireAddressChange();
  ExpectCallbackWith({});
}

TEST_F(Discovery, ListInAnotherOrderIsAnotherList) {
  Store(L"A", kOfficeGateway);
  Store(L"B", kOfficeGateway);
  StartDiscovery();
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A", L"B"});
  EXPECT_EQ(Service().RemoveLocation(L"A"), LSR_OK);
  Store(L"A", kOfficeGateway);
  FireAddressChange();
  ExpectCallbackWith({L"B", L"A"});
  ExpectNoCallback();
}

TEST_F(Discovery, IdsAreComparedInEveryCodeUnit) {
  Store(L"a", kOfficeGateway);
  StartDiscovery();
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"a"});
  for (const wchar_t* id : {L"A", L"AB", L"A "}) {
    Service().RemoveAllLocations();
    Store(id, kOfficeGateway);
    FireAddressChange();
    ExpectCallbackWith({id});
  }
}

TEST_F(Discovery, SnapshotThatFailsEmptiesTheListAndIsReported) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  m_adapters.FailAlways(ERROR_INVALID_DATA);
  FireAddressChange();
  ExpectCallbackWith({});
  FireAddressChange();
  ExpectNoCallback();
}

TEST_F(Discovery, RefreshWithoutAChangeOfTheListIsSkippedAndLogged) {
  Store(L"A", kOfficeGateway);
  Join({kOffice});
  StartDiscovery();
  Save();
  ExpectCallbackWith({L"A"});
  Save();
  ExpectNoCallback();
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kRefresh, kRaising, kRefresh, kSkipped));
}

TEST_F(Discovery, RefreshDoesNotCalculateAndAChangeDoesOnce) {
  StartDiscovery();
  Save();
  m_adapters.ClearCalls();
  Save();
  EXPECT_EQ(m_adapters.CallCount(), 1u) << "that of the save itself";
  FireAddressChange();
  EXPECT_EQ(m_adapters.CallCount(), 2u);
  EXPECT_EQ(m_adapters.Calls().back().threadId, ::GetThreadId(m_threads.At(0).thread));
}

TEST_F(Discovery, EditOfTheInstanceThatSavesByItselfIsReported) {
  Join({kOffice});
  _IQeLaApi& service = *m_library.Api();
  StartDiscovery(service);
  EXPECT_EQ(service.AddLocation(NewLocation(service, L"A", kOfficeGateway)), LSR_OK);
  ExpectCallbackWith({L"A"});
  EXPECT_EQ(service.RemoveLocation(L"A"), LSR_OK);
  ExpectCallbackWith({});
  EndDiscovery(service);
}

TEST_F(Discovery, LoadTellsNobody) {
  Join({kOffice});
  StartDiscovery();
  m_registry.Put(PackedSet({{.id = "A"}}));
  EXPECT_TRUE(Service().Load());
  EXPECT_EQ(CurrentIds(Service()), Ids{L"A"});
  // The thread would have been woken before this change.
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kRaising));
}

TEST_F(Discovery, SaveBeforeTheFirstStartAndAfterTheEndSignalsNoEvent) {
  static std::atomic<int> set;
  static BOOL(WINAPI * real)(HANDLE);
  set = 0;
  const ImportPatch patch(Module(), "SetEvent", +[](HANDLE event) -> BOOL { return ++set, real(event); });
  real = patch.Original<BOOL WINAPI(HANDLE)>();
  EXPECT_TRUE(Service().Save());
  EXPECT_EQ(set, 0);
  StartDiscovery();
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_EQ(set, 1) << "the stop event";
  EXPECT_TRUE(Service().Save());
  EXPECT_EQ(set, 1);
}

TEST_F(Discovery, SaveSignalsBeforeTheSetIsWritten) {
  Store(L"A", kOfficeGateway);
  Join({kOffice});
  StartDiscovery();
  m_registry.FailAlways("RegCreateKeyExW", ERROR_ACCESS_DENIED);
  EXPECT_FALSE(Service().Save());
  ExpectCallbackWith({L"A"});
}

// The change is signalled while the thread, woken by a refresh, stands before the lock.
TEST_F(Discovery, ChangeDuringARefreshIsNotLost) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Service().Lock();
  EXPECT_TRUE(Service().Save());
  EXPECT_TRUE(m_log.WaitFor(kRefresh));
  Join({kOffice});
  m_changes.Fire();
  Service().Unlock();
  ExpectCallbackWith({L"A"});
}

// As above, and a further refresh is signalled as well.
TEST_F(Discovery, RefreshAndChangeThatAreSignalledWhileTheThreadIsHeldUpAreBothServed) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Service().Lock();
  EXPECT_TRUE(Service().Save());
  EXPECT_TRUE(m_log.WaitFor(kRefresh));
  EXPECT_TRUE(Service().Save());
  Join({kOffice});
  m_changes.Fire();
  m_adapters.ClearCalls();
  Service().Unlock();
  ExpectCallbackWith({L"A"});
  EXPECT_TRUE(m_log.WaitFor(kRefresh, 2));
  EXPECT_TRUE(m_log.WaitFor(kSkipped, 2));
  EXPECT_EQ(m_adapters.CallCount(), 1u);
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kRefresh, kSkipped, kChange, kRaising, kRefresh, kSkipped));
}

// Both are there when the thread comes to wait: the refresh wins the wait, and arming again would clear the change.
TEST_F(Discovery, RefreshAndChangeThatAreSignalledTogetherAreBothServed) {
  Store(L"A", kOfficeGateway);
  // The pass of a first change ends, and before the thread waits for the second time both are signalled.
  Gate gate;
  StartDiscovery();
  m_waits.OnWait([&] { gate.Pass(); });
  m_changes.Fire();
  EXPECT_TRUE(gate.WaitUntilReached());
  EXPECT_TRUE(Service().Save());
  Join({kOffice});
  m_changes.Fire();
  gate.Open();
  ExpectCallbackWith({L"A"});
  EXPECT_TRUE(m_waits.WaitForCount(3));
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kSkipped, kRefresh, kSkipped, kChange, kRaising));
  EndDiscovery(Service());
}

TEST_F(Discovery, WithoutACallbackNothingIsRaisedNorRemembered) {
  Store(L"A", kOfficeGateway);
  StartDiscovery(nullptr);
  Join({kOffice});
  FireAddressChange();
  Save();
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kRefresh));
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  FireAddressChange();
  ExpectCallbackWith({L"A"});
}

TEST_F(Discovery, ThreadWithoutACallbackRefusesToStop) {
  StartDiscovery(nullptr);
  EXPECT_FALSE(Service().StopDiscovery());
  FireAddressChange();
  EXPECT_FALSE(m_threads.HasEnded());
}

// The host changes its mind after the thread has decided and left the lock.
class ChangeOfMind : public Discovery {
 protected:
  ChangeOfMind() {
    ::InitializeCriticalSection(&s_lock);
    s_real = m_leave.Original<void WINAPI(CRITICAL_SECTION*)>();
    m_service = m_library.SmartApi(&s_lock);
    Store(L"A", kOfficeGateway);
  }
  ~ChangeOfMind() override { s_act = nullptr; }

  void AfterTheDecision(std::function<void()> act) {
    s_decided = [this] { return m_log.Count(kRaising) > 0; };
    s_act = std::move(act);
  }

  static void WINAPI Leave(CRITICAL_SECTION* section) {
    const bool outermost = section == &s_lock && section->RecursionCount == 1;
    s_real(section);
    if (outermost && s_act && s_decided()) std::exchange(s_act, nullptr)();
  }

  static inline CRITICAL_SECTION s_lock;
  static inline void(WINAPI* s_real)(CRITICAL_SECTION*);
  static inline std::function<bool()> s_decided;
  static inline std::function<void()> s_act;
  ImportPatch m_leave{Module(), "LeaveCriticalSection", &Leave};
};

TEST_F(ChangeOfMind, CallbackThatIsWithdrawnAfterTheDecisionIsNotCalled) {
  StartDiscovery();
  AfterTheDecision([this] { EXPECT_TRUE(Service().StartDiscovery(nullptr)); });
  Join({kOffice});
  FireAddressChange();
  ExpectNoCallback();
  EXPECT_EQ(m_log.Count(kRaising), 1u);
  EndDiscovery(Service());
}

TEST_F(ChangeOfMind, CallbackThatIsReplacedAfterTheDecisionIsCalledInstead) {
  StartDiscovery();
  AfterTheDecision([this] { EXPECT_TRUE(Service().StartDiscovery(&HostCallback::Second)); });
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"}, 1);
  ExpectNoCallback();
  EndDiscovery(Service());
}

TEST_F(Discovery, NewCallbackHearsNothingOfAListThatWasRaisedBefore) {
  Store(L"A", kOfficeGateway);
  Join({kOffice});
  StartDiscovery(&HostCallback::First);
  FireAddressChange();
  ExpectCallbackWith({L"A"}, 0);
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::Second));
  FireAddressChange();
  EXPECT_TRUE(Service().StopDiscovery());
  StartDiscovery(&HostCallback::Second);
  FireAddressChange();
  ExpectNoCallback();
  Join({});
  FireAddressChange();
  ExpectCallbackWith({}, 1);
}

TEST_F(Discovery, TwoInstancesReportTheSameListOnce) {
  _IQeLaApi& raw = *m_library.Api();
  EXPECT_EQ(raw.AddLocation(NewLocation(raw, L"A", kOfficeGateway)), LSR_OK);
  EXPECT_TRUE(Service().Load());
  StartDiscovery(Service(), &HostCallback::First);
  StartDiscovery(raw, &HostCallback::Second);
  Join({kOffice});
  const std::size_t waits = m_waits.Count();
  m_changes.Fire();
  EXPECT_TRUE(m_waits.WaitForCount(waits + 2));
  EXPECT_EQ(HostCallback::Untaken(0) + HostCallback::Untaken(1), 1u);
  EXPECT_EQ(m_log.Count(kChange), 2u);
  EXPECT_EQ(m_log.Count(kRaising), 1u);
  EXPECT_EQ(m_log.Count(kSkipped), 1u);
  EndDiscovery(raw);
  EndDiscovery(Service());
}

// The lines around raising are written without the lock that both instances share: a log sink that asks the other
// instance, or waits for it, does not stand in its way.
TEST_F(Discovery, LogSinkMayWaitForTheOtherInstanceToDecide) {
  _IQeLaApi& raw = *m_library.Api();
  EXPECT_EQ(raw.AddLocation(NewLocation(raw, L"A", kOfficeGateway)), LSR_OK);
  EXPECT_TRUE(Service().Load());
  StartDiscovery(Service(), &HostCallback::First);
  StartDiscovery(raw, &HostCallback::Second);
  Gate gates[2];
  for (const wchar_t* line : {kRaising, kSkipped}) {
    SCOPED_TRACE(line);
    const std::size_t decided = m_log.Count(kSkipped) + (line == kRaising ? 0 : 1);
    Gate& gate = gates[line == kRaising ? 0 : 1];
    m_log.OnEvent([&, line, decided](const LoggedEvent& event) {
      if (event.text != line) return;
      m_log.OnEvent(nullptr);
      EXPECT_TRUE(raw.Save());
      EXPECT_TRUE(m_log.WaitFor(kSkipped, decided + 1)) << "the other instance cannot decide";
      gate.Pass();
    });
    Join({kOffice});
    EXPECT_TRUE(Service().Save());
    EXPECT_TRUE(gate.WaitUntilReached());
    gate.Open();
    EXPECT_EQ(m_log.Count(kRaising), 1u);
  }
  ExpectCallbackWith({L"A"}, 0);
  EXPECT_EQ(HostCallback::Untaken(1), 0u);
  m_log.OnEvent(nullptr);
  EndDiscovery(raw);
  EndDiscovery(Service());
}

TEST_F(Discovery, CallbackGetsCopiesOfItsOwnOutsideTheLockOnTheThread) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  bool free = false;
  HostCallback::OnCall([&] {
    // Another thread takes the lock while the callback runs.
    HANDLE other = ::CreateThread(
        nullptr, 0,
        [](void* service) -> DWORD {
          static_cast<_IQeLaApiSmart*>(service)->Lock();
          static_cast<_IQeLaApiSmart*>(service)->Unlock();
          return 0;
        },
        &Service(), 0, nullptr);
    free = ::WaitForSingleObject(other, 10'000) == WAIT_OBJECT_0;
    ::CloseHandle(other);
  });
  Join({kOffice});
  FireAddressChange();
  const auto call = HostCallback::Take();
  ASSERT_TRUE(call.has_value());
  EXPECT_TRUE(free);
  EXPECT_EQ(call->thread, ::GetThreadId(m_threads.At(0).thread));
  EXPECT_EQ(call->locations.use_count(), 1) << "the library has dropped its own";
  call->locations->GetItem(0)->SetId(L"changed");
  EXPECT_EQ(StoredIds(Service()), Ids{L"A"});
}

TEST_F(Discovery, HostMayCallEveryOperationFromInsideTheCallback) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Ids current;
  HostCallback::OnCall([&] {
    HostCallback::OnCall(nullptr);
    Store(L"B", kOfficeGateway);
    EXPECT_TRUE(Service().Save());
    EXPECT_EQ(Service().RemoveLocation(L"A"), LSR_OK);
    EXPECT_EQ(Service().UpdateLocation(Service().GetLocation(L"B")), LSR_OK);
    EXPECT_TRUE(Service().Save());
    EXPECT_TRUE(Service().Load());
    Service().Lock();
    current = CurrentIds(Service());
    Service().Unlock();
    EXPECT_EQ(StoredIds(Service()), Ids{L"B"});
    Service().GetMacAddresses();
    EXPECT_TRUE(Service().StartDiscovery(&HostCallback::First));
  });
  Join({kOffice});
  m_changes.Fire();
  ExpectCallbackWith({L"A"});
  ExpectCallbackWith({L"B"});
  EXPECT_EQ(current, Ids{L"B"});
}

// How long the module was ready to wait for one handle.
class StopWaits {
 public:
  explicit StopWaits(HMODULE module) : m_patch(module, "WaitForSingleObject", &Wait) {
    s_waits.clear();
    s_real = m_patch.Original<DWORD WINAPI(HANDLE, DWORD)>();
  }
  static std::vector<DWORD> On(HANDLE handle) {
    const std::lock_guard lock(s_mutex);
    std::vector<DWORD> waits;
    for (const auto& [waited, ms] : s_waits)
      if (waited == handle) waits.push_back(ms);
    return waits;
  }

 private:
  static DWORD WINAPI Wait(HANDLE handle, DWORD ms) {
    {
      const std::lock_guard lock(s_mutex);
      s_waits.emplace_back(handle, ms);
    }
    return s_real(handle, ms);
  }

  static inline std::mutex s_mutex;
  static inline std::vector<std::pair<HANDLE, DWORD>> s_waits;
  static inline DWORD(WINAPI* s_real)(HANDLE, DWORD);
  ImportPatch m_patch;
};

TEST_F(Discovery, StopFromInsideTheCallbackWaitsItsTimeAndEndsTheThread) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  const StopWaits waits(Module());
  bool stopped = false;
  HostCallback::OnCall([&] { stopped = Service().StopDiscovery(); });
  Join({kOffice});
  m_changes.Fire();
  EXPECT_TRUE(m_threads.WaitForEnd());
  EXPECT_TRUE(stopped);
  EXPECT_THAT(waits.On(m_threads.At(0).handle), ElementsAre(1000u));
}

TEST_F(Discovery, StopWhileTheCallerHoldsTheLockWaitsItsTimeAndSucceeds) {
  StartDiscovery();
  Service().Lock();
  EXPECT_TRUE(Service().Save());
  EXPECT_TRUE(m_log.WaitFor(kRefresh));
  const StopWaits waits(Module());
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_FALSE(m_threads.HasEnded());
  Service().Unlock();
  EXPECT_THAT(waits.On(m_threads.At(0).handle), ElementsAre(1000u));
  EXPECT_TRUE(m_threads.WaitForEnd());
}

// The callback goes only after the wait.
TEST_F(Discovery, StopLetsThePassThatHasBegunCallTheHost) {
  static Gate* gate;
  static DWORD(WINAPI * real)(HANDLE, DWORD);
  Gate pass;
  gate = &pass;
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  m_adapters.OnCall([&] { pass.Pass(); });
  Join({kOffice});
  m_changes.Fire();
  EXPECT_TRUE(pass.WaitUntilReached());
  {
    const ImportPatch wait(
        Module(), "WaitForSingleObject", +[](HANDLE handle, DWORD ms) -> DWORD {
          if (ms == 1000) gate->Open();
          return real(handle, ms);
        });
    real = wait.Original<DWORD WINAPI(HANDLE, DWORD)>();
    EXPECT_TRUE(Service().StopDiscovery());
  }
  ExpectCallbackWith({L"A"});
}

TEST_F(Discovery, StartBeforeTheStoppedThreadHasEndedStartsNoOther) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  Service().Lock();
  EXPECT_TRUE(Service().Save());
  EXPECT_TRUE(m_log.WaitFor(kRefresh));
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_TRUE(Service().StartDiscovery(&HostCallback::Second));
  Service().Unlock();
  EXPECT_TRUE(m_threads.WaitForEnd());
  EXPECT_EQ(m_threads.Count(), 1u);
  ExpectNoCallback();
  EXPECT_TRUE(Service().StopDiscovery()) << "the callback is stored";
  StartDiscovery();
  EXPECT_EQ(m_threads.Count(), 2u);
}

TEST_F(Discovery, EveryRestartLeavesTwoEventsAndTheThreadHandle) {
  _IQeLaApi& service = *m_library.Api();
  StartDiscovery(service);
  EXPECT_TRUE(service.StopDiscovery());
  StartDiscovery(service);
  EXPECT_TRUE(service.StopDiscovery());
  StartDiscovery(service);
  EXPECT_EQ(service.Release(), 0u);
  EXPECT_THAT(m_ledger.Leaks(), ElementsAre("CreateEventW x4", "CreateThread x2"));
  EXPECT_THAT(m_ledger.Mistakes(), ElementsAre());
}

TEST_F(Discovery, OneStartLeavesNoHandle) {
  _IQeLaApi& service = *m_library.Api();
  StartDiscovery(service);
  EXPECT_TRUE(service.StopDiscovery());
  EXPECT_EQ(service.Release(), 0u);
  EXPECT_THAT(m_ledger.Leaks(), ElementsAre());
  EXPECT_THAT(m_ledger.Mistakes(), ElementsAre());
}

TEST_F(Discovery, ThousandStartsAndStopsLeaveThreeHandlesEachAndNothingElse) {
  _IQeLaApi& service = *m_library.Api();
  constexpr std::size_t kTimes = 1000;
  for (std::size_t i = 0; i < kTimes; ++i) {
    StartDiscovery(service);
    ASSERT_TRUE(service.StopDiscovery());
  }
  EXPECT_EQ(service.Release(), 0u);
  EXPECT_EQ(m_threads.Count(), kTimes);
  EXPECT_EQ(m_ledger.Open("CreateEventW"), 2 * (kTimes - 1));
  EXPECT_EQ(m_ledger.Open("CreateThread"), kTimes - 1);
  EXPECT_EQ(m_ledger.Leaks().size(), 2u);
  EXPECT_THAT(m_ledger.Mistakes(), ElementsAre());
  EXPECT_EQ(m_changes.Pending(), 0u);
}

TEST_F(Discovery, RequestThatPendsIsWithdrawnAndWaitedForWhenTheThreadEnds) {
  StartDiscovery();
  for (int i = 0; i < 50; ++i) Save();
  EXPECT_EQ(m_changes.Pending(), 1u);
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_EQ(m_changes.Pending(), 0u);
  EXPECT_EQ(m_changes.Withdrawals(), 1u);
  m_changes.Fire();
}

TEST_F(Discovery, ThreadOwnsItsWinsockItsEventAndItsReferenceToTheLibrary) {
  StartDiscovery();
  EXPECT_EQ(m_ledger.Open("WSAStartup"), 1u);
  EXPECT_EQ(m_ledger.Open("WSACreateEvent"), 1u);
  EXPECT_EQ(m_ledger.Open("GetModuleHandleExW"), 1u);
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_EQ(m_ledger.Open("WSAStartup"), 0u);
  EXPECT_EQ(m_ledger.Open("WSACreateEvent"), 0u);
  EXPECT_EQ(m_ledger.Count("WSACloseEvent"), 1u);
  EXPECT_EQ(m_ledger.Open("GetModuleHandleExW"), 0u);
  EXPECT_THAT(m_ledger.Mistakes(), ElementsAre());
}

TEST_F(Discovery, ThreadWaitsForStopRefreshAndChangeInThisOrderWithoutEnd) {
  struct Event {
    SECURITY_ATTRIBUTES* security;
    BOOL manual;
    BOOL set;
    const wchar_t* name;
    HANDLE handle;
    HANDLE copy;  // the thread's own handle of it
  };
  static std::vector<Event> events;
  static HANDLE changeEvent;
  events.clear();
  static HANDLE(WINAPI * realEvent)(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*);
  static WSAEVENT(WINAPI * realWsaEvent)();
  static BOOL(WINAPI * realDuplicate)(HANDLE, HANDLE, HANDLE, HANDLE*, DWORD, BOOL, DWORD);
  const ImportPatch event(
      Module(), "CreateEventW",
      +[](SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) -> HANDLE {
        events.push_back({security, manual, set, name, realEvent(security, manual, set, name), nullptr});
        return events.back().handle;
      });
  realEvent = event.Original<HANDLE WINAPI(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*)>();
  const ImportPatch wsaEvent(Module(), "WSACreateEvent", +[]() -> WSAEVENT { return changeEvent = realWsaEvent(); });
  realWsaEvent = wsaEvent.Original<WSAEVENT WINAPI()>();
  const ImportPatch duplicate(
      Module(), "DuplicateHandle",
      +[](HANDLE from, HANDLE handle, HANDLE to, HANDLE* copy, DWORD access, BOOL inherit, DWORD options) -> BOOL {
        const BOOL result = realDuplicate(from, handle, to, copy, access, inherit, options);
        for (Event& made : events)
          if (made.handle == handle) made.copy = *copy;
        return result;
      });
  realDuplicate = duplicate.Original<BOOL WINAPI(HANDLE, HANDLE, HANDLE, HANDLE*, DWORD, BOOL, DWORD)>();

  StartDiscovery();
  Save();
  EndDiscovery(Service());

  ASSERT_EQ(events.size(), 2u);
  for (const Event& made : events) {
    EXPECT_EQ(made.security, nullptr);
    EXPECT_FALSE(made.manual);
    EXPECT_FALSE(made.set);
    EXPECT_EQ(made.name, nullptr);
  }
  const std::vector<WaitWatch::Wait> waits = m_waits.Waits();
  ASSERT_EQ(waits.size(), 2u);
  for (const WaitWatch::Wait& waited : waits) {
    EXPECT_THAT(waited.handles, ElementsAre(events[0].copy, events[1].copy, changeEvent));
    EXPECT_FALSE(waited.all);
    EXPECT_EQ(waited.ms, INFINITE);
  }
  EXPECT_EQ(m_threads.At(0).security, nullptr);
  EXPECT_EQ(m_threads.At(0).stackBytes, 0u);
  EXPECT_EQ(m_threads.At(0).flags, 0u);
}

TEST_F(Discovery, LinesAreInformationOfTheFirewall) {
  Store(L"A", kOfficeGateway);
  Join({kOffice});
  StartDiscovery();
  FireAddressChange();
  Save();
  EXPECT_TRUE(Service().StopDiscovery());
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kRaising, kRefresh, kSkipped, kStopping));
  for (const LoggedEvent& event : m_log.Events()) {
    if (event.text != kChange && event.text != kRaising && event.text != kRefresh && event.text != kSkipped &&
        event.text != kStopping)
      continue;
    ExpectFirewallEvent(event, 8, "FwClient/Service/QeLaLib/QeLaLibDiscovery.cpp");
  }
}

TEST_F(Discovery, ChangeIsLoggedBeforeItIsCalculatedAndThenDecided) {
  Store(L"A", kOfficeGateway);
  StartDiscovery();
  m_log.Clear();
  Join({kOffice});
  FireAddressChange();
  Lines lines;
  for (const std::wstring& text : m_log.Texts())
    if (text == kChange || text == kCalculating || text == kRaising || text == L"Adding current location ID A")
      lines.push_back(text);
  EXPECT_THAT(lines, ElementsAre(kChange, kCalculating, L"Adding current location ID A", kRaising));
}

}  // namespace

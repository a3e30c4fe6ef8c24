// The end of a service whose discovery thread waits, works, calls the host, or was told to stop before.
#include <winsock2.h>
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/FreedMemory.h"
#include "Tests/Contract/DiscoveryTest.h"

namespace {

using ::testing::ElementsAre;

// What is done to one service's lock, handles and memory, by which thread, in order.
class Teardown : public DiscoveryTest {
 protected:
  using Steps = std::vector<std::string>;

  Teardown() {
    s_handles.clear();
    s_ownLock = nullptr;
    s_object = nullptr;
    s_destroyer = ::GetCurrentThreadId();
    s_real.initialize = m_initialize.Original<void WINAPI(CRITICAL_SECTION*)>();
    s_real.remove = m_delete.Original<void WINAPI(CRITICAL_SECTION*)>();
    s_real.enter = m_enter.Original<void WINAPI(CRITICAL_SECTION*)>();
    s_real.close = m_close.Original<BOOL WINAPI(HANDLE)>();
    s_real.set = m_set.Original<BOOL WINAPI(HANDLE)>();
    s_real.wait = m_wait.Original<DWORD WINAPI(HANDLE, DWORD)>();
    s_real.event = m_event.Original<HANDLE WINAPI(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*)>();
    s_real.free = m_freePatch.Original<void(void*)>();
    m_api = m_library.Api();
    Forget();
  }
  // Everything that the thread uses is still there when it ends.
  ~Teardown() override {
    HostCallback::OnCall(nullptr);
    m_adapters.OnCall(nullptr);
    if (m_api != nullptr) EndDiscovery(*m_api);
    EXPECT_TRUE(m_threads.Count() == 0 || m_threads.WaitForEnd());
  }

  void Start(QeLaLocationsChanged callback = &HostCallback::First) {
    s_object = m_api;
    m_api->AddLocation(NewLocation(*m_api, L"A", kOfficeGateway));
    StartDiscovery(*m_api, callback);
    if (s_handles.size() == 2) s_handles.push_back(m_threads.At(0).handle);
    Forget();
  }
  // The last reference goes.
  void Release() {
    _IQeLaApi* const service = std::exchange(m_api, nullptr);
    EXPECT_EQ(service->Release(), 0u);
  }

  static void Forget() {
    const std::lock_guard lock(s_mutex);
    s_steps[0].clear();
    s_steps[1].clear();
  }
  static Steps ByDestroyer() {
    const std::lock_guard lock(s_mutex);
    return s_steps[0];
  }
  static Steps ByThread() {
    const std::lock_guard lock(s_mutex);
    return s_steps[1];
  }

  void ExpectEverythingReleasedOnce() {
    EXPECT_TRUE(m_freed.Contains(s_object));
    EXPECT_EQ(m_ledger.Leaks(), Steps{});
    EXPECT_EQ(m_ledger.Mistakes(), Steps{});
    EXPECT_EQ(m_changes.Pending(), 0u);
  }

  _IQeLaApi* m_api;

 private:
  static void Note(std::string step) {
    const std::lock_guard lock(s_mutex);
    s_steps[::GetCurrentThreadId() == s_destroyer ? 0 : 1].push_back(std::move(step));
  }
  static const char* NameOf(HANDLE handle) {
    static constexpr const char* kNames[] = {"stop", "refresh", "thread"};
    const auto found = std::find(s_handles.begin(), s_handles.end(), handle);
    const auto index = static_cast<std::size_t>(found - s_handles.begin());
    return index < std::size(kNames) && found != s_handles.end() ? kNames[index] : nullptr;
  }

  static void WINAPI Initialize(CRITICAL_SECTION* section) {
    s_ownLock = section;
    s_real.initialize(section);
  }
  static void WINAPI Delete(CRITICAL_SECTION* section) {
    if (section == s_ownLock) Note("delete lock");
    s_real.remove(section);
  }
  static void WINAPI Enter(CRITICAL_SECTION* section) {
    if (section == s_ownLock) Note("enter lock");
    s_real.enter(section);
  }
  static BOOL WINAPI Close(HANDLE handle) {
    if (const char* name = NameOf(handle); name != nullptr) Note(std::string("close ") + name);
    return s_real.close(handle);
  }
  static BOOL WINAPI Set(HANDLE handle) {
    if (const char* name = NameOf(handle); name != nullptr) Note(std::string("set ") + name);
    return s_real.set(handle);
  }
  static DWORD WINAPI Wait(HANDLE handle, DWORD ms) {
    if (const char* name = NameOf(handle); name != nullptr)
      Note(std::string("wait ") + name + " " + std::to_string(ms));
    return s_real.wait(handle, ms);
  }
  static HANDLE WINAPI MakeEvent(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) {
    s_handles.push_back(s_real.event(security, manual, set, name));
    return s_handles.back();
  }
  static void Free(void* block) {
    if (block != nullptr && block == s_object) Note("free object");
    if (block != nullptr && block == s_ownLock) Note("free lock");
    s_real.free(block);
  }

  struct Real {
    void(WINAPI* initialize)(CRITICAL_SECTION*);
    void(WINAPI* remove)(CRITICAL_SECTION*);
    void(WINAPI* enter)(CRITICAL_SECTION*);
    BOOL(WINAPI* close)(HANDLE);
    BOOL(WINAPI* set)(HANDLE);
    DWORD(WINAPI* wait)(HANDLE, DWORD);
    HANDLE(WINAPI* event)(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*);
    void (*free)(void*);
  };
  static inline Real s_real;
  static inline std::mutex s_mutex;
  static inline Steps s_steps[2];
  static inline std::vector<HANDLE> s_handles;
  static inline void* s_ownLock;
  static inline void* s_object;
  static inline DWORD s_destroyer;

  FreedMemory m_freed{Module()};
  ImportPatch m_initialize{Module(), "InitializeCriticalSection", &Initialize};
  ImportPatch m_delete{Module(), "DeleteCriticalSection", &Delete};
  ImportPatch m_enter{Module(), "EnterCriticalSection", &Enter};
  ImportPatch m_close{Module(), "CloseHandle", &Close};
  ImportPatch m_set{Module(), "SetEvent", &Set};
  ImportPatch m_wait{Module(), "WaitForSingleObject", &Wait};
  ImportPatch m_event{Module(), "CreateEventW", &MakeEvent};
  ImportPatch m_freePatch{Module(), "free", &Free};
};

TEST_F(Teardown, StopsTheThreadThenDeletesTheLockThenClosesTheHandlesInOrder) {
  Start();
  Release();
  EXPECT_THAT(ByDestroyer(), ElementsAre("set stop", "wait thread 1000", "delete lock", "free lock", "close refresh",
                                         "close stop", "close thread", "free object"));
  EXPECT_THAT(ByThread(), ElementsAre()) << "the lock is not entered";
  EXPECT_TRUE(m_threads.HasEnded());
  ExpectEverythingReleasedOnce();
}

TEST_F(Teardown, AfterAStopNobodyIsSignalledOrWaitedFor) {
  Start();
  EXPECT_TRUE(m_api->StopDiscovery());
  Forget();
  Release();
  EXPECT_THAT(ByDestroyer(),
              ElementsAre("delete lock", "free lock", "close refresh", "close stop", "close thread", "free object"));
  ExpectEverythingReleasedOnce();
}

// The thread has ended by itself, the callback is still set.
TEST_F(Teardown, AfterARefusedRequestTheThreadIsStillWaitedFor) {
  Start();
  m_changes.Script({{ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, false}});
  m_changes.Fire();
  EXPECT_TRUE(m_threads.WaitForEnd());
  Forget();
  Release();
  EXPECT_THAT(ByDestroyer(), ElementsAre("set stop", "wait thread 1000", "delete lock", "free lock", "close refresh",
                                         "close stop", "close thread", "free object"));
  ExpectEverythingReleasedOnce();
}

TEST_F(Teardown, ThreadThatCalculatesInheritsTheServiceAfterASecond) {
  Start();
  Gate gate;
  m_adapters.OnCall([&] { gate.Pass(); });
  Join({kOffice});
  m_changes.Fire();
  EXPECT_TRUE(gate.WaitUntilReached());
  Forget();
  Release();
  EXPECT_THAT(ByDestroyer(),
              ElementsAre("set stop", "wait thread 1000", "close refresh", "close stop", "close thread"));
  EXPECT_FALSE(m_threads.HasEnded());
  Forget();
  gate.Open();
  EXPECT_TRUE(m_threads.WaitForEnd());
  EXPECT_EQ(ByDestroyer(), Steps{});
  const Steps byThread = ByThread();
  ASSERT_GE(byThread.size(), 3u);
  EXPECT_THAT(Steps(byThread.end() - 3, byThread.end()), ElementsAre("delete lock", "free lock", "free object"));
  for (const char* closed : {"close refresh", "close stop", "close thread"})
    EXPECT_EQ(std::count(byThread.begin(), byThread.end(), closed), 0);
  ExpectNoCallback();
  EXPECT_EQ(m_log.Count(kStopping), 1u);
  ExpectEverythingReleasedOnce();
}

TEST_F(Teardown, ThreadThatCallsTheHostInheritsTheServiceAfterASecond) {
  Start();
  Gate gate;
  HostCallback::OnCall([&] { gate.Pass(); });
  Join({kOffice});
  m_changes.Fire();
  EXPECT_TRUE(gate.WaitUntilReached());
  Forget();
  Release();
  EXPECT_THAT(ByDestroyer(),
              ElementsAre("set stop", "wait thread 1000", "close refresh", "close stop", "close thread"));
  gate.Open();
  EXPECT_TRUE(m_threads.WaitForEnd());
  ExpectCallbackWith({L"A"});
  ExpectNoCallback();
  ExpectEverythingReleasedOnce();
}

// The thread stands before its wait when the service goes: what it then waits on must be handles that still are its
// own, whatever the numbers of the closed ones have become.
TEST_F(Teardown, ThreadThatIsAboutToWaitStillSeesTheStopAfterTheHandlesAreClosed) {
  Start();
  Gate gate;
  m_waits.OnWait([&] { gate.Pass(); });
  const std::size_t waits = m_waits.Count();
  m_changes.Fire();
  EXPECT_TRUE(gate.WaitUntilReached());
  Forget();
  Release();
  EXPECT_THAT(ByDestroyer(),
              ElementsAre("set stop", "wait thread 1000", "close refresh", "close stop", "close thread"));
  // The numbers are given out again.
  std::vector<HANDLE> others;
  for (int i = 0; i < 64; ++i) others.push_back(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
  gate.Open();
  EXPECT_TRUE(m_threads.WaitForEnd());
  EXPECT_EQ(m_waits.Count(), waits + 1) << "the wait was answered by the stop";
  const HANDLE waited = m_waits.Waits().back().handles[0];
  EXPECT_EQ(std::count(others.begin(), others.end(), waited), 0);
  EXPECT_THAT(DiscoveryLines(), ElementsAre(kChange, kSkipped, kStopping));
  for (HANDLE other : others) {
    EXPECT_EQ(::WaitForSingleObject(other, 0), static_cast<DWORD>(WAIT_TIMEOUT)) << "signalled by the library";
    EXPECT_TRUE(::CloseHandle(other)) << "closed by the library";
  }
  ExpectEverythingReleasedOnce();
}

// A save from inside the callback, when the handles are gone already.
TEST_F(Teardown, SaveInsideTheCallbackSignalsNoHandleThatWasClosed) {
  Start();
  _IQeLaApi& service = *m_api;
  Gate gate;
  HostCallback::OnCall([&] {
    HostCallback::OnCall(nullptr);
    gate.Pass();
    service.Save();
  });
  Join({kOffice});
  m_changes.Fire();
  EXPECT_TRUE(gate.WaitUntilReached());
  Release();
  std::vector<HANDLE> others;
  for (int i = 0; i < 64; ++i) others.push_back(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
  gate.Open();
  EXPECT_TRUE(m_threads.WaitForEnd());
  for (HANDLE other : others) {
    EXPECT_EQ(::WaitForSingleObject(other, 0), static_cast<DWORD>(WAIT_TIMEOUT)) << "signalled by the library";
    ::CloseHandle(other);
  }
  ExpectEverythingReleasedOnce();
}

// A change that comes in the meantime is no longer served.
TEST_F(Teardown, ThreadThatInheritsServesNoFurtherChange) {
  Start();
  Gate gate;
  HostCallback::OnCall([&] { gate.Pass(); });
  Join({kOffice});
  EXPECT_EQ(m_api->AddLocation(NewLocation(*m_api, L"B", kOfficeGateway)), LSR_OK);  // a refresh, with requests left
  EXPECT_TRUE(gate.WaitUntilReached());
  m_changes.Fire();
  Release();
  m_adapters.ClearCalls();
  gate.Open();
  EXPECT_TRUE(m_threads.WaitForEnd());
  EXPECT_EQ(m_adapters.CallCount(), 0u);
  EXPECT_EQ(m_log.Count(kChange), 0u);
  ExpectEverythingReleasedOnce();
}

TEST_F(Teardown, LastReferenceMayGoInsideTheCallback) {
  Start();
  HostCallback::OnCall([&] {
    Forget();
    Release();
  });
  Join({kOffice});
  m_changes.Fire();
  EXPECT_TRUE(m_threads.WaitForEnd());
  EXPECT_THAT(ByThread(), ElementsAre("set stop", "wait thread 1000", "close refresh", "close stop", "close thread",
                                      "delete lock", "free lock", "free object"));
  ExpectCallbackWith({L"A"});
  EXPECT_EQ(m_log.Count(kStopping), 1u);
  ExpectEverythingReleasedOnce();
}

TEST_F(Teardown, CallbackMayReleaseAndThenThrow) {
  Start();
  HostCallback::OnCall([&] {
    Release();
    throw 1;
  });
  Join({kOffice});
  m_changes.Fire();
  EXPECT_TRUE(m_threads.WaitForEnd());
  ExpectCallbackWith({L"A"});
  ExpectEverythingReleasedOnce();
}

TEST_F(Teardown, ThreadThatWasStoppedButIsStillBusyInheritsTheServiceAtOnce) {
  Start();
  Gate gate;
  m_adapters.OnCall([&] { gate.Pass(); });
  m_changes.Fire();
  EXPECT_TRUE(gate.WaitUntilReached());
  EXPECT_TRUE(m_api->StopDiscovery());
  Forget();
  Release();
  EXPECT_THAT(ByDestroyer(), ElementsAre("set stop", "close refresh", "close stop", "close thread"));
  gate.Open();
  EXPECT_TRUE(m_threads.WaitForEnd());
  ExpectEverythingReleasedOnce();
}

TEST_F(Teardown, ThreadWithoutACallbackIsToldToStopAndNotWaitedFor) {
  Start(nullptr);
  Release();
  EXPECT_TRUE(m_threads.WaitForEnd());
  Steps byDestroyer = ByDestroyer();
  ASSERT_FALSE(byDestroyer.empty());
  EXPECT_EQ(byDestroyer.front(), "set stop");
  EXPECT_EQ(std::count(byDestroyer.begin(), byDestroyer.end(), "wait thread 1000"), 0);
  ExpectEverythingReleasedOnce();
}

// Whoever comes second frees: many times, since the two race.
TEST_F(Teardown, ThreadWithoutACallbackAndTheDestroyerFreeTheServiceOnce) {
  Start(nullptr);
  m_changes.OnRequest([&] {
    m_changes.OnRequest(nullptr);
    Forget();
  });
  // The thread is on its way out by itself while the service goes.
  m_changes.Script({{ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, false}});
  m_changes.Fire();
  Release();
  EXPECT_TRUE(m_threads.WaitForEnd());
  ExpectEverythingReleasedOnce();
}

TEST_F(Teardown, ReleaseOfOneOfSeveralReferencesDisturbsNobody) {
  Start();
  EXPECT_EQ(m_api->AddRef(), 2u);
  EXPECT_EQ(m_api->Release(), 1u);
  EXPECT_EQ(ByDestroyer(), Steps{});
  Join({kOffice});
  FireAddressChange();
  ExpectCallbackWith({L"A"});
  Release();
  ExpectEverythingReleasedOnce();
}

TEST_F(Teardown, EarlierRunsOfARestartedServiceAreNotTouched) {
  Start();
  EXPECT_TRUE(m_api->StopDiscovery());
  StartDiscovery(*m_api);
  Release();
  EXPECT_TRUE(m_threads.HasEnded());
  EXPECT_EQ(m_ledger.Leaks(), (Steps{"CreateEventW x2", "CreateThread x1"}));
  EXPECT_EQ(m_ledger.Mistakes(), Steps{});
}

}  // namespace

// What two threads do with a callback at once. Replaced calls decide where they meet, so that no test depends on who is
// faster.
#include "FwClient/Common/Utilities/HostCallback.h"

#include <windows.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Support/OtherThread.h"

namespace {

using Function = void (*)(void* context);
using Callback = HostCallback<Function>;

void Nothing(void*) {}

// A thread that is inside a call until it is let go.
class RunningCall {
 public:
  explicit RunningCall(Callback& callback)
      : m_thread([this, &callback] {
          callback.Run([this](const Callback::Target&) {
            ::SetEvent(m_begun);
            ::WaitForSingleObject(m_end, 10'000);
          });
        }) {
    EXPECT_EQ(::WaitForSingleObject(m_begun, 10'000), WAIT_OBJECT_0);
  }
  ~RunningCall() {
    End();
    m_thread.Join();
    ::CloseHandle(m_begun);
    ::CloseHandle(m_end);
  }
  RunningCall(const RunningCall&) = delete;
  RunningCall& operator=(const RunningCall&) = delete;

  void End() { ::SetEvent(m_end); }

 private:
  HANDLE m_begun = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE m_end = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  OtherThread m_thread;
};

// An earlier function runs on another thread. Time passes on this one only where a test says so, and its waits for a
// condition are noted.
class HostCallbackWait : public ::testing::Test {
 protected:
  HostCallbackWait() {
    s_self = this;
    m_callback.Set(&Nothing, nullptr);
    m_call.emplace(m_callback);
    m_callback.Set(&Nothing, nullptr);
  }

  std::vector<DWORD> m_sleeps;
  // What a wait for the condition does: it returns whether to wait in earnest, for what has been caused.
  std::function<bool()> m_onSleep;
  ULONGLONG m_passed = 0;
  Callback m_callback;
  std::optional<RunningCall> m_call;

 private:
  static ULONGLONG WINAPI Now() {
    return ::GetCurrentThreadId() == s_self->m_thread ? kBegin + s_self->m_passed
                                                      : s_self->m_clock.Original<ULONGLONG WINAPI()>()();
  }
  static BOOL WINAPI Sleep(CONDITION_VARIABLE* condition, CRITICAL_SECTION* section, DWORD ms) {
    const auto real = s_self->m_sleep.Original<BOOL WINAPI(CONDITION_VARIABLE*, CRITICAL_SECTION*, DWORD)>();
    if (::GetCurrentThreadId() != s_self->m_thread) return real(condition, section, ms);
    s_self->m_sleeps.push_back(ms);
    const bool holds = section->OwningThread == ::ULongToHandle(s_self->m_thread);
    EXPECT_TRUE(holds) << "a wait gives up a lock that its thread has";
    return s_self->m_onSleep() && holds ? real(condition, section, 10'000) : TRUE;
  }

  static constexpr ULONGLONG kBegin = 123'456'789;
  static inline HostCallbackWait* s_self;
  const DWORD m_thread = ::GetCurrentThreadId();
  ImportPatch m_clock{ThisProgram(), "GetTickCount64", &Now};
  ImportPatch m_sleep{ThisProgram(), "SleepConditionVariableCS", &Sleep};
};

TEST_F(HostCallbackWait, LastsUntilTheEarlierCallHasEnded) {
  m_onSleep = [this] {
    m_call->End();
    return true;
  };
  EXPECT_TRUE(m_callback.WaitForEarlier(1000));
  EXPECT_EQ(m_sleeps, std::vector<DWORD>{1000});
}

TEST_F(HostCallbackWait, EndsWithItsTimeHoweverOftenItIsWoken) {
  m_onSleep = [this] {
    m_passed += 400;
    return false;
  };
  EXPECT_FALSE(m_callback.WaitForEarlier(1000));
  EXPECT_EQ(m_sleeps, (std::vector<DWORD>{1000, 600, 200}));
}

TEST_F(HostCallbackWait, WithoutAnyTimeOnlyLooks) {
  m_onSleep = [this] {
    m_call->End();
    return true;
  };
  EXPECT_FALSE(m_callback.WaitForEarlier(0));
  EXPECT_EQ(m_sleeps, std::vector<DWORD>{});
}

TEST_F(HostCallbackWait, WithoutAnEndHasNone) {
  m_onSleep = [this] {
    m_passed += 100'000;
    if (m_sleeps.size() < 3) return false;
    m_call->End();
    return true;
  };
  EXPECT_TRUE(m_callback.WaitForEarlier(INFINITE));
  EXPECT_EQ(m_sleeps, (std::vector<DWORD>{INFINITE, INFINITE, INFINITE}));
}

// Enters a callback's lock and lets another thread set another function before it goes on.
class HostCallbackSet : public ::testing::Test {
 protected:
  HostCallbackSet() { s_self = this; }

  Callback m_callback;
  int m_first = 1;
  int m_second = 2;
  bool m_armed = false;
  std::function<void()> m_beforeTheLock;

 private:
  static void WINAPI Enter(CRITICAL_SECTION* section) {
    const auto real = s_self->m_enter.Original<void WINAPI(CRITICAL_SECTION*)>();
    if (::GetCurrentThreadId() != s_self->m_thread) {
      if (section == s_self->m_held) ::SetEvent(s_self->m_there);
      return real(section);
    }
    if (const auto act = std::exchange(s_self->m_beforeTheLock, nullptr)) act();
    real(section);
    if (!std::exchange(s_self->m_armed, false)) return;
    s_self->m_held = section;
    s_self->m_setter.emplace([self = s_self] {
      self->m_callback.Set(&Nothing, &self->m_second);
      ::SetEvent(self->m_there);
    });
    EXPECT_EQ(::WaitForSingleObject(s_self->m_there, 10'000), WAIT_OBJECT_0);
  }

  static inline HostCallbackSet* s_self;
  const DWORD m_thread = ::GetCurrentThreadId();
  std::atomic<CRITICAL_SECTION*> m_held = nullptr;
  HANDLE m_there = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);  // stands before the lock, or has passed
  ImportPatch m_enter{ThisProgram(), "EnterCriticalSection", &Enter};
  std::optional<OtherThread> m_setter;
};

TEST_F(HostCallbackSet, DoesNotChangeACallThatHasBegun) {
  m_callback.Set(&Nothing, &m_first);
  void* context = nullptr;
  m_armed = true;
  m_callback.Run([&](const Callback::Target& target) {
    EXPECT_FALSE(m_armed) << "it takes the lock first";
    context = target.context;
  });
  EXPECT_EQ(context, &m_first);
}

// Between the look that takes no lock and the one that decides.
TEST_F(HostCallbackSet, ToNoneIsSeenByACallThatIsAboutToBegin) {
  m_callback.Set(&Nothing, &m_first);
  bool called = false;
  m_beforeTheLock = [this] { m_callback.Set(nullptr, nullptr); };
  m_callback.Run([&](const Callback::Target&) { called = true; });
  EXPECT_FALSE(called);
}

}  // namespace

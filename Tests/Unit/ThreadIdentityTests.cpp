#include "FwClient/Common/Utilities/ThreadIdentity.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ScriptedWindows/Windows/FakeInteractiveUser.h"
#include "ScriptedWindows/Windows/WindowsScript.h"
#include "Tests/Support/OtherThread.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ThreadIdentity : public testing::Test {
 protected:
  ~ThreadIdentity() override {
    m_user.LetGo();
    EXPECT_TRUE(RestoreThreadIdentity());
    ::CloseHandle(m_token);
  }

  std::vector<std::string> Calls() const {
    return m_windows.Calls({"ImpersonateLoggedOnUser", "RevertToSelf", "SetThreadToken"});
  }
  void GetStuck() {
    m_user.KeepIdentity();
    ImpersonationGuard impersonation(m_token);
    EXPECT_TRUE(impersonation);
  }

  WindowsScript m_windows{ThisProgram()};
  FakeInteractiveUser m_user{m_windows};
  HANDLE m_token = m_windows.Open("token");
};

TEST_F(ThreadIdentity, IsTheThreadsOwnAgainAfterAnImpersonation) {
  EXPECT_TRUE(ThreadActsAsItself());
  {
    ImpersonationGuard impersonation(m_token);
    EXPECT_TRUE(impersonation);
    EXPECT_FALSE(ThreadActsAsItself());
  }
  EXPECT_TRUE(ThreadActsAsItself());
  EXPECT_THAT(Calls(), ElementsAre("ImpersonateLoggedOnUser(token)", "RevertToSelf()"));
}

TEST_F(ThreadIdentity, IsGivenBackOnce) {
  {
    ImpersonationGuard impersonation(m_token);
    EXPECT_TRUE(impersonation.Revert());
    EXPECT_FALSE(impersonation);
    EXPECT_FALSE(impersonation.Revert());
  }
  EXPECT_EQ(m_windows.Count("RevertToSelf"), 1u);
}

TEST_F(ThreadIdentity, StaysWhenTheUserCannotBeImpersonated) {
  m_windows.Fail("ImpersonateLoggedOnUser", ERROR_ACCESS_DENIED);
  const ImpersonationGuard impersonation(m_token);
  EXPECT_FALSE(impersonation);
  EXPECT_TRUE(ThreadActsAsItself());
  EXPECT_EQ(m_windows.Count("RevertToSelf"), 0u);
}

TEST_F(ThreadIdentity, IsTakenBackAtTheSecondTryWithoutClaimingTheFirst) {
  m_windows.Fail("RevertToSelf", ERROR_INTERNAL_ERROR);
  ImpersonationGuard impersonation(m_token);
  EXPECT_FALSE(impersonation.Revert());
  EXPECT_TRUE(ThreadActsAsItself());
  EXPECT_FALSE(m_user.impersonating);
  EXPECT_THAT(Calls(), ElementsAre("ImpersonateLoggedOnUser(token)", "RevertToSelf()", "RevertToSelf()"));
}

TEST_F(ThreadIdentity, IsTakenBackByTakingTheTokenAwayAfterTwoTries) {
  m_windows.FailAlways("RevertToSelf", ERROR_INTERNAL_ERROR);
  {
    const ImpersonationGuard impersonation(m_token);
  }
  EXPECT_TRUE(ThreadActsAsItself());
  EXPECT_FALSE(m_user.impersonating);
  EXPECT_THAT(Calls(), ElementsAre("ImpersonateLoggedOnUser(token)", "RevertToSelf()", "RevertToSelf()",
                                   "SetThreadToken(null)"));
}

TEST_F(ThreadIdentity, IsKnownToBeTheUsersWhenNothingHelps) {
  GetStuck();
  EXPECT_FALSE(ThreadActsAsItself());
  EXPECT_TRUE(m_user.impersonating);
  // Asking costs no call; only restoring tries again.
  EXPECT_EQ(Calls().size(), 4u);
  EXPECT_FALSE(RestoreThreadIdentity());
  EXPECT_FALSE(ThreadActsAsItself());
  EXPECT_EQ(Calls().size(), 7u);
}

TEST_F(ThreadIdentity, IsRestoredAsSoonAsOneOfTheWaysHelps) {
  GetStuck();
  m_windows.Heal("SetThreadToken");
  EXPECT_TRUE(RestoreThreadIdentity());
  EXPECT_TRUE(ThreadActsAsItself());
  GetStuck();
  m_windows.Heal("RevertToSelf");
  EXPECT_TRUE(RestoreThreadIdentity());
  EXPECT_TRUE(ThreadActsAsItself());
  EXPECT_FALSE(m_user.impersonating);
}

TEST_F(ThreadIdentity, IsNotTouchedWhereNothingHasFailed) {
  EXPECT_TRUE(RestoreThreadIdentity());
  EXPECT_THAT(Calls(), IsEmpty());
}

TEST_F(ThreadIdentity, IsNotTakenBackUnderAnImpersonationThatIsGoingOn) {
  ImpersonationGuard impersonation(m_token);
  EXPECT_FALSE(RestoreThreadIdentity());
  EXPECT_EQ(m_windows.Count("RevertToSelf"), 0u);
  {
    const ImpersonationGuard inner(m_token);
    EXPECT_FALSE(inner);
  }
  EXPECT_TRUE(m_user.impersonating);
  EXPECT_TRUE(impersonation.Revert());
}

TEST_F(ThreadIdentity, ThatIsTheUsersIsNotChangedForAnotherUsers) {
  GetStuck();
  const ImpersonationGuard impersonation(m_token);
  EXPECT_FALSE(impersonation);
  EXPECT_FALSE(ThreadActsAsItself());
  EXPECT_EQ(m_windows.Count("ImpersonateLoggedOnUser"), 1u);
}

TEST_F(ThreadIdentity, BelongsToOneThread) {
  GetStuck();
  bool itself = false;
  bool restored = false;
  OtherThread([&] {
    itself = ThreadActsAsItself();
    restored = RestoreThreadIdentity();
  }).Join();
  EXPECT_TRUE(itself);
  EXPECT_TRUE(restored);
  EXPECT_EQ(Calls().size(), 4u);
  EXPECT_FALSE(ThreadActsAsItself());
}

// Whoever cannot note that the thread is the user must not make it the user.
TEST_F(ThreadIdentity, IsNotGivenUpWithoutMemoryToNoteIt) {
  static const ImportPatch* s_set;
  const ImportPatch patch(
      ThisProgram(), "TlsSetValue", +[](DWORD slot, void* value) WINAPI -> BOOL {
        // What the runtime keeps is an address.
        if (reinterpret_cast<std::uintptr_t>(value) - 1 < 16) return FALSE;
        return s_set->Original<BOOL WINAPI(DWORD, void*)>()(slot, value);
      });
  s_set = &patch;
  const ImpersonationGuard impersonation(m_token);
  EXPECT_FALSE(impersonation);
  EXPECT_THAT(Calls(), IsEmpty());
}

}  // namespace

#include "FwClient/Common/Utilities/ScopeGuards.h"

#include <gtest/gtest.h>

#include "FwClient/Common/Utilities/CriticalSection.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Support/OtherThread.h"

namespace {

bool OtherThreadCanEnter(CRITICAL_SECTION& section) {
  bool entered = false;
  OtherThread other([&] {
    entered = ::TryEnterCriticalSection(&section) != FALSE;
    if (entered) ::LeaveCriticalSection(&section);
  });
  other.Join();
  return entered;
}

TEST(ScopeGuards, HoldASlimLockToTheEndOfTheScope) {
  SRWLOCK lock = SRWLOCK_INIT;
  {
    const SlimLockGuard guard(lock);
    EXPECT_FALSE(::TryAcquireSRWLockExclusive(&lock));
  }
  ASSERT_TRUE(::TryAcquireSRWLockExclusive(&lock));
  ::ReleaseSRWLockExclusive(&lock);
}

TEST(ScopeGuards, HoldACriticalSectionToTheEndOfTheScope) {
  CriticalSection section;
  {
    const CriticalSectionGuard guard(*section.get());
    EXPECT_FALSE(OtherThreadCanEnter(*section.get()));
  }
  EXPECT_TRUE(OtherThreadCanEnter(*section.get()));
}

TEST(CriticalSections, AreDeletedOnceAtTheEnd) {
  static int deleted;
  deleted = 0;
  static void(WINAPI * original)(CRITICAL_SECTION*);
  const ImportPatch patch(
      ThisProgram(), "DeleteCriticalSection", +[](CRITICAL_SECTION* section) {
        ++deleted;
        original(section);
      });
  original = patch.Original<void WINAPI(CRITICAL_SECTION*)>();
  {
    const CriticalSection section;
  }
  EXPECT_EQ(deleted, 1);
}

}  // namespace

// Whom the calling thread acts as. A thread that was to act as another user for a moment and cannot become itself again
// must do nothing else with that user's identity.
#pragma once

#include <winsock2.h>
#include <windows.h>

// Lets the calling thread act as the user of a token until Revert or the end of the scope. Used on one thread.
class ImpersonationGuard {
 public:
  // Does nothing on a thread that acts as a user already.
  explicit ImpersonationGuard(HANDLE token) noexcept;
  ~ImpersonationGuard() { Revert(); }
  ImpersonationGuard(const ImpersonationGuard&) = delete;
  ImpersonationGuard& operator=(const ImpersonationGuard&) = delete;

  // Whether the thread acts as the user.
  explicit operator bool() const noexcept { return m_active; }

  // Ends it. True when Windows did so at the first call. Otherwise the call is made once more, then the thread's token
  // is taken away; whether that helped is what ThreadActsAsItself tells.
  bool Revert() noexcept;

 private:
  bool m_active = false;
};

// False while an ImpersonationGuard of this thread is active, and after one that could not be ended. A host that
// impersonates somebody by itself is not known here, and none of our business. Costs a few instructions.
bool ThreadActsAsItself() noexcept;

// Where an earlier guard could not be ended: tries again. What ThreadActsAsItself says afterwards. An active guard is
// left alone: its owner ends it.
bool RestoreThreadIdentity() noexcept;

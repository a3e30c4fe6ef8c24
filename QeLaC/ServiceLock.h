// The lock that the library takes, with a limit to the wait for it.
#pragma once

#include <winsock2.h>
#include <windows.h>

// A Win32 critical section, since the library takes no other lock, and such a section cannot be waited for with a
// limit. So it is tried again and again, at intervals that grow from 1 to 16 ms.
class ServiceLock {
 public:
  explicit ServiceLock(CRITICAL_SECTION& section) noexcept : m_section(section) {}

  // False when it is still taken after `timeoutMs`.
  bool Enter(DWORD timeoutMs) noexcept;
  // False when the event is signalled before.
  bool EnterUnless(HANDLE stop) noexcept;
  void Leave() noexcept { ::LeaveCriticalSection(&m_section); }

  // The host's own entering and leaving. False when this thread has not entered so.
  bool EnterForHost(DWORD timeoutMs) noexcept;
  bool LeaveForHost() noexcept;

  // By this thread.
  bool IsHeldHere() const noexcept;

 private:
  CRITICAL_SECTION& m_section;
  unsigned m_hostDepth = 0;  // changes inside the section
};

// Holds the lock, or does not.
class ServiceLockGuard {
 public:
  ServiceLockGuard(ServiceLock& lock, bool entered) noexcept : m_lock(lock), m_entered(entered) {}
  ~ServiceLockGuard() {
    if (m_entered) m_lock.Leave();
  }
  ServiceLockGuard(const ServiceLockGuard&) = delete;
  ServiceLockGuard& operator=(const ServiceLockGuard&) = delete;

  bool Entered() const noexcept { return m_entered; }

 private:
  ServiceLock& m_lock;
  bool m_entered;
};

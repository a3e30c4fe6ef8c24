// Guards that undo something at the end of a scope, exceptions included.
#pragma once

#include <winsock2.h>
#include <windows.h>

// Holds a critical section.
class CriticalSectionGuard {
 public:
  explicit CriticalSectionGuard(CRITICAL_SECTION& section) noexcept : m_section(section) {
    ::EnterCriticalSection(&m_section);
  }
  ~CriticalSectionGuard() { ::LeaveCriticalSection(&m_section); }
  CriticalSectionGuard(const CriticalSectionGuard&) = delete;
  CriticalSectionGuard& operator=(const CriticalSectionGuard&) = delete;

 private:
  CRITICAL_SECTION& m_section;
};

// Holds a slim lock for itself alone. Such a lock needs no memory, and is not recursive.
class SlimLockGuard {
 public:
  explicit SlimLockGuard(SRWLOCK& lock) noexcept : m_lock(lock) { ::AcquireSRWLockExclusive(&m_lock); }
  ~SlimLockGuard() { ::ReleaseSRWLockExclusive(&m_lock); }
  SlimLockGuard(const SlimLockGuard&) = delete;
  SlimLockGuard& operator=(const SlimLockGuard&) = delete;

 private:
  SRWLOCK& m_lock;
};

// Starts Winsock (version 2.2) and cleans up when it had started. WSAStartup counts, so guards may nest.
class WinsockGuard {
 public:
  WinsockGuard() noexcept {
    WSADATA data{};
    m_result = ::WSAStartup(MAKEWORD(2, 2), &data);
  }
  ~WinsockGuard() {
    if (m_result == 0) ::WSACleanup();
  }
  WinsockGuard(const WinsockGuard&) = delete;
  WinsockGuard& operator=(const WinsockGuard&) = delete;

  // What WSAStartup returned: 0, or a Winsock error code.
  int Result() const noexcept { return m_result; }

 private:
  int m_result;
};

#pragma once

#include <windows.h>

// A lock for the standard guards and for spdlog's sinks. A critical section, not std::mutex: when the process ends,
// Windows kills the other threads, and a lock that one of them held must not hang the last one that logs.
class CriticalSection {
 public:
  CriticalSection() noexcept { ::InitializeCriticalSection(&m_section); }
  ~CriticalSection() { ::DeleteCriticalSection(&m_section); }
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void lock() noexcept { ::EnterCriticalSection(&m_section); }
  void unlock() noexcept { ::LeaveCriticalSection(&m_section); }
  CRITICAL_SECTION* get() noexcept { return &m_section; }

 private:
  CRITICAL_SECTION m_section;
};

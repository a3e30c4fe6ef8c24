// A lock for replacements.
#pragma once

#include <winsock2.h>
#include <windows.h>

// The runtime's mutexes are made of events and waits, which may be replaced in the table that the runtime shares; this
// one is not. Its holder may take it again.
class PlainLock {
 public:
  PlainLock() { ::InitializeCriticalSection(&m_section); }
  ~PlainLock() { ::DeleteCriticalSection(&m_section); }
  PlainLock(const PlainLock&) = delete;
  PlainLock& operator=(const PlainLock&) = delete;

  void lock() { ::EnterCriticalSection(&m_section); }
  void unlock() { ::LeaveCriticalSection(&m_section); }

 private:
  CRITICAL_SECTION m_section;
};

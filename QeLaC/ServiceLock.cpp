#include "QeLaC/ServiceLock.h"

#include <algorithm>

namespace {

constexpr DWORD kLongestPauseMs = 16;

}  // namespace

bool ServiceLock::Enter(DWORD timeoutMs) noexcept {
  if (timeoutMs == INFINITE) {
    ::EnterCriticalSection(&m_section);
    return true;
  }
  const ULONGLONG start = ::GetTickCount64();
  for (DWORD pauseMs = 1; !::TryEnterCriticalSection(&m_section); pauseMs = std::min(pauseMs * 2, kLongestPauseMs)) {
    const ULONGLONG waited = ::GetTickCount64() - start;
    if (waited >= timeoutMs) return false;
    ::Sleep(std::min(pauseMs, timeoutMs - static_cast<DWORD>(waited)));
  }
  return true;
}

bool ServiceLock::EnterUnless(HANDLE stop) noexcept {
  for (DWORD pauseMs = 1; !::TryEnterCriticalSection(&m_section); pauseMs = std::min(pauseMs * 2, kLongestPauseMs)) {
    const DWORD waited = ::WaitForSingleObject(stop, pauseMs);
    if (waited == WAIT_OBJECT_0) return false;
    if (waited != WAIT_TIMEOUT) ::Sleep(pauseMs);  // a wait that failed is no stop: who gave up would tell nobody
  }
  return true;
}

bool ServiceLock::EnterForHost(DWORD timeoutMs) noexcept {
  if (!Enter(timeoutMs)) return false;
  ++m_hostDepth;
  return true;
}

bool ServiceLock::LeaveForHost() noexcept {
  if (!IsHeldHere() || m_hostDepth == 0) return false;
  --m_hostDepth;
  Leave();
  return true;
}

// The one field of a critical section that every thread may read: it is this thread's number only if this thread wrote
// it.
bool ServiceLock::IsHeldHere() const noexcept {
  HANDLE owner = static_cast<HANDLE volatile&>(m_section.OwningThread);
  return static_cast<DWORD>(reinterpret_cast<ULONG_PTR>(owner)) == ::GetCurrentThreadId();
}

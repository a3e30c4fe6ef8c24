#include "ScriptedWindows/Windows/WaitWatch.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "ScriptedWindows/ImportTable/HeapWatch.h"

WaitWatch::WaitWatch(HMODULE module) : m_patch(module, "WaitForMultipleObjects", &WaitForMultiple) {}

std::size_t WaitWatch::Count() const {
  const std::lock_guard lock(m_mutex);
  return m_waits.size();
}

std::vector<WaitWatch::Wait> WaitWatch::Waits() const {
  const std::lock_guard lock(m_mutex);
  return m_waits;
}

bool WaitWatch::WaitForCount(std::size_t count) const {
  std::unique_lock lock(m_mutex);
  return m_begun.wait_for(lock, std::chrono::seconds(10), [&] { return m_waits.size() >= count; });
}

bool WaitWatch::WaitForEndlessWait() const {
  std::unique_lock lock(m_mutex);
  return m_begun.wait_for(lock, std::chrono::seconds(10),
                          [&] { return !m_waits.empty() && m_waits.back().ms == INFINITE; });
}

void WaitWatch::OnWait(std::function<void()> hook) {
  const std::lock_guard lock(m_mutex);
  m_hook = std::move(hook);
}

void WaitWatch::CutBoundedWaitsShort(DWORD longestMs) {
  const std::lock_guard lock(m_mutex);
  m_longestMs = longestMs;
}

void WaitWatch::Answer(std::size_t times, DWORD result, DWORD error) {
  const std::lock_guard lock(m_mutex);
  m_answers = times;
  m_result = result;
  m_error = error;
}

DWORD WINAPI WaitWatch::WaitForMultiple(DWORD count, const HANDLE* handles, BOOL all, DWORD ms) {
  WaitWatch& self = Current();
  std::function<void()> hook;
  {
    const HeapWatch::Pause pause;
    const std::lock_guard lock(self.m_mutex);
    self.m_waits.push_back({{handles, handles + count}, all, ms});
    self.m_begun.notify_all();
    hook = self.m_hook;
  }
  if (hook) hook();
  {
    const std::lock_guard lock(self.m_mutex);
    if (self.m_answers > 0) {
      --self.m_answers;
      ::SetLastError(self.m_error);
      return self.m_result;
    }
    if (ms != INFINITE) ms = std::min(ms, self.m_longestMs);
  }
  return self.m_patch.Original<DWORD WINAPI(DWORD, const HANDLE*, BOOL, DWORD)>()(count, handles, all, ms);
}

#include "HostSink.h"

#include <algorithm>
#include <mutex>

void HostSink::Set(LogUtils::LogSink sink, void* context) noexcept {
  const std::lock_guard lock(m_lock);
  m_sink = sink;
  m_context = context;
  ++m_generation;
  // A sink that replaces itself would wait for its own end, so its own thread does not count.
  while (OthersRunEarlierSink(::GetCurrentThreadId())) ::SleepConditionVariableCS(&m_finished, m_lock.get(), INFINITE);
}

void HostSink::Write(const LogUtils::LogRecord& record) {
  if (m_sink == nullptr) return;  // the usual case takes no lock
  const DWORD thread = ::GetCurrentThreadId();
  LogUtils::LogSink sink = nullptr;
  void* context = nullptr;
  {
    const std::lock_guard lock(m_lock);
    if (m_sink == nullptr) return;
    // What a sink logs itself does not come back to it: it could never end.
    if (std::any_of(m_calls.begin(), m_calls.end(), [&](const Call& call) { return call.thread == thread; })) return;
    m_calls.push_back({thread, m_generation});
    sink = m_sink;
    context = m_context;
  }
  try {
    sink(record, context);
  } catch (...) {
    Finish(thread);
    throw;
  }
  Finish(thread);
}

bool HostSink::OthersRunEarlierSink(DWORD thread) const noexcept {
  return std::any_of(m_calls.begin(), m_calls.end(),
                     [&](const Call& call) { return call.thread != thread && call.generation != m_generation; });
}

void HostSink::Finish(DWORD thread) noexcept {
  const std::lock_guard lock(m_lock);
  std::erase_if(m_calls, [&](const Call& call) { return call.thread == thread; });
  ::WakeAllConditionVariable(&m_finished);
}

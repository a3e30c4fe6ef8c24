#pragma once

#include <LogLibHost.h>

#include <atomic>
#include <cstdint>
#include <vector>

#include "CriticalSection.h"

// The host's own receiver of events, which may be replaced while other threads call it.
class HostSink {
 public:
  // Returns when no other thread runs the earlier sink any more.
  void Set(LogUtils::LogSink sink, void* context) noexcept;

  // Hands the event to the sink, outside every lock, unless this thread is inside a sink already.
  void Write(const LogUtils::LogRecord& record);

 private:
  struct Call {
    DWORD thread;
    std::uint64_t generation;  // of the sink that is called
  };
  bool OthersRunEarlierSink(DWORD thread) const noexcept;
  void Finish(DWORD thread) noexcept;

  CriticalSection m_lock;
  CONDITION_VARIABLE m_finished = CONDITION_VARIABLE_INIT;
  std::atomic<LogUtils::LogSink> m_sink = nullptr;  // changes inside m_lock
  void* m_context = nullptr;
  std::uint64_t m_generation = 0;
  std::vector<Call> m_calls;
};

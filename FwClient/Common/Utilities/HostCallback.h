// A function of the host's with its context, which may be replaced while other threads call it.
#pragma once

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "FwClient/Common/Utilities/CriticalSection.h"

template <typename Function>
class HostCallback {
 public:
  // What a thread runs: `generation` tells one setting from the next.
  struct Target {
    Function function;
    void* context;
    std::uint64_t generation;
  };

  void Set(Function function, void* context) noexcept {
    const std::lock_guard lock(m_lock);
    m_function = function;
    m_context = context;
    ++m_generation;
  }

  // Waits until no other thread runs an earlier function, and returns false when that takes longer than `waitMs`. On
  // this thread one may be running: a function may replace itself.
  bool WaitForEarlier(DWORD waitMs) noexcept {
    const std::lock_guard lock(m_lock);
    const ULONGLONG start = ::GetTickCount64();
    while (OthersRunEarlier(::GetCurrentThreadId())) {
      const ULONGLONG waited = ::GetTickCount64() - start;
      if (waitMs != INFINITE && waited >= waitMs) return false;
      ::SleepConditionVariableCS(&m_finished, m_lock.get(),
                                 waitMs == INFINITE ? INFINITE : waitMs - static_cast<DWORD>(waited));
    }
    return true;
  }

  // Runs `call` with the target, outside every lock, unless there is none or this thread is inside a call already: what
  // a function causes itself does not come back to it, as it could never end.
  template <typename Call>
  void Run(Call call) {
    if (m_function == nullptr) return;  // the usual case takes no lock
    const DWORD thread = ::GetCurrentThreadId();
    Target target{};
    {
      const std::lock_guard lock(m_lock);
      if (m_function == nullptr) return;
      if (std::any_of(m_calls.begin(), m_calls.end(), [&](const Running& one) { return one.thread == thread; })) return;
      m_calls.push_back({thread, m_generation});
      target = {m_function, m_context, m_generation};
    }
    const Finish finish{*this, thread};
    call(target);
  }

  // 0 until the first Set.
  std::uint64_t Generation() noexcept {
    const std::lock_guard lock(m_lock);
    return m_generation;
  }

 private:
  struct Running {
    DWORD thread;
    std::uint64_t generation;
  };
  // Ends a call, exceptions included.
  struct Finish {
    HostCallback& callback;
    DWORD thread;
    ~Finish() {
      const std::lock_guard lock(callback.m_lock);
      std::erase_if(callback.m_calls, [&](const Running& one) { return one.thread == thread; });
      ::WakeAllConditionVariable(&callback.m_finished);
    }
  };

  bool OthersRunEarlier(DWORD thread) const noexcept {
    return std::any_of(m_calls.begin(), m_calls.end(),
                       [&](const Running& one) { return one.thread != thread && one.generation != m_generation; });
  }

  CriticalSection m_lock;
  CONDITION_VARIABLE m_finished = CONDITION_VARIABLE_INIT;
  std::atomic<Function> m_function = nullptr;  // changes inside m_lock
  void* m_context = nullptr;
  std::uint64_t m_generation = 0;
  std::vector<Running> m_calls;
};

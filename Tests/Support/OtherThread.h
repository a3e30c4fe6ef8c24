// A second thread of a test. Futures are not used for it: they do not link under the second compiler.
#pragma once

#include <windows.h>

#include <functional>
#include <thread>
#include <utility>

// Runs `act` on a thread of its own; waits for its end at the latest when it goes out of scope.
class OtherThread {
 public:
  explicit OtherThread(std::function<void()> act)
      : m_thread([this, act = std::move(act)] {
          act();
          ::SetEvent(m_ended);
        }) {}
  ~OtherThread() {
    Join();
    ::CloseHandle(m_ended);
  }
  OtherThread(const OtherThread&) = delete;
  OtherThread& operator=(const OtherThread&) = delete;

  void Join() {
    if (m_thread.joinable()) m_thread.join();
  }
  // False when `act` takes over 10 seconds, or as long as is said.
  bool HasEnded(DWORD mostMs = 10'000) const { return ::WaitForSingleObject(m_ended, mostMs) == WAIT_OBJECT_0; }

 private:
  HANDLE m_ended = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::thread m_thread;
};

// Records the log events of the process, and tells the form that all of the library share.
#pragma once

#include <gmock/gmock.h>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

struct LoggedEvent {
  std::string file;
  int line;
  int severity;
  std::string source;
  std::string component;
  std::wstring text;
};

// While it lives. One at a time.
class LogRecorder {
 public:
  LogRecorder();
  ~LogRecorder();
  LogRecorder(const LogRecorder&) = delete;
  LogRecorder& operator=(const LogRecorder&) = delete;

  std::vector<LoggedEvent> Events() const;

  // The texts in order, all of them or those of one severity.
  std::vector<std::wstring> Texts() const;
  std::vector<std::wstring> Texts(int severity) const;

  std::size_t Count(const std::wstring& text) const;
  void Clear();

  // Called for each event from inside the sink, on the thread that logs, when the event has been noted and without any
  // lock of this object's.
  void OnEvent(std::function<void(const LoggedEvent&)> hook);

  // Waits until `text` has been logged `times` times since the last Clear. False when that takes over 10 seconds.
  bool WaitFor(const std::wstring& text, std::size_t times = 1) const;

 private:
  mutable std::mutex m_mutex;
  mutable std::condition_variable m_changed;
  std::vector<LoggedEvent> m_events;
  std::function<void(const LoggedEvent&)> m_hook;
};

// Fails the test unless the event came from that place, at that severity, in the firewall's name.
void ExpectFirewallEvent(const LoggedEvent& event, int severity, const testing::Matcher<std::string>& file);

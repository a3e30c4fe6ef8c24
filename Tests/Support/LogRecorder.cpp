#include "Tests/Support/LogRecorder.h"

#include <LogLibHost.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "ScriptedWindows/ImportTable/HeapWatch.h"

namespace {

// All lines of the firewall are for information, but for these. Looked at wherever a test records.
int SeverityOf(const std::wstring& text) {
  return text.starts_with(L"QeLaLib failed to init COM") || text.starts_with(L"NtDllExports - ") ? 3 : 8;
}

}  // namespace

LogRecorder::LogRecorder() {
  LogUtils::setConsoleLogging(false);
  LogUtils::setLogSink(
      [](const LogUtils::LogRecord& record, void* context) {
        const HeapWatch::Pause pause;
        auto& self = *static_cast<LogRecorder*>(context);
        const LoggedEvent event{record.file,   record.line,      record.severity,
                                record.source, record.component, record.text};
        if (event.source == "FirewallBL") {
          EXPECT_EQ(event.severity, SeverityOf(event.text)) << event.file;
        }
        std::function<void(const LoggedEvent&)> hook;
        {
          const std::lock_guard lock(self.m_mutex);
          self.m_events.push_back(event);
          self.m_changed.notify_all();
          hook = self.m_hook;
        }
        if (hook) hook(event);
      },
      this);
}

LogRecorder::~LogRecorder() {
  LogUtils::setLogSink(nullptr, nullptr);
  LogUtils::setConsoleLogging(true);
}

std::vector<LoggedEvent> LogRecorder::Events() const {
  const std::lock_guard lock(m_mutex);
  return m_events;
}

std::vector<std::wstring> LogRecorder::Texts() const {
  const std::lock_guard lock(m_mutex);
  std::vector<std::wstring> texts;
  for (const LoggedEvent& event : m_events) texts.push_back(event.text);
  return texts;
}

std::vector<std::wstring> LogRecorder::Texts(int severity) const {
  const std::lock_guard lock(m_mutex);
  std::vector<std::wstring> texts;
  for (const LoggedEvent& event : m_events)
    if (event.severity == severity) texts.push_back(event.text);
  return texts;
}

std::size_t LogRecorder::Count(const std::wstring& text) const {
  const std::lock_guard lock(m_mutex);
  return static_cast<std::size_t>(
      std::count_if(m_events.begin(), m_events.end(), [&](const LoggedEvent& event) { return event.text == text; }));
}

void LogRecorder::Clear() {
  const std::lock_guard lock(m_mutex);
  m_events.clear();
}

void LogRecorder::OnEvent(std::function<void(const LoggedEvent&)> hook) {
  const std::lock_guard lock(m_mutex);
  m_hook = std::move(hook);
}

bool LogRecorder::WaitFor(const std::wstring& text, std::size_t times) const {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, std::chrono::seconds(10), [&] {
    return static_cast<std::size_t>(std::count_if(m_events.begin(), m_events.end(), [&](const LoggedEvent& event) {
             return event.text == text;
           })) >= times;
  });
}

void ExpectFirewallEvent(const LoggedEvent& event, int severity, const testing::Matcher<std::string>& file) {
  EXPECT_THAT(event.file, file);
  EXPECT_GT(event.line, 0);
  EXPECT_EQ(event.severity, severity);
  EXPECT_EQ(event.source, "FirewallBL");
  EXPECT_EQ(event.component, "FIREWALL");
}

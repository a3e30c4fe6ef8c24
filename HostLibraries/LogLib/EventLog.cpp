#include "EventLog.h"

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <new>
#include <vector>

#include "EventLine.h"

namespace {

INIT_ONCE g_once = INIT_ONCE_STATIC_INIT;
std::unique_ptr<EventLog> g_log;

// Empty when the variable is not set.
std::wstring LogFilePath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length = ::GetEnvironmentVariableW(L"LOGLIB_FILE", path.data(), static_cast<DWORD>(path.size()));
    const bool fits = length < path.size();
    path.resize(length);
    if (fits) return path;
  }
}

// The fields of an event are rendered before spdlog sees it; this puts the local time with its offset in front of them.
// All of the time but the milliseconds is made once a second.
class LineFormatter final : public spdlog::formatter {
 public:
  void format(const spdlog::details::log_msg& message, spdlog::memory_buf_t& line) override {
    const auto second = std::chrono::floor<std::chrono::seconds>(message.time);
    if (second != m_second) {
      m_time.clear();
      m_pattern.format(message, m_time);
      m_milliseconds = std::find(m_time.begin(), m_time.end(), '.') + 1;
      m_second = second;
    }
    auto number = std::chrono::floor<std::chrono::milliseconds>(message.time - second).count();
    for (char* digit = m_milliseconds + 2; digit >= m_milliseconds; --digit, number /= 10)
      *digit = static_cast<char>('0' + number % 10);
    line.append(m_time);
    spdlog::details::fmt_helper::append_string_view(message.payload, line);
  }
  std::unique_ptr<spdlog::formatter> clone() const override { return std::make_unique<LineFormatter>(); }

 private:
  spdlog::pattern_formatter m_pattern{"%Y-%m-%dT%H:%M:%S.%e%z\t", spdlog::pattern_time_type::local, ""};
  spdlog::memory_buf_t m_time;
  char* m_milliseconds = nullptr;  // their three digits in it
  std::chrono::sys_seconds m_second = std::chrono::sys_seconds::min();
};

}  // namespace

// A function-local static would do the same, but its guard belongs to the thread library that is linked into this one,
// and that forgets about 1 KB each time this library is unloaded.
EventLog& EventLog::Instance() {
  const auto make = [](PINIT_ONCE, PVOID, PVOID*) noexcept -> BOOL {
    try {
      g_log.reset(new EventLog);
      return TRUE;
    } catch (...) {
      return FALSE;  // out of memory; the next use tries again
    }
  };
  if (!::InitOnceExecuteOnce(&g_once, make, nullptr, nullptr)) throw std::bad_alloc();
  return *g_log;
}

EventLog::EventLog() : m_console(std::make_shared<ConsoleSink>()) {
  std::vector<spdlog::sink_ptr> sinks{m_console};
  if (const std::wstring path = LogFilePath(); !path.empty()) sinks.push_back(std::make_shared<FileSink>(path));
  m_logger = std::make_unique<spdlog::logger>("LogLib", sinks.begin(), sinks.end());
  m_logger->set_level(spdlog::level::trace);
  m_logger->set_formatter(std::make_unique<LineFormatter>());
  // Our sinks report their own failures, once; what is left is running out of memory.
  m_logger->set_error_handler([](const std::string&) {});
}

void EventLog::Write(const LogUtils::LogRecord& record, std::wstring_view text) {
  // Rendering costs more than anything else here, so it waits for somebody who reads it.
  const auto& sinks = m_logger->sinks();
  if (std::any_of(sinks.begin(), sinks.end(), [](const auto& sink) { return sink->level() != spdlog::level::off; })) {
    spdlog::memory_buf_t line;
    RenderEventLine(record, text, line);
    line.push_back('\n');
    m_logger->log(spdlog::level::info, spdlog::string_view_t(line.data(), line.size()));
  }
  m_sink.Run([&](const auto& target) { target.function(record, target.context); });
  if (record.severity > m_callbackLevel) return;
  m_callback.Run([&](const auto& target) {
    const qela_log_record copy{.size = sizeof copy,
                               .severity = record.severity,
                               .line = record.line,
                               .reserved = 0,
                               .file = record.file,
                               .source = record.source,
                               .component = record.component,
                               .text = record.text};
    target.function(&copy, target.context);
  });
}

void EventLog::SetCallback(qela_log_callback callback, void* context, qela_log_level level) {
  {
    const std::lock_guard lock(m_settings);
    m_callback.Set(callback, context);
    m_callbackLevel = level;
    m_hasCallback = callback != nullptr;
    UpdateConsole();
  }
  m_callback.WaitForEarlier(INFINITE);
}

void EventLog::EnableConsole(bool enabled) {
  const std::lock_guard lock(m_settings);
  m_consoleEnabled = enabled;
  UpdateConsole();
}

void EventLog::UpdateConsole() {
  m_console->set_level(m_consoleEnabled && !m_hasCallback ? spdlog::level::trace : spdlog::level::off);
}

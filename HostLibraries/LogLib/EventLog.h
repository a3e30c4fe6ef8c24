#pragma once

#include <LogLibCallback.h>
#include <LogLibHost.h>

#include <atomic>
#include <memory>
#include <string_view>

#include "FwClient/Common/Utilities/HostCallback.h"
#include "OutputSinks.h"

// The process's log: events go through spdlog to the console and the file, and as they are to the host's sink and to
// its callback, which takes the console's place.
class EventLog {
 public:
  // Made by the first use, not when the library is loaded, so that a host can set LOGLIB_FILE before.
  static EventLog& Instance();

  // `text` is the record's.
  void Write(const LogUtils::LogRecord& record, std::wstring_view text);
  void SetSink(LogUtils::LogSink sink, void* context) noexcept {
    m_sink.Set(sink, context);
    m_sink.WaitForEarlier(INFINITE);
  }
  void SetCallback(qela_log_callback callback, void* context, qela_log_level level);
  void EnableConsole(bool enabled);

 private:
  EventLog();

  void UpdateConsole();

  CriticalSection m_settings;  // for the next two
  bool m_consoleEnabled = true;
  bool m_hasCallback = false;
  std::shared_ptr<ConsoleSink> m_console;
  std::unique_ptr<spdlog::logger> m_logger;
  HostCallback<LogUtils::LogSink> m_sink;
  HostCallback<qela_log_callback> m_callback;
  std::atomic<int> m_callbackLevel = QELA_LOG_ALL;
};

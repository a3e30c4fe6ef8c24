#pragma once

#include <LogLibHost.h>

#include <memory>
#include <string_view>

#include "FwClient/Common/Utilities/HostCallback.h"
#include "OutputSinks.h"

// The process's log: events go through spdlog to the console and the file, and as they are to the host's sink.
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
  void EnableConsole(bool enabled);

 private:
  EventLog();

  std::shared_ptr<ConsoleSink> m_console;
  std::unique_ptr<spdlog::logger> m_logger;
  HostCallback<LogUtils::LogSink> m_sink;
};

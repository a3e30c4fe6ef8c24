#include <LogLib.h>
#include <LogLibCallback.h>
#include <LogLibHost.h>

#include <cstdarg>

#include "EventLog.h"
#include "EventText.h"

namespace LogUtils {

namespace {

// Gives the record its text and writes it. Catches everything, which is running out of memory: an event is then lost,
// but its caller goes on.
template <typename Character>
void Write(LogRecord record, const Character* format, va_list arguments) noexcept {
  try {
    const EventText text(format, arguments);
    record.text = text.Get().data();
    EventLog::Instance().Write(record, text.Get());
  } catch (...) {
  }
}

}  // namespace

// The library only hands the manager back, so an empty object will do.
class LogManager {};

LogEvent::LogEvent(const char* file, int line, int severity, const char* source, LogManager* manager, int, int) noexcept
    : m_file(file), m_line(line), m_severity(severity), m_source(source), m_manager(manager) {}

void LogEvent::operator()(const char* component, const wchar_t* format, ...) const noexcept {
  va_list arguments;
  va_start(arguments, format);
  Write({m_file, m_line, m_severity, m_source, component, nullptr}, format, arguments);
  va_end(arguments);
}

void LogEvent::operator()(const char* component, const char* format, ...) const noexcept {
  va_list arguments;
  va_start(arguments, format);
  Write({m_file, m_line, m_severity, m_source, component, nullptr}, format, arguments);
  va_end(arguments);
}

void setLogSink(LogSink sink, void* context) noexcept {
  try {
    EventLog::Instance().SetSink(sink, context);
  } catch (...) {
  }
}

void setConsoleLogging(bool enabled) noexcept {
  try {
    EventLog::Instance().EnableConsole(enabled);
  } catch (...) {
  }
}

}  // namespace LogUtils

qela_status QELA_CALL LogLibSetCallback(qela_log_callback callback, void* context, qela_log_level level) {
  try {
    EventLog::Instance().SetCallback(callback, context, level);
    return QELA_STATUS_OK;
  } catch (...) {
    return QELA_STATUS_OUT_OF_MEMORY;
  }
}

LogUtils::LogManager* getLogManager() noexcept {
  static LogUtils::LogManager manager;
  return &manager;
}

#include <LogLib.h>
#include <LogLibHost.h>

#include <cstdarg>
#include <cstdio>

namespace LogUtils {
LogEvent::LogEvent(const char* file, int line, int severity, const char* source, LogManager* manager, int, int) noexcept
    : m_file(file), m_line(line), m_severity(severity), m_source(source), m_manager(manager) {}
static LogSink g_sink;
static void* g_context;
void LogEvent::operator()(const char* component, const wchar_t* format, ...) const noexcept {
  wchar_t text[4096] = {};
  va_list args;
  va_start(args, format);
  _vsnwprintf(text, 4095, format, args);
  va_end(args);
  if (g_sink) g_sink({m_file, m_line, m_severity, m_source, component, text}, g_context);
}
void LogEvent::operator()(const char* component, const char* format, ...) const noexcept {
  char text[4096] = {};
  va_list args;
  va_start(args, format);
  _vsnprintf(text, 4095, format, args);
  va_end(args);
  wchar_t wide[4096] = {};
  for (int i = 0; text[i]; ++i) wide[i] = static_cast<unsigned char>(text[i]);
  if (g_sink) g_sink({m_file, m_line, m_severity, m_source, component, wide}, g_context);
}
void setLogSink(LogSink sink, void* context) noexcept {
  g_context = context;
  g_sink = sink;
}
void setConsoleLogging(bool) noexcept {}
}  // namespace LogUtils
LogUtils::LogManager* getLogManager() noexcept { return reinterpret_cast<LogUtils::LogManager*>(1); }

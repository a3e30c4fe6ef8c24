// Stand-in for the host product's logging library: the calls that the firewall client makes, and no more.
#pragma once

#if defined(LOGLIB_BUILDING)
#define LOGLIB_API __declspec(dllexport)
#else
#define LOGLIB_API __declspec(dllimport)
#endif

namespace LogUtils {

class LogManager;

// One log event. It is built where the event happens and called once with its text. The two trailing constants are
// the product's; the stand-in takes and ignores them. The texts given to the constructor must outlive the event.
class LOGLIB_API LogEvent {
 public:
  LogEvent(const char* file, int line, int severity, const char* source, LogManager* manager, int, int) noexcept;

  // printf-style, with the Windows meaning of %s and %S: in a wide format %s takes wide text, in a narrow format %s
  // takes narrow and %S wide text. Never throws; an event that cannot be formatted or written in full is cut.
  void operator()(const char* component, const wchar_t* format, ...) const noexcept;
  void operator()(const char* component, const char* format, ...) const noexcept;

 private:
  const char* m_file;
  int m_line;
  int m_severity;
  const char* m_source;
  [[maybe_unused]] LogManager* m_manager;
};

}  // namespace LogUtils

// The process's log manager, never null.
LOGLIB_API LogUtils::LogManager* getLogManager() noexcept;

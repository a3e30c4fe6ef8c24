// The log of hosts that bring no logging library of their own: the calls that the library makes. A host's own library
// of the same name may take its place.
//
// Events go to the console (standard error; where a process has none, the debugger's output) and, where the environment
// variable LOGLIB_FILE names a file when the first event is logged, to the end of that file: one UTF-8 line an event,
// its fields separated by tabs: time (local, with its offset), severity, source, component, file:line, text. Line
// breaks, tabs and backslashes inside a field are written as \n, \r, \t and \\, other control characters as \uXXXX. A
// file of 10 MiB is renamed, with ".1" behind its name, and a new one begun; three older ones are kept.
#pragma once

#if defined(LOGLIB_BUILDING)
#define LOGLIB_API __declspec(dllexport)
#else
#define LOGLIB_API __declspec(dllimport)
#endif

namespace LogUtils {

class LogManager;

// One log event. It is built where the event happens and called once with its text. The two trailing constants are
// a host's own library's; this one takes and ignores them. The texts given to the constructor must outlive the event.
class LOGLIB_API LogEvent {
 public:
  LogEvent(const char* file, int line, int severity, const char* source, LogManager* manager, int, int) noexcept;

  // printf-style, with the Windows meaning of %s and %S: in a wide format %s takes wide text, in a narrow format %s
  // takes narrow and %S wide text. Texts may be of any length and hold any characters. When this returns, the event is
  // in the file. Never throws; an event that there is no memory for is lost, and one whose format cannot be carried
  // out shows the format.
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

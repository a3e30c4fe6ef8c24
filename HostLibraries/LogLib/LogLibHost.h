// What the host, who owns the log, may set: where events go. Used by our tools and tests; the library never includes
// this, and hosts in C have LogLibCallback.h.
#pragma once

#include <LogLib.h>

namespace LogUtils {

// A formatted event. The texts live as long as the call.
struct LogRecord {
  const char* file;
  int line;
  int severity;
  const char* source;
  const char* component;
  const wchar_t* text;
};

using LogSink = void (*)(const LogRecord& record, void* context);

// Also hands every event to `sink` (null: to none), on the thread that logs it. A sink may be called by several
// threads at once, and must not throw. When this returns, the earlier sink is no longer running (on this thread it
// may be: a sink may replace itself). A sink may log; those events do not come back to it.
LOGLIB_API void setLogSink(LogSink sink, void* context) noexcept;

// Whether events go to the console (standard error). On until set. The file of LOGLIB_FILE is not affected.
LOGLIB_API void setConsoleLogging(bool enabled) noexcept;

}  // namespace LogUtils

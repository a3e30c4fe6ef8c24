// Where spdlog's lines go. Each line is one write without a buffer in this process: what was logged is in the
// system's hands when the call returns, also when the service dies next.
#pragma once

#include "Spdlog.h"

#include <memory>
#include <string>

#include "FwClient/Common/Utilities/CriticalSection.h"

// Standard error, as it is at the time of the event. A service has none; then the line goes to the debugger's output,
// which tools show without a debugger too.
class ConsoleSink : public spdlog::sinks::base_sink<CriticalSection> {
 public:
  // One line that is not an event, whatever the console's setting.
  static void WriteNotice(const std::wstring& text);

 private:
  void sink_it_(const spdlog::details::log_msg& message) override;
  void flush_() override {}
  void set_formatter_(std::unique_ptr<spdlog::formatter> formatter) override;

  spdlog::sinks::msvc_sink<CriticalSection> m_debugger{false};
};

// A file that is appended to. Other processes may write, read, rename and delete it meanwhile. A file that has reached
// 10 MiB is renamed, with ".1" behind its name, and a new one begun; three such older files are kept. The first failure
// is told on standard error; later ones are not, since they would repeat with every event.
//
// spdlog's own file sinks hold less of this: the C runtime opens their files so that others can neither rename nor
// delete them, and where a reader keeps a file from being renamed, the rotating one empties it.
class FileSink : public spdlog::sinks::base_sink<CriticalSection> {
 public:
  explicit FileSink(const std::wstring& path);
  ~FileSink() override;

 private:
  void sink_it_(const spdlog::details::log_msg& message) override;
  void flush_() override {}
  void Open();
  void Rotate();
  bool LeadsPathToOurFile() const noexcept;
  void ReportOnce(DWORD error) noexcept;

  std::wstring m_path;
  HANDLE m_file = nullptr;
  LONGLONG m_bytes = 0;  // in the file, as far as this process wrote them or found them
  bool m_reported = false;
};

// Where spdlog's lines go. Each line is one write without a buffer in this process: what was logged is in the
// system's hands when the call returns, also when the service dies next.
#pragma once

#include "Spdlog.h"

#include <string>

#include "FwClient/Common/Utilities/CriticalSection.h"

// Standard error, as it is at the time of the event. A service has none; then the line goes nowhere.
class ConsoleSink : public spdlog::sinks::base_sink<CriticalSection> {
 public:
  // One line that is not an event, whatever the console's setting.
  static void WriteNotice(const std::wstring& text) noexcept;

 private:
  void sink_it_(const spdlog::details::log_msg& message) override;
  void flush_() override {}
};

// A file that is appended to. Other processes may write, read, rename and delete it meanwhile. The first failure is
// told on standard error; later ones are not, since they would repeat with every event.
class FileSink : public spdlog::sinks::base_sink<CriticalSection> {
 public:
  explicit FileSink(const std::wstring& path);
  ~FileSink() override;

 private:
  void sink_it_(const spdlog::details::log_msg& message) override;
  void flush_() override {}
  void ReportOnce(DWORD error) noexcept;

  std::wstring m_path;
  HANDLE m_file;
  bool m_reported = false;
};

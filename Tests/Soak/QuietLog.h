// The log of a run that would fill the disk.
#pragma once

#include <LogLibHost.h>

#include <atomic>

#include "Tests/Soak/SoakRun.h"

// While it lives, events go nowhere; an error is one that fails the run.
class QuietLog {
 public:
  explicit QuietLog(SoakRun& run) : m_run(run) {
    LogUtils::setConsoleLogging(false);
    LogUtils::setLogSink(&Receive, this);
  }
  ~QuietLog() {
    LogUtils::setLogSink(nullptr, nullptr);
    LogUtils::setConsoleLogging(true);
  }
  QuietLog(const QuietLog&) = delete;
  QuietLog& operator=(const QuietLog&) = delete;

  // Called for each event, on the thread that logs. Set it before that.
  void (*onEvent)(const LogUtils::LogRecord& record) = nullptr;

 private:
  static void Receive(const LogUtils::LogRecord& record, void* context) {
    auto& self = *static_cast<QuietLog*>(context);
    constexpr int kError = 3;
    if (record.severity == kError) self.m_run.Expect(false, "an error is logged:", std::wstring(record.text));
    if (self.onEvent != nullptr) self.onEvent(record);
  }

  SoakRun& m_run;
};

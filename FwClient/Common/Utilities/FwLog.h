// The firewall client's one way to log.
#pragma once

#include <LogLib.h>

// Severities of the logging library: 3 for errors, 8 for information and trace lines.
inline constexpr int kLogError = 3;
inline constexpr int kLogInfo = 8;

// FW_LOG(kLogInfo, L"format %s", ...): one event with the file and line of the call. The format stays a whole literal
// at the call, so that a log line can be found by searching for it. Arguments are read after the log manager has been
// fetched: take an error code into a variable first.
#define FW_LOG(severity, ...) \
  ::LogUtils::LogEvent(__FILE__, __LINE__, (severity), "FirewallBL", ::getLogManager(), 2, 0)("FIREWALL", __VA_ARGS__)

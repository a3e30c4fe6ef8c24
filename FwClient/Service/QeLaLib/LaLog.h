// The library's one way to log.
#pragma once

#include <LogLib.h>

// Severities of the logging library: 3 for errors, 8 for information and trace lines.
inline constexpr int kLogError = 3;
inline constexpr int kLogInfo = 8;

// LA_LOG(kLogInfo, L"format %s", ...): one event with the file and line of the call. The format stays a whole literal
// at the call, so that a log line can be found by searching for it.
#define LA_LOG(severity, ...) \
  ::LogUtils::LogEvent(__FILE__, __LINE__, (severity), "FirewallBL", ::getLogManager(), 2, 0)("FIREWALL", __VA_ARGS__)

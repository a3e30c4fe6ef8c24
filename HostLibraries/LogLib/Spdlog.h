// spdlog as this library uses it: a logger and sinks of our own, without the registry, its threads, and the thread
// identifiers, whose thread-local storage would outlive an unloaded library.
#pragma once

#define SPDLOG_NO_THREAD_ID
#define SPDLOG_NO_TLS
#define SPDLOG_WCHAR_TO_UTF8_SUPPORT  // the debugger is told UTF-16
#include <spdlog/logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/msvc_sink.h>

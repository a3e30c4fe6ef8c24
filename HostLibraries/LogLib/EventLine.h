// An event as one line of UTF-8.
#pragma once

#include <LogLibHost.h>

#include <string_view>

#include "Spdlog.h"

// Appends severity, source, component, file:line and `text`, which is the record's, separated by tabs. Inside a field a
// backslash is written as \\, a line break as \n, a carriage return as \r, a tab as \t, and every other character that
// would end the line or steer a terminal as \uXXXX, so that one event is one line and the text can be restored. A lone
// surrogate becomes U+FFFD.
void RenderEventLine(const LogUtils::LogRecord& record, std::wstring_view text, spdlog::memory_buf_t& line);

// Records what the library tells the host's error printer.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/ErrorPrinter.h"

// Installs a printer while it lives. It records without allocating, so that it serves while memory is short; lines
// beyond kMost are counted only.
class PrintedErrors {
 public:
  PrintedErrors() {
    s_count = 0;
    errorPrinter = &Print;
  }
  ~PrintedErrors() { errorPrinter = nullptr; }
  PrintedErrors(const PrintedErrors&) = delete;
  PrintedErrors& operator=(const PrintedErrors&) = delete;

  std::size_t Count() const { return s_count; }

  // The lines in order.
  std::vector<std::string> Lines() const {
    std::vector<std::string> lines;
    for (std::size_t i = 0; i < s_count && i < kMost; ++i) lines.emplace_back(s_lines[i]);
    return lines;
  }

 private:
  static constexpr std::size_t kMost = 8;
  static constexpr std::size_t kLineBytes = 128;

  static void Print(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    if (s_count < kMost) std::vsnprintf(s_lines[s_count], kLineBytes, format, arguments);
    ++s_count;
    va_end(arguments);
  }

  inline static std::size_t s_count = 0;
  inline static char s_lines[kMost][kLineBytes];
};

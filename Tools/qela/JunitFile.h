// Results in the form that build servers read: JUnit's XML.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>

#include "OutputFile.h"

// Text for an element or an attribute: what XML cannot hold, some control characters, is shown as \uXXXX.
std::string XmlText(std::string_view utf8);

// One suite. The cases are written as they come, and never held.
class JunitFile {
 public:
  JunitFile(const std::wstring& path, const std::string& suite);

  enum class Outcome { kPassed, kFailure, kError, kSkipped };
  // `message` is one line; `details` may be several.
  void Add(const std::string& name, Outcome outcome, const std::string& message, const std::string& details);

  // The file is whole only after this.
  void End();

 private:
  std::string Head() const;

  OutputFile m_file;
  const std::string m_suite;
  const std::chrono::steady_clock::time_point m_begin = std::chrono::steady_clock::now();
  std::size_t m_count[4] = {};  // by outcome
};

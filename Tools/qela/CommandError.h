// How a command ends when it does not succeed.
#pragma once

#include <stdexcept>
#include <string>

// The process's exit codes; --help and Docs/qela.md list them.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,
  kWrongUsage = 2,
  kNoSuchLocation = 3,  // or not exactly one
  kUnreadableSet = 4,
  kNo = 5,           // no error: the answer to a question
  kDifferences = 6,  // no error: what was compared differs
  kInterrupted = 130,
};

// Ends the command with a message for standard error, in UTF-8.
class CommandError : public std::runtime_error {
 public:
  CommandError(ExitCode code, const std::string& message) : std::runtime_error(message), m_code(code) {}
  ExitCode Code() const noexcept { return m_code; }

 private:
  ExitCode m_code;
};

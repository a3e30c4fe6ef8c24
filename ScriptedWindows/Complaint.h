// Where it is told that the module under test breaks a rule of Windows, or the test one of these classes'.
#pragma once

#include <source_location>
#include <string>

// What becomes of a complaint, on the thread that gave cause to it; a test framework's failure, say. Without a handler
// it goes to stderr and ends the process.
using ComplaintHandler = void (*)(const char* file, int line, const std::string& complaint);
void SetComplaintHandler(ComplaintHandler handler);

// For the classes here; `where` is their own source.
void Complain(const std::string& complaint, std::source_location where = std::source_location::current());
inline void Require(bool holds, const char* complaint = "a call that the fake does not know",
                    std::source_location where = std::source_location::current()) {
  if (!holds) Complain(complaint, where);
}

// What the scripted Windows complains of fails the test that runs.
#include <gtest/gtest.h>

#include "ScriptedWindows/Complaint.h"

namespace {

[[maybe_unused]] const bool g_installed = [] {
  SetComplaintHandler(
      [](const char* file, int line, const std::string& complaint) { ADD_FAILURE_AT(file, line) << complaint; });
  return true;
}();

}  // namespace

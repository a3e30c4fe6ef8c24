#include "ScriptedWindows/Complaint.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include "ScriptedWindows/Windows/WindowsScript.h"

namespace {

TEST(Complaint, FailsTheTestThatRuns) { EXPECT_NONFATAL_FAILURE(Complain("a rule is broken"), "a rule is broken"); }

TEST(Complaint, IsMadeOfAPatchOfWhatTheModuleDoesNotImport) {
  const auto replace = [] { const ImportPatch patch(ThisProgram(), "NoSuchFunction", +[] {}); };
  EXPECT_NONFATAL_FAILURE(replace(), "the module does not import NoSuchFunction");
}

TEST(Complaint, IsMadeOfAHandleThatIsLeftOpen) {
  const auto leave = [] { WindowsScript(ThisProgram()).Open("token"); };
  EXPECT_NONFATAL_FAILURE(leave(), "token was left open");
}

TEST(Complaint, IsMadeOfAHandleThatIsClosedByAnothersFunction) {
  const auto close = [] {
    WindowsScript script(ThisProgram());
    ::CloseHandle(script.Open("key", "RegCloseKey"));
  };
  EXPECT_NONFATAL_FAILURE(close(), "key closed by CloseHandle");
}

}  // namespace

#include "ScriptedWindows/ImportTable/ImportPatch.h"

#include <gtest/gtest.h>

namespace {

// The compiler takes the import table for constant and reads an entry once a function; so a test that calls Windows
// itself before and after a patch does it through a function that is not inlined.
[[gnu::noinline]] DWORD TickCount() { return ::GetTickCount(); }

TEST(ImportPatch, ReplacesTheCallWhileItLivesAndRestoresIt) {
  const HMODULE module = ThisProgram();
  {
    const ImportPatch patch(module, "GetTickCount", +[]() -> DWORD { return 4711; });
    EXPECT_EQ(TickCount(), 4711u);
    EXPECT_NE(patch.Original<DWORD WINAPI()>()(), 4711u);
  }
  EXPECT_NE(TickCount(), 4711u);
}

TEST(ImportPatch, KnowsWhatAModuleImports) {
  EXPECT_TRUE(Imports(ThisProgram(), "GetTickCount"));
  EXPECT_FALSE(Imports(ThisProgram(), "NoSuchFunction"));
}

}  // namespace

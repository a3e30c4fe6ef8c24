// How the functions that our modules import fail.
#pragma once

#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportFaults.h"

struct ImportRule {
  const char* name;
  std::vector<ImportFailure>
      failures;                    // as Windows or the C runtime fails where it is short of something, or denies it
  const char* whyNever = nullptr;  // where there is none
  bool givesMemory = false;        // fails together with the others that do
};

// Null for a function that the table does not know.
const ImportRule* FindImportRule(const std::string& name);

// What only the C and C++ runtime calls that is linked into each module, where a module does not call it as well: where
// the module is loaded and unloaded, where threads start and end or wait for each other in ways that ours do not, for
// texts and locales that nobody asks it for, and where the process ends.
bool IsRuntimesOwn(const std::string& name);

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

// The import table of a loaded module, as it lies in memory.
#pragma once

#include <windows.h>

#include <functional>
#include <string>

// One function or variable that a module takes from a library.
struct ImportEntry {
  const char* library;
  std::string name;  // "#7" where it is known by a number only
  void** slot;       // through which the module reaches it
};

// Calls `visit` for each, in the table's order, until it returns false.
void VisitImports(HMODULE module, const std::function<bool(const ImportEntry&)>& visit);

// The table is read-only memory, so it takes more than an assignment.
void WriteImport(void** slot, void* value);

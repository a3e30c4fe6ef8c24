// The handles that a module opens and closes.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <map>
#include <string>

#include "ScriptedWindows/ImportTable/HandleLedger.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"

// Keeps the books while it lives: events, threads, copies of both, files, registry keys, module references, and the
// counted states of COM and Winsock; a kind is the function that opens it. Declare it after other patches of the same
// calls (it forwards to them) and read it before it ends. The module's runtime shares its import table; what that opens
// is noted as well.
class HandleWatch : public HandleLedger, public OnlyOne<HandleWatch> {
 public:
  explicit HandleWatch(HMODULE module);

 private:
  struct Replacements;

  std::map<std::string, ImportPatch> m_patches;
};

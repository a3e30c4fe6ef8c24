#include "ScriptedWindows/ImportTable/ImportPatch.h"

#include "ScriptedWindows/Complaint.h"
#include "ScriptedWindows/ImportTable/ImportTable.h"

namespace {

// The table slot through which the module calls the function, or null.
void** FindSlot(HMODULE module, const char* function) {
  void** found = nullptr;
  VisitImports(module, [&](const ImportEntry& entry) {
    if (entry.name == function) found = entry.slot;
    return found == nullptr;
  });
  return found;
}

}  // namespace

ImportPatch::ImportPatch(HMODULE module, const char* function, void* replacement, int)
    : m_slot(FindSlot(module, function)) {
  if (m_slot == nullptr) {
    Complain(std::string("the module does not import ") + function);
    return;
  }
  m_original = *m_slot;
  WriteImport(m_slot, replacement);
}

ImportPatch::~ImportPatch() {
  if (m_slot != nullptr) WriteImport(m_slot, m_original);
}

bool Imports(HMODULE module, const char* function) { return FindSlot(module, function) != nullptr; }

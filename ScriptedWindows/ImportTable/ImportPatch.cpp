#include "ScriptedWindows/ImportTable/ImportPatch.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "ScriptedWindows/Complaint.h"

namespace {

template <typename T>
T* At(HMODULE module, DWORD offset) {
  return reinterpret_cast<T*>(reinterpret_cast<std::byte*>(module) + offset);
}

// The table slot through which the module calls the function, or null.
void** FindSlot(HMODULE module, const char* function) {
  const auto* dos = At<IMAGE_DOS_HEADER>(module, 0);
  const auto* headers = At<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
  const IMAGE_DATA_DIRECTORY& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (directory.Size == 0) return nullptr;
  for (const auto* import = At<IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress); import->Name != 0;
       ++import) {
    const auto* name = At<IMAGE_THUNK_DATA>(module, import->OriginalFirstThunk);
    auto* slot = At<void*>(module, import->FirstThunk);
    for (; name->u1.AddressOfData != 0; ++name, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL(name->u1.Ordinal)) continue;
      const auto* entry = At<IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(name->u1.AddressOfData));
      if (std::strcmp(reinterpret_cast<const char*>(entry->Name), function) == 0) return slot;
    }
  }
  return nullptr;
}

void Write(void** slot, void* value) {
  DWORD protection = 0;
  ::VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection);
  *slot = value;
  ::VirtualProtect(slot, sizeof *slot, protection, &protection);
}

}  // namespace

ImportPatch::ImportPatch(HMODULE module, const char* function, void* replacement, int)
    : m_slot(FindSlot(module, function)) {
  if (m_slot == nullptr) {
    Complain(std::string("the module does not import ") + function);
    return;
  }
  m_original = *m_slot;
  Write(m_slot, replacement);
}

ImportPatch::~ImportPatch() {
  if (m_slot != nullptr) Write(m_slot, m_original);
}

bool Imports(HMODULE module, const char* function) { return FindSlot(module, function) != nullptr; }

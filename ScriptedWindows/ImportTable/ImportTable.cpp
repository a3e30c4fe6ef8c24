#include "ScriptedWindows/ImportTable/ImportTable.h"

#include <cstddef>

namespace {

template <typename T>
T* At(HMODULE module, DWORD offset) {
  return reinterpret_cast<T*>(reinterpret_cast<std::byte*>(module) + offset);
}

std::string NameOf(HMODULE module, const IMAGE_THUNK_DATA& thunk) {
  if (IMAGE_SNAP_BY_ORDINAL(thunk.u1.Ordinal)) return "#" + std::to_string(IMAGE_ORDINAL(thunk.u1.Ordinal));
  const auto* entry = At<IMAGE_IMPORT_BY_NAME>(module, static_cast<DWORD>(thunk.u1.AddressOfData));
  return reinterpret_cast<const char*>(entry->Name);
}

}  // namespace

void VisitImports(HMODULE module, const std::function<bool(const ImportEntry&)>& visit) {
  const auto* dos = At<IMAGE_DOS_HEADER>(module, 0);
  const auto* headers = At<IMAGE_NT_HEADERS>(module, static_cast<DWORD>(dos->e_lfanew));
  const IMAGE_DATA_DIRECTORY& directory = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (directory.Size == 0) return;
  for (const auto* import = At<IMAGE_IMPORT_DESCRIPTOR>(module, directory.VirtualAddress); import->Name != 0;
       ++import) {
    const auto* thunk = At<IMAGE_THUNK_DATA>(module, import->OriginalFirstThunk);
    auto* slot = At<void*>(module, import->FirstThunk);
    for (; thunk->u1.AddressOfData != 0; ++thunk, ++slot)
      if (!visit({At<char>(module, import->Name), NameOf(module, *thunk), slot})) return;
  }
}

void WriteImport(void** slot, void* value) {
  DWORD protection = 0;
  ::VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &protection);
  *slot = value;
  ::VirtualProtect(slot, sizeof *slot, protection, &protection);
}

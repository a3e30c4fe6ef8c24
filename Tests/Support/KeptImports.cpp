#include "Tests/Support/KeptImports.h"

#include <cstddef>

#include "Tests/Support/ServiceLibrary.h"

KeptImports::KeptImports() {
  const ServiceLibrary library;
  const auto* base = reinterpret_cast<const std::byte*>(library.Module());
  const auto* headers =
      reinterpret_cast<const IMAGE_NT_HEADERS*>(base + reinterpret_cast<const IMAGE_DOS_HEADER*>(base)->e_lfanew);
  const DWORD imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (const auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports); import->Name != 0;
       ++import)
    m_modules.push_back(::LoadLibraryA(reinterpret_cast<const char*>(base + import->Name)));
}

KeptImports::~KeptImports() {
  for (HMODULE module : m_modules) ::FreeLibrary(module);
}

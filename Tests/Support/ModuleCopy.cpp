#include "Tests/Support/ModuleCopy.h"

#include <gtest/gtest.h>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/ImportTable.h"
#include "ScriptedWindows/UniqueName.h"

ModuleCopy::ModuleCopy(const wchar_t* name)
    : m_module(::GetModuleHandleW(name)),
      m_file(std::filesystem::temp_directory_path() / (L"copy " + UniqueName() + L" of " + name)) {
  wchar_t original[MAX_PATH];
  ::GetModuleFileNameW(m_module, original, MAX_PATH);
  EXPECT_TRUE(::CopyFileW(original, m_file.c_str(), FALSE)) << "error " << ::GetLastError();
}

ModuleCopy::~ModuleCopy() {
  std::error_code ignored;
  std::filesystem::remove(m_file, ignored);
}

ModuleCopy::Loaded::Loaded(const ModuleCopy& copy) : m_module(::LoadLibraryW(copy.m_file.c_str())) {
  EXPECT_NE(m_module, nullptr) << "error " << ::GetLastError();
  VisitImports(ThisProgram(), [&](const ImportEntry& entry) {
    if (::GetModuleHandleA(entry.library) != copy.m_module) return true;
    m_before.emplace_back(entry.slot, *entry.slot);
    WriteImport(entry.slot, reinterpret_cast<void*>(::GetProcAddress(m_module, entry.name.c_str())));
    return true;
  });
}

ModuleCopy::Loaded::~Loaded() {
  for (const auto& [slot, value] : m_before) WriteImport(slot, value);
  ::FreeLibrary(m_module);
}

#include "ScriptedWindows/Windows/FakeSystem.h"

#include <cwchar>
#include <format>

FakeSystem::FakeSystem(WindowsScript& script) : m_script(script) {
  const auto patch = [&](const char* function, auto* replacement) {
    m_patches.try_emplace(function, script.Module(), function, replacement);
  };
  patch("GetVersionExW", &GetVersionEx);
  patch("LoadLibraryW", &LoadLibrary);
  patch("GetProcAddress", &GetProcAddress);
  patch("FreeLibrary", &FreeLibrary);
  patch("GetSystemDirectoryW", &GetSystemDirectory);
}

BOOL WINAPI FakeSystem::GetVersionEx(LPOSVERSIONINFOW version) {
  const HeapWatch::Pause pause;
  FakeSystem& self = Current();
  Require(version->dwOSVersionInfoSize == sizeof(OSVERSIONINFOW));
  if (!self.m_script.Enter("GetVersionExW")) return FALSE;
  version->dwMajorVersion = self.majorVersion;
  version->dwMinorVersion = self.minorVersion;
  return TRUE;
}

HMODULE WINAPI FakeSystem::LoadLibrary(LPCWSTR name) {
  const HeapWatch::Pause pause;
  FakeSystem& self = Current();
  if (std::wcscmp(name, L"kernel32.dll") != 0) {
    self.m_script.Note("LoadLibraryW", WindowsScript::Text(name));
    return self.m_patches.at("LoadLibraryW").Original<decltype(LoadLibrary)>()(name);
  }
  if (!self.m_script.Enter("LoadLibraryW", WindowsScript::Text(name))) return nullptr;
  return static_cast<HMODULE>(self.m_script.Open("module", "FreeLibrary"));
}

FARPROC WINAPI FakeSystem::GetProcAddress(HMODULE module, LPCSTR name) {
  const HeapWatch::Pause pause;
  FakeSystem& self = Current();
  if (!self.m_script.Knows(module))
    return self.m_patches.at("GetProcAddress").Original<decltype(GetProcAddress)>()(module, name);
  if (!self.m_script.Enter("GetProcAddress", std::format("{}, {}", self.m_script.Name(module), name)) ||
      !self.knowsWow64Directory || name != std::string_view("GetSystemWow64DirectoryW"))
    return nullptr;
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&GetSystemWow64Directory));
}

BOOL WINAPI FakeSystem::FreeLibrary(HMODULE module) {
  const HeapWatch::Pause pause;
  FakeSystem& self = Current();
  if (!self.m_script.Knows(module)) return self.m_patches.at("FreeLibrary").Original<decltype(FreeLibrary)>()(module);
  self.m_script.Close("FreeLibrary", module);
  return TRUE;
}

UINT WINAPI FakeSystem::GetSystemWow64Directory(LPWSTR, UINT size) {
  const HeapWatch::Pause pause;
  Require(size == 1u);
  if (!Current().m_script.Enter("GetSystemWow64DirectoryW")) return 0;
  return Current().wow64DirectoryLength;
}

UINT WINAPI FakeSystem::GetSystemDirectory(LPWSTR path, UINT size) {
  const HeapWatch::Pause pause;
  const std::wstring& directory = Current().systemDirectory;
  if (!Current().m_script.Enter("GetSystemDirectoryW")) return 0;
  if (size <= directory.size()) return static_cast<UINT>(directory.size() + 1);
  std::wmemcpy(path, directory.c_str(), directory.size() + 1);
  return static_cast<UINT>(directory.size());
}

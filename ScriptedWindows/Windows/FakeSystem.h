// Which Windows it is, and where its folders are, as a test scripts it.
#pragma once

#include <map>
#include <string>

#include "ScriptedWindows/Windows/WindowsScript.h"

class FakeSystem : public OnlyOne<FakeSystem> {
 public:
  explicit FakeSystem(WindowsScript& script);

  DWORD majorVersion = 6;
  DWORD minorVersion = 2;
  // What GetSystemWow64DirectoryW answers, and whether kernel32.dll has it; LoadLibraryW and GetProcAddress give it.
  UINT wow64DirectoryLength = 20;
  bool knowsWow64Directory = true;
  std::wstring systemDirectory = L"C:\\windows\\system32";

 private:
  static BOOL WINAPI GetVersionEx(LPOSVERSIONINFOW);
  static HMODULE WINAPI LoadLibrary(LPCWSTR);
  static FARPROC WINAPI GetProcAddress(HMODULE, LPCSTR);
  static BOOL WINAPI FreeLibrary(HMODULE);
  static UINT WINAPI GetSystemWow64Directory(LPWSTR, UINT);
  static UINT WINAPI GetSystemDirectory(LPWSTR, UINT);

  WindowsScript& m_script;
  std::map<std::string, ImportPatch> m_patches;
};

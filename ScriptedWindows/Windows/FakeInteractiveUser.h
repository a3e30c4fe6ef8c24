// The user at the console as a test scripts it: the shell's name in the registry, the processes, tasklist's output, the
// token and the user's Internet settings.
#pragma once

#include "ScriptedWindows/Windows/WindowsScript.h"
// After windows.h.
#include <tlhelp32.h>
#include <winhttp.h>

#include <optional>

class FakeInteractiveUser {
 public:
  explicit FakeInteractiveUser(WindowsScript& script);
  ~FakeInteractiveUser();
  FakeInteractiveUser(const FakeInteractiveUser&) = delete;
  FakeInteractiveUser& operator=(const FakeInteractiveUser&) = delete;

  // Winlogon's value "Shell". Null: there is none.
  std::optional<std::vector<BYTE>> shell;
  DWORD shellType = REG_SZ;
  void SetShell(const std::wstring& text, bool terminated = true);

  // The system.
  DWORD majorVersion = 6;
  DWORD minorVersion = 2;
  UINT wow64DirectoryLength = 20;
  bool knowsWow64Directory = true;
  std::wstring systemDirectory = L"C:\\windows\\system32";
  // The processes of a 32-bit system.
  std::vector<std::pair<std::wstring, DWORD>> processes;

  // tasklist. Its output comes in pieces of at most this size; after it the pipe ends, unless one of the others is set.
  std::string tasklistOutput = "\"explorer.exe\",\"4711\",\"Console\",\"1\",\"18,612 K\"\r\n";
  std::size_t pieceBytes = 4096;
  bool endless = false;
  bool silent = false;
  bool endsWithEmptyRead = false;
  // What the child was started with, and the process that was opened.
  std::wstring program;
  std::wstring commandLine;
  DWORD openedProcess = 0;
  // Milliseconds that the code under test slept; the clock stands still otherwise.
  ULONGLONG sleptMs = 0;

  // The user's Internet settings. Null: none of this.
  std::optional<std::wstring> configUrl;
  std::optional<std::wstring> proxyList;
  std::optional<std::wstring> bypassList;
  BOOL autoDetect = FALSE;

  bool impersonating = false;

  // Keeps the thread that is impersonating in the user's identity, whatever is tried; or lets it out again.
  void KeepIdentity();
  void LetGo();

 private:
  static FakeInteractiveUser& Current();
  static LSTATUS WINAPI RegOpenKeyEx(HKEY, LPCWSTR, DWORD, REGSAM, PHKEY);
  static LSTATUS WINAPI RegQueryValueEx(HKEY, LPCWSTR, LPDWORD, LPDWORD, LPBYTE, LPDWORD);
  static LSTATUS WINAPI RegCloseKey(HKEY);
  static BOOL WINAPI GetVersionEx(LPOSVERSIONINFOW);
  static HMODULE WINAPI LoadLibrary(LPCWSTR);
  static FARPROC WINAPI GetProcAddress(HMODULE, LPCSTR);
  static BOOL WINAPI FreeLibrary(HMODULE);
  static UINT WINAPI GetSystemWow64Directory(LPWSTR, UINT);
  static UINT WINAPI GetSystemDirectory(LPWSTR, UINT);
  static HANDLE WINAPI CreateSnapshot(DWORD, DWORD);
  static BOOL WINAPI ProcessFirst(HANDLE, LPPROCESSENTRY32W);
  static BOOL WINAPI ProcessNext(HANDLE, LPPROCESSENTRY32W);
  static BOOL WINAPI CreatePipe(PHANDLE, PHANDLE, LPSECURITY_ATTRIBUTES, DWORD);
  static BOOL WINAPI SetHandleInformation(HANDLE, DWORD, DWORD);
  static BOOL WINAPI CreateProcess(LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID,
                                   LPCWSTR, LPSTARTUPINFOW, LPPROCESS_INFORMATION);
  static BOOL WINAPI PeekNamedPipe(HANDLE, LPVOID, DWORD, LPDWORD, LPDWORD, LPDWORD);
  static BOOL WINAPI ReadFile(HANDLE, LPVOID, DWORD, LPDWORD, LPOVERLAPPED);
  static BOOL WINAPI TerminateProcess(HANDLE, UINT);
  static void WINAPI Sleep(DWORD);
  static ULONGLONG WINAPI GetTickCount64();
  static HANDLE WINAPI OpenProcess(DWORD, BOOL, DWORD);
  static BOOL WINAPI OpenProcessToken(HANDLE, DWORD, PHANDLE);
  static BOOL WINAPI ImpersonateLoggedOnUser(HANDLE);
  static BOOL WINAPI RevertToSelf();
  static BOOL WINAPI SetThreadToken(PHANDLE, HANDLE);
  static BOOL WINAPI GetIEProxyConfig(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG*);

  BOOL GiveProcess(LPPROCESSENTRY32W entry);

  WindowsScript& m_script;
  const DWORD m_thread = ::GetCurrentThreadId();
  std::size_t m_nextProcess = 0;
  std::size_t m_read = 0;
  std::set<std::string> m_inheritable;
  std::map<std::string, ImportPatch> m_patches;
};

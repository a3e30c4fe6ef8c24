// The processes that run and the one that the code under test starts, as a test scripts them, and the clock.
#pragma once

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/Windows/WindowsScript.h"
// After windows.h.
#include <tlhelp32.h>

class FakeProcesses : public OnlyOne<FakeProcesses> {
 public:
  explicit FakeProcesses(WindowsScript& script);

  // What a snapshot shows.
  std::vector<std::pair<std::wstring, DWORD>> list;

  // What the child writes into its pipe, in pieces of at most this size; after it the pipe ends, unless one of the
  // others is set.
  std::string output = "\"explorer.exe\",\"4711\",\"Console\",\"1\",\"18,612 K\"\r\n";
  std::size_t pieceBytes = 4096;
  bool endless = false;
  bool silent = false;
  bool endsWithEmptyRead = false;
  // Complains when the reads ask for more in all.
  std::size_t mostBytes = 4096;

  // What the child was started with, and the process that was opened.
  std::wstring program;
  std::wstring commandLine;
  DWORD openedProcess = 0;

  // Milliseconds that the code under test slept; the clock stands still otherwise.
  ULONGLONG sleptMs = 0;

 private:
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
  BOOL GiveProcess(LPPROCESSENTRY32W entry);

  WindowsScript& m_script;
  const DWORD m_thread = ::GetCurrentThreadId();
  std::size_t m_nextProcess = 0;
  std::size_t m_read = 0;
  std::set<std::string> m_inheritable;
  std::map<std::string, ImportPatch> m_patches;
};

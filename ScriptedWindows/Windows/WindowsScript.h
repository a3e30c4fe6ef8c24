// A Windows that tests script: which calls were made, which of them fail, and which handles are still open.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"

// What the fakes of one test share. It checks the protocol of handles: each is used only while it is open and closed
// exactly once, by the function of its kind, before the script ends.
//
// The fakes replace calls in the import table of one module, by default the running program. One script lives at a
// time.
class WindowsScript {
 public:
  explicit WindowsScript(HMODULE module = ::GetModuleHandleW(nullptr));
  // Fails the test for every handle that is still open.
  ~WindowsScript();
  WindowsScript(const WindowsScript&) = delete;
  WindowsScript& operator=(const WindowsScript&) = delete;

  static WindowsScript& Current();
  HMODULE Module() const { return m_module; }

  // For tests: makes one call of a function fail with this error; the first, unless told otherwise.
  void Fail(const std::string& function, DWORD error, std::size_t call = 1);
  // Makes every call of a function fail from now on; until it is healed.
  void FailAlways(const std::string& function, DWORD error);
  void Heal(const std::string& function);
  // Makes the n-th of all calls fail (from 1), whatever it is, with ERROR_GEN_FAILURE.
  void FailCallNumber(std::size_t number);

  // All calls in their order, as "Function(argument, ...)"; or those of some functions.
  std::vector<std::string> Calls() const;
  std::vector<std::string> Calls(const std::set<std::string>& functions) const;
  std::size_t Count(const std::string& function) const;
  // How many of the calls could be made to fail.
  std::size_t FallibleCalls() const;

  // For fakes: records a call. False when it is to fail; the last error is then set.
  bool Enter(const std::string& function, const std::string& arguments = {});
  // Records a call that cannot fail.
  void Note(const std::string& function, const std::string& arguments = {});

  // Handles. A kind is also its name in the journal; from the second on it is numbered ("token2").
  HANDLE Open(const std::string& kind);
  // The same for a handle that is a real address.
  void OpenAt(const std::string& kind, const void* address);
  void Close(const std::string& kind, const void* handle);
  // Whether the script knows the handle, open or closed.
  bool Knows(const void* handle) const;
  // Its name; "null" for null. Fails the test when it is not open.
  std::string Name(const void* handle) const;
  std::vector<std::string> OpenHandles() const;

  // Memory that the caller frees with GlobalFree.
  wchar_t* GlobalText(const std::string& kind, const std::wstring& text);
  void* GlobalMemory(const std::string& kind, std::size_t size);

  // How long the code under test was ready to wait for each event that it made.
  std::vector<DWORD> Waits() const;
  // From now on such waits end at once, signalled or not.
  void CutWaitsShort();

  static std::string Text(const wchar_t* text);
  static std::string Text(const std::wstring& text) { return Text(text.c_str()); }
  static std::string Hex(DWORD number);

 private:
  struct Entry {
    std::string name;
    std::string kind;
    bool open;
  };
  struct PlannedFailure {
    std::string function;
    std::size_t call;
    DWORD error;
  };

  static BOOL WINAPI CloseHandle(HANDLE handle);
  static HGLOBAL WINAPI GlobalFree(HGLOBAL memory);
  static HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR);
  static BOOL WINAPI SetEvent(HANDLE event);
  static BOOL WINAPI ResetEvent(HANDLE event);
  static DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds);

  const HMODULE m_module;
  // A critical section, since the runtime's mutexes are made of the calls that are replaced here.
  mutable CRITICAL_SECTION m_lock;
  const DWORD m_thread = ::GetCurrentThreadId();
  std::vector<std::pair<std::string, std::string>> m_calls;
  std::map<std::string, std::size_t> m_counts;
  std::vector<PlannedFailure> m_failures;
  std::map<std::string, DWORD> m_broken;
  std::size_t m_fallible = 0;
  std::size_t m_failNumber = 0;
  std::map<const void*, Entry> m_handles;
  std::map<std::string, std::size_t> m_kinds;
  std::uintptr_t m_nextHandle = 0x5a000010;
  std::deque<std::unique_ptr<std::byte[]>> m_memory;
  std::set<HANDLE> m_events;
  std::vector<DWORD> m_waits;
  bool m_cutWaits = false;
  std::deque<ImportPatch> m_patches;
};

// What the fakes of one test share: which calls were made, which of them fail, and the handles that they gave out.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/ImportTable/HandleLedger.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"
#include "ScriptedWindows/ImportTable/PlannedFailures.h"

// It complains of a handle that is used while it is not open, that is not closed exactly once by the function of its
// kind, or that is open at its end. It replaces what closes the handles of several fakes: CloseHandle and GlobalFree.
class WindowsScript : public PlannedFailures, public OnlyOne<WindowsScript> {
 public:
  explicit WindowsScript(HMODULE module);
  ~WindowsScript();

  HMODULE Module() const { return m_module; }

  // All calls in their order, as "Function(argument, ...)"; or those of some functions.
  std::vector<std::string> Calls() const;
  std::vector<std::string> Calls(const std::set<std::string>& functions) const;
  std::size_t Count(const std::string& function) const;
  std::vector<std::string> OpenHandles() const { return m_handles.OpenHandles(); }

  // For fakes. Notes a call; false when it is to fail, with the last error set.
  bool Enter(const std::string& function, const std::string& arguments = {});
  // A call that cannot fail.
  void Note(const std::string& function, const std::string& arguments = {});

  // A handle of a kind, which is also its name in the journal ("token", "token2"): one that is made here, one that is a
  // real address, or a real one of the system's.
  HANDLE Open(const std::string& kind, const std::string& closer = "CloseHandle");
  void OpenAt(const std::string& kind, const std::string& closer, const void* address);
  void Adopt(const std::string& kind, HANDLE handle);
  bool IsAdopted(HANDLE handle) const;
  bool Knows(const void* handle) const { return m_handles.Knows(handle); }
  std::string Name(const void* handle) { return m_handles.Use(handle); }
  // Notes the call that closes; the second form tells only the books.
  void Close(const std::string& closer, const void* handle);
  void Closed(const std::string& closer, const void* handle) { m_handles.Closed(closer, handle); }

  // Memory that the caller frees with GlobalFree.
  wchar_t* GlobalText(const std::string& kind, const std::wstring& text);
  void* GlobalMemory(const std::string& kind, std::size_t size);

  static std::string Text(const wchar_t* text);
  static std::string Text(const std::wstring& text) { return Text(text.c_str()); }
  static std::string Hex(DWORD number);

 private:
  static BOOL WINAPI CloseHandle(HANDLE handle);
  static HGLOBAL WINAPI GlobalFree(HGLOBAL memory);

  const HMODULE m_module;
  std::vector<std::pair<std::string, std::string>> m_calls;
  HandleLedger m_handles;
  std::set<HANDLE> m_adopted;
  std::uintptr_t m_nextHandle = 0x5a000010;
  std::deque<std::unique_ptr<std::byte[]>> m_memory;
  ImportPatch m_closeHandle;
  ImportPatch m_globalFree;
};

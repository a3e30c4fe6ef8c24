// The discovery threads that the library starts, and the handles that it leaves behind.
#pragma once

#include <windows.h>

#include <array>
#include <cstddef>
#include <mutex>
#include <optional>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"
#include "ScriptedWindows/ImportTable/PlainLock.h"
#include "Tests/Support/ServiceLibrary.h"

// Of every start but the latest of a service the library leaves two events and the thread's handle, on purpose. Unlike
// ThreadWatch this keeps nothing of a thread that has ended but those. End the threads before it.
class LibraryStarts : public OnlyOne<LibraryStarts> {
 public:
  explicit LibraryStarts(HMODULE module);
  ~LibraryStarts();

  std::size_t Count();

  // Whether no thread runs.
  bool HaveEnded();
  // False when one takes over 10 seconds.
  bool WaitForEnd();

  // Unloads the library, and with it the one service that started threads, and closes what earlier starts have left.
  // False when that was not just what was open.
  bool Unload(ServiceLibrary& library);

 private:
  using Event = HANDLE WINAPI(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*);
  using Thread = HANDLE WINAPI(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*);
  struct Made {
    DWORD by;
    HANDLE event;
  };

  void ForgetEnded();
  static HANDLE WINAPI CreateEventOf(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name);
  static HANDLE WINAPI CreateThreadOf(SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                                      void* argument, DWORD flags, DWORD* id);

  PlainLock m_lock;
  std::vector<HANDLE> m_running;  // our own handles
  std::vector<Made> m_events;     // of starts that have not come to their thread
  std::vector<std::array<HANDLE, 3>> m_starts;
  std::optional<ImportPatch> m_event;
  std::optional<ImportPatch> m_thread;
};

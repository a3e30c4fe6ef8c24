// The events of the code under test and its waits for them.
#pragma once

#include <vector>

#include "ScriptedWindows/Windows/WindowsScript.h"

// Watches the real events that the thread of the test makes in the module: unnamed, with manual reset, not signalled.
// Others, which the runtime makes for itself, are left alone. Complains when an event is set or reset after it was
// closed.
class ScriptedEvents : public OnlyOne<ScriptedEvents> {
 public:
  explicit ScriptedEvents(WindowsScript& script);

  // How long the code under test was ready to wait for each.
  std::vector<DWORD> Waits() const;
  // From now on such waits end at once, signalled or not.
  void CutWaitsShort();

 private:
  static HANDLE WINAPI CreateEventW(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR);
  static BOOL WINAPI SetEvent(HANDLE event);
  static BOOL WINAPI ResetEvent(HANDLE event);
  static DWORD WINAPI WaitForSingleObject(HANDLE handle, DWORD milliseconds);

  WindowsScript& m_script;
  mutable PlainLock m_lock;
  const DWORD m_thread = ::GetCurrentThreadId();
  std::vector<DWORD> m_waits;
  bool m_cutWaits = false;
  ImportPatch m_create;
  ImportPatch m_set;
  ImportPatch m_reset;
  ImportPatch m_wait;
};

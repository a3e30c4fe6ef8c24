#include "ScriptedWindows/Windows/ScriptedEvents.h"

#include <mutex>

ScriptedEvents::ScriptedEvents(WindowsScript& script)
    : m_script(script),
      m_create(script.Module(), "CreateEventW", &CreateEventW),
      m_set(script.Module(), "SetEvent", &SetEvent),
      m_reset(script.Module(), "ResetEvent", &ResetEvent),
      m_wait(script.Module(), "WaitForSingleObject", &WaitForSingleObject) {}

std::vector<DWORD> ScriptedEvents::Waits() const {
  const std::lock_guard lock(m_lock);
  return m_waits;
}

void ScriptedEvents::CutWaitsShort() { m_cutWaits = true; }

HANDLE WINAPI ScriptedEvents::CreateEventW(LPSECURITY_ATTRIBUTES attributes, BOOL manual, BOOL signalled,
                                           LPCWSTR name) {
  const HeapWatch::Pause pause;
  ScriptedEvents& self = Current();
  const bool ours = ::GetCurrentThreadId() == self.m_thread && manual && !signalled && name == nullptr;
  if (ours && !self.m_script.Enter("CreateEventW")) return nullptr;
  const HANDLE event = self.m_create.Original<HANDLE WINAPI(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCWSTR)>()(
      attributes, manual, signalled, name);
  if (ours && event != nullptr) self.m_script.Adopt("event", event);
  return event;
}

BOOL WINAPI ScriptedEvents::SetEvent(HANDLE event) {
  const BOOL done = Current().m_set.Original<BOOL WINAPI(HANDLE)>()(event);
  Require(done, "an event is set after it was closed");
  return done;
}

BOOL WINAPI ScriptedEvents::ResetEvent(HANDLE event) {
  const BOOL done = Current().m_reset.Original<BOOL WINAPI(HANDLE)>()(event);
  Require(done, "an event is reset after it was closed");
  return done;
}

DWORD WINAPI ScriptedEvents::WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  ScriptedEvents& self = Current();
  if (self.m_script.IsAdopted(handle)) {
    const HeapWatch::Pause pause;
    const std::lock_guard lock(self.m_lock);
    self.m_waits.push_back(milliseconds);
    if (self.m_cutWaits) milliseconds = 0;
  }
  return self.m_wait.Original<DWORD WINAPI(HANDLE, DWORD)>()(handle, milliseconds);
}

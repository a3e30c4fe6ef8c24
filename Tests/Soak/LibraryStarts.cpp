#include "Tests/Soak/LibraryStarts.h"

#include "ScriptedWindows/Complaint.h"

LibraryStarts::LibraryStarts(HMODULE module) {
  m_event.emplace(module, "CreateEventW", &CreateEventOf);
  m_thread.emplace(module, "CreateThread", &CreateThreadOf);
}

LibraryStarts::~LibraryStarts() { Require(HaveEnded(), "a thread of the library's has not ended"); }

std::size_t LibraryStarts::Count() {
  const std::lock_guard lock(m_lock);
  return m_starts.size();
}

void LibraryStarts::ForgetEnded() {
  std::erase_if(m_running, [](HANDLE thread) {
    return ::WaitForSingleObject(thread, 0) == WAIT_OBJECT_0 && ::CloseHandle(thread) != FALSE;
  });
}

bool LibraryStarts::HaveEnded() {
  const std::lock_guard lock(m_lock);
  ForgetEnded();
  return m_running.empty();
}

bool LibraryStarts::WaitForEnd() {
  {
    const std::lock_guard lock(m_lock);
    for (HANDLE thread : m_running) ::WaitForSingleObject(thread, 10'000);
  }
  return HaveEnded();
}

bool LibraryStarts::Unload(ServiceLibrary& library) {
  m_thread.reset();
  m_event.reset();
  library.Unload();
  bool wereOpen = true;
  for (std::size_t i = 0; i + 1 < m_starts.size(); ++i)
    for (HANDLE left : m_starts[i]) wereOpen = ::CloseHandle(left) != FALSE && wereOpen;
  m_starts.clear();
  return wereOpen;
}

HANDLE WINAPI LibraryStarts::CreateEventOf(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) {
  LibraryStarts& self = Current();
  HANDLE made = self.m_event->Original<Event>()(security, manual, set, name);
  const std::lock_guard lock(self.m_lock);
  self.m_events.push_back({::GetCurrentThreadId(), made});
  return made;
}

HANDLE WINAPI LibraryStarts::CreateThreadOf(SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                                            void* argument, DWORD flags, DWORD* id) {
  LibraryStarts& self = Current();
  const std::lock_guard lock(self.m_lock);
  HANDLE made = self.m_thread->Original<Thread>()(security, stack, start, argument, flags, id);
  // The caller has just made its two events.
  std::array<HANDLE, 3> handles{made};
  std::size_t known = 1;
  for (std::size_t i = self.m_events.size(); i > 0 && known < handles.size(); --i)
    if (self.m_events[i - 1].by == ::GetCurrentThreadId()) handles[known++] = self.m_events[i - 1].event;
  std::erase_if(self.m_events, [](const Made& event) { return event.by == ::GetCurrentThreadId(); });
  if (made == nullptr) return nullptr;
  self.m_starts.push_back(handles);
  self.ForgetEnded();
  HANDLE copy = nullptr;
  ::DuplicateHandle(::GetCurrentProcess(), made, ::GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS);
  self.m_running.push_back(copy);
  return made;
}

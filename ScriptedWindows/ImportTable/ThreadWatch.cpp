#include "ScriptedWindows/ImportTable/ThreadWatch.h"

namespace {

constexpr DWORD kDeadlineMs = 10'000;

}  // namespace

ThreadWatch::ThreadWatch(HMODULE module) : m_patch(module, "CreateThread", &Create) {}

ThreadWatch::~ThreadWatch() {
  for (const Start& start : m_starts) {
    Require(::WaitForSingleObject(start.thread, kDeadlineMs) == WAIT_OBJECT_0, "a thread does not end");
    ::CloseHandle(start.thread);
  }
}

std::size_t ThreadWatch::Count() const {
  const std::lock_guard lock(m_mutex);
  return m_starts.size();
}

ThreadWatch::Start ThreadWatch::At(std::size_t index) const {
  const std::lock_guard lock(m_mutex);
  return m_starts.at(index);
}

bool ThreadWatch::WaitForEnd(std::size_t newest) const {
  const std::size_t count = Count();
  for (std::size_t i = count - newest; i < count; ++i)
    if (::WaitForSingleObject(At(i).thread, kDeadlineMs) != WAIT_OBJECT_0) return false;
  return true;
}

bool ThreadWatch::HasEnded() const { return ::WaitForSingleObject(At(Count() - 1).thread, 0) == WAIT_OBJECT_0; }

HANDLE WINAPI ThreadWatch::Create(SECURITY_ATTRIBUTES* security, SIZE_T stackBytes, LPTHREAD_START_ROUTINE start,
                                  void* argument, DWORD flags, DWORD* id) {
  ThreadWatch& self = Current();
  const std::lock_guard lock(self.m_mutex);
  using CreateThreadFunction =
      HANDLE WINAPI(SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*);
  HANDLE handle = self.m_patch.Original<CreateThreadFunction>()(security, stackBytes, start, argument, flags, id);
  if (handle == nullptr) return nullptr;
  HANDLE copy = nullptr;
  Require(
      ::DuplicateHandle(::GetCurrentProcess(), handle, ::GetCurrentProcess(), &copy, 0, FALSE, DUPLICATE_SAME_ACCESS),
      "a thread's handle cannot be copied");
  self.m_starts.push_back({security, stackBytes, flags, handle, copy});
  return handle;
}

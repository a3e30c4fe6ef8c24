// The threads that a module starts.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <mutex>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"

// Notes the threads that the module starts while this lives. At its end it waits for all of them, since the module is
// about to lose what a test replaced; it complains of one that does not end within 10 seconds. Declare it last.
class ThreadWatch : public OnlyOne<ThreadWatch> {
 public:
  struct Start {
    const SECURITY_ATTRIBUTES* security;
    SIZE_T stackBytes;
    DWORD flags;
    HANDLE handle;  // as the module was given it
    HANDLE thread;  // our own handle of the thread
  };

  explicit ThreadWatch(HMODULE module);
  ~ThreadWatch();

  std::size_t Count() const;
  Start At(std::size_t index) const;

  // Waits for the newest thread, or so many of the newest. False when one takes over 10 seconds.
  bool WaitForEnd(std::size_t newest = 1) const;
  bool HasEnded() const;

 private:
  static HANDLE WINAPI Create(SECURITY_ATTRIBUTES* security, SIZE_T stackBytes, LPTHREAD_START_ROUTINE start,
                              void* argument, DWORD flags, DWORD* id);

  mutable std::mutex m_mutex;
  std::vector<Start> m_starts;
  ImportPatch m_patch;
};

// The waits of a module's threads for several handles at once.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"

// Notes the calls of WaitForMultipleObjects that the module makes while this lives.
class WaitWatch : public OnlyOne<WaitWatch> {
 public:
  struct Wait {
    std::vector<HANDLE> handles;
    BOOL all;
    DWORD ms;
  };

  explicit WaitWatch(HMODULE module);

  // How many waits have begun, and what they were.
  std::size_t Count() const;
  std::vector<Wait> Waits() const;

  // Waits until that many have begun in all. False when it takes over 10 seconds.
  bool WaitForCount(std::size_t count) const;

  // Waits until the newest one has no end, so that only a signal goes on from there. False when it takes over 10
  // seconds.
  bool WaitForEndlessWait() const;

  // Called when a wait has been noted and before it begins, on its thread.
  void OnWait(std::function<void()> hook);

  // Bounded waits time out after so long, at once by default, when nothing is signalled.
  void CutBoundedWaitsShort(DWORD longestMs = 0);

  // The next waits fail with the error, or answer with the result, and wait for nothing; once the number is used up,
  // they wait again.
  void Answer(std::size_t times, DWORD result, DWORD error);

 private:
  static DWORD WINAPI WaitForMultiple(DWORD count, const HANDLE* handles, BOOL all, DWORD ms);

  mutable std::mutex m_mutex;
  mutable std::condition_variable m_begun;
  std::vector<Wait> m_waits;
  std::function<void()> m_hook;
  DWORD m_longestMs = INFINITE;
  std::size_t m_answers = 0;
  DWORD m_result = 0;
  DWORD m_error = 0;
  ImportPatch m_patch;
};

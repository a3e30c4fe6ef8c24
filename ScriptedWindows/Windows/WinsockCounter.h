// The start-ups and clean-ups of Winsock that a module makes.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstddef>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"

// Counts start-ups and clean-ups, which go on to Winsock.
class WinsockCounter : public OnlyOne<WinsockCounter> {
 public:
  explicit WinsockCounter(HMODULE module);

  // Complains when a start-up that worked was not followed by a clean-up.
  ~WinsockCounter();

  // From now on start-ups return `result` and leave `lastError`.
  void FailWith(int result, int lastError);

  std::size_t Startups() const { return m_startups; }  // those that worked
  std::size_t Cleanups() const { return m_cleanups; }

 private:
  static int WSAAPI Startup(WORD version, WSADATA* data);
  static int WSAAPI Cleanup();

  std::size_t m_startups = 0;
  std::size_t m_cleanups = 0;
  int m_result = 0;
  int m_lastError = 0;
  ImportPatch m_startup;
  ImportPatch m_cleanup;
};

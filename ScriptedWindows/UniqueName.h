// Names for what tests make outside their process: they share one registry and one file system, and run side by side.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <string>

// "<process>-<number>": no other test that runs now has it. A process that crashed may have left something of that name
// behind, as numbers of processes come again.
inline std::wstring UniqueName() {
  static std::atomic<int> s_count = 0;
  return std::to_wstring(::GetCurrentProcessId()) + L"-" + std::to_wstring(++s_count);
}

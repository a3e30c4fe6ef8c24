// The Windows and the log that the measured library and the floors share. Both sides pay the same for them: the library
// through its import table, the floors through these pointers, which the compiler may not see through either.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <iphlpapi.h>

#include <LogLib.h>

#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/AdapterList.h"

// The logging library's four functions, as they are exported.
struct LogCalls {
  LogUtils::LogManager* (*volatile manager)();
  void (*volatile construct)(void* event, const char* file, int line, int severity, const char* source,
                             LogUtils::LogManager* manager, int, int);
  void (*volatile wide)(const void* event, const char* component, const wchar_t* format, ...);
  void (*volatile narrow)(const void* event, const char* component, const char* format, ...);
};
LogCalls LogCallsOf(HMODULE logLibrary);
extern LogCalls logCalls;  // the logging library's, unless there is an EmptyLog

// While it lives, what is logged goes nowhere, at the cost of the calls.
class EmptyLog {
 public:
  explicit EmptyLog(HMODULE library);
  ~EmptyLog();
  EmptyLog(const EmptyLog&) = delete;
  EmptyLog& operator=(const EmptyLog&) = delete;

 private:
  LogCalls m_before;
  std::deque<ImportPatch> m_patches;
};

// How often each call was made, by whichever side.
struct CallCounts {
  std::size_t adapters = 0;
  std::size_t addressTable = 0;
  std::size_t comStarts = 0;
  std::size_t comEnds = 0;
  std::size_t addressTexts = 0;
  std::size_t keysOpened = 0;
  std::size_t valuesSet = 0;
  std::size_t keysFlushed = 0;
  std::size_t keysClosed = 0;

  auto operator<=>(const CallCounts&) const = default;
};
extern CallCounts callCounts;

struct WindowsCalls {
  decltype(&::GetAdaptersAddresses) volatile getAdaptersAddresses;
  decltype(&::GetIpAddrTable) volatile getIpAddrTable;
  decltype(&::CoInitializeEx) volatile coInitializeEx;
  decltype(&::CoUninitialize) volatile coUninitialize;
  decltype(&::inet_ntop) volatile inetNtop;
  decltype(&::RegOpenKeyExW) volatile regOpenKeyExW;
  decltype(&::RegSetValueExW) volatile regSetValueExW;
  decltype(&::RegFlushKey) volatile regFlushKey;
  decltype(&::RegCloseKey) volatile regCloseKey;
};
extern const WindowsCalls windowsCalls;

// A registry that holds the library's value or nothing, and forgets what is written. It costs next to nothing.
class QuickRegistry {
 public:
  explicit QuickRegistry(HMODULE library);
  ~QuickRegistry();
  QuickRegistry(const QuickRegistry&) = delete;
  QuickRegistry& operator=(const QuickRegistry&) = delete;

  // What is stored; without bytes the key is not there. Writing succeeds anyhow.
  void Store(std::vector<std::uint8_t> bytes);
  // Whether the key can be opened although nothing is stored.
  void MakeKey(bool isThere);

 private:
  std::deque<ImportPatch> m_patches;
};

// Adapters, address table and COM that cost next to nothing. inet_ntop is the system's own, and counted.
class QuickMachine {
 public:
  QuickMachine(HMODULE library, const AdapterList& adapters);
  ~QuickMachine();
  QuickMachine(const QuickMachine&) = delete;
  QuickMachine& operator=(const QuickMachine&) = delete;

 private:
  AdapterList::Block m_adapters;
  std::deque<ImportPatch> m_patches;
};

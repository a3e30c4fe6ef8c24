// Stand-ins for Winsock's calls in one loaded module, which also watch that everything is given back.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <cstddef>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"

// Counts start-ups and clean-ups, which go on to Winsock. At most one lives at a time; so with the next class.
class WinsockCounter {
 public:
  explicit WinsockCounter(HMODULE module);

  // Fails the test when a start-up that worked was not followed by a clean-up.
  ~WinsockCounter();
  WinsockCounter(const WinsockCounter&) = delete;
  WinsockCounter& operator=(const WinsockCounter&) = delete;

  // From now on start-ups return `result` and leave `lastError`.
  void FailWith(int result, int lastError);

  std::size_t Startups() const { return m_startups; }  // those that worked
  std::size_t Cleanups() const { return m_cleanups; }

 private:
  static int WSAAPI Startup(WORD version, WSADATA* data);
  static int WSAAPI Cleanup();

  static WinsockCounter* s_current;
  std::size_t m_startups = 0;
  std::size_t m_cleanups = 0;
  int m_result = 0;
  int m_lastError = 0;
  ImportPatch m_startup;
  ImportPatch m_cleanup;
};

// Answers GetAddrInfoW without asking the network: numeric addresses as Winsock does, names as told, and nothing else.
class OfflineAddrInfo {
 public:
  explicit OfflineAddrInfo(HMODULE module);

  // Fails the test when a result was not freed.
  ~OfflineAddrInfo();
  OfflineAddrInfo(const OfflineAddrInfo&) = delete;
  OfflineAddrInfo& operator=(const OfflineAddrInfo&) = delete;

  // The text resolves to addresses of these families, in this order.
  void Answer(const std::wstring& text, const std::vector<int>& families) { m_answers[text] = families; }

  // From now on every call returns `result` and leaves `lastError`.
  void FailWith(int result, int lastError);

  const std::vector<std::wstring>& Asked() const { return m_asked; }

 private:
  static INT WSAAPI Resolve(PCWSTR node, PCWSTR service, const ADDRINFOW* hints, ADDRINFOW** result);
  static void WSAAPI Free(ADDRINFOW* list);
  ADDRINFOW* Compose(const std::vector<int>& families);

  static OfflineAddrInfo* s_current;
  std::map<std::wstring, std::vector<int>> m_answers;
  std::vector<std::wstring> m_asked;
  std::set<ADDRINFOW*> m_outstanding;
  std::map<ADDRINFOW*, std::vector<ADDRINFOW>> m_composed;
  int m_result = 0;
  int m_lastError = 0;
  ImportPatch m_get;
  ImportPatch m_free;
};

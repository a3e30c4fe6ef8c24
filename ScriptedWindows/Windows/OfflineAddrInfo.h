// Names and addresses that are resolved without a network.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"

// Answers GetAddrInfoW without asking the network: numeric addresses as Winsock does, names as told, and nothing else.
class OfflineAddrInfo : public OnlyOne<OfflineAddrInfo> {
 public:
  explicit OfflineAddrInfo(HMODULE module);

  // Complains when a result was not freed.
  ~OfflineAddrInfo();

  // The text resolves to addresses of these families, in this order.
  void Answer(const std::wstring& text, const std::vector<int>& families) { m_answers[text] = families; }

  // From now on every call returns `result` and leaves `lastError`.
  void FailWith(int result, int lastError);

  const std::vector<std::wstring>& Asked() const { return m_asked; }

 private:
  static INT WSAAPI Resolve(PCWSTR node, PCWSTR service, const ADDRINFOW* hints, ADDRINFOW** result);
  static void WSAAPI Free(ADDRINFOW* list);
  ADDRINFOW* Compose(const std::vector<int>& families);

  std::map<std::wstring, std::vector<int>> m_answers;
  std::vector<std::wstring> m_asked;
  std::set<ADDRINFOW*> m_outstanding;
  std::map<ADDRINFOW*, std::vector<ADDRINFOW>> m_composed;
  int m_result = 0;
  int m_lastError = 0;
  ImportPatch m_get;
  ImportPatch m_free;
};

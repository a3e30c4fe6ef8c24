#include "ScriptedWindows/Windows/WinsockFakes.h"

#include <gtest/gtest.h>

WinsockCounter* WinsockCounter::s_current = nullptr;
OfflineAddrInfo* OfflineAddrInfo::s_current = nullptr;

WinsockCounter::WinsockCounter(HMODULE module)
    : m_startup(module, "WSAStartup", &Startup), m_cleanup(module, "WSACleanup", &Cleanup) {
  s_current = this;
}

WinsockCounter::~WinsockCounter() {
  EXPECT_EQ(m_startups, m_cleanups) << "start-ups and clean-ups of Winsock";
  s_current = nullptr;
}

void WinsockCounter::FailWith(int result, int lastError) {
  m_result = result;
  m_lastError = lastError;
}

int WSAAPI WinsockCounter::Startup(WORD version, WSADATA* data) {
  EXPECT_EQ(version, 0x0202);
  if (s_current->m_result != 0) {
    ::WSASetLastError(s_current->m_lastError);
    return s_current->m_result;
  }
  ++s_current->m_startups;
  return s_current->m_startup.Original<int WSAAPI(WORD, WSADATA*)>()(version, data);
}

int WSAAPI WinsockCounter::Cleanup() {
  ++s_current->m_cleanups;
  return s_current->m_cleanup.Original<int WSAAPI()>()();
}

OfflineAddrInfo::OfflineAddrInfo(HMODULE module)
    : m_get(module, "GetAddrInfoW", &Resolve), m_free(module, "FreeAddrInfoW", &Free) {
  s_current = this;
}

OfflineAddrInfo::~OfflineAddrInfo() {
  EXPECT_TRUE(m_outstanding.empty()) << m_outstanding.size() << " results were not freed";
  s_current = nullptr;
}

void OfflineAddrInfo::FailWith(int result, int lastError) {
  m_result = result;
  m_lastError = lastError;
}

ADDRINFOW* OfflineAddrInfo::Compose(const std::vector<int>& families) {
  if (families.empty()) return nullptr;
  std::vector<ADDRINFOW> entries(families.size());
  for (std::size_t i = 0; i < entries.size(); ++i) {
    entries[i].ai_family = families[i];
    entries[i].ai_next = i + 1 < entries.size() ? &entries[i + 1] : nullptr;
  }
  ADDRINFOW* const first = entries.data();
  m_composed[first] = std::move(entries);  // moving keeps the entries where they are
  return first;
}

INT WSAAPI OfflineAddrInfo::Resolve(PCWSTR node, PCWSTR service, const ADDRINFOW* hints, ADDRINFOW** result) {
  OfflineAddrInfo& self = *s_current;
  EXPECT_EQ(service, nullptr);
  EXPECT_EQ(hints, nullptr);
  self.m_asked.emplace_back(node);
  if (self.m_result != 0) {
    ::WSASetLastError(self.m_lastError);
    return self.m_result;
  }
  INT status = 0;
  if (const auto answer = self.m_answers.find(node); answer != self.m_answers.end()) {
    *result = self.Compose(answer->second);
  } else {
    ADDRINFOW numeric{};
    numeric.ai_flags = AI_NUMERICHOST;
    status = self.m_get.Original<decltype(Resolve)>()(node, nullptr, &numeric, result);
  }
  if (status == 0 && *result != nullptr) self.m_outstanding.insert(*result);
  return status;
}

void WSAAPI OfflineAddrInfo::Free(ADDRINFOW* list) {
  OfflineAddrInfo& self = *s_current;
  EXPECT_EQ(self.m_outstanding.erase(list), 1u) << "freed what was not handed out, or twice";
  if (self.m_composed.erase(list) == 0) self.m_free.Original<decltype(Free)>()(list);
}

#include "ScriptedWindows/Windows/OfflineAddrInfo.h"

OfflineAddrInfo::OfflineAddrInfo(HMODULE module)
    : m_get(module, "GetAddrInfoW", &Resolve), m_free(module, "FreeAddrInfoW", &Free) {}

OfflineAddrInfo::~OfflineAddrInfo() {
  if (!(m_outstanding.empty())) Complain(std::to_string(m_outstanding.size()) + " results were not freed");
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
  OfflineAddrInfo& self = Current();
  Require(service == nullptr);
  Require(hints == nullptr);
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
  OfflineAddrInfo& self = Current();
  Require(self.m_outstanding.erase(list) == 1u, "freed what was not handed out, or twice");
  if (self.m_composed.erase(list) == 0) self.m_free.Original<decltype(Free)>()(list);
}

#include "QeLaC/Library.h"

#include <atomic>
#include <memory>

#include "QeLaC/ErrorLine.h"

namespace {

// Never destroyed: the library's thread may still be in a calculation when the process ends.
std::atomic<Library*> g_library = nullptr;

CRITICAL_SECTION& OwnSection() noexcept {
  static CRITICAL_SECTION* const section = [] {
    static CRITICAL_SECTION one;
    ::InitializeCriticalSection(&one);
    return &one;
  }();
  return *section;
}

}  // namespace

Library::Library(CRITICAL_SECTION* hostLock, CRITICAL_SECTION& section)
    : m_hostLock(hostLock), m_lock(section), m_api(::GetQeLaApiSmart(reinterpret_cast<CQeCriticalSection*>(&section))) {
  m_api->SetErrorPrinter(&PrintErrorLine);
}

Library* Library::Make(CRITICAL_SECTION* hostLock) {
  std::unique_ptr<Library> made(new Library(hostLock, hostLock != nullptr ? *hostLock : OwnSection()));
  if (!made->UsesOurLock()) return nullptr;
  return g_library = made.release();
}

bool Library::UsesOurLock() {
  m_api->Lock();
  const bool ours = m_lock.IsHeldHere();
  m_api->Unlock();
  return ours;
}

Library* Library::Get() noexcept { return g_library; }

std::vector<std::wstring> IdsOf(const _IEnumQeLocations& locations) {
  std::vector<std::wstring> ids;
  const std::uint64_t count = locations.GetCount();
  ids.reserve(count);
  for (std::uint64_t i = 0; i < count; ++i) ids.push_back(locations.GetItem(i)->GetId());
  return ids;
}

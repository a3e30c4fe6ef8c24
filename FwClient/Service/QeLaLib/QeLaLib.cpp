#include "FwClient/Service/QeLaLib/QeLaLib.h"

#include <new>

#include "FwClient/Common/Utilities/ScopeGuards.h"

_IQeLaApi* GetQeLaApi() {
  static CQeLaLib* const instance = new CQeLaLib(nullptr, true);
  return instance;
}

std::shared_ptr<_IQeLaApiSmart> GetQeLaApiSmart(CQeCriticalSection* hostLock) {
  static const std::shared_ptr<CQeLaLib> instance(new CQeLaLib(hostLock, false), &CQeLaLib::Destroy);
  return instance;
}

CQeLaLib::CQeLaLib(CQeCriticalSection* hostLock, bool autoSave, NotLoaded)
    : m_lock(reinterpret_cast<CRITICAL_SECTION*>(hostLock)), m_externalLock(hostLock != nullptr), m_autoSave(autoSave) {
  if (m_externalLock) return;
  m_lock = new CRITICAL_SECTION;
  ::InitializeCriticalSection(m_lock);
}

// By delegation the object is whole before it loads, so that a failure for want of memory destroys it properly.
CQeLaLib::CQeLaLib(CQeCriticalSection* hostLock, bool autoSave) : CQeLaLib(hostLock, autoSave, NotLoaded{}) { Load(); }

// The order is part of the contract with hosts that watch it: the lock goes before the handles, and is never taken
// here.
CQeLaLib::~CQeLaLib() {
  if (!m_externalLock) {
    ::DeleteCriticalSection(m_lock);
    delete m_lock;
  }
  m_adapters.clear();
  for (HANDLE handle : {m_refreshEvent, m_stopEvent, m_discoveryThread})
    if (handle != nullptr) ::CloseHandle(handle);
  m_currentLocationIds.clear();
  m_locations.Clear();
}

void CQeLaLib::Delete(CQeLaLib* service) noexcept {
  // Not `delete`: the interfaces have no virtual destructor, since it would take slots.
  service->CQeLaLib::~CQeLaLib();
  ::operator delete(service);
}

std::uint32_t CQeLaLib::AddRef() { return ++m_refCount; }

std::uint32_t CQeLaLib::Release() {
  const std::uint32_t count = --m_refCount;
  if (count == 0) Destroy(this);
  return count;
}

void CQeLaLib::Lock() { ::EnterCriticalSection(m_lock); }

void CQeLaLib::Unlock() { ::LeaveCriticalSection(m_lock); }

void CQeLaLib::SetErrorPrinter(QeLaErrorPrinter printer) { errorPrinter = printer; }

std::shared_ptr<_IQeLocation> CQeLaLib::CreateLocation() { return std::make_shared<CQeLocation>(); }

std::shared_ptr<_IEnumQeLocations> CQeLaLib::CreateLocations() { return std::make_shared<CQeLocations>(); }

template <typename Change>
auto CQeLaLib::Edit(Change change) {
  const CriticalSectionGuard lock(*m_lock);
  const auto result = change();
  if (m_autoSave) Save();
  return result;
}

std::uint32_t CQeLaLib::AddLocation(std::shared_ptr<_IQeLocation> location) {
  return Edit([&] { return m_locations.Add(location.get()); });
}

std::uint32_t CQeLaLib::RemoveLocation(const std::wstring& id) {
  return Edit([&] { return m_locations.Remove(id); });
}

bool CQeLaLib::RemoveAllLocations() {
  return Edit([&] {
    m_locations.Clear();
    return true;
  });
}

std::uint32_t CQeLaLib::UpdateLocation(std::shared_ptr<_IQeLocation> location) {
  return Edit([&] { return m_locations.Update(location.get()); });
}

std::shared_ptr<_IQeLocation> CQeLaLib::GetLocation(const std::wstring& id) {
  const CriticalSectionGuard lock(*m_lock);
  return m_locations.FindLocation(id);
}

std::shared_ptr<_IEnumQeLocations> CQeLaLib::GetCurrentLocations() {
  auto current = std::make_shared<CQeLocations>();
  const CriticalSectionGuard lock(*m_lock);
  // The rule of adding holds here too: an ID that is current twice is listed once, and a location whose criteria cannot
  // all be added (a stored set that holds one twice) is left out.
  for (const std::wstring& id : m_currentLocationIds)
    if (const CQeLocation* location = m_locations.Find(id); location != nullptr) current->Add(location);
  return current;
}

std::shared_ptr<_IEnumQeLocations> CQeLaLib::GetLocations() { return std::make_shared<CQeLocations>(m_locations); }

bool CQeLaLib::MatchAddressSpecification(const std::vector<std::wstring>&, const std::uint32_t*, const std::wstring&,
                                         const std::wstring&) {
  return false;
}

bool CQeLaLib::MatchAdapterAddresses(const std::uint32_t*, const std::wstring&, const std::wstring&) { return false; }

bool CQeLaLib::IsAdapterMediaType(std::uint8_t, const std::vector<std::uint32_t>&) { return false; }

std::vector<std::wstring> CQeLaLib::GetMacAddresses() { return {}; }

bool CheckZeltReachability() { return false; }

bool IsDomainReachable(const std::wstring&) { return false; }

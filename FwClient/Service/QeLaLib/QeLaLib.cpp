#include "FwClient/Service/QeLaLib/QeLaLib.h"

#include <windns.h>

#include <algorithm>
#include <new>

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Common/Utilities/RegistryText.h"
#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "FwClient/Service/QeLaLib/AdapterQueries.h"
#include "FwClient/Service/QeLaLib/AddressSpecification.h"
#include "FwClient/Service/QeLaLib/ProxyContext.h"
#include "FwClient/Service/QeLaLib/ValidateHttpsConnection.h"
#include "FwClient/Service/QeLaLib/ValidateHttpsConnectionAsUser.h"
#include "FwClient/Service/QeLaLib/ZeltServerList.h"

namespace {

// Where the management agent keeps its servers. An agent of 32 bits keeps them in the 32-bit view.
constexpr wchar_t kAgentKey[] = L"SOFTWARE\\Quillon\\Mervo\\Shared Components\\Framework";
constexpr wchar_t kServerListValue[] = L"ZeltServerList";

struct DnsRecordsTraits {
  using Handle = PDNS_RECORD;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::DnsFree(handle, DnsFreeRecordList); }
};
using UniqueDnsRecords = UniqueHandle<DnsRecordsTraits>;

LSTATUS OpenAgentKey(REGSAM access, UniqueRegKey& key) noexcept {
  return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kAgentKey, 0, access, key.put());
}

LSTATUS QueryServerListSize(HKEY key, DWORD& bytes) noexcept {
  DWORD type = REG_SZ;
  return ::RegQueryValueExW(key, kServerListValue, nullptr, &type, nullptr, &bytes);
}

// Reads a value of that size, whatever its type.
LSTATUS QueryServerList(HKEY key, DWORD bytes, std::wstring& text) {
  std::vector<wchar_t> buffer(bytes / sizeof(wchar_t) + 1);
  DWORD type = REG_SZ;
  const LSTATUS status = QueryRegistryText(key, kServerListValue, type, buffer.data(), bytes);
  if (status == ERROR_SUCCESS) text = buffer.data();
  return status;
}

std::wstring ReadZeltServerListOf32BitView() {
  UniqueRegKey key;
  LSTATUS status = OpenAgentKey(KEY_READ | KEY_WOW64_32KEY, key);
  if (status != ERROR_SUCCESS) {
    FW_LOG(kLogInfo, L"CheckZeltReachability RegOpenKey KEY_WOW64_32KEY failed with %ld", status);
    return {};
  }
  DWORD bytes = 0;
  std::wstring text;
  status = QueryServerListSize(key.get(), bytes);
  if (status == ERROR_SUCCESS) status = QueryServerList(key.get(), bytes, text);
  if (status != ERROR_SUCCESS) {
    FW_LOG(kLogInfo, L"CheckZeltReachability RegQueryValueEx KEY_WOW64_32KEY failed with %ld", status);
    return {};
  }
  FW_LOG(kLogInfo, L"CheckZeltReachability found ZeltServerList value %s at the alternate KEY_WOW64_32KEY location",
         text.c_str());
  return text;
}

// Empty when there is none. The 32-bit view is looked at only when the first view has the key without the value: not
// when the key is missing, nor when the value can be sized and then not be read.
std::wstring ReadZeltServerList() {
  UniqueRegKey key;
  LSTATUS status = OpenAgentKey(KEY_READ, key);
  if (status != ERROR_SUCCESS) {
    FW_LOG(kLogInfo, L"CheckZeltReachability RegOpenKey failed with %ld", status);
    return {};
  }
  DWORD bytes = 0;
  status = QueryServerListSize(key.get(), bytes);
  if (status != ERROR_SUCCESS) {
    FW_LOG(kLogInfo, L"CheckZeltReachability RegQueryValueEx failed with %ld (this is expected on x64 systems)",
           status);
    key.reset();
    return ReadZeltServerListOf32BitView();
  }
  std::wstring text;
  status = QueryServerList(key.get(), bytes, text);
  if (status != ERROR_SUCCESS) {
    // Two blanks before the parenthesis: they tell this failure from the one above. Kept on purpose; guarded by
    // ManagementServerProbe.AListThatCanBeSizedButNotReadIsNegative.
    FW_LOG(kLogInfo, L"CheckZeltReachability RegQueryValueEx failed with %ld  (this is expected on x64 systems)",
           status);
    return {};
  }
  FW_LOG(kLogInfo, L"CheckZeltReachability found ZeltServerList value %s", text.c_str());
  return text;
}

// Asks the name servers themselves: what the cache knows may be from another network.
bool IsKnownToDns(const std::wstring& name) {
  UniqueDnsRecords records;
  const DNS_STATUS status =
      ::DnsQuery_W(name.c_str(), DNS_TYPE_A, DNS_QUERY_BYPASS_CACHE, nullptr, records.put(), nullptr);
  // Written after the query although it reads as if before it: the line's time is that of the answer. Kept on purpose;
  // guarded by ManagementServerProbe.StopsAtTheFirstNameThatAnswers.
  FW_LOG(kLogInfo, L"IsZELTReachable calling DnsQuery on %s", name.c_str());
  if (status != 0) {
    FW_LOG(kLogInfo, L"ZELT reachability failed with DNS_STATUS %ld", status);
    return false;
  }
  FW_LOG(kLogInfo, L"ZELT reachability DnsQuery succeeded");
  return true;
}

}  // namespace

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
CQeLaLib::CQeLaLib(CQeCriticalSection* hostLock, bool autoSave) : CQeLaLib(hostLock, autoSave, NotLoaded{}) {
  LoadWhileConstructing();
}

// The order is part of the contract with hosts that watch it: the lock goes before the handles, and is never taken
// here.
CQeLaLib::~CQeLaLib() {
  if (!m_externalLock) {
    ::DeleteCriticalSection(m_lock);
    delete m_lock;
  }
  m_adapters = NoAdapters();
  for (HANDLE handle : {m_refreshEvent, m_stopEvent, m_discoveryThread})
    if (handle != nullptr) ::CloseHandle(handle);
  m_currentLocationIds.clear();
  m_locations.reset();
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

CQeLocations& CQeLaLib::LocationsToEdit() {
  if (m_locations.use_count() > 1) m_locations = std::make_shared<CQeLocations>(*m_locations);
  return *m_locations;
}

template <typename Change>
auto CQeLaLib::Edit(Change change) {
  const CriticalSectionGuard lock(*m_lock);
  const auto result = change();
  if (m_autoSave) Save();
  return result;
}

std::uint32_t CQeLaLib::AddLocation(std::shared_ptr<_IQeLocation> location) {
  return Edit(
      [&] { return CQeLocations::Add([this]() -> CQeLocations& { return LocationsToEdit(); }, location.get()); });
}

std::uint32_t CQeLaLib::RemoveLocation(const std::wstring& id) {
  return Edit([&] { return LocationsToEdit().Remove(id); });
}

bool CQeLaLib::RemoveAllLocations() {
  return Edit([&] {
    LocationsToEdit().Clear();
    return true;
  });
}

std::uint32_t CQeLaLib::UpdateLocation(std::shared_ptr<_IQeLocation> location) {
  return Edit(
      [&] { return CQeLocations::Update([this]() -> CQeLocations& { return LocationsToEdit(); }, location.get()); });
}

std::shared_ptr<_IQeLocation> CQeLaLib::GetLocation(const std::wstring& id) {
  const CriticalSectionGuard lock(*m_lock);
  return m_locations->FindLocation(id);
}

std::shared_ptr<_IEnumQeLocations> CQeLaLib::GetCurrentLocations() {
  auto current = std::make_shared<CQeLocations>();
  const CriticalSectionGuard lock(*m_lock);
  // The rule of adding holds here too: an ID that is current twice is listed once, and a location whose criteria cannot
  // all be added (a stored set that holds one twice) is left out.
  current->AddFrom(*m_locations, m_currentLocationIds);
  return current;
}

std::shared_ptr<_IEnumQeLocations> CQeLaLib::GetLocations() { return std::make_shared<CQeLocations>(*m_locations); }

bool CQeLaLib::MatchAddressSpecification(const std::vector<std::wstring>& addresses, const std::uint32_t* kind,
                                         const std::wstring& first, const std::wstring& second) {
  return ::MatchAddressSpecification(addresses, kind, first, second);
}

bool CQeLaLib::MatchAdapterAddresses(const std::uint32_t* kind, const std::wstring& first, const std::wstring& second) {
  const SharedAdapters adapters = m_adapters;
  // Through the interface, so that an override of the question decides here too.
  return std::any_of(adapters->begin(), adapters->end(), [&](const AdapterProps& adapter) {
    return MatchAddressSpecification(adapter.ipAddresses, kind, first, second);
  });
}

bool CQeLaLib::IsAdapterMediaType(std::uint8_t mask, const std::vector<std::uint32_t>& ifIndexes) {
  const SharedAdapters adapters = m_adapters;
  return IsAnyAdapterOfMediaType(*adapters, mask, ifIndexes);
}

std::vector<std::wstring> CQeLaLib::GetMacAddresses() { return CollectMacAddresses(*m_adapters); }

bool CheckZeltReachability() {
  // Nothing is asked for with a user's identity. IsDomainReachable's attempts see to that themselves.
  if (!ThreadActsAsItself()) return false;
  for (const std::wstring& name : ParseZeltServerList(ReadZeltServerList())) {
    if (IsKnownToDns(name)) {
      FW_LOG(kLogInfo, L"CheckZeltReachability succeeded for %s", name.c_str());
      return true;
    }
    FW_LOG(kLogInfo, L"CheckZeltReachability failed for %s", name.c_str());
  }
  return false;
}

bool IsDomainReachable(const std::wstring& host) {
  ProxyContext context;
  const bool reachable = ValidateHttpsConnection(host, {}, {}, {}) ||
                         ValidateHttpsConnectionAutoProxy(context, host, {}, {}, {}) ||
                         ValidateHttpsConnectionAsUser(context, host);
  if (reachable)
    FW_LOG(kLogInfo, L"IsDomainReachable was able to match domain %s", host.c_str());
  else
    FW_LOG(kLogInfo, L"IsDomainReachable was unable to match domain %s", host.c_str());
  return reachable;
}

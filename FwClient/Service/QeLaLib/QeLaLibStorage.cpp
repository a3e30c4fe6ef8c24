// The stored location set: Load and Save.
#include <new>
#include <utility>

#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Service/QeLaLib/LaRegistry.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "FwClient/Service/QeLaLib/StoredSetRecord.h"

bool CQeLaLib::ReadStoredSet() {
  RestoreThreadIdentity();  // where a probe left the thread with a user's, who may not be shown the value
  try {
    std::vector<std::uint8_t> bytes;
    ReadLaValue(kLaKey, kLaValue, bytes);  // whatever fails leaves no bytes, which load as nothing
    if (bytes.empty()) return false;
    ReadObject(*m_locations, bytes, UnpackStoredSet,
               [this](CQeLocations&& read) { m_locations = std::make_shared<CQeLocations>(std::move(read)); });
    return true;
  } catch (const std::bad_alloc&) {
    PrintReadFailure(kClassName);
    throw;
  } catch (...) {
    PrintReadFailure(kClassName);
    return false;
  }
}

void CQeLaLib::LoadWhileConstructing() {
  const CriticalSectionGuard lock(*m_lock);
  ReadStoredSet();
  CalculateCurrentLocations();
}

bool CQeLaLib::Load() {
  const CriticalSectionGuard lock(*m_lock);
  const std::shared_ptr<CQeLocations> before = m_locations;
  bool loaded = false;
  try {
    loaded = ReadStoredSet();
  } catch (const std::bad_alloc&) {  // told to the printer
  }
  const std::shared_ptr<CQeLocations> read = m_locations;
  try {
    CalculateCurrentLocations();
  } catch (const std::bad_alloc&) {
    // A load goes through as a whole or not at all, unless the host has edited what it loaded, inside the calculation.
    if (loaded && m_locations == read) m_locations = before;
    return false;
  }
  return loaded;
}

bool CQeLaLib::Save() {
  const CriticalSectionGuard lock(*m_lock);
  CalculateCurrentLocations();
  // Before the set is written: the host learns what is current even where it cannot be stored.
  if (m_discoveryRunning) ::SetEvent(m_refreshEvent);
  std::vector<std::uint8_t> bytes;
  // A probe may have left the thread with the user's identity; the service's registry is not written with it.
  return SerializeObject(*this, bytes) && RestoreThreadIdentity() &&
         WriteLaValue(kLaKey, kLaValue, bytes) == ERROR_SUCCESS;
}

void CQeLaLib::Pack(LaPacker& packer) const { PackStoredSet(*m_locations, packer); }

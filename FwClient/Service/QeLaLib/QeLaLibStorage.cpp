// The stored location set: Load and Save.
#include <new>
#include <utility>

#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Service/QeLaLib/LaRegistry.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"

namespace {

constexpr wchar_t kLaKey[] = L"SOFTWARE\\Corvane\\Tessel\\Firewall\\LA";
constexpr wchar_t kLaValue[] = L"la";

}  // namespace

bool CQeLaLib::ReadStoredSet(CQeLocations& replaced) {
  RestoreThreadIdentity();  // where a probe left the thread with a user's, who may not be shown the value
  ++m_edits;
  try {
    std::vector<std::uint8_t> bytes;
    ReadLaValue(kLaKey, kLaValue, bytes);  // whatever fails leaves no bytes, which load as nothing
    if (bytes.empty()) return false;
    replaced = ConvertBytes(m_locations, bytes, [](CQeLocations& locations, const msgpack::object& tree) {
      LaRecord record(tree);
      record.Next([&](const msgpack::object& field) { locations.Unpack(field); });
    });
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
  CQeLocations replaced;
  ReadStoredSet(replaced);
  CalculateCurrentLocations();
}

bool CQeLaLib::Load() {
  const CriticalSectionGuard lock(*m_lock);
  CQeLocations replaced;
  bool loaded = false;
  try {
    loaded = ReadStoredSet(replaced);
  } catch (const std::bad_alloc&) {  // told to the printer
  }
  const std::uint64_t edits = m_edits;
  try {
    CalculateCurrentLocations();
  } catch (const std::bad_alloc&) {
    // A load goes through as a whole or not at all, unless the host has edited what it loaded, inside the calculation.
    if (loaded && edits == m_edits) m_locations = std::move(replaced);
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

void CQeLaLib::Pack(LaPacker& packer) const {
  packer.Array(1);
  m_locations.Pack(packer);
}

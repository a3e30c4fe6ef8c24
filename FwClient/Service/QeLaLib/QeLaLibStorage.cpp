// The stored location set: Load and Save.
#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Service/QeLaLib/LaRegistry.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"

namespace {

constexpr wchar_t kLaKey[] = L"SOFTWARE\\Corvane\\Tessel\\Firewall\\LA";
constexpr wchar_t kLaValue[] = L"la";

}  // namespace

bool CQeLaLib::Load() {
  const CriticalSectionGuard lock(*m_lock);
  std::vector<std::uint8_t> bytes;
  ReadLaValue(kLaKey, kLaValue, bytes);  // whatever fails leaves no bytes, which load as nothing
  ++m_edits;
  const bool loaded = DeserializeObject(*this, bytes);
  CalculateCurrentLocations();
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

void CQeLaLib::Unpack(const msgpack::object& object) {
  LaRecord record(object);
  record.Next([&](const msgpack::object& field) { m_locations.Unpack(field); });
}

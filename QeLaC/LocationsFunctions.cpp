// The functions of a collection.
#include <QeLaLocation.h>

#include "QeLaC/ServiceCalls.h"

qela_status QELA_CALL qela_locations_release(qela_locations* locations) { return Release(locations); }

qela_status QELA_CALL qela_locations_count(qela_locations* locations, uint32_t* count) {
  return WithObject(locations, [&](const _IEnumQeLocations& self) {
    if (count == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    *count = static_cast<std::uint32_t>(self.GetCount());
    return QELA_STATUS_OK;
  });
}

qela_status QELA_CALL qela_locations_at(qela_locations* locations, uint32_t index, qela_location** location) {
  if (location != nullptr) *location = nullptr;
  return WithObject(locations, [&](const _IEnumQeLocations& self) {
    if (location == nullptr) return QELA_STATUS_INVALID_ARGUMENT;
    return HandOut(self.GetItem(index), location);
  });
}

qela_status QELA_CALL qela_locations_find(qela_locations* locations, const wchar_t* id, qela_location** location) {
  if (location != nullptr) *location = nullptr;
  return WithObject(locations, [&](const _IEnumQeLocations& self) {
    if (AnyNull(id, location)) return QELA_STATUS_INVALID_ARGUMENT;
    return HandOut(self.FindLocation(id), location);
  });
}

qela_status QELA_CALL qela_locations_to_bytes(qela_locations* locations, void* bytes, uint32_t* length) {
  return WithObject(locations, [&](const _IEnumQeLocations& self) { return ToBytes(self, bytes, length); });
}

qela_status QELA_CALL qela_locations_from_bytes(qela_locations* locations, const void* bytes, uint32_t length) {
  return WithObject(locations, [&](_IEnumQeLocations& self) { return FromBytes(self, bytes, length); });
}

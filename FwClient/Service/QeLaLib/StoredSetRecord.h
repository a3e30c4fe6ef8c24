// Where the location set is stored, and in what record: an array whose one field is the collection.
#pragma once

#include "FwClient/Service/QeLaLib/LaMsgPack.h"
#include "FwClient/Service/QeLaLib/QeLocations.h"

// Below HKEY_LOCAL_MACHINE.
inline constexpr wchar_t kLaKey[] = L"SOFTWARE\\Corvane\\Tessel\\Firewall\\LA";
inline constexpr wchar_t kLaValue[] = L"la";

inline void PackStoredSet(const CQeLocations& locations, LaPacker& packer) {
  packer.Array(1);
  locations.Pack(packer);
}

inline void UnpackStoredSet(CQeLocations& locations, LaReader& reader) {
  LaRecord record(reader);
  record.Next([&] { locations.Unpack(reader); });
  record.End();
}

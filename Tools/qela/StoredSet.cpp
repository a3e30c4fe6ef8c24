#include "StoredSet.h"

#include "FwClient/Common/Utilities/UniqueHandle.h"

StoredSet ReadStoredSet() {
  StoredSet set;
  UniqueRegKey key;
  set.status =
      ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, LR"(SOFTWARE\Corvane\Tessel\Firewall\LA)", 0, KEY_QUERY_VALUE, key.put());
  DWORD size = 0;
  if (set.status == ERROR_SUCCESS)
    set.status = ::RegQueryValueExW(key.get(), L"la", nullptr, &set.type, nullptr, &size);
  while (set.status == ERROR_SUCCESS) {
    set.bytes.resize(size);
    set.status = ::RegQueryValueExW(key.get(), L"la", nullptr, &set.type, set.bytes.data(), &size);
    if (set.status == ERROR_SUCCESS) {
      set.bytes.resize(size);
      break;
    }
    if (set.status == ERROR_MORE_DATA) set.status = ERROR_SUCCESS;  // it has grown in between
  }
  return set;
}

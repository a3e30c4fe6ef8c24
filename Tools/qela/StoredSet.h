// The library's registry value, looked at from outside: whether there is something that a save would overwrite.
#pragma once

#include <windows.h>

#include <vector>

struct StoredSet {
  LSTATUS status = ERROR_FILE_NOT_FOUND;  // of reading the value, whatever its type
  DWORD type = REG_NONE;
  std::vector<BYTE> bytes;

  // Nothing that could be lost: no value, or a binary one without content.
  bool IsAbsent() const {
    return status == ERROR_FILE_NOT_FOUND || (status == ERROR_SUCCESS && type == REG_BINARY && bytes.empty());
  }
  bool operator==(const StoredSet&) const = default;
};

StoredSet ReadStoredSet();

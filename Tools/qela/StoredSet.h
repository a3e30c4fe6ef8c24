// The location set in the registry: read at once, changed by one command at a time, and the former one kept beside it.
#pragma once

#include <windows.h>

#include <cstdint>
#include <vector>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "LocationSet.h"

// A registry value as it is, whatever its type.
struct StoredValue {
  LSTATUS status = ERROR_FILE_NOT_FOUND;  // of reading it
  DWORD type = REG_NONE;
  std::vector<std::uint8_t> bytes;

  // Nothing that could be lost: no value, or a binary one without content.
  bool IsAbsent() const {
    return status == ERROR_FILE_NOT_FOUND || (status == ERROR_SUCCESS && type == REG_BINARY && bytes.empty());
  }
  bool operator==(const StoredValue&) const = default;
};

// The library's own value, as a service reads it.
StoredValue ReadStoredValue();

// The locations that a value holds; none where it is absent. Throws CommandError (kUnreadableSet) when it is there and
// cannot be read: who took that for nothing would overwrite it.
LocationSet LocationsIn(const StoredValue& value);
inline LocationSet ReadLocations() { return LocationsIn(ReadStoredValue()); }

// One change of the stored set. Two at once would each read the set before the other wrote it, and one would be lost:
// the second waits, in whatever session it runs, and up to a minute.
class StoredSetEdit {
 public:
  // Throws CommandError when another edit does not end, or the set cannot be read.
  StoredSetEdit();
  ~StoredSetEdit();
  StoredSetEdit(const StoredSetEdit&) = delete;
  StoredSetEdit& operator=(const StoredSetEdit&) = delete;

  LocationSet locations;

  // Writes `locations`, and what was stored as the former set before it, so that whenever the process ends the value
  // holds the old set or the new one. Throws CommandError, with everything as it was, when Windows refuses, and when
  // the value is no longer what was read: a program that knows of no edits has changed it meanwhile.
  void Save();

  // The set before the last edit. Throws CommandError (kFailed) when there is none.
  static LocationSet Former();

 private:
  UniqueKernelHandle m_mutex;
  StoredValue m_read;
};

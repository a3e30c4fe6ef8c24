// Binary values of the machine's registry hive, where the location set is stored.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// Both answer with a Win32 error code, 0 for success, and log nothing. `keyPath` is below HKEY_LOCAL_MACHINE, in the
// process's own registry view.

// Replaces `bytes` with the value's bytes. ERROR_INVALID_DATA when the value is not binary; `bytes` is then, and after
// every other failure, as it was.
unsigned long ReadLaValue(const std::wstring& keyPath, const std::wstring& valueName, std::vector<std::uint8_t>& bytes);

// Writes the value and flushes it to disk, making the key where there is none. The flush's result counts as well: a
// set that may not survive a power failure is not saved.
unsigned long WriteLaValue(const std::wstring& keyPath, const std::wstring& valueName,
                           const std::vector<std::uint8_t>& bytes);

// A machine's hive of a test's own.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

// HKEY_LOCAL_MACHINE of this process is an empty key of the current user's hive while this lives; the key is removed
// afterwards, also when the process ends by exit() before. For tests of the real registry; several test programs may
// run side by side. One at a time in a process.
class RedirectedMachineHive {
 public:
  RedirectedMachineHive();
  ~RedirectedMachineHive();
  RedirectedMachineHive(const RedirectedMachineHive&) = delete;
  RedirectedMachineHive& operator=(const RedirectedMachineHive&) = delete;

  // Below HKEY_CURRENT_USER.
  const std::wstring& Path() const { return m_path; }

  // The library's key and the value in it.
  void Put(const std::vector<std::uint8_t>& bytes, DWORD type = REG_BINARY);
  bool HasKey() const;
  std::optional<std::vector<std::uint8_t>> Value() const;

 private:
  std::wstring m_path;
  HKEY m_key = nullptr;
};

// A machine's hive of a test's own.
#pragma once

#include <winsock2.h>
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

  // Its keys and values. Set makes the key.
  void Set(const std::wstring& path, const std::wstring& name, DWORD type, const void* data, std::size_t bytes);
  bool HasKey(const std::wstring& path) const;
  std::optional<std::vector<std::uint8_t>> Value(const std::wstring& path, const std::wstring& name) const;

 private:
  std::wstring m_path;
  HKEY m_key = nullptr;
};

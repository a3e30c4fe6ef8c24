// A key of the machine's hive that no other test uses, since tests share one registry and run side by side.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

class TemporaryRegistryKey {
 public:
  // In the 64-bit view, unless `view` is KEY_WOW64_32KEY. It does not exist in the other one.
  explicit TemporaryRegistryKey(REGSAM view = KEY_WOW64_64KEY);
  ~TemporaryRegistryKey();
  TemporaryRegistryKey(const TemporaryRegistryKey&) = delete;
  TemporaryRegistryKey& operator=(const TemporaryRegistryKey&) = delete;

  // Below HKEY_LOCAL_MACHINE.
  const std::wstring& Path() const { return m_path; }

  void Set(const std::wstring& name, DWORD type, const void* data, std::size_t bytes);
  void SetText(const std::wstring& name, const std::wstring& text, DWORD type = REG_SZ);
  void SetNumber(const std::wstring& name, DWORD number);

 private:
  std::wstring m_path;
  REGSAM m_view;
  HKEY m_key = nullptr;
};

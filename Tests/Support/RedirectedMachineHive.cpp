#include <gtest/gtest.h>

#include "Tests/Support/ServiceLibrary.h"

RedirectedMachineHive::RedirectedMachineHive()
    : m_path(L"Software\\QeLaLibTests\\" + std::to_wstring(::GetCurrentProcessId())) {
  ::RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());  // of an earlier process with this number, if it crashed
  EXPECT_EQ(
      ::RegCreateKeyExW(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_key, nullptr),
      ERROR_SUCCESS);
  EXPECT_EQ(::RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_key), ERROR_SUCCESS);
}

RedirectedMachineHive::~RedirectedMachineHive() {
  ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  ::RegCloseKey(m_key);
  ::RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());
}

void RedirectedMachineHive::Put(const std::vector<std::uint8_t>& bytes, DWORD type) {
  EXPECT_EQ(::RegSetKeyValueW(m_key, kLaKeyPath, kLaValueName, type, bytes.data(), static_cast<DWORD>(bytes.size())),
            ERROR_SUCCESS);
}

bool RedirectedMachineHive::HasKey() const {
  HKEY key = nullptr;
  if (::RegOpenKeyExW(m_key, kLaKeyPath, 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  ::RegCloseKey(key);
  return true;
}

std::optional<std::vector<std::uint8_t>> RedirectedMachineHive::Value() const {
  DWORD size = 0;
  if (::RegGetValueW(m_key, kLaKeyPath, kLaValueName, RRF_RT_REG_BINARY, nullptr, nullptr, &size) != ERROR_SUCCESS)
    return std::nullopt;
  std::vector<std::uint8_t> bytes(size);
  EXPECT_EQ(::RegGetValueW(m_key, kLaKeyPath, kLaValueName, RRF_RT_REG_BINARY, nullptr, bytes.data(), &size),
            ERROR_SUCCESS);
  return bytes;
}

#include "Tests/Support/RedirectedMachineHive.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "Tests/Support/ServiceLibrary.h"
#include "Tests/Support/UniqueName.h"

namespace {

// Of the one that lives; empty without one.
std::wstring& LivingPath() {
  static std::wstring s_path;
  return s_path;
}

void Remove() {
  if (!LivingPath().empty()) ::RegDeleteTreeW(HKEY_CURRENT_USER, LivingPath().c_str());
  LivingPath().clear();
}

}  // namespace

RedirectedMachineHive::RedirectedMachineHive() : m_path(L"Software\\QeLaLibTests-" + UniqueName()) {
  EXPECT_EQ(LivingPath(), L"") << "two hives in one process";
  LivingPath() = m_path;
  static const int s_registered = std::atexit(&Remove);
  EXPECT_EQ(s_registered, 0);
  ::RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());  // of an earlier process with this number, if it crashed
  EXPECT_EQ(
      ::RegCreateKeyExW(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_key, nullptr),
      ERROR_SUCCESS);
  EXPECT_EQ(::RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_key), ERROR_SUCCESS);
}

RedirectedMachineHive::~RedirectedMachineHive() {
  ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  ::RegCloseKey(m_key);
  Remove();
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

#include "ScriptedWindows/Windows/RedirectedMachineHive.h"

#include <cstdlib>

#include "ScriptedWindows/Complaint.h"
#include "ScriptedWindows/UniqueName.h"

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

void Check(LSTATUS status) { Require(status == ERROR_SUCCESS, "the registry refuses"); }

}  // namespace

RedirectedMachineHive::RedirectedMachineHive() : m_path(L"Software\\QeLaLibTests-" + UniqueName()) {
  Require(LivingPath().empty(), "there are two hives in one process");
  LivingPath() = m_path;
  static const int s_registered = std::atexit(&Remove);
  Require(s_registered == 0, "the hive cannot be removed at the end");
  ::RegDeleteTreeW(HKEY_CURRENT_USER, m_path.c_str());  // of an earlier process with this number, if it crashed
  Check(::RegCreateKeyExW(HKEY_CURRENT_USER, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_key, nullptr));
  Check(::RegOverridePredefKey(HKEY_LOCAL_MACHINE, m_key));
}

RedirectedMachineHive::~RedirectedMachineHive() {
  ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
  ::RegCloseKey(m_key);
  Remove();
}

void RedirectedMachineHive::Set(const std::wstring& path, const std::wstring& name, DWORD type, const void* data,
                                std::size_t bytes) {
  Check(::RegSetKeyValueW(m_key, path.c_str(), name.c_str(), type, data, static_cast<DWORD>(bytes)));
}

bool RedirectedMachineHive::HasKey(const std::wstring& path) const {
  HKEY key = nullptr;
  if (::RegOpenKeyExW(m_key, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) return false;
  ::RegCloseKey(key);
  return true;
}

std::optional<std::vector<std::uint8_t>> RedirectedMachineHive::Value(const std::wstring& path,
                                                                      const std::wstring& name) const {
  const auto get = [&](void* data, DWORD& size) {
    return ::RegGetValueW(m_key, path.c_str(), name.c_str(), RRF_RT_ANY | RRF_NOEXPAND, nullptr, data, &size);
  };
  DWORD size = 0;
  if (get(nullptr, size) != ERROR_SUCCESS) return std::nullopt;
  std::vector<std::uint8_t> bytes(size);
  Check(get(bytes.data(), size));
  return bytes;
}

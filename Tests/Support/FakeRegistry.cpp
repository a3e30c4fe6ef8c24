#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "Tests/Support/FakeRegistry.h"

namespace {

FakeRegistry* g_current = nullptr;

}  // namespace

FakeRegistry& FakeRegistry::Current() { return *g_current; }

FakeRegistry::FakeRegistry(HMODULE module) {
  g_current = this;
  const auto patch = [&](const char* function, auto* replacement) {
    m_patches.push_back(std::make_unique<ImportPatch>(module, function, replacement));
  };
  patch("RegOpenKeyExW", &Open);
  patch("RegCreateKeyExW", &Create);
  patch("RegQueryValueExW", &Query);
  patch("RegSetValueExW", &Set);
  patch("RegFlushKey", &Flush);
  patch("RegCloseKey", &Close);
}

FakeRegistry::~FakeRegistry() {
  m_patches.clear();
  g_current = nullptr;
}

void FakeRegistry::Put(std::vector<std::uint8_t> bytes, DWORD type) {
  const std::lock_guard lock(m_mutex);
  m_hasKey = true;
  m_value = std::move(bytes);
  m_type = type;
}

void FakeRegistry::MakeEmptyKey() {
  const std::lock_guard lock(m_mutex);
  m_hasKey = true;
  m_value.reset();
}

void FakeRegistry::Remove() {
  const std::lock_guard lock(m_mutex);
  m_hasKey = false;
  m_value.reset();
}

bool FakeRegistry::HasKey() const {
  const std::lock_guard lock(m_mutex);
  return m_hasKey;
}

std::optional<std::vector<std::uint8_t>> FakeRegistry::Value() const {
  const std::lock_guard lock(m_mutex);
  return m_value;
}

DWORD FakeRegistry::ValueType() const {
  const std::lock_guard lock(m_mutex);
  return m_type;
}

void FakeRegistry::Fail(const char* function, LSTATUS status, std::size_t nth) {
  const std::lock_guard lock(m_mutex);
  m_failures[function] = {status, nth};
}

void FakeRegistry::StopFailing() {
  const std::lock_guard lock(m_mutex);
  m_failures.clear();
}

void FakeRegistry::OnCall(std::function<void(const char*)> hook) {
  const std::lock_guard lock(m_mutex);
  m_hook = std::move(hook);
}

std::vector<FakeRegistry::Call> FakeRegistry::Calls() const {
  const std::lock_guard lock(m_mutex);
  return m_calls;
}

std::size_t FakeRegistry::Count(const char* function) const {
  const std::lock_guard lock(m_mutex);
  return static_cast<std::size_t>(
      std::count_if(m_calls.begin(), m_calls.end(), [&](const Call& call) { return call.function == function; }));
}

void FakeRegistry::ClearCalls() {
  const std::lock_guard lock(m_mutex);
  m_calls.clear();
}

std::size_t FakeRegistry::OpenKeys() const {
  const std::lock_guard lock(m_mutex);
  return m_openKeys.size();
}

LSTATUS FakeRegistry::Enter(const char* function, REGSAM access) {
  if (const auto hook = m_hook) hook(function);  // a copy: the hook may set another
  m_calls.push_back({function, access, ERROR_SUCCESS});
  const auto failure = m_failures.find(function);
  if (failure == m_failures.end()) return ERROR_SUCCESS;
  const LSTATUS status = failure->second.status;
  if (failure->second.nth == 0) return status;
  if (--failure->second.nth > 0) return ERROR_SUCCESS;
  m_failures.erase(failure);
  return status;
}

LSTATUS FakeRegistry::Leave(LSTATUS status) {
  m_calls.back().status = status;
  return status;
}

LSTATUS FakeRegistry::NewKey(HKEY* key) {
  *key = reinterpret_cast<HKEY>(m_nextKey += 4);
  m_openKeys.push_back(*key);
  return ERROR_SUCCESS;
}

bool FakeRegistry::IsOpen(HKEY key) const {
  const bool open = std::find(m_openKeys.begin(), m_openKeys.end(), key) != m_openKeys.end();
  if (!open) ADD_FAILURE() << "a registry key is used that is not open";
  return open;
}

LSTATUS WINAPI FakeRegistry::Open(HKEY hive, const wchar_t* path, DWORD, REGSAM access, HKEY* key) {
  FakeRegistry& self = Current();
  const std::lock_guard lock(self.m_mutex);
  if (const LSTATUS status = self.Enter("RegOpenKeyExW", access); status != ERROR_SUCCESS) return self.Leave(status);
  EXPECT_EQ(hive, HKEY_LOCAL_MACHINE);
  if (!self.m_hasKey || std::wstring(path) != kLaKeyPath) return self.Leave(ERROR_FILE_NOT_FOUND);
  return self.NewKey(key);
}

LSTATUS WINAPI FakeRegistry::Create(HKEY hive, const wchar_t* path, DWORD, wchar_t*, DWORD options, REGSAM access,
                                    const SECURITY_ATTRIBUTES* security, HKEY* key, DWORD*) {
  FakeRegistry& self = Current();
  const std::lock_guard lock(self.m_mutex);
  if (const LSTATUS status = self.Enter("RegCreateKeyExW", access); status != ERROR_SUCCESS) return self.Leave(status);
  EXPECT_EQ(hive, HKEY_LOCAL_MACHINE);
  EXPECT_STREQ(path, kLaKeyPath);
  EXPECT_EQ(options, 0u);
  EXPECT_EQ(security, nullptr);
  self.m_hasKey = true;
  return self.NewKey(key);
}

LSTATUS WINAPI FakeRegistry::Query(HKEY key, const wchar_t* name, DWORD*, DWORD* type, BYTE* data, DWORD* size) {
  FakeRegistry& self = Current();
  const std::lock_guard lock(self.m_mutex);
  if (const LSTATUS status = self.Enter("RegQueryValueExW"); status != ERROR_SUCCESS) return self.Leave(status);
  if (!self.IsOpen(key)) return self.Leave(ERROR_INVALID_HANDLE);
  EXPECT_STREQ(name, kLaValueName);
  if (!self.m_value) return self.Leave(ERROR_FILE_NOT_FOUND);
  const auto actual = static_cast<DWORD>(self.m_value->size());
  const DWORD room = std::exchange(*size, actual);
  if (type != nullptr) *type = self.m_type;
  if (data == nullptr) return ERROR_SUCCESS;
  if (room < actual) return self.Leave(ERROR_MORE_DATA);
  std::memcpy(data, self.m_value->data(), actual);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI FakeRegistry::Set(HKEY key, const wchar_t* name, DWORD, DWORD type, const BYTE* data, DWORD size) {
  FakeRegistry& self = Current();
  const std::lock_guard lock(self.m_mutex);
  if (const LSTATUS status = self.Enter("RegSetValueExW"); status != ERROR_SUCCESS) return self.Leave(status);
  if (!self.IsOpen(key)) return self.Leave(ERROR_INVALID_HANDLE);
  EXPECT_STREQ(name, kLaValueName);
  self.m_value.emplace(data, data + size);
  self.m_type = type;
  return ERROR_SUCCESS;
}

LSTATUS WINAPI FakeRegistry::Flush(HKEY key) {
  FakeRegistry& self = Current();
  const std::lock_guard lock(self.m_mutex);
  if (const LSTATUS status = self.Enter("RegFlushKey"); status != ERROR_SUCCESS) return self.Leave(status);
  return self.Leave(self.IsOpen(key) ? ERROR_SUCCESS : ERROR_INVALID_HANDLE);
}

LSTATUS WINAPI FakeRegistry::Close(HKEY key) {
  FakeRegistry& self = Current();
  const std::lock_guard lock(self.m_mutex);
  self.Enter("RegCloseKey");
  if (!self.IsOpen(key)) return self.Leave(ERROR_INVALID_HANDLE);
  std::erase(self.m_openKeys, key);
  return ERROR_SUCCESS;
}

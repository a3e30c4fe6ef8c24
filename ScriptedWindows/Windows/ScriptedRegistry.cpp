#include "ScriptedWindows/Windows/ScriptedRegistry.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <format>
#include <mutex>

bool ScriptedRegistry::WithoutCase::operator()(const std::wstring& left, const std::wstring& right) const {
  return ::_wcsicmp(left.c_str(), right.c_str()) < 0;
}

ScriptedRegistry::ScriptedRegistry(HMODULE module, WindowsScript* script) : m_script(script) {
  const auto patch = [&](const char* function, auto* replacement) {
    if (Imports(module, function)) m_patches.try_emplace(function, module, function, replacement);
  };
  patch("RegOpenKeyExW", &OpenKey);
  patch("RegCreateKeyExW", &CreateKey);
  patch("RegQueryValueExW", &QueryValue);
  patch("RegSetValueExW", &SetValue);
  patch("RegFlushKey", &FlushKey);
  patch("RegCloseKey", &CloseKey);
}

void ScriptedRegistry::MakeKey(const std::wstring& path, REGSAM view) {
  const std::lock_guard lock(m_lock);
  View(view).try_emplace(path);
}

void ScriptedRegistry::RemoveKey(const std::wstring& path, REGSAM view) {
  const std::lock_guard lock(m_lock);
  View(view).erase(path);
}

void ScriptedRegistry::Set(const std::wstring& path, const std::wstring& name, DWORD type, const void* data,
                           std::size_t bytes, REGSAM view) {
  const auto* const first = static_cast<const std::uint8_t*>(data);
  const std::lock_guard lock(m_lock);
  View(view)[path].insert_or_assign(name, Data{type, Bytes(first, first + bytes)});
}

void ScriptedRegistry::SetText(const std::wstring& path, const std::wstring& name, const std::wstring& text,
                               REGSAM view) {
  Set(path, name, REG_SZ, text.c_str(), (text.size() + 1) * sizeof(wchar_t), view);
}

bool ScriptedRegistry::HasKey(const std::wstring& path) const {
  const std::lock_guard lock(m_lock);
  return m_keys64.contains(path);
}

const ScriptedRegistry::Data* ScriptedRegistry::Find(const std::wstring& path, const std::wstring& name) const {
  const auto key = m_keys64.find(path);
  if (key == m_keys64.end()) return nullptr;
  const auto value = key->second.find(name);
  return value != key->second.end() ? &value->second : nullptr;
}

std::optional<ScriptedRegistry::Bytes> ScriptedRegistry::Value(const std::wstring& path,
                                                               const std::wstring& name) const {
  const std::lock_guard lock(m_lock);
  const Data* const data = Find(path, name);
  return data != nullptr ? std::optional(data->bytes) : std::nullopt;
}

DWORD ScriptedRegistry::TypeOf(const std::wstring& path, const std::wstring& name) const {
  const std::lock_guard lock(m_lock);
  const Data* const data = Find(path, name);
  return data != nullptr ? data->type : REG_NONE;
}

void ScriptedRegistry::OnCall(std::function<void(const Call&)> hook) {
  const std::lock_guard lock(m_lock);
  m_hook = std::move(hook);
}

std::vector<ScriptedRegistry::Call> ScriptedRegistry::Calls() const {
  const std::lock_guard lock(m_lock);
  return m_calls;
}

std::vector<ScriptedRegistry::Call> ScriptedRegistry::Calls(const std::string& function) const {
  std::vector<Call> calls = Calls();
  std::erase_if(calls, [&](const Call& call) { return call.function != function; });
  return calls;
}

void ScriptedRegistry::ClearCalls() {
  const std::lock_guard lock(m_lock);
  m_calls.clear();
}

std::size_t ScriptedRegistry::OpenKeys() const {
  const std::lock_guard lock(m_lock);
  return m_openKeys.size();
}

LSTATUS ScriptedRegistry::Enter(const Call& call, const std::string& arguments) {
  if (const auto hook = m_hook) hook(call);  // a copy: the hook may set another
  m_calls.push_back(call);
  if (m_script != nullptr && !m_script->Enter(call.function, arguments)) return static_cast<LSTATUS>(::GetLastError());
  return static_cast<LSTATUS>(NextError(call.function));
}

LSTATUS ScriptedRegistry::NewKey(const std::wstring& path, REGSAM access, HKEY* key) {
  *key = m_script != nullptr ? static_cast<HKEY>(m_script->Open("key", "RegCloseKey"))
                             : reinterpret_cast<HKEY>(m_nextKey += 4);
  m_openKeys[*key] = {path, access};
  return ERROR_SUCCESS;
}

std::string ScriptedRegistry::Name(HKEY key) const { return m_script != nullptr ? m_script->Name(key) : ""; }

bool ScriptedRegistry::IsOpen(HKEY key) const {
  const bool open = m_openKeys.contains(key);
  Require(open, "a registry key is used that is not open");
  return open;
}

ScriptedRegistry::Values* ScriptedRegistry::ValuesOf(HKEY key) {
  if (!IsOpen(key)) return nullptr;
  const auto& [path, view] = m_openKeys.at(key);
  const auto found = View(view).find(path);
  return found != View(view).end() ? &found->second : nullptr;
}

LSTATUS WINAPI ScriptedRegistry::OpenKey(HKEY hive, const wchar_t* path, DWORD, REGSAM access, HKEY* key) {
  const HeapWatch::Pause pause;
  ScriptedRegistry& self = Current();
  const std::lock_guard lock(self.m_lock);
  if (const LSTATUS status = self.Enter(Open(hive, path, access), WindowsScript::Hex(access)); status != ERROR_SUCCESS)
    return status;
  if (hive != HKEY_LOCAL_MACHINE || !self.View(access).contains(path)) return ERROR_FILE_NOT_FOUND;
  return self.NewKey(path, access, key);
}

LSTATUS WINAPI ScriptedRegistry::CreateKey(HKEY hive, const wchar_t* path, DWORD reserved, wchar_t*, DWORD options,
                                           REGSAM access, const SECURITY_ATTRIBUTES* security, HKEY* key, DWORD*) {
  const HeapWatch::Pause pause;
  ScriptedRegistry& self = Current();
  const std::lock_guard lock(self.m_lock);
  const Call call{.function = "RegCreateKeyExW", .name = path, .hive = hive, .access = access};
  if (const LSTATUS status = self.Enter(call, WindowsScript::Hex(access)); status != ERROR_SUCCESS) return status;
  Require(hive == HKEY_LOCAL_MACHINE, "a key is made outside the machine's hive");
  Require(reserved == 0 && options == 0 && security == nullptr, "a key is made with options");
  self.View(access).try_emplace(path);
  return self.NewKey(path, access, key);
}

LSTATUS WINAPI ScriptedRegistry::QueryValue(HKEY key, const wchar_t* name, DWORD*, DWORD* type, BYTE* data,
                                            DWORD* size) {
  const HeapWatch::Pause pause;
  ScriptedRegistry& self = Current();
  const std::lock_guard lock(self.m_lock);
  const LSTATUS status = self.Enter(Query(name, data != nullptr, *size),
                                    std::format("{}, {}, {}", self.Name(key), WindowsScript::Text(name), *size));
  if (status != ERROR_SUCCESS) return status;
  Values* const values = self.ValuesOf(key);
  if (values == nullptr) return ERROR_INVALID_HANDLE;
  const auto value = values->find(name);
  if (value == values->end()) return ERROR_FILE_NOT_FOUND;
  const Bytes& bytes = value->second.bytes;
  const DWORD room = std::exchange(*size, static_cast<DWORD>(bytes.size()));
  if (type != nullptr) *type = value->second.type;
  if (data == nullptr) return ERROR_SUCCESS;
  if (room < bytes.size()) return ERROR_MORE_DATA;
  std::copy(bytes.begin(), bytes.end(), data);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI ScriptedRegistry::SetValue(HKEY key, const wchar_t* name, DWORD reserved, DWORD type, const BYTE* data,
                                          DWORD size) {
  const HeapWatch::Pause pause;
  ScriptedRegistry& self = Current();
  const std::lock_guard lock(self.m_lock);
  const LSTATUS status = self.Enter({.function = "RegSetValueExW", .name = name, .bytes = size}, self.Name(key));
  if (status != ERROR_SUCCESS) return status;
  Require(reserved == 0, "a value is set with an argument that is reserved");
  Values* const values = self.ValuesOf(key);
  if (values == nullptr) return ERROR_INVALID_HANDLE;
  values->insert_or_assign(name, Data{type, Bytes(data, data + size)});
  return ERROR_SUCCESS;
}

LSTATUS WINAPI ScriptedRegistry::FlushKey(HKEY key) {
  const HeapWatch::Pause pause;
  ScriptedRegistry& self = Current();
  const std::lock_guard lock(self.m_lock);
  if (const LSTATUS status = self.Enter({.function = "RegFlushKey"}, self.Name(key)); status != ERROR_SUCCESS)
    return status;
  return self.ValuesOf(key) != nullptr ? ERROR_SUCCESS : ERROR_INVALID_HANDLE;
}

LSTATUS WINAPI ScriptedRegistry::CloseKey(HKEY key) {
  const HeapWatch::Pause pause;
  ScriptedRegistry& self = Current();
  const std::lock_guard lock(self.m_lock);
  const Call call{.function = "RegCloseKey"};
  if (const auto hook = self.m_hook) hook(call);
  self.m_calls.push_back(call);
  if (self.m_script != nullptr) self.m_script->Close("RegCloseKey", key);
  if (!self.IsOpen(key)) return ERROR_INVALID_HANDLE;
  self.m_openKeys.erase(key);
  return ERROR_SUCCESS;
}

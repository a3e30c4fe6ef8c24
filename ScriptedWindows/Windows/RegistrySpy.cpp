#include "ScriptedWindows/Windows/RegistrySpy.h"

#include <algorithm>

namespace {

std::optional<LSTATUS> TakeNext(std::deque<std::optional<LSTATUS>>& script) {
  if (script.empty()) return std::nullopt;
  const std::optional<LSTATUS> next = script.front();
  script.pop_front();
  return next;
}

}  // namespace

RegistrySpy::RegistrySpy(HMODULE module)
    : m_openPatch(module, "RegOpenKeyExW", &OnOpen),
      m_queryPatch(module, "RegQueryValueExW", &OnQuery),
      m_closePatch(module, "RegCloseKey", &OnClose) {
  s_self = this;
}

RegistrySpy::~RegistrySpy() { s_self = nullptr; }

LSTATUS WINAPI RegistrySpy::OnOpen(HKEY hive, LPCWSTR subkey, DWORD options, REGSAM access, PHKEY key) {
  s_self->opens.push_back({hive, subkey, access});
  if (const std::optional<LSTATUS> status = TakeNext(s_self->openScript)) return *status;
  const std::wstring target = s_self->redirect ? s_self->redirect(s_self->opens.back()) : subkey;
  const LSTATUS status =
      s_self->m_openPatch.Original<decltype(::RegOpenKeyExW)>()(hive, target.c_str(), options, access, key);
  if (status == ERROR_SUCCESS) s_self->m_open.push_back(*key);
  return status;
}

LSTATUS WINAPI RegistrySpy::OnQuery(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                    LPDWORD bytes) {
  s_self->queries.push_back({name, data != nullptr, *bytes});
  if (const std::optional<LSTATUS> status = TakeNext(s_self->queryScript)) return *status;
  return s_self->m_queryPatch.Original<decltype(::RegQueryValueExW)>()(key, name, reserved, type, data, bytes);
}

LSTATUS WINAPI RegistrySpy::OnClose(HKEY key) {
  const auto open = std::find(s_self->m_open.begin(), s_self->m_open.end(), key);
  if (open == s_self->m_open.end())
    ++s_self->m_wrongCloses;
  else
    s_self->m_open.erase(open);
  return s_self->m_closePatch.Original<decltype(::RegCloseKey)>()(key);
}

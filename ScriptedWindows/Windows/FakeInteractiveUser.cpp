#include "ScriptedWindows/Windows/FakeInteractiveUser.h"

#include <format>

FakeInteractiveUser::FakeInteractiveUser(WindowsScript& script) : m_script(script) {
  const auto patch = [&](const char* function, auto* replacement) {
    m_patches.try_emplace(function, script.Module(), function, replacement);
  };
  patch("OpenProcessToken", &OpenProcessToken);
  patch("ImpersonateLoggedOnUser", &ImpersonateLoggedOnUser);
  patch("RevertToSelf", &RevertToSelf);
  patch("SetThreadToken", &SetThreadToken);
  patch("WinHttpGetIEProxyConfigForCurrentUser", &GetIEProxyConfig);
}

FakeInteractiveUser::~FakeInteractiveUser() { Require(!impersonating, "the thread was left with the user's identity"); }

void FakeInteractiveUser::KeepIdentity() {
  m_script.FailAlways("RevertToSelf", ERROR_INTERNAL_ERROR);
  m_script.FailAlways("SetThreadToken", ERROR_ACCESS_DENIED);
}

void FakeInteractiveUser::LetGo() {
  m_script.Heal("RevertToSelf");
  m_script.Heal("SetThreadToken");
}

BOOL WINAPI FakeInteractiveUser::OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Enter("OpenProcessToken", std::format("{}, {}", self.m_script.Name(process), access)))
    return FALSE;
  *token = self.m_script.Open("token");
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::ImpersonateLoggedOnUser(HANDLE token) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Enter("ImpersonateLoggedOnUser", self.m_script.Name(token))) return FALSE;
  self.impersonating = true;
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::RevertToSelf() {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Enter("RevertToSelf")) return FALSE;
  Require(self.impersonating);
  self.impersonating = false;
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::SetThreadToken(PHANDLE thread, HANDLE token) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  Require(thread == nullptr, "only the calling thread's token is to be taken away");
  if (!self.m_script.Enter("SetThreadToken", self.m_script.Name(token))) return FALSE;
  Require(self.impersonating);
  self.impersonating = token != nullptr;
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::GetIEProxyConfig(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG* config) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Enter("WinHttpGetIEProxyConfigForCurrentUser", self.impersonating ? "as the user" : ""))
    return FALSE;
  const auto text = [&](const char* kind, const std::optional<std::wstring>& value) -> wchar_t* {
    return value ? self.m_script.GlobalText(kind, *value) : nullptr;
  };
  config->fAutoDetect = self.autoDetect;
  config->lpszAutoConfigUrl = text("user's url", self.configUrl);
  config->lpszProxy = text("user's proxy list", self.proxyList);
  config->lpszProxyBypass = text("user's bypass list", self.bypassList);
  return TRUE;
}

// A user as a test scripts it: the token of the user's process, who impersonates with it, and the Internet settings.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "ScriptedWindows/Windows/WindowsScript.h"
// After windows.h.
#include <winhttp.h>

// Complains when the thread is left with the user's identity.
class FakeInteractiveUser : public OnlyOne<FakeInteractiveUser> {
 public:
  explicit FakeInteractiveUser(WindowsScript& script);
  ~FakeInteractiveUser();

  // The Internet settings. Null: none of this.
  std::optional<std::wstring> configUrl;
  std::optional<std::wstring> proxyList;
  std::optional<std::wstring> bypassList;
  BOOL autoDetect = FALSE;

  bool impersonating = false;
  // Keeps the thread that is impersonating in the user's identity, whatever is tried; or lets it out again.
  void KeepIdentity();
  void LetGo();

 private:
  static BOOL WINAPI OpenProcessToken(HANDLE, DWORD, PHANDLE);
  static BOOL WINAPI ImpersonateLoggedOnUser(HANDLE);
  static BOOL WINAPI RevertToSelf();
  static BOOL WINAPI SetThreadToken(PHANDLE, HANDLE);
  static BOOL WINAPI GetIEProxyConfig(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG*);

  WindowsScript& m_script;
  std::map<std::string, ImportPatch> m_patches;
};

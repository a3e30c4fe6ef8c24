#include "FwClient/Service/QeLaLib/ValidateHttpsConnectionAsUser.h"

#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "FwClient/Service/QeLaLib/HttpsHandles.h"
#include "FwClient/Service/QeLaLib/HttpsProxyList.h"
#include "FwClient/Service/QeLaLib/InteractiveUser.h"
#include "FwClient/Service/QeLaLib/ProxyCredentials.h"
#include "FwClient/Service/QeLaLib/ValidateHttpsConnection.h"

namespace {

// The Internet settings of the thread's user. Their texts are ours to free.
class UserProxySettings {
 public:
  UserProxySettings() noexcept = default;
  ~UserProxySettings() {
    const UniqueGlobalMemory url(m_config.lpszAutoConfigUrl);
    const UniqueGlobalMemory list(m_config.lpszProxy);
    const UniqueGlobalMemory bypass(m_config.lpszProxyBypass);
  }
  UserProxySettings(const UserProxySettings&) = delete;
  UserProxySettings& operator=(const UserProxySettings&) = delete;

  bool Read() noexcept { return ::WinHttpGetIEProxyConfigForCurrentUser(&m_config) != FALSE; }

  // Empty when there is none.
  std::wstring ConfigUrl() const { return Text(m_config.lpszAutoConfigUrl); }
  std::wstring ProxyList() const { return Text(m_config.lpszProxy); }

 private:
  static std::wstring Text(const wchar_t* text) { return text == nullptr ? std::wstring() : std::wstring(text); }

  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG m_config{};
};

// Reads the interactive user's settings as that user.
bool ReadInteractiveUserSettings(UserProxySettings& settings) {
  UniqueKernelHandle token;
  if (GetInteractiveUserToken(token.put()) != S_OK) return false;
  ImpersonationGuard impersonation(token.get());
  if (!impersonation) return false;
  const bool read = settings.Read();
  token.reset();
  return read;
}

}  // namespace

bool ValidateHttpsConnectionAsUser(ProxyContext& context, const std::wstring& host) {
  // Neither the framework nor the registry is asked with a user's identity.
  if (!ThreadActsAsItself()) return false;
  GetProxyCredentials(context, host);
  UserProxySettings settings;
  if (!ReadInteractiveUserSettings(settings)) return false;

  const std::wstring configUrl = settings.ConfigUrl();
  if (!configUrl.empty() &&
      ValidateHttpsConnectionAutoProxy(context, host, configUrl, context.userName, context.password))
    return true;
  const std::wstring proxyList = settings.ProxyList();
  return !proxyList.empty() &&
         ValidateHttpsConnection(host, GetHttpsProxyFromList(proxyList), context.userName, context.password);
}

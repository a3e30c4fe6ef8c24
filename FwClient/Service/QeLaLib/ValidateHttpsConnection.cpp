#include "FwClient/Service/QeLaLib/ValidateHttpsConnection.h"

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Service/QeLaLib/ClientCertificate.h"
#include "FwClient/Service/QeLaLib/HttpsRequest.h"
#include "FwClient/Service/QeLaLib/InteractiveUser.h"

namespace {

// Proxy authentication and client certificates make the same request go out again; a server or proxy that is never
// content must not keep it going for ever.
constexpr int kMaxPasses = 30;

enum class PassResult { kRepeat, kReachable, kUnreachable };

// Sends one opened request until its outcome is known.
class RequestLoop {
 public:
  RequestLoop(HttpsRequest& request, const std::wstring& host, const std::wstring& proxyUser,
              const std::wstring& proxyPassword) noexcept
      : m_request(request), m_host(host), m_proxyUser(proxyUser), m_proxyPassword(proxyPassword) {}

  bool Run();

 private:
  PassResult RunPass();
  void SetProxyCredentials();
  bool Send(DWORD& error, bool& foundCertificate);
  PassResult AfterFailedSend(DWORD error, bool foundCertificate);
  PassResult JudgeStatus();
  void ChooseProxyScheme();

  HttpsRequest& m_request;
  const std::wstring& m_host;
  const std::wstring& m_proxyUser;
  const std::wstring& m_proxyPassword;
  DWORD m_proxyScheme = 0;
  bool m_certificateWanted = false;
  // Released in the reverse order, all of it before the request.
  ClientCertificate m_certificate;
  UniqueKernelHandle m_userToken;
};

bool RequestLoop::Run() {
  for (int pass = 0; pass < kMaxPasses; ++pass) {
    const PassResult result = RunPass();
    if (result != PassResult::kRepeat) return result == PassResult::kReachable;
  }
  return false;
}

PassResult RequestLoop::RunPass() {
  if (m_proxyScheme != 0) {
    // The proxy wants to know who we are, and nobody told us.
    if (m_proxyUser.empty()) return PassResult::kUnreachable;
    SetProxyCredentials();
  }
  DWORD error = ERROR_SUCCESS;
  bool foundCertificate = false;
  const bool sent = Send(error, foundCertificate);
  if (!sent) FW_LOG(kLogInfo, L"Send Request failed for %s errorCode %ld", m_host.c_str(), error);
  // Whoever sent as the user and is the user still must not go on with that.
  if (!ThreadActsAsItself()) return PassResult::kUnreachable;
  if (!sent) return AfterFailedSend(error, foundCertificate);
  if (!m_request.Receive()) return PassResult::kUnreachable;
  return JudgeStatus();
}

void RequestLoop::SetProxyCredentials() {
  if (m_proxyScheme != WINHTTP_AUTH_SCHEME_PASSPORT) {
    ::WinHttpSetCredentials(m_request.Handle(), WINHTTP_AUTH_TARGET_PROXY, m_proxyScheme, m_proxyUser.c_str(),
                            m_proxyPassword.c_str(), nullptr);
    return;
  }
  // Both texts go into the user name's option, so the password replaces the name. Kept on purpose; guarded by
  // ValidateHttpsConnection.PassportSetsNameAndPasswordInTheSameOption. These lengths count characters.
  for (const std::wstring* text : {&m_proxyUser, &m_proxyPassword})
    ::WinHttpSetOption(m_request.Handle(), WINHTTP_OPTION_PROXY_USERNAME, const_cast<wchar_t*>(text->c_str()),
                       static_cast<DWORD>(text->size()));
}

// Sends as the service, or, once a client certificate was asked for, as the interactive user with the user's next
// certificate: the key behind it can be used only with the user's identity.
bool RequestLoop::Send(DWORD& error, bool& foundCertificate) {
  if (!m_certificateWanted) return m_request.Send(error);

  m_userToken.reset();
  if (GetInteractiveUserToken(m_userToken.put()) != S_OK) return m_request.Send(error);
  ImpersonationGuard impersonation(m_userToken.get());
  if (!impersonation) return m_request.Send(error);
  foundCertificate = m_certificate.SelectNext(m_request.Handle());
  const bool sent = m_request.Send(error);
  m_userToken.reset();
  if (impersonation.Revert()) FW_LOG(kLogInfo, L"Reverted back successfully");
  return sent;
}

PassResult RequestLoop::AfterFailedSend(DWORD error, bool foundCertificate) {
  if (error != ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED) return PassResult::kUnreachable;
  // The first demand starts the search; a later one means that the certificate just sent was refused, so the next is
  // tried until the search finds none.
  if (m_certificateWanted && !foundCertificate) return PassResult::kUnreachable;
  m_certificateWanted = true;
  return PassResult::kRepeat;
}

PassResult RequestLoop::JudgeStatus() {
  DWORD status = 0;
  DWORD size = sizeof status;
  ::WinHttpQueryHeaders(m_request.Handle(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                        WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX);
  FW_LOG(kLogInfo, L"WinHttp Send Request status code for %s %ld", m_host.c_str(), status);
  switch (status) {
    case HTTP_STATUS_OK:
    case HTTP_STATUS_DENIED:  // the server is there, it only wants to know who asks
      return PassResult::kReachable;
    case HTTP_STATUS_PROXY_AUTH_REQ:
      ChooseProxyScheme();
      return PassResult::kRepeat;
    default:
      return PassResult::kUnreachable;
  }
}

void RequestLoop::ChooseProxyScheme() {
  DWORD supported = 0;
  DWORD first = 0;
  DWORD target = 0;
  if (!::WinHttpQueryAuthSchemes(m_request.Handle(), &supported, &first, &target)) return;
  m_proxyScheme = 0;
  constexpr DWORD kInOrderOfChoice[] = {WINHTTP_AUTH_SCHEME_BASIC, WINHTTP_AUTH_SCHEME_NEGOTIATE,
                                        WINHTTP_AUTH_SCHEME_NTLM, WINHTTP_AUTH_SCHEME_PASSPORT,
                                        WINHTTP_AUTH_SCHEME_DIGEST};
  for (const DWORD scheme : kInOrderOfChoice) {
    if ((supported & scheme) == 0) continue;
    m_proxyScheme = scheme;
    return;
  }
}

// The proxy that auto-discovery found. Its texts are ours to free.
class DiscoveredProxy {
 public:
  DiscoveredProxy() noexcept = default;
  ~DiscoveredProxy() {
    const UniqueGlobalMemory server(m_info.lpszProxy);
    const UniqueGlobalMemory bypass(m_info.lpszProxyBypass);
  }
  DiscoveredProxy(const DiscoveredProxy&) = delete;
  DiscoveredProxy& operator=(const DiscoveredProxy&) = delete;

  bool Discover(HINTERNET session, const std::wstring& host, const std::wstring& configUrl);
  WINHTTP_PROXY_INFO& Info() noexcept { return m_info; }

 private:
  WINHTTP_PROXY_INFO m_info{};
};

bool DiscoveredProxy::Discover(HINTERNET session, const std::wstring& host, const std::wstring& configUrl) {
  WINHTTP_AUTOPROXY_OPTIONS options{};
  options.dwFlags = WINHTTP_AUTOPROXY_AUTO_DETECT;
  options.dwAutoDetectFlags = WINHTTP_AUTO_DETECT_TYPE_DHCP | WINHTTP_AUTO_DETECT_TYPE_DNS_A;
  if (!configUrl.empty()) {
    options.dwFlags |= WINHTTP_AUTOPROXY_CONFIG_URL;
    options.lpszAutoConfigUrl = configUrl.c_str();
  }
  const std::wstring url = L"https://" + host;
  if (::WinHttpGetProxyForUrl(session, url.c_str(), &options, &m_info)) return true;
  if (::GetLastError() != ERROR_WINHTTP_LOGIN_FAILURE) return false;
  // The server of the script wants a log-on; offering one only when asked keeps the usual case fast.
  options.fAutoLogonIfChallenged = TRUE;
  return ::WinHttpGetProxyForUrl(session, url.c_str(), &options, &m_info) != FALSE;
}

}  // namespace

bool ValidateHttpsConnection(const std::wstring& host, const std::wstring& proxyServer, const std::wstring& proxyUser,
                             const std::wstring& proxyPassword) {
  if (!ThreadActsAsItself()) return false;
  const bool named = !proxyServer.empty();
  HttpsRequest request;
  if (!request.Open(host, named ? WINHTTP_ACCESS_TYPE_NAMED_PROXY : WINHTTP_ACCESS_TYPE_DEFAULT_PROXY,
                    named ? proxyServer.c_str() : WINHTTP_NO_PROXY_NAME, HttpsMode::kBlocking))
    return false;
  return request.Prepare() && RequestLoop(request, host, proxyUser, proxyPassword).Run();
}

bool ValidateHttpsConnectionAutoProxy(const ProxyContext&, const std::wstring& host, const std::wstring& configUrl,
                                      const std::wstring& proxyUser, const std::wstring& proxyPassword) {
  if (!ThreadActsAsItself()) return false;
  DiscoveredProxy proxy;
  HttpsRequest request;
  if (!request.Open(host, WINHTTP_ACCESS_TYPE_NO_PROXY, WINHTTP_NO_PROXY_NAME, HttpsMode::kAsynchronous)) return false;
  if (!proxy.Discover(request.Session(), host, configUrl)) return false;
  static_assert(sizeof(WINHTTP_PROXY_INFO) == 24);
  if (!::WinHttpSetOption(request.Handle(), WINHTTP_OPTION_PROXY, &proxy.Info(), sizeof(WINHTTP_PROXY_INFO)))
    return false;
  return request.Prepare() && RequestLoop(request, host, proxyUser, proxyPassword).Run();
}

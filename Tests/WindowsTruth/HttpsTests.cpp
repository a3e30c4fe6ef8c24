// Asynchronous requests, proxies and their passwords, as the HTTPS probe meets them. Nothing leaves the machine.
#include <winsock2.h>
#include <windows.h>
#include <winhttp.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/HttpsHandles.h"
#include "Tests/WindowsTruth/LocalServer.h"
#include "Tests/WindowsTruth/Wine.h"

namespace {

using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr char kNothing[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";
constexpr char kRefusal[] = "HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\nConnection: close\r\n\r\n";

// What WinHTTP reports of the requests of one test.
class Reports {
 public:
  Reports() { s_reports = this; }
  ~Reports() { s_reports = nullptr; }
  Reports(const Reports&) = delete;
  Reports& operator=(const Reports&) = delete;

  static void CALLBACK Take(HINTERNET, DWORD_PTR context, DWORD status, void*, DWORD) {
    if (s_reports == nullptr) return;
    Reports& self = *s_reports;
    const std::lock_guard lock(self.m_mutex);
    self.m_contexts.push_back(context);
    self.m_statuses.push_back(status);
    self.m_came.notify_all();
  }

  // Within ten seconds.
  bool WaitFor(DWORD status) {
    std::unique_lock lock(m_mutex);
    return m_came.wait_for(lock, std::chrono::seconds(10),
                           [&] { return std::find(m_statuses.begin(), m_statuses.end(), status) != m_statuses.end(); });
  }
  std::vector<DWORD_PTR> Contexts() {
    const std::lock_guard lock(m_mutex);
    return m_contexts;
  }
  std::vector<DWORD> Statuses() {
    const std::lock_guard lock(m_mutex);
    return m_statuses;
  }

 private:
  static inline Reports* s_reports = nullptr;

  std::mutex m_mutex;
  std::condition_variable m_came;
  std::vector<DWORD_PTR> m_contexts;
  std::vector<DWORD> m_statuses;
};

// The handles of one request, closed in reverse.
struct Request {
  UniqueWinHttp session;
  UniqueWinHttp connection;
  UniqueWinHttp request;

  Request(const wchar_t* proxy, DWORD sessionFlags) {
    session.reset(::WinHttpOpen(L"WinHTTPS request",
                                proxy != nullptr ? WINHTTP_ACCESS_TYPE_NAMED_PROXY : WINHTTP_ACCESS_TYPE_NO_PROXY,
                                proxy, WINHTTP_NO_PROXY_BYPASS, sessionFlags));
    EXPECT_TRUE(session);
  }
  void Open(const wchar_t* host, INTERNET_PORT port, DWORD flags) {
    connection.reset(::WinHttpConnect(session.get(), host, port, 0));
    EXPECT_TRUE(connection);
    request.reset(::WinHttpOpenRequest(connection.get(), L"GET", nullptr, nullptr, WINHTTP_NO_REFERER,
                                       WINHTTP_DEFAULT_ACCEPT_TYPES, flags));
    EXPECT_TRUE(request);
  }
  void ReportWithContext(DWORD_PTR context) const {
    EXPECT_NE(::WinHttpSetStatusCallback(request.get(), &Reports::Take,
                                         WINHTTP_CALLBACK_FLAG_SECURE_FAILURE | WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS |
                                             WINHTTP_CALLBACK_FLAG_HANDLES,
                                         0),
              WINHTTP_INVALID_STATUS_CALLBACK);
    EXPECT_TRUE(::WinHttpSetOption(request.get(), WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof context));
  }
  // Without a context of its own.
  bool Send() const {
    return ::WinHttpSendRequest(request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0) !=
           FALSE;
  }
  bool Receive() const { return ::WinHttpReceiveResponse(request.get(), nullptr) != FALSE; }
  DWORD Status() const {
    DWORD status = 0;
    DWORD size = sizeof status;
    ::WinHttpQueryHeaders(request.get(), WINHTTP_QUERY_STATUS_CODE | WINHTTP_QUERY_FLAG_NUMBER,
                          WINHTTP_HEADER_NAME_BY_INDEX, &status, &size, WINHTTP_NO_HEADER_INDEX);
    return status;
  }
};

constexpr DWORD_PTR kContext = 0x51e1a;

TEST(WindowsTruth, EveryReportOfARequestHasTheContextOfItsOptionAndTheLastIsItsClosing) {
  LocalServer server([](const std::string&) { return kNothing; });
  Reports reports;
  Request request(nullptr, WINHTTP_FLAG_ASYNC);
  request.Open(L"127.0.0.1", server.Port(), 0);
  request.ReportWithContext(kContext);
  ASSERT_TRUE(request.Send());
  ASSERT_TRUE(reports.WaitFor(WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE));
  ASSERT_TRUE(request.Receive());
  ASSERT_TRUE(reports.WaitFor(WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE));
  EXPECT_EQ(request.Status(), 200u);
  request.request.reset();
  ASSERT_TRUE(reports.WaitFor(WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING));
  EXPECT_THAT(reports.Contexts(), Each(kContext));
  EXPECT_EQ(reports.Statuses().back(), DWORD{WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING});
}

TEST(WindowsTruth, ARequestThatWasNeverSentTellsItsContextWhenItCloses) {
  Reports reports;
  Request request(nullptr, WINHTTP_FLAG_ASYNC);
  request.Open(L"127.0.0.1", 1, 0);
  request.ReportWithContext(kContext);
  request.request.reset();
  ASSERT_TRUE(reports.WaitFor(WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING));
  EXPECT_EQ(reports.Contexts(), std::vector<DWORD_PTR>{kContext});
}

TEST(WindowsTruth, AScriptForProxiesIsReadInAnAsynchronousSession) {
  LocalServer server([](const std::string&) {
    const std::string script = "function FindProxyForURL(url, host) { return \"PROXY 127.0.0.1:3128\"; }";
    return "HTTP/1.1 200 OK\r\nContent-Type: application/x-ns-proxy-autoconfig\r\nContent-Length: " +
           std::to_string(script.size()) + "\r\nConnection: close\r\n\r\n" + script;
  });
  const Request request(nullptr, WINHTTP_FLAG_ASYNC);
  const std::wstring url = L"http://" + server.Authority() + L"/proxy.pac";
  WINHTTP_AUTOPROXY_OPTIONS options{};
  options.dwFlags = WINHTTP_AUTOPROXY_CONFIG_URL;
  options.lpszAutoConfigUrl = url.c_str();
  WINHTTP_PROXY_INFO info{};
  ASSERT_TRUE(::WinHttpGetProxyForUrl(request.session.get(), L"https://host.invalid", &options, &info))
      << ::GetLastError();
  EXPECT_EQ(info.dwAccessType, DWORD{WINHTTP_ACCESS_TYPE_NAMED_PROXY});
  ASSERT_NE(info.lpszProxy, nullptr);
  EXPECT_STREQ(info.lpszProxy, L"127.0.0.1:3128");
  ::GlobalFree(info.lpszProxy);
  ::GlobalFree(info.lpszProxyBypass);
}

TEST(WindowsTruth, AProxySetOnARequestIsAskedForTheHost) {
  SKIP_UNDER_WINE("WINHTTP_OPTION_PROXY is taken without effect");
  LocalServer proxy([](const std::string&) { return kRefusal; });
  Reports reports;
  Request request(nullptr, WINHTTP_FLAG_ASYNC);
  request.Open(L"host.invalid", INTERNET_DEFAULT_HTTPS_PORT, WINHTTP_FLAG_SECURE);
  std::wstring authority = proxy.Authority();
  WINHTTP_PROXY_INFO info{WINHTTP_ACCESS_TYPE_NAMED_PROXY, authority.data(), nullptr};
  ASSERT_TRUE(::WinHttpSetOption(request.request.get(), WINHTTP_OPTION_PROXY, &info, sizeof info));
  request.ReportWithContext(kContext);
  ASSERT_TRUE(request.Send());
  // The proxy refuses; whether that is an answer or an error, it comes as a report.
  EXPECT_TRUE(reports.WaitFor(WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE) ||
              reports.WaitFor(WINHTTP_CALLBACK_STATUS_REQUEST_ERROR));
  request.request.reset();
  EXPECT_TRUE(reports.WaitFor(WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING));
  ASSERT_THAT(proxy.Requests(), Not(IsEmpty()));
  EXPECT_THAT(proxy.Requests().front(), StartsWith("CONNECT host.invalid:443 "));
}

TEST(WindowsTruth, AProxyThatWantsAPasswordGivesTheStatus407AndIsToldItInTheNextPass) {
  SKIP_UNDER_WINE("the proxy's 407 is passed over");
  LocalServer proxy([](const std::string& request) -> std::string {
    if (request.find("Proxy-Authorization:") != std::string::npos) return kRefusal;
    return "HTTP/1.1 407 Proxy Authentication Required\r\nProxy-Authenticate: Basic realm=\"test\"\r\n"
           "Content-Length: 0\r\nConnection: close\r\nProxy-Connection: close\r\n\r\n";
  });
  const std::wstring authority = proxy.Authority();
  Request request(authority.c_str(), 0);
  request.Open(L"host.invalid", INTERNET_DEFAULT_HTTPS_PORT, WINHTTP_FLAG_SECURE);
  ASSERT_TRUE(request.Send()) << ::GetLastError();
  ASSERT_TRUE(request.Receive()) << ::GetLastError();
  ASSERT_EQ(request.Status(), DWORD{HTTP_STATUS_PROXY_AUTH_REQ});

  DWORD supported = 0;
  DWORD first = 0;
  DWORD target = 0;
  ASSERT_TRUE(::WinHttpQueryAuthSchemes(request.request.get(), &supported, &first, &target)) << ::GetLastError();
  EXPECT_EQ(supported, DWORD{WINHTTP_AUTH_SCHEME_BASIC});
  EXPECT_EQ(target, DWORD{WINHTTP_AUTH_TARGET_PROXY});

  ASSERT_TRUE(::WinHttpSetCredentials(request.request.get(), WINHTTP_AUTH_TARGET_PROXY, WINHTTP_AUTH_SCHEME_BASIC,
                                      L"user", L"secret", nullptr));
  static_cast<void>(request.Send() && request.Receive());
  ASSERT_THAT(proxy.Requests(), Not(IsEmpty()));
  EXPECT_THAT(proxy.Requests().back(), HasSubstr("Proxy-Authorization: Basic dXNlcjpzZWNyZXQ="));
}

}  // namespace

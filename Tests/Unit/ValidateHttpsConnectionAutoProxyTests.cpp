#include <utility>

#include "FwClient/Service/QeLaLib/HttpsCompletion.h"
#include "FwClient/Service/QeLaLib/HttpsLimits.h"
#include "FwClient/Service/QeLaLib/ValidateHttpsConnection.h"
#include "Tests/Support/ScriptedHttps.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What WinHTTP's own limits may add up to in one call, in milliseconds: resolve, five addresses to connect to, a tunnel
// through the proxy, two flights each way for TLS, send, all headers and the last receive; and that for the host and
// for each of ten redirects.
constexpr DWORD kSystemsLimitMs =
    11 * (10000 + 5 * 10000 + (10000 + 90000 + 10000) + 2 * (10000 + 10000) + 10000 + (90000 + 10000));

// Longer than the system may take, and yet not for ever.
constexpr DWORD kCallLimitMs = HttpsLimits::kReportMs;
static_assert(kCallLimitMs > kSystemsLimitMs && kCallLimitMs <= 60 * 60 * 1000);

class ValidateHttpsConnectionAutoProxy : public ScriptedHttps {
 protected:
  bool Probe(const std::wstring& url = {}, const std::wstring& proxyUser = {}) {
    return ::ValidateHttpsConnectionAutoProxy(m_context, L"host.test", url, proxyUser, L"secret");
  }

  ProxyContext m_context;
};

TEST_F(ValidateHttpsConnectionAutoProxy, AsksThroughTheDiscoveredProxyAndReleasesInReverse) {
  EXPECT_TRUE(Probe());
  EXPECT_THAT(
      m_windows.Calls(),
      ElementsAre("CreateEventW()", "CreateEventW()", "WinHttpOpen(WinHTTPS request, 1, null, null, 0x10000000)",
                  "WinHttpConnect(session, host.test, 443)",
                  "WinHttpOpenRequest(connection, GET, null, null, null, 0x800100)",
                  "WinHttpGetProxyForUrl(session, https://host.test, flags 1, detect 3, script null, log on 0)",
                  "WinHttpSetOption(request, 38, 3 proxy.test:8888 <local>, 24)",
                  "WinHttpSetStatusCallback(request, 0x17f0c00)", "WinHttpSetOption(request, 45, context, 8)",
                  "WinHttpSetTimeouts(request, 10000, 10000, 10000, 10000)", "WinHttpSendRequest(request)",
                  "WinHttpReceiveResponse(request)", "WinHttpQueryHeaders(request, 0x20000013)",
                  "WinHttpCloseHandle(request)", "WinHttpCloseHandle(connection)", "WinHttpCloseHandle(session)",
                  "CloseHandle(event2)", "CloseHandle(event)", "GlobalFree(bypass text)", "GlobalFree(proxy text)"));
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"WinHttp Send Request status code for host.test 200"));
}

TEST_F(ValidateHttpsConnectionAutoProxy, NamesTheScriptThatItIsGiven) {
  EXPECT_TRUE(Probe(L"http://wpad.test/p.pac"));
  EXPECT_THAT(m_windows.Calls({"WinHttpGetProxyForUrl"}),
              ElementsAre("WinHttpGetProxyForUrl(session, https://host.test, flags 3, detect 3, script "
                          "http://wpad.test/p.pac, log on 0)"));
}

TEST_F(ValidateHttpsConnectionAutoProxy, LogsOnWhenTheScriptsServerWantsIt) {
  m_https.discoveryErrors = {ERROR_WINHTTP_LOGIN_FAILURE};
  EXPECT_TRUE(Probe());
  EXPECT_THAT(
      m_windows.Calls({"WinHttpGetProxyForUrl"}),
      ElementsAre("WinHttpGetProxyForUrl(session, https://host.test, flags 1, detect 3, script null, log on 0)",
                  "WinHttpGetProxyForUrl(session, https://host.test, flags 1, detect 3, script null, log on 1)"));
}

TEST_F(ValidateHttpsConnectionAutoProxy, LogsOnOnlyOnce) {
  m_https.discoveryErrors = {ERROR_WINHTTP_LOGIN_FAILURE, ERROR_WINHTTP_LOGIN_FAILURE};
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpGetProxyForUrl"), 2u);
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 0u);
}

TEST_F(ValidateHttpsConnectionAutoProxy, EndsWhenNoProxyIsDiscovered) {
  m_https.discoveryErrors = {ERROR_WINHTTP_AUTODETECTION_FAILED};
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpGetProxyForUrl"), 1u);
  EXPECT_EQ(m_windows.Count("WinHttpSetOption"), 0u);
}

TEST_F(ValidateHttpsConnectionAutoProxy, FreesTheTextsWhenTheProxyCannotBeSet) {
  m_windows.Fail("WinHttpSetOption", ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 0u);
  EXPECT_THAT(m_windows.Calls({"GlobalFree"}), ElementsAre("GlobalFree(bypass text)", "GlobalFree(proxy text)"));
}

TEST_F(ValidateHttpsConnectionAutoProxy, EndsWithoutSendingWhenAStepBeforeFails) {
  for (const auto& [step, call] :
       {std::pair("CreateEventW", 1u), std::pair("CreateEventW", 2u), std::pair("WinHttpOpen", 1u),
        std::pair("WinHttpConnect", 1u), std::pair("WinHttpOpenRequest", 1u), std::pair("WinHttpSetStatusCallback", 1u),
        std::pair("WinHttpSetOption", 2u), std::pair("WinHttpSetTimeouts", 1u)}) {
    SCOPED_TRACE(step);
    m_windows.Fail(step, ERROR_WINHTTP_INTERNAL_ERROR, call);
    EXPECT_FALSE(Probe());
    EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
  }
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 0u);
}

TEST_F(ValidateHttpsConnectionAutoProxy, WaitsForReportsFromOtherThreadsAsLongAsTheSystemMayTake) {
  m_https.reports = Reports::kFromAnotherThread;
  m_https.answers = {HttpsAnswer::ProxyAsks(1), HttpsAnswer::Status(401)};
  EXPECT_TRUE(Probe(L"", L"user"));
  // Two sends, two answers, and the last report before the library may be unloaded; each wait is limited.
  EXPECT_THAT(m_events.Waits(), ElementsAre(kCallLimitMs, kCallLimitMs, kCallLimitMs, kCallLimitMs, 10000u));
}

TEST_F(ValidateHttpsConnectionAutoProxy, TakesTheReportedErrorForTheSendsOwn) {
  m_https.answers = {HttpsAnswer::SendFails(12029)};
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"Send Request failed for host.test errorCode 12029"));
}

TEST_F(ValidateHttpsConnectionAutoProxy, TakesAReportedFailureWithoutACodeForAFailure) {
  HttpsAnswer answer = HttpsAnswer::Status(200);
  answer.before = [this](WINHTTP_STATUS_CALLBACK, HINTERNET) {
    m_https.reports = Reports::kNever;
    m_https.Report(WINHTTP_CALLBACK_STATUS_REQUEST_ERROR, nullptr);
  };
  m_https.answers = {answer};
  m_events.CutWaitsShort();
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"Send Request failed for host.test errorCode 12004"));
  m_https.ReportLate();
}

TEST_F(ValidateHttpsConnectionAutoProxy, OffersCertificatesWhenTheReportAsksForOne) {
  m_https.answers = {HttpsAnswer::SendFails(ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED), HttpsAnswer::Status(200)};
  m_https.reports = Reports::kFromAnotherThread;
  EXPECT_TRUE(Probe());
  EXPECT_THAT(m_windows.Calls({"WinHttpSendRequest"}),
              ElementsAre("WinHttpSendRequest(request)", "WinHttpSendRequest(request, as the user)"));
  EXPECT_EQ(m_log.Count(L"Reverted back successfully"), 1u);
}

TEST_F(ValidateHttpsConnectionAutoProxy, EndsWhenReceivingIsReportedToFail) {
  m_https.answers = {HttpsAnswer::ReceiveFails(12002)};
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpQueryHeaders"), 0u);
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(ValidateHttpsConnectionAutoProxy, EndsAtOnceWhenACallFailsWithoutAReport) {
  m_windows.Fail("WinHttpSendRequest", ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_events.Waits(), ElementsAre(10000u));
  m_windows.Fail("WinHttpReceiveResponse", ERROR_WINHTTP_INCORRECT_HANDLE_STATE);
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"Send Request failed for host.test errorCode 12019"));
}

TEST_F(ValidateHttpsConnectionAutoProxy, StopsWaitingForAReportThatNeverComes) {
  m_https.reports = Reports::kNever;
  m_events.CutWaitsShort();
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_events.Waits(), ElementsAre(kCallLimitMs, 10000u));
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"Send Request failed for host.test errorCode 12002"));
  // The request was closed; what its reports will touch was not.
  EXPECT_THAT(m_windows.OpenHandles(), ElementsAre("event", "event2"));
  m_https.ReportLate();
  EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
}

TEST_F(ValidateHttpsConnectionAutoProxy, StopsWaitingForAnAnswerThatNeverComes) {
  HttpsAnswer answer = HttpsAnswer::Status(200);
  answer.before = [this](WINHTTP_STATUS_CALLBACK, HINTERNET) {
    m_https.reports = Reports::kNever;
    m_https.Report(WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE, nullptr);
  };
  m_https.answers = {answer};
  m_events.CutWaitsShort();
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_events.Waits(), ElementsAre(kCallLimitMs, kCallLimitMs, 10000u));
  EXPECT_EQ(m_windows.Count("WinHttpReceiveResponse"), 1u);
  m_https.ReportLate();
}

TEST_F(ValidateHttpsConnectionAutoProxy, WaitsOnAfterAWordAboutTheCertificate) {
  HttpsAnswer answer = HttpsAnswer::Status(200);
  answer.before = [this](WINHTTP_STATUS_CALLBACK, HINTERNET) {
    m_https.Report(WINHTTP_CALLBACK_STATUS_SECURE_FAILURE, nullptr);
    m_https.reports = Reports::kNever;
  };
  m_https.answers = {answer};
  m_events.CutWaitsShort();
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_events.Waits(), ElementsAre(kCallLimitMs, 10000u));
  EXPECT_EQ(m_windows.Count("WinHttpReceiveResponse"), 0u);
  m_https.ReportLate();
}

TEST_F(ValidateHttpsConnectionAutoProxy, LogsWhatIsWrongWithTheCertificate) {
  HttpsAnswer answer = HttpsAnswer::SendFails(ERROR_WINHTTP_SECURE_FAILURE);
  answer.before = [this](WINHTTP_STATUS_CALLBACK, HINTERNET) {
    DWORD flags = WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID;
    m_https.Report(WINHTTP_CALLBACK_STATUS_SECURE_FAILURE, &flags);
  };
  m_https.answers = {answer};
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"Cert Error Code:16", L"Send Request failed for host.test errorCode 12175"));
}

}  // namespace

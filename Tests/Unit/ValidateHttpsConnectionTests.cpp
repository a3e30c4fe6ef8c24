#include "FwClient/Service/QeLaLib/ValidateHttpsConnection.h"

#include "Tests/Support/ScriptedHttps.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ValidateHttpsConnection : public ScriptedHttps {
 protected:
  bool Probe() { return ::ValidateHttpsConnection(L"host.test", L"", L"", L""); }
  bool ProbeAs(const std::wstring& proxyUser) {
    return ::ValidateHttpsConnection(L"host.test", L"proxy.test:8080", proxyUser, L"secret");
  }
};

TEST_F(ValidateHttpsConnection, AsksInThisOrderAndReleasesInReverse) {
  EXPECT_TRUE(Probe());
  EXPECT_THAT(
      m_windows.Calls(),
      ElementsAre("WinHttpOpen(WinHTTPS request, 0, null, null, 0x0)", "WinHttpConnect(session, host.test, 443)",
                  "WinHttpOpenRequest(connection, GET, null, null, null, 0x800100)",
                  "WinHttpSetStatusCallback(request, 0x10000)",
                  "WinHttpSetTimeouts(request, 10000, 10000, 10000, 10000)", "WinHttpSendRequest(request)",
                  "WinHttpReceiveResponse(request)", "WinHttpQueryHeaders(request, 0x20000013)",
                  "WinHttpCloseHandle(request)", "WinHttpCloseHandle(connection)", "WinHttpCloseHandle(session)"));
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"WinHttp Send Request status code for host.test 200"));
  ExpectFirewallEvent(m_log.Events().front(), 8, "FwClient/Service/QeLaLib/ValidateHttpsConnection.cpp");
}

TEST_F(ValidateHttpsConnection, NamesTheProxyThatItIsGiven) {
  EXPECT_TRUE(ProbeAs(L""));
  EXPECT_EQ(m_windows.Calls().front(), "WinHttpOpen(WinHTTPS request, 3, proxy.test:8080, null, 0x0)");
}

struct StatusCase {
  DWORD status;
  bool reachable;
};

class ValidateHttpsConnectionStatus : public ValidateHttpsConnection, public testing::WithParamInterface<StatusCase> {};

TEST_P(ValidateHttpsConnectionStatus, DecidesAtOnce) {
  m_https.answers = {HttpsAnswer::Status(GetParam().status)};
  EXPECT_EQ(Probe(), GetParam().reachable);
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 1u);
}

INSTANTIATE_TEST_SUITE_P(Statuses, ValidateHttpsConnectionStatus,
                         testing::Values(StatusCase{200, true}, StatusCase{401, true}, StatusCase{0, false},
                                         StatusCase{201, false}, StatusCase{204, false}, StatusCase{301, false},
                                         StatusCase{403, false}, StatusCase{404, false}, StatusCase{500, false},
                                         StatusCase{503, false}));

TEST_F(ValidateHttpsConnection, TakesAStatusThatCannotBeQueriedForZero) {
  m_https.answers = {HttpsAnswer{}};
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"WinHttp Send Request status code for host.test 0"));
}

TEST_F(ValidateHttpsConnection, LogsTheErrorOfAFailedSend) {
  m_https.answers = {HttpsAnswer::SendFails(12032)};
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 1u);
  EXPECT_EQ(m_windows.Count("WinHttpReceiveResponse"), 0u);
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"Send Request failed for host.test errorCode 12032"));
}

TEST_F(ValidateHttpsConnection, EndsWhenReceivingFailsWhateverTheError) {
  m_https.answers = {HttpsAnswer::ReceiveFails(ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED)};
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 1u);
  EXPECT_EQ(m_windows.Count("WinHttpQueryHeaders"), 0u);
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(ValidateHttpsConnection, EndsWithoutSendingWhenAStepBeforeFails) {
  for (const char* step : {"WinHttpOpen", "WinHttpConnect", "WinHttpOpenRequest", "WinHttpSetTimeouts"}) {
    SCOPED_TRACE(step);
    m_windows.Fail(step, ERROR_WINHTTP_INTERNAL_ERROR);
    EXPECT_FALSE(Probe());
    EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 0u);
    EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
  }
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(ValidateHttpsConnection, GoesOnWithoutItsCallback) {
  m_windows.Fail("WinHttpSetStatusCallback", ERROR_WINHTTP_INTERNAL_ERROR);
  EXPECT_TRUE(Probe());
}

TEST_F(ValidateHttpsConnection, LogsWhatIsWrongWithTheCertificate) {
  HttpsAnswer answer = HttpsAnswer::SendFails(ERROR_WINHTTP_SECURE_FAILURE);
  answer.before = [](WINHTTP_STATUS_CALLBACK callback, HINTERNET request) {
    DWORD words[] = {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA, 4711};
    callback(request, 0, WINHTTP_CALLBACK_STATUS_SECURE_FAILURE, words, sizeof words);
    callback(request, 0, WINHTTP_CALLBACK_STATUS_SECURE_FAILURE, nullptr, 0);
    // Not about the certificate, and no context to tell: nothing happens.
    callback(request, 0, WINHTTP_CALLBACK_STATUS_SENDING_REQUEST, words, sizeof words);
    callback(request, 0, WINHTTP_CALLBACK_STATUS_REQUEST_ERROR, nullptr, 0);
    callback(request, 0, WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE, nullptr, 0);
    callback(request, 0, WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING, nullptr, 0);
  };
  m_https.answers = {answer};
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"Cert Error Code:8", L"Cert Error Code:0",
                                         L"Send Request failed for host.test errorCode 12175"));
  EXPECT_EQ(m_log.Texts(8).size(), 3u);
}

TEST_F(ValidateHttpsConnection, LeavesTheDecisionToTheRequestWhateverTheCallbackIsTold) {
  HttpsAnswer answer = HttpsAnswer::Status(200);
  answer.before = [](WINHTTP_STATUS_CALLBACK callback, HINTERNET request) {
    DWORD flags = WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED;
    callback(request, 0, WINHTTP_CALLBACK_STATUS_SECURE_FAILURE, &flags, sizeof flags);
  };
  m_https.answers = {answer};
  EXPECT_TRUE(Probe());
}

TEST_F(ValidateHttpsConnection, EmptyHostFailsWhereWindowsRefusesIt) {
  m_windows.Fail("WinHttpConnect", ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(::ValidateHttpsConnection(L"", L"", L"", L""));
  EXPECT_THAT(m_windows.Calls({"WinHttpConnect"}), ElementsAre("WinHttpConnect(session, , 443)"));
}

// ---- proxy authentication ----

struct SchemeCase {
  DWORD supported;
  DWORD chosen;
};

class ValidateHttpsConnectionScheme : public ValidateHttpsConnection, public testing::WithParamInterface<SchemeCase> {};

TEST_P(ValidateHttpsConnectionScheme, TakesTheFirstThatItLikes) {
  m_https.answers = {HttpsAnswer::ProxyAsks(GetParam().supported), HttpsAnswer::Status(200)};
  EXPECT_TRUE(ProbeAs(L"user"));
  EXPECT_THAT(
      m_windows.Calls({"WinHttpSetCredentials"}),
      ElementsAre("WinHttpSetCredentials(request, 1, " + std::to_string(GetParam().chosen) + ", user, secret)"));
}

INSTANTIATE_TEST_SUITE_P(Schemes, ValidateHttpsConnectionScheme,
                         testing::Values(SchemeCase{0x1f, 1}, SchemeCase{0x1e, 16}, SchemeCase{0x0e, 2},
                                         SchemeCase{0x08, 8}, SchemeCase{0x0a, 2}, SchemeCase{0x09, 1},
                                         SchemeCase{0x18, 16}, SchemeCase{0x88, 8}));

TEST_F(ValidateHttpsConnection, PassportSetsNameAndPasswordInTheSameOption) {
  m_https.answers = {HttpsAnswer::ProxyAsks(0x0c), HttpsAnswer::Status(200)};
  EXPECT_TRUE(ProbeAs(L"user"));
  EXPECT_THAT(m_windows.Calls({"WinHttpSetOption", "WinHttpSetCredentials"}),
              ElementsAre("WinHttpSetOption(request, 4098, user, 4)", "WinHttpSetOption(request, 4098, secret, 6)"));
}

TEST_F(ValidateHttpsConnection, SetsTheCredentialsAgainBeforeEverySend) {
  m_https.answers = {HttpsAnswer::ProxyAsks(1), HttpsAnswer::ProxyAsks(2), HttpsAnswer::Status(200)};
  EXPECT_TRUE(ProbeAs(L"user"));
  EXPECT_THAT(m_windows.Calls({"WinHttpSetCredentials", "WinHttpSendRequest"}),
              ElementsAre("WinHttpSendRequest(request)", "WinHttpSetCredentials(request, 1, 1, user, secret)",
                          "WinHttpSendRequest(request)", "WinHttpSetCredentials(request, 1, 2, user, secret)",
                          "WinHttpSendRequest(request)"));
}

TEST_F(ValidateHttpsConnection, GivesUpInTheNextPassWhenNobodyToldTheUser) {
  m_https.answers = {HttpsAnswer::ProxyAsks(1)};
  EXPECT_FALSE(ProbeAs(L""));
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 1u);
  EXPECT_EQ(m_windows.Count("WinHttpSetCredentials"), 0u);
  EXPECT_THAT(m_log.Texts(), ElementsAre(L"WinHttp Send Request status code for host.test 407"));
}

TEST_F(ValidateHttpsConnection, WrongCredentialsAreSentThirtyTimesAtMost) {
  m_https.answers = {HttpsAnswer::ProxyAsks(1)};
  EXPECT_FALSE(ProbeAs(L"user"));
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 30u);
  EXPECT_EQ(m_windows.Count("WinHttpSetCredentials"), 29u);
}

TEST_F(ValidateHttpsConnection, RepeatsTheSameRequestWhileNoSchemeIsKnown) {
  for (const std::optional<DWORD> schemes :
       {std::optional<DWORD>(), std::optional<DWORD>(0), std::optional<DWORD>(0x80)}) {
    const std::size_t before = m_windows.Count("WinHttpSendRequest");
    m_https.answers = {HttpsAnswer::ProxyAsks(schemes)};
    // No scheme was chosen, so the missing user does not end it.
    EXPECT_FALSE(ProbeAs(L""));
    EXPECT_EQ(m_windows.Count("WinHttpSendRequest") - before, 30u);
  }
}

TEST_F(ValidateHttpsConnection, KeepsItsSchemeWhenTheNextQueryFails) {
  m_https.answers = {HttpsAnswer::ProxyAsks(2), HttpsAnswer::ProxyAsks(std::nullopt), HttpsAnswer::Status(200)};
  EXPECT_TRUE(ProbeAs(L"user"));
  EXPECT_EQ(m_windows.Count("WinHttpSetCredentials"), 2u);
}

TEST_F(ValidateHttpsConnection, ForgetsItsSchemeWhenTheProxyNamesNoneItKnows) {
  m_https.answers = {HttpsAnswer::ProxyAsks(2), HttpsAnswer::ProxyAsks(0x80), HttpsAnswer::Status(200)};
  EXPECT_TRUE(ProbeAs(L"user"));
  EXPECT_EQ(m_windows.Count("WinHttpSetCredentials"), 1u);
}

TEST_F(ValidateHttpsConnection, NeverLogsCredentials) {
  m_https.answers = {HttpsAnswer::ProxyAsks(1), HttpsAnswer::ProxyAsks(4), HttpsAnswer::SendFails(12029)};
  EXPECT_FALSE(ProbeAs(L"user-name"));
  for (const std::wstring& text : m_log.Texts()) {
    EXPECT_EQ(text.find(L"user-name"), std::wstring::npos) << text;
    EXPECT_EQ(text.find(L"secret"), std::wstring::npos) << text;
  }
}

}  // namespace

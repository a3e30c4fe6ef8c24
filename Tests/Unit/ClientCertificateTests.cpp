#include "FwClient/Service/QeLaLib/ClientCertificate.h"

#include <algorithm>

#include "FwClient/Service/QeLaLib/ValidateHttpsConnection.h"
#include "Tests/Support/ScriptedHttps.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr DWORD kCertificateNeeded = ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED;

class ClientCertificates : public ScriptedHttps {
 protected:
  bool Probe() { return ::ValidateHttpsConnection(L"host.test", L"", L"", L""); }

  // The calls from the second send's pass on, without those that find the user's token.
  std::vector<std::string> CertificateCalls() const {
    return m_windows.Calls({"ImpersonateLoggedOnUser", "RevertToSelf", "CertOpenStore", "CertCloseStore",
                            "WinHttpQueryOption", "CertNameToStrW", "CertFindChainInStore", "CertFreeCertificateChain",
                            "CertDuplicateCertificateContext", "CertFreeCertificateContext", "GlobalFree",
                            "WinHttpSetOption", "WinHttpSendRequest", "WinHttpCloseHandle"});
  }
};

TEST_F(ClientCertificates, SendsTheUsersCertificateAsTheUser) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(200)};
  EXPECT_TRUE(Probe());
  EXPECT_THAT(CertificateCalls(),
              ElementsAre("WinHttpSendRequest(request)", "ImpersonateLoggedOnUser(token)", "CertOpenStore(0x10000, My)",
                          "WinHttpQueryOption(request, 94)", "CertNameToStrW(1, 3, 500)",
                          "CertFindChainInStore(store, 1, 0x8004, 1, after null)", "CertDuplicateCertificateContext()",
                          "GlobalFree(issuers)", "WinHttpSetOption(request, 47, certificate, 40)",
                          "WinHttpSendRequest(request, as the user)", "RevertToSelf()",
                          "CertFreeCertificateContext(certificate)", "CertFreeCertificateChain(chain)",
                          "CertCloseStore(store, 0)", "WinHttpCloseHandle(request)", "WinHttpCloseHandle(connection)",
                          "WinHttpCloseHandle(session)"));
  EXPECT_THAT(
      m_log.Texts(),
      ElementsAre(L"Send Request failed for host.test errorCode 12044", L"Get client certificate issuer",
                  L"Issuer id of required certifcate :CN=Test", L"Searching cert in current user store",
                  L"Get client certificate chain", L"Set the client cert on request handle and resend the request",
                  L"Reverted back successfully", L"WinHttp Send Request status code for host.test 200"));
  EXPECT_EQ(m_log.Texts(8).size(), m_log.Texts().size());
  for (const LoggedEvent& event : m_log.Events()) EXPECT_TRUE(event.file.starts_with("FwClient/Service/QeLaLib/"));
}

TEST_F(ClientCertificates, AreToldToBeSetWhenTheyAre) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(200)};
  std::size_t set = 99;
  m_log.OnEvent([&](const LoggedEvent& event) {
    if (event.text.starts_with(L"Set the client cert")) set = m_windows.Count("WinHttpSetOption");
  });
  EXPECT_TRUE(Probe());
  EXPECT_EQ(set, 1u);
}

TEST_F(ClientCertificates, ClosesTheTokenBeforeItReverts) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(200)};
  EXPECT_TRUE(Probe());
  const auto calls = m_windows.Calls({"CloseHandle", "RevertToSelf"});
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[calls.size() - 2], "CloseHandle(token)");
  EXPECT_EQ(calls.back(), "RevertToSelf()");
}

TEST_F(ClientCertificates, TriesEachMatchingOneUntilNoneIsLeft) {
  AlwaysAskForCertificate();
  m_certificates.matching = 3;
  EXPECT_FALSE(Probe());
  // One send without a certificate, three with one each, one after the search that found no more.
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 5u);
  // All in one store, since a search cannot go on from what another store held. The search frees the chain that it
  // goes on from; the certificate of an earlier pass goes before the next is taken.
  EXPECT_THAT(
      m_windows.Calls({"CertOpenStore", "CertCloseStore", "CertFindChainInStore", "CertFreeCertificateChain",
                       "CertDuplicateCertificateContext", "CertFreeCertificateContext"}),
      ElementsAre("CertOpenStore(0x10000, My)", "CertFindChainInStore(store, 1, 0x8004, 1, after null)",
                  "CertDuplicateCertificateContext()",  //
                  "CertFindChainInStore(store, 1, 0x8004, 1, after chain)", "CertFreeCertificateContext(certificate)",
                  "CertDuplicateCertificateContext()",  //
                  "CertFindChainInStore(store, 1, 0x8004, 1, after chain2)", "CertFreeCertificateContext(certificate2)",
                  "CertDuplicateCertificateContext()",  //
                  "CertFindChainInStore(store, 1, 0x8004, 1, after chain3)", "CertFreeCertificateContext(certificate3)",
                  "CertCloseStore(store, 0)"));
  EXPECT_EQ(m_log.Count(L"Not able to locate client certificate -2146885628"), 1u);  // 0x80092004
  EXPECT_EQ(m_log.Count(L"Searching cert in current user store"), 4u);
  EXPECT_EQ(m_log.Count(L"Reverted back successfully"), 4u);
}

TEST_F(ClientCertificates, EveryPassLogsItsSearch) {
  AlwaysAskForCertificate();
  EXPECT_FALSE(Probe());
  const std::vector<std::wstring> texts = m_log.Texts();
  ASSERT_GE(texts.size(), 8u);
  EXPECT_THAT(std::vector(texts.end() - 8, texts.end()),
              ElementsAre(L"Send Request failed for host.test errorCode 12044", L"Get client certificate issuer",
                          L"Issuer id of required certifcate :CN=Test", L"Searching cert in current user store",
                          L"Get client certificate chain", L"Not able to locate client certificate -2146885628",
                          L"Reverted back successfully", L"Send Request failed for host.test errorCode 12044"));
}

TEST_F(ClientCertificates, NeverSendsMoreThanThirtyTimes) {
  AlwaysAskForCertificate();
  m_certificates.matching = 100;
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 30u);
  EXPECT_EQ(m_windows.Count("CertFindChainInStore"), 29u);
}

TEST_F(ClientCertificates, AnotherErrorAfterACertificateEndsIt) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::SendFails(12175)};
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 2u);
  // The error of the send, not what closing the token or reverting left behind.
  EXPECT_EQ(m_log.Count(L"Send Request failed for host.test errorCode 12175"), 1u);
}

TEST_F(ClientCertificates, LogsNoIssuerOfAnEmptyListAndSearchesAllTheSame) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(200)};
  m_certificates.issuers = 0;
  EXPECT_TRUE(Probe());
  EXPECT_EQ(m_windows.Count("CertNameToStrW"), 0u);
  EXPECT_EQ(m_windows.Count("CertFindChainInStore"), 1u);
  EXPECT_EQ(m_log.Count(L"Issuer id of required certifcate :"), 1u);
}

TEST_F(ClientCertificates, LogsALongIssuerCutTo499Characters) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(200)};
  m_certificates.issuerName.assign(5000, L'x');
  EXPECT_TRUE(Probe());
  EXPECT_EQ(m_log.Count(L"Issuer id of required certifcate :" + std::wstring(499, L'x')), 1u);
}

TEST_F(ClientCertificates, SendsWithoutOneWhenThereIsNoIssuerList) {
  AlwaysAskForCertificate();
  m_windows.Fail("WinHttpQueryOption", ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 2u);
  EXPECT_EQ(m_windows.Count("CertFindChainInStore"), 0u);
  EXPECT_EQ(m_log.Count(L"Not able to get issuer list"), 1u);
  EXPECT_EQ(m_log.Count(L"Reverted back successfully"), 1u);
}

TEST_F(ClientCertificates, TakesSuccessWithoutAListForNoList) {
  AlwaysAskForCertificate();
  m_certificates.listsIssuers = false;
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_log.Count(L"Not able to get issuer list"), 1u);
}

TEST_F(ClientCertificates, GoesOnWithoutAStoreAndFreesTheList) {
  AlwaysAskForCertificate();
  m_windows.Fail("CertOpenStore", ERROR_ACCESS_DENIED);
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 2u);
  EXPECT_EQ(m_log.Count(L"Not able to open current user store"), 1u);
  EXPECT_EQ(m_log.Count(L"Searching cert in current user store"), 0u);
  EXPECT_EQ(m_windows.Count("GlobalFree"), 1u);
}

TEST_F(ClientCertificates, OpensTheStoreInALaterPassWhenItCouldNotBefore) {
  // The certificate is wanted from the second pass on; a proxy keeps the passes going.
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::ProxyAsks(std::nullopt),
                     HttpsAnswer::ProxyAsks(std::nullopt), HttpsAnswer::Status(200)};
  m_certificates.matching = 5;
  m_windows.Fail("CertOpenStore", ERROR_ACCESS_DENIED);
  EXPECT_TRUE(Probe());
  EXPECT_THAT(m_windows.Calls({"CertOpenStore", "CertFindChainInStore", "CertCloseStore"}),
              ElementsAre("CertOpenStore(0x10000, My)", "CertOpenStore(0x10000, My)",
                          "CertFindChainInStore(store, 1, 0x8004, 1, after null)",
                          "CertFindChainInStore(store, 1, 0x8004, 1, after chain)", "CertCloseStore(store, 0)"));
  EXPECT_EQ(m_log.Count(L"Not able to open current user store"), 1u);
}

TEST_F(ClientCertificates, StayTheSameSearchWhenAPassInBetweenHasNoIssuerList) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::ProxyAsks(std::nullopt),
                     HttpsAnswer::ProxyAsks(std::nullopt), HttpsAnswer::Status(200)};
  m_certificates.matching = 5;
  m_windows.Fail("WinHttpQueryOption", ERROR_INVALID_PARAMETER, 2);
  EXPECT_TRUE(Probe());
  EXPECT_THAT(m_windows.Calls({"CertOpenStore", "CertFindChainInStore", "CertCloseStore"}),
              ElementsAre("CertOpenStore(0x10000, My)", "CertFindChainInStore(store, 1, 0x8004, 1, after null)",
                          "CertFindChainInStore(store, 1, 0x8004, 1, after chain)", "CertCloseStore(store, 0)"));
}

TEST_F(ClientCertificates, ReleasesTheListOfASearchInVainBeforeTheCertificate) {
  AlwaysAskForCertificate();
  EXPECT_FALSE(Probe());
  const auto calls =
      m_windows.Calls({"GlobalFree", "CertFreeCertificateContext", "CertFreeCertificateChain", "CertCloseStore"});
  EXPECT_THAT(calls, ElementsAre("GlobalFree(issuers)", "GlobalFree(issuers2)",
                                 "CertFreeCertificateContext(certificate)", "CertCloseStore(store, 0)"));
}

TEST_F(ClientCertificates, SendsAsTheServiceWhenTheUserCannotBeFound) {
  AlwaysAskForCertificate();
  m_processes.output.clear();
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_windows.Calls({"WinHttpSendRequest", "ImpersonateLoggedOnUser", "CertOpenStore"}),
              ElementsAre("WinHttpSendRequest(request)", "WinHttpSendRequest(request)"));
}

TEST_F(ClientCertificates, AreNotNeededWhereTheServiceMaySendAfterAll) {
  for (const bool userIsKnown : {false, true}) {
    SCOPED_TRACE(userIsKnown);
    m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(200)};
    if (userIsKnown)
      m_windows.Fail("ImpersonateLoggedOnUser", ERROR_ACCESS_DENIED);
    else
      m_windows.Fail("CreateProcessW", ERROR_ACCESS_DENIED);
    EXPECT_TRUE(Probe());
    EXPECT_EQ(m_windows.Count("CertOpenStore"), 0u);
  }
}

TEST_F(ClientCertificates, KeepsTheTokenOfAFailedImpersonationUntilTheEnd) {
  AlwaysAskForCertificate();
  m_windows.Fail("ImpersonateLoggedOnUser", ERROR_ACCESS_DENIED);
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("CertOpenStore"), 0u);
  EXPECT_EQ(m_windows.Count("RevertToSelf"), 0u);
  const auto calls = m_windows.Calls({"WinHttpSendRequest", "CloseHandle", "WinHttpCloseHandle"});
  ASSERT_GE(calls.size(), 5u);
  EXPECT_THAT(std::vector(calls.end() - 5, calls.end()),
              ElementsAre("WinHttpSendRequest(request)", "CloseHandle(token)", "WinHttpCloseHandle(request)",
                          "WinHttpCloseHandle(connection)", "WinHttpCloseHandle(session)"));
}

TEST_F(ClientCertificates, ClosesTheTokenOfAFailedImpersonationBeforeItTakesTheNext) {
  // The certificate is wanted in the second pass; a proxy keeps the passes going.
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::ProxyAsks(std::nullopt),
                     HttpsAnswer::Status(200)};
  m_windows.Fail("ImpersonateLoggedOnUser", ERROR_ACCESS_DENIED);
  EXPECT_TRUE(Probe());
  const auto calls = m_windows.Calls({"OpenProcessToken", "CloseHandle"});
  const auto closed = std::find(calls.begin(), calls.end(), "CloseHandle(token)");
  const auto next = std::find(calls.begin(), calls.end(), "OpenProcessToken(process2, 11)");
  ASSERT_NE(next, calls.end());
  EXPECT_LT(closed, next);
}

TEST_F(ClientCertificates, TriesAgainToRevertAndDoesNotClaimIt) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(200)};
  m_windows.Fail("RevertToSelf", ERROR_INTERNAL_ERROR);
  EXPECT_TRUE(Probe());
  EXPECT_THAT(m_windows.Calls({"RevertToSelf", "SetThreadToken", "WinHttpReceiveResponse"}),
              ElementsAre("RevertToSelf()", "RevertToSelf()", "WinHttpReceiveResponse(request)"));
  EXPECT_EQ(m_log.Count(L"Reverted back successfully"), 0u);
}

TEST_F(ClientCertificates, TakesTheUsersTokenAwayWhenRevertingFailsForGood) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(200)};
  m_windows.FailAlways("RevertToSelf", ERROR_INTERNAL_ERROR);
  EXPECT_TRUE(Probe());
  EXPECT_THAT(
      m_windows.Calls({"RevertToSelf", "SetThreadToken", "WinHttpReceiveResponse"}),
      ElementsAre("RevertToSelf()", "RevertToSelf()", "SetThreadToken(null)", "WinHttpReceiveResponse(request)"));
  EXPECT_EQ(m_log.Count(L"Reverted back successfully"), 0u);
}

TEST_F(ClientCertificates, EndTheProbeWhenTheThreadStaysTheUser) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(200)};
  m_user.KeepIdentity();
  EXPECT_FALSE(Probe());
  EXPECT_THAT(m_windows.Calls({"WinHttpSendRequest", "RevertToSelf", "SetThreadToken", "WinHttpReceiveResponse"}),
              ElementsAre("WinHttpSendRequest(request)", "WinHttpSendRequest(request, as the user)", "RevertToSelf()",
                          "RevertToSelf()", "SetThreadToken(null)"));
  EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
}

TEST_F(ClientCertificates, AreNotSentAgainWhenTheThreadStaysTheUser) {
  AlwaysAskForCertificate();
  m_certificates.matching = 5;
  m_user.KeepIdentity();
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 2u);
  // What the send itself came to is still told.
  EXPECT_EQ(m_log.Count(L"Send Request failed for host.test errorCode 12044"), 2u);
  EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
}

TEST_F(ClientCertificates, AreLookedForInEveryFurtherPassOnceWanted) {
  m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::ProxyAsks(1), HttpsAnswer::Status(200)};
  m_certificates.matching = 5;
  EXPECT_TRUE(::ValidateHttpsConnection(L"host.test", L"p:1", L"user", L"secret"));
  EXPECT_EQ(m_windows.Count("CertFindChainInStore"), 2u);
}

}  // namespace

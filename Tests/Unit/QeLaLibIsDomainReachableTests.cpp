#include <LogLibHost.h>

#include <new>

#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "Tests/Support/ScriptedHttps.h"

namespace {

using testing::ElementsAre;

class DomainReachability : public ScriptedHttps {
 protected:
  std::vector<std::string> Attempts() const { return m_windows.Calls({"WinHttpOpen"}); }
};

constexpr char kDirect[] = "WinHttpOpen(WinHTTPS request, 0, null, null, 0x0)";
constexpr char kAutoProxy[] = "WinHttpOpen(WinHTTPS request, 1, null, null, 0x10000000)";
constexpr char kUsersProxy[] = "WinHttpOpen(WinHTTPS request, 3, p2:443, null, 0x0)";

TEST_F(DomainReachability, EndsWithTheFirstAttemptThatAnswers) {
  EXPECT_TRUE(IsDomainReachable(L"host.test"));
  EXPECT_THAT(Attempts(), ElementsAre(kDirect));
  EXPECT_EQ(m_log.Texts().back(), L"IsDomainReachable was able to match domain host.test");
  ExpectFirewallEvent(m_log.Events().back(), 8, "FwClient/Service/QeLaLib/QeLaLib.cpp");
}

TEST_F(DomainReachability, AsksThroughADiscoveredProxyNext) {
  m_https.answers = {HttpsAnswer::Status(404), HttpsAnswer::Status(401)};
  EXPECT_TRUE(IsDomainReachable(L"host.test"));
  EXPECT_THAT(Attempts(), ElementsAre(kDirect, kAutoProxy));
  EXPECT_EQ(m_windows.Count("ImpersonateLoggedOnUser"), 0u);
}

TEST_F(DomainReachability, AsksThroughTheUsersProxyLast) {
  m_user.proxyList = L"https=p2:443";
  m_https.answers = {HttpsAnswer::Status(403), HttpsAnswer::SendFails(12029), HttpsAnswer::Status(200)};
  EXPECT_TRUE(IsDomainReachable(L"host.test"));
  EXPECT_THAT(Attempts(), ElementsAre(kDirect, kAutoProxy, kUsersProxy));
}

TEST_F(DomainReachability, SaysSoWhenNoAttemptAnswers) {
  m_user.configUrl = L"http://wpad.test/p.pac";
  m_user.proxyList = L"https=p2:443";
  m_https.answers = {HttpsAnswer::Status(500)};
  EXPECT_FALSE(IsDomainReachable(L"host.test"));
  EXPECT_THAT(Attempts(), ElementsAre(kDirect, kAutoProxy, kAutoProxy, kUsersProxy));
  EXPECT_EQ(m_log.Texts().back(), L"IsDomainReachable was unable to match domain host.test");
}

TEST_F(DomainReachability, FirstTwoAttemptsKnowNoCredentials) {
  m_https.answers = {HttpsAnswer::ProxyAsks(1)};
  EXPECT_FALSE(IsDomainReachable(L"host.test"));
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 2u);
  EXPECT_EQ(m_windows.Count("WinHttpSetCredentials"), 0u);
}

TEST_F(DomainReachability, EndsWithTheAttemptThatLeavesTheThreadAsTheUser) {
  m_user.proxyList = L"https=p2:443";
  m_https.answers = {HttpsAnswer::SendFails(ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED)};
  m_user.KeepIdentity();
  EXPECT_FALSE(IsDomainReachable(L"host.test"));
  EXPECT_THAT(Attempts(), ElementsAre(kDirect));
  EXPECT_EQ(m_windows.Count("WinHttpSendRequest"), 2u);
  EXPECT_EQ(m_log.Texts().back(), L"IsDomainReachable was unable to match domain host.test");
  EXPECT_THAT(m_windows.OpenHandles(), testing::IsEmpty());
}

TEST_F(DomainReachability, IsNotAskedForOnAThreadThatIsTheUser) {
  m_https.answers = {HttpsAnswer::SendFails(ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED), HttpsAnswer::Status(200)};
  m_user.KeepIdentity();
  EXPECT_FALSE(IsDomainReachable(L"host.test"));
  const std::size_t calls = m_windows.Calls().size();
  EXPECT_FALSE(IsDomainReachable(L"another.test"));
  EXPECT_EQ(m_windows.Calls().size(), calls);
  EXPECT_EQ(m_log.Texts().back(), L"IsDomainReachable was unable to match domain another.test");
  m_user.LetGo();
  EXPECT_TRUE(RestoreThreadIdentity());
  EXPECT_TRUE(IsDomainReachable(L"another.test"));
}

// A probe in which everything happens: every attempt is asked for a certificate, a log-on and credentials, and fails.
class HardDomainReachability : public ScriptedHttpsWithoutLog {
 protected:
  HardDomainReachability() {
    LogUtils::setConsoleLogging(false);
    m_user.configUrl = L"http://wpad.test/p.pac";
    m_user.proxyList = L"https=p2:443";
    m_user.bypassList = L"<local>";
    m_certificates.matching = 1000000;
  }
  ~HardDomainReachability() override { LogUtils::setConsoleLogging(true); }

  bool Probe() {
    constexpr DWORD kCertificateNeeded = ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED;
    m_https.discoveryErrors = {ERROR_WINHTTP_LOGIN_FAILURE};
    m_https.answers = {HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::ProxyAsks(1),
                       HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(404),
                       HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(404),
                       HttpsAnswer::SendFails(kCertificateNeeded), HttpsAnswer::Status(404)};
    return IsDomainReachable(m_host);
  }

  const std::wstring m_host = L"a-host-with-a-name-that-needs-memory.test";
};

TEST_F(HardDomainReachability, SurvivesTheFailureOfEverySingleCall) {
  EXPECT_FALSE(Probe());
  const std::size_t calls = m_windows.FallibleCalls();
  EXPECT_GT(calls, 100u);
  for (std::size_t call = 1; call <= calls; ++call) {
    SCOPED_TRACE(call);
    m_windows.FailCallNumber(call);
    Probe();
    ASSERT_FALSE(m_user.impersonating);
    ASSERT_THAT(m_windows.OpenHandles(), testing::IsEmpty());
  }
}

TEST_F(HardDomainReachability, LetsOnlyTheWantOfMemoryThroughAndNothingBehind) {
  std::size_t thrown = 0;
  WarmUpExceptions(ThisProgram());
  for (std::size_t n = 0;; ++n) {
    SCOPED_TRACE(n);
    bool failed = false;
    {
      HeapWatch heap(ThisProgram());
      heap.FailAt(n);
      try {
        Probe();
      } catch (const std::bad_alloc&) {
        ++thrown;
      }
      failed = heap.StopFailing();
    }
    if (!failed) break;
    ASSERT_FALSE(m_user.impersonating);
    ASSERT_THAT(m_windows.OpenHandles(), testing::IsEmpty());
  }
  EXPECT_GT(thrown, 20u);
}

}  // namespace

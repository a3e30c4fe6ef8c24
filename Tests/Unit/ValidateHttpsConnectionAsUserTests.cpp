#include "FwClient/Service/QeLaLib/ValidateHttpsConnectionAsUser.h"

#include <BLFrameworkHost.h>

#include "Tests/Support/ScriptedHttps.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ValidateHttpsConnectionAsUser : public ScriptedHttps {
 protected:
  bool Probe() { return ::ValidateHttpsConnectionAsUser(m_context, L"host.test"); }
  std::vector<std::string> Attempts() const { return m_windows.Calls({"WinHttpOpen"}); }

  ProxyContext m_context;
};

// Past the import table, where a test stands.
void BLFrameworkCleanUpItself() {
  const HMODULE module = ::GetModuleHandleW(L"blframework.dll");
  reinterpret_cast<void (*)()>(reinterpret_cast<void*>(::GetProcAddress(module, "BLFrameworkCleanUp")))();
}

constexpr char kAutoProxy[] = "WinHttpOpen(WinHTTPS request, 1, null, null, 0x10000000)";

TEST_F(ValidateHttpsConnectionAsUser, ReadsTheSettingsAsTheUserAndRevertsBeforeItAsks) {
  m_user.proxyList = L"http=p1:80;https=p2:443";
  m_user.bypassList = L"<local>";
  EXPECT_TRUE(Probe());
  EXPECT_THAT(
      m_windows.Calls({"ImpersonateLoggedOnUser", "WinHttpGetIEProxyConfigForCurrentUser", "RevertToSelf",
                       "WinHttpOpen", "WinHttpSendRequest", "GlobalFree"}),
      ElementsAre("ImpersonateLoggedOnUser(token)", "WinHttpGetIEProxyConfigForCurrentUser(as the user)",
                  "RevertToSelf()", "WinHttpOpen(WinHTTPS request, 3, p2:443, null, 0x0)",
                  "WinHttpSendRequest(request)", "GlobalFree(user's bypass list)", "GlobalFree(user's proxy list)"));
  // The log tells of a return from the user only where a certificate was sent.
  EXPECT_EQ(m_log.Count(L"Reverted back successfully"), 0u);
}

TEST_F(ValidateHttpsConnectionAsUser, ClosesTheTokenBeforeItReverts) {
  EXPECT_FALSE(Probe());
  const auto calls = m_windows.Calls({"CloseHandle", "RevertToSelf"});
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[calls.size() - 2], "CloseHandle(token)");
  EXPECT_EQ(calls.back(), "RevertToSelf()");
}

TEST_F(ValidateHttpsConnectionAsUser, AsksThroughTheScriptFirst) {
  m_user.configUrl = L"http://wpad.test/p.pac";
  m_user.proxyList = L"p1:8080";
  EXPECT_TRUE(Probe());
  EXPECT_THAT(Attempts(), ElementsAre(kAutoProxy));
}

TEST_F(ValidateHttpsConnectionAsUser, AsksThroughTheListWhenTheScriptDoesNotHelp) {
  m_user.configUrl = L"http://wpad.test/p.pac";
  m_user.proxyList = L"p1:8080";
  m_https.answers = {HttpsAnswer::Status(403), HttpsAnswer::Status(200)};
  EXPECT_TRUE(Probe());
  EXPECT_THAT(Attempts(), ElementsAre(kAutoProxy, "WinHttpOpen(WinHTTPS request, 3, p1:8080, null, 0x0)"));
}

TEST_F(ValidateHttpsConnectionAsUser, EndsWithTheScriptWhenThereIsNoList) {
  m_user.configUrl = L"http://wpad.test/p.pac";
  m_https.answers = {HttpsAnswer::Status(403)};
  EXPECT_FALSE(Probe());
  EXPECT_THAT(Attempts(), ElementsAre(kAutoProxy));
}

TEST_F(ValidateHttpsConnectionAsUser, IgnoresAutoDetectAndEmptyTexts) {
  m_user.autoDetect = TRUE;
  EXPECT_FALSE(Probe());
  m_user.configUrl = L"";
  m_user.proxyList = L"";
  EXPECT_FALSE(Probe());
  EXPECT_THAT(Attempts(), IsEmpty());
  EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
}

TEST_F(ValidateHttpsConnectionAsUser, HandsTheCredentialsToBothWays) {
  m_context.userName = L"user";
  m_context.password = L"secret";
  m_user.configUrl = L"http://wpad.test/p.pac";
  m_user.proxyList = L"p1:8080";
  m_https.answers = {HttpsAnswer::ProxyAsks(1), HttpsAnswer::Status(500), HttpsAnswer::ProxyAsks(2),
                     HttpsAnswer::Status(200)};
  EXPECT_TRUE(Probe());
  EXPECT_THAT(m_windows.Calls({"WinHttpSetCredentials"}),
              ElementsAre("WinHttpSetCredentials(request, 1, 1, user, secret)",
                          "WinHttpSetCredentials(request2, 1, 2, user, secret)"));
}

TEST_F(ValidateHttpsConnectionAsUser, FetchesTheProductsCredentialsBeforeItLooksForTheUser) {
  BLFrameworkHost::setProxyCredentials(L"product-user", L"product-secret");
  const ImportPatch patch(
      ::GetModuleHandleW(nullptr), "BLFrameworkCleanUp", +[] {
        WindowsScript::Current().Note("BLFrameworkCleanUp");
        BLFrameworkCleanUpItself();
      });
  m_user.proxyList = L"p1:8080";
  m_https.answers = {HttpsAnswer::ProxyAsks(1), HttpsAnswer::Status(200)};
  EXPECT_TRUE(Probe());
  BLFrameworkHost::reset();
  EXPECT_THAT(m_windows.Calls({"BLFrameworkCleanUp", "RegOpenKeyExW", "WinHttpSetCredentials"}),
              ElementsAre("BLFrameworkCleanUp()", "RegOpenKeyExW(0x20019)",
                          "WinHttpSetCredentials(request, 1, 1, product-user, product-secret)"));
}

TEST_F(ValidateHttpsConnectionAsUser, FailsWithoutTokenImpersonationOrSettings) {
  m_user.proxyList = L"p1:8080";
  for (const char* call : {"OpenProcessToken", "ImpersonateLoggedOnUser", "WinHttpGetIEProxyConfigForCurrentUser"}) {
    SCOPED_TRACE(call);
    m_windows.Fail(call, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Probe());
    EXPECT_FALSE(m_user.impersonating);
    EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
  }
  EXPECT_THAT(Attempts(), IsEmpty());
}

TEST_F(ValidateHttpsConnectionAsUser, GoesOnOnceTheThreadIsItselfAgain) {
  m_user.proxyList = L"p1:8080";
  m_windows.Fail("RevertToSelf", ERROR_INTERNAL_ERROR);
  EXPECT_TRUE(Probe());
  m_windows.FailAlways("RevertToSelf", ERROR_INTERNAL_ERROR);
  EXPECT_TRUE(Probe());
  EXPECT_THAT(m_windows.Calls({"RevertToSelf", "SetThreadToken", "WinHttpSendRequest"}),
              ElementsAre("RevertToSelf()", "RevertToSelf()", "WinHttpSendRequest(request)", "RevertToSelf()",
                          "RevertToSelf()", "SetThreadToken(null)", "WinHttpSendRequest(request2)"));
}

TEST_F(ValidateHttpsConnectionAsUser, DoesNotGoOnAsTheUser) {
  m_user.configUrl = L"http://wpad.test/p.pac";
  m_user.proxyList = L"p1:8080";
  m_user.KeepIdentity();
  EXPECT_FALSE(Probe());
  EXPECT_THAT(Attempts(), IsEmpty());
  EXPECT_THAT(m_windows.OpenHandles(), IsEmpty());
}

TEST_F(ValidateHttpsConnectionAsUser, DoesNotTurnToTheListAsTheUser) {
  m_user.configUrl = L"http://wpad.test/p.pac";
  m_user.proxyList = L"p1:8080";
  AlwaysAskForCertificate();
  // The settings are read and the thread is itself again; from the certificate it does not come back.
  m_https.answers.front().before = [this](WINHTTP_STATUS_CALLBACK, HINTERNET) { m_user.KeepIdentity(); };
  EXPECT_FALSE(Probe());
  EXPECT_THAT(Attempts(), ElementsAre(kAutoProxy));
}

TEST_F(ValidateHttpsConnectionAsUser, AsksNobodyForAnythingOnAThreadThatIsTheUser) {
  m_user.proxyList = L"p1:8080";
  m_user.KeepIdentity();
  EXPECT_FALSE(Probe());
  const ImportPatch patch(
      ::GetModuleHandleW(nullptr), "BLFrameworkInit", +[] {
        ADD_FAILURE() << "the framework was asked";
        return 1;
      });
  const std::size_t calls = m_windows.Calls().size();
  EXPECT_FALSE(Probe());
  EXPECT_EQ(m_windows.Calls().size(), calls);
}

}  // namespace

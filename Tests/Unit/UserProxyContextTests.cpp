#include "FwClient/Service/QeLaLib/UserProxyContext.h"

#include <BLFrameworkHost.h>

#include "Tests/Support/ScriptedHttps.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ValidateHttpsConnectionAsUser : public ScriptedHttps {
 protected:
  bool Probe() { return ::ValidateHttpsConnectionAsUser(context, L"host.test"); }
  std::vector<std::string> Attempts() const { return windows.Calls({"WinHttpOpen"}); }

  ProxyContext context;
};

// Past the import table, where a test stands.
void BLFrameworkCleanUpOfTheStandIn() {
  const HMODULE module = ::GetModuleHandleW(L"blframework.dll");
  reinterpret_cast<void (*)()>(reinterpret_cast<void*>(::GetProcAddress(module, "BLFrameworkCleanUp")))();
}

constexpr char kAutoProxy[] = "WinHttpOpen(WinHTTPS request, 1, null, null, 0x10000000)";

TEST_F(ValidateHttpsConnectionAsUser, ReadsTheSettingsAsTheUserAndRevertsBeforeItAsks) {
  user.proxyList = L"http=p1:80;https=p2:443";
  user.bypassList = L"<local>";
  EXPECT_TRUE(Probe());
  EXPECT_THAT(
      windows.Calls({"ImpersonateLoggedOnUser", "WinHttpGetIEProxyConfigForCurrentUser", "RevertToSelf", "WinHttpOpen",
                     "WinHttpSendRequest", "GlobalFree"}),
      ElementsAre("ImpersonateLoggedOnUser(token)", "WinHttpGetIEProxyConfigForCurrentUser(as the user)",
                  "RevertToSelf()", "WinHttpOpen(WinHTTPS request, 3, p2:443, null, 0x0)",
                  "WinHttpSendRequest(request)", "GlobalFree(user's bypass list)", "GlobalFree(user's proxy list)"));
  // The log tells of a return from the user only where a certificate was sent.
  EXPECT_EQ(log.Count(L"Reverted back successfully"), 0u);
}

TEST_F(ValidateHttpsConnectionAsUser, ClosesTheTokenBeforeItReverts) {
  EXPECT_FALSE(Probe());
  const auto calls = windows.Calls({"CloseHandle", "RevertToSelf"});
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(calls[calls.size() - 2], "CloseHandle(token)");
  EXPECT_EQ(calls.back(), "RevertToSelf()");
}

TEST_F(ValidateHttpsConnectionAsUser, AsksThroughTheScriptFirst) {
  user.configUrl = L"http://wpad.test/p.pac";
  user.proxyList = L"p1:8080";
  EXPECT_TRUE(Probe());
  EXPECT_THAT(Attempts(), ElementsAre(kAutoProxy));
}

TEST_F(ValidateHttpsConnectionAsUser, AsksThroughTheListWhenTheScriptDoesNotHelp) {
  user.configUrl = L"http://wpad.test/p.pac";
  user.proxyList = L"p1:8080";
  https.answers = {HttpsAnswer::Status(403), HttpsAnswer::Status(200)};
  EXPECT_TRUE(Probe());
  EXPECT_THAT(Attempts(), ElementsAre(kAutoProxy, "WinHttpOpen(WinHTTPS request, 3, p1:8080, null, 0x0)"));
}

TEST_F(ValidateHttpsConnectionAsUser, EndsWithTheScriptWhenThereIsNoList) {
  user.configUrl = L"http://wpad.test/p.pac";
  https.answers = {HttpsAnswer::Status(403)};
  EXPECT_FALSE(Probe());
  EXPECT_THAT(Attempts(), ElementsAre(kAutoProxy));
}

TEST_F(ValidateHttpsConnectionAsUser, IgnoresAutoDetectAndEmptyTexts) {
  user.autoDetect = TRUE;
  EXPECT_FALSE(Probe());
  user.configUrl = L"";
  user.proxyList = L"";
  EXPECT_FALSE(Probe());
  EXPECT_THAT(Attempts(), IsEmpty());
  EXPECT_THAT(windows.OpenHandles(), IsEmpty());
}

TEST_F(ValidateHttpsConnectionAsUser, HandsTheCredentialsToBothWays) {
  context.userName = L"user";
  context.password = L"secret";
  user.configUrl = L"http://wpad.test/p.pac";
  user.proxyList = L"p1:8080";
  https.answers = {HttpsAnswer::ProxyAsks(1), HttpsAnswer::Status(500), HttpsAnswer::ProxyAsks(2),
                   HttpsAnswer::Status(200)};
  EXPECT_TRUE(Probe());
  EXPECT_THAT(windows.Calls({"WinHttpSetCredentials"}),
              ElementsAre("WinHttpSetCredentials(request, 1, 1, user, secret)",
                          "WinHttpSetCredentials(request2, 1, 2, user, secret)"));
}

TEST_F(ValidateHttpsConnectionAsUser, FetchesTheProductsCredentialsBeforeItLooksForTheUser) {
  BLFrameworkHost::setProxyCredentials(L"product-user", L"product-secret");
  const ImportPatch patch(
      ::GetModuleHandleW(nullptr), "BLFrameworkCleanUp", +[] {
        WindowsScript::Current().Note("BLFrameworkCleanUp");
        BLFrameworkCleanUpOfTheStandIn();
      });
  user.proxyList = L"p1:8080";
  https.answers = {HttpsAnswer::ProxyAsks(1), HttpsAnswer::Status(200)};
  EXPECT_TRUE(Probe());
  BLFrameworkHost::reset();
  EXPECT_THAT(windows.Calls({"BLFrameworkCleanUp", "RegOpenKeyExW", "WinHttpSetCredentials"}),
              ElementsAre("BLFrameworkCleanUp()", "RegOpenKeyExW(0x20019)",
                          "WinHttpSetCredentials(request, 1, 1, product-user, product-secret)"));
}

TEST_F(ValidateHttpsConnectionAsUser, FailsWithoutTokenImpersonationOrSettings) {
  user.proxyList = L"p1:8080";
  for (const char* call : {"OpenProcessToken", "ImpersonateLoggedOnUser", "WinHttpGetIEProxyConfigForCurrentUser"}) {
    SCOPED_TRACE(call);
    windows.Fail(call, ERROR_ACCESS_DENIED);
    EXPECT_FALSE(Probe());
    EXPECT_FALSE(user.impersonating);
    EXPECT_THAT(windows.OpenHandles(), IsEmpty());
  }
  EXPECT_THAT(Attempts(), IsEmpty());
}

TEST_F(ValidateHttpsConnectionAsUser, GoesOnOnceTheThreadIsItselfAgain) {
  user.proxyList = L"p1:8080";
  windows.Fail("RevertToSelf", ERROR_INTERNAL_ERROR);
  EXPECT_TRUE(Probe());
  windows.FailAlways("RevertToSelf", ERROR_INTERNAL_ERROR);
  EXPECT_TRUE(Probe());
  EXPECT_THAT(windows.Calls({"RevertToSelf", "SetThreadToken", "WinHttpSendRequest"}),
              ElementsAre("RevertToSelf()", "RevertToSelf()", "WinHttpSendRequest(request)", "RevertToSelf()",
                          "RevertToSelf()", "SetThreadToken(null)", "WinHttpSendRequest(request2)"));
}

TEST_F(ValidateHttpsConnectionAsUser, DoesNotGoOnAsTheUser) {
  user.configUrl = L"http://wpad.test/p.pac";
  user.proxyList = L"p1:8080";
  user.KeepIdentity();
  EXPECT_FALSE(Probe());
  EXPECT_THAT(Attempts(), IsEmpty());
  EXPECT_THAT(windows.OpenHandles(), IsEmpty());
}

TEST_F(ValidateHttpsConnectionAsUser, DoesNotTurnToTheListAsTheUser) {
  user.configUrl = L"http://wpad.test/p.pac";
  user.proxyList = L"p1:8080";
  AlwaysAskForCertificate();
  // The settings are read and the thread is itself again; from the certificate it does not come back.
  https.answers.front().before = [this](WINHTTP_STATUS_CALLBACK, HINTERNET) { user.KeepIdentity(); };
  EXPECT_FALSE(Probe());
  EXPECT_THAT(Attempts(), ElementsAre(kAutoProxy));
}

TEST_F(ValidateHttpsConnectionAsUser, AsksNobodyForAnythingOnAThreadThatIsTheUser) {
  user.proxyList = L"p1:8080";
  user.KeepIdentity();
  EXPECT_FALSE(Probe());
  const ImportPatch patch(
      ::GetModuleHandleW(nullptr), "BLFrameworkInit", +[] {
        ADD_FAILURE() << "the framework was asked";
        return 1;
      });
  const std::size_t calls = windows.Calls().size();
  EXPECT_FALSE(Probe());
  EXPECT_EQ(windows.Calls().size(), calls);
}

}  // namespace

// The HTTPS probe against real servers, a real proxy and a real user. Scripts/https-servers.sh starts them and says
// what each does; the tests named Slow wait for real time-outs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <optional>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/LenientUtf.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "FwClient/Service/QeLaLib/HttpsHandles.h"
#include "FwClient/Service/QeLaLib/InteractiveUser.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "FwClient/Service/QeLaLib/ValidateHttpsConnection.h"
#include "FwClient/Service/QeLaLib/ValidateHttpsConnectionAsUser.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using testing::IsEmpty;
using testing::StartsWith;

constexpr wchar_t kProxy[] = L"proxy.lab.test:8888";

class Https : public testing::Test {
 protected:
  static bool Direct(const std::wstring& host, const std::wstring& proxy = {}) {
    return ValidateHttpsConnection(host + L".lab.test", proxy, L"", L"");
  }
  static bool AutoProxy(const std::wstring& host, const std::wstring& url = {}) {
    const ProxyContext context;
    return ValidateHttpsConnectionAutoProxy(context, host + L".lab.test", url, L"", L"");
  }

  // The log's only line, in narrow text for comparisons.
  std::string OnlyLine() const {
    const std::vector<std::wstring> texts = m_log.Texts();
    EXPECT_EQ(texts.size(), 1u);
    return texts.empty() ? std::string() : LenientUtf::ToUtf8(texts.front());
  }

  LogRecorder m_log;
};

// ---- direct ----

struct StatusCase {
  const wchar_t* host;
  int status;
  bool reachable;
};

class HttpsStatus : public Https, public testing::WithParamInterface<StatusCase> {};

TEST_P(HttpsStatus, DecidesDirectly) {
  EXPECT_EQ(Direct(GetParam().host), GetParam().reachable);
  EXPECT_EQ(OnlyLine(), "WinHttp Send Request status code for " + LenientUtf::ToUtf8(GetParam().host) + ".lab.test " +
                            std::to_string(GetParam().status));
}

TEST_P(HttpsStatus, DecidesThroughANamedProxy) { EXPECT_EQ(Direct(GetParam().host, kProxy), GetParam().reachable); }

TEST_P(HttpsStatus, DecidesInAnAsynchronousSession) {
  EXPECT_EQ(AutoProxy(GetParam().host), GetParam().reachable);
  EXPECT_EQ(OnlyLine(), "WinHttp Send Request status code for " + LenientUtf::ToUtf8(GetParam().host) + ".lab.test " +
                            std::to_string(GetParam().status));
}

INSTANTIATE_TEST_SUITE_P(Servers, HttpsStatus,
                         testing::Values(StatusCase{L"ok", 200, true}, StatusCase{L"s401", 401, true},
                                         StatusCase{L"s403", 403, false}, StatusCase{L"s404", 404, false},
                                         StatusCase{L"s500", 500, false}));

class HttpsFailure : public Https, public testing::WithParamInterface<const wchar_t*> {};

TEST_P(HttpsFailure, OfTheConnectionIsLoggedAndNotReachable) {
  EXPECT_FALSE(Direct(GetParam()));
  EXPECT_THAT(OnlyLine(),
              StartsWith("Send Request failed for " + LenientUtf::ToUtf8(GetParam()) + ".lab.test errorCode 12"));
}

TEST_P(HttpsFailure, OfTheConnectionIsReportedInAnAsynchronousSession) {
  EXPECT_FALSE(AutoProxy(GetParam()));
  EXPECT_THAT(OnlyLine(),
              StartsWith("Send Request failed for " + LenientUtf::ToUtf8(GetParam()) + ".lab.test errorCode 12"));
}

INSTANTIATE_TEST_SUITE_P(Servers, HttpsFailure,
                         testing::Values(L"untrusted", L"wrong-name", L"refused", L"nowhere", L"unreachable"));

// ---- proxies ----

TEST_F(Https, ReachesThroughTheProxyWhatOnlyTheProxyKnows) {
  EXPECT_FALSE(Direct(L"inner"));
  EXPECT_TRUE(Direct(L"inner", kProxy));
}

TEST_F(Https, ReachesNothingThroughADeadProxy) { EXPECT_FALSE(Direct(L"ok", L"refused.lab.test:8888")); }

// Wine takes the option that names the discovered proxy without using it; so what is set is looked at on its way.
class HttpsDiscovery : public Https {
 protected:
  HttpsDiscovery() { s_self = this; }
  ~HttpsDiscovery() override { s_self = nullptr; }

  DWORD m_access = 0;
  std::optional<std::wstring> m_proxy;

 private:
  static BOOL WINAPI SetOption(HINTERNET handle, DWORD option, LPVOID value, DWORD size) {
    if (option == WINHTTP_OPTION_PROXY) {
      const auto& info = *static_cast<const WINHTTP_PROXY_INFO*>(value);
      s_self->m_access = info.dwAccessType;
      if (info.lpszProxy != nullptr) s_self->m_proxy = info.lpszProxy;
    }
    return s_self->m_patch.Original<decltype(SetOption)>()(handle, option, value, size);
  }

  static inline HttpsDiscovery* s_self = nullptr;
  ImportPatch m_patch{ThisProgram(), "WinHttpSetOption", &HttpsDiscovery::SetOption};
};

TEST_F(HttpsDiscovery, FindsTheProxyThroughDns) {
  EXPECT_TRUE(AutoProxy(L"ok"));
  EXPECT_EQ(m_access, DWORD{WINHTTP_ACCESS_TYPE_NAMED_PROXY});
  EXPECT_EQ(m_proxy, kProxy);
}

TEST_F(HttpsDiscovery, FindsTheProxyWithAConfigurationUrl) {
  EXPECT_TRUE(AutoProxy(L"ok", L"http://wpad.lab.test/proxy.pac"));
  EXPECT_EQ(m_proxy, kProxy);
}

// ---- the interactive user ----

// The user's Internet settings as they are stored: a connection's flags and texts.
void StoreUserSettings(const std::string& proxyList, const std::string& configUrl) {
  constexpr DWORD kDirect = 1;
  constexpr DWORD kProxyList = 2;
  constexpr DWORD kConfigUrl = 4;
  std::vector<BYTE> bytes;
  const auto number = [&](DWORD value) {
    const auto* const first = reinterpret_cast<const BYTE*>(&value);
    bytes.insert(bytes.end(), first, first + sizeof value);
  };
  const auto text = [&](const std::string& value) {
    number(static_cast<DWORD>(value.size()));
    bytes.insert(bytes.end(), value.begin(), value.end());
  };
  number(0x46);
  number(0);
  number(kDirect | (proxyList.empty() ? 0 : kProxyList) | (configUrl.empty() ? 0 : kConfigUrl));
  text(proxyList);
  text("");
  text(configUrl);
  UniqueRegKey key;
  ASSERT_EQ(::RegCreateKeyExW(HKEY_CURRENT_USER,
                              L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections", 0,
                              nullptr, 0, KEY_WRITE, nullptr, key.put(), nullptr),
            ERROR_SUCCESS);
  ASSERT_EQ(::RegSetValueExW(key.get(), L"DefaultConnectionSettings", 0, REG_BINARY, bytes.data(),
                             static_cast<DWORD>(bytes.size())),
            ERROR_SUCCESS);
}

void StoreShell(const std::wstring& image) {
  UniqueRegKey key;
  ASSERT_EQ(::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon", 0,
                            KEY_WRITE, key.put()),
            ERROR_SUCCESS);
  ASSERT_EQ(::RegSetValueExW(key.get(), L"Shell", 0, REG_SZ, reinterpret_cast<const BYTE*>(image.c_str()),
                             static_cast<DWORD>((image.size() + 1) * sizeof(wchar_t))),
            ERROR_SUCCESS);
}

std::wstring OwnImage() {
  wchar_t path[MAX_PATH] = L"";
  ::GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring text = path;
  return text.substr(text.find_last_of(L'\\') + 1);
}

bool ActsAsAUser() {
  UniqueKernelHandle token;
  return ::OpenThreadToken(::GetCurrentThread(), TOKEN_QUERY, TRUE, token.put()) != FALSE;
}

// This program plays the user's shell.
class HttpsUser : public Https {
 protected:
  HttpsUser() {
    s_self = this;
    StoreShell(OwnImage());
    StoreUserSettings("", "");
  }
  ~HttpsUser() override { s_self = nullptr; }

  bool AsUser(const std::wstring& host) {
    ProxyContext context;
    return ValidateHttpsConnectionAsUser(context, host + L".lab.test");
  }

  bool m_readAsUser = false;

 private:
  static BOOL WINAPI GetSettings(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG* settings) {
    s_self->m_readAsUser = ActsAsAUser();
    return s_self->m_patch.Original<decltype(GetSettings)>()(settings);
  }

  static inline HttpsUser* s_self = nullptr;
  ImportPatch m_patch{ThisProgram(), "WinHttpGetIEProxyConfigForCurrentUser", &HttpsUser::GetSettings};
};

TEST_F(HttpsUser, IsFoundByTheSystemsTasklist) {
  DWORD id = 0;
  EXPECT_TRUE(FindProcessIdWithTasklist(OwnImage(), &id));
  EXPECT_EQ(id, ::GetCurrentProcessId());
}

TEST_F(HttpsUser, IsNotFoundInAnotherLetterCaseOrWhenItDoesNotRun) {
  DWORD id = 0;
  EXPECT_FALSE(FindProcessIdWithTasklist(L"HTTPSINTEGRATIONTESTS.EXE", &id));
  EXPECT_FALSE(FindProcessIdWithTasklist(L"no-such-program.exe", &id));
  EXPECT_FALSE(FindProcessIdWithTasklist(L"a, b & \\", &id));
  EXPECT_FALSE(FindProcessIdWithTasklist(std::wstring(40000, L'x'), &id));
  EXPECT_EQ(id, 0u);
}

TEST_F(HttpsUser, HasATokenThatCanBeImpersonated) {
  UniqueKernelHandle token;
  ASSERT_EQ(GetInteractiveUserToken(token.put()), S_OK);
  EXPECT_FALSE(ActsAsAUser());
  ASSERT_TRUE(::ImpersonateLoggedOnUser(token.get()));
  EXPECT_TRUE(ActsAsAUser());
  EXPECT_TRUE(::RevertToSelf());
}

TEST_F(HttpsUser, HasNoTokenWithoutAShell) {
  StoreShell(L"no-such-program.exe");
  HANDLE token = nullptr;
  EXPECT_EQ(GetInteractiveUserToken(&token), E_FAIL);
  EXPECT_FALSE(AsUser(L"ok"));
}

TEST_F(HttpsUser, SystemIsKnownToBe64Bit) { EXPECT_TRUE(IsWow64SystemDirectoryPresent()); }

TEST_F(HttpsUser, ReachesThroughTheirProxyWhatOnlyTheProxyKnows) {
  StoreUserSettings("http=refused.lab.test:1;https=proxy.lab.test:8888", "");
  EXPECT_TRUE(AsUser(L"inner"));
  EXPECT_TRUE(m_readAsUser);
  EXPECT_FALSE(ActsAsAUser());
}

TEST_F(HttpsUser, ReachesThroughTheListWhenTheirScriptFails) {
  StoreUserSettings("proxy.lab.test:8888", "http://refused.lab.test/proxy.pac");
  EXPECT_TRUE(AsUser(L"inner"));
}

TEST_F(HttpsUser, ReachesThroughTheirScript) {
  StoreUserSettings("", "http://wpad.lab.test/direct.pac");
  EXPECT_TRUE(AsUser(L"ok"));
}

TEST_F(HttpsUser, ReachesNothingWithoutSettings) { EXPECT_FALSE(AsUser(L"ok")); }

TEST_F(HttpsUser, MakesADomainReachableInTheLastAttempt) {
  EXPECT_FALSE(IsDomainReachable(L"inner.lab.test"));
  EXPECT_EQ(m_log.Texts().back(), L"IsDomainReachable was unable to match domain inner.lab.test");
  StoreUserSettings("https=proxy.lab.test:8888", "");
  EXPECT_TRUE(IsDomainReachable(L"inner.lab.test"));
  EXPECT_EQ(m_log.Texts().back(), L"IsDomainReachable was able to match domain inner.lab.test");
}

// ---- handles ----

// Counts the handles that are open.
class HttpsHandleCount : public HttpsUser {
 protected:
  HttpsHandleCount() { s_self = this; }
  ~HttpsHandleCount() override { s_self = nullptr; }

  std::atomic<int> m_openHandles = 0;

 private:
  template <typename Handle>
  static Handle Opened(Handle handle) {
    if (handle != nullptr) ++s_self->m_openHandles;
    return handle;
  }
  static HINTERNET WINAPI Open(LPCWSTR agent, DWORD access, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
    return Opened(s_self->m_open.Original<decltype(Open)>()(agent, access, proxy, bypass, flags));
  }
  static HINTERNET WINAPI Connect(HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD reserved) {
    return Opened(s_self->m_connect.Original<decltype(Connect)>()(session, host, port, reserved));
  }
  static HINTERNET WINAPI OpenRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR object, LPCWSTR version,
                                      LPCWSTR referrer, LPCWSTR* types, DWORD flags) {
    return Opened(
        s_self->m_request.Original<decltype(OpenRequest)>()(connection, verb, object, version, referrer, types, flags));
  }
  static BOOL WINAPI Close(HINTERNET handle) {
    --s_self->m_openHandles;
    return s_self->m_close.Original<decltype(Close)>()(handle);
  }

  static inline HttpsHandleCount* s_self = nullptr;
  ImportPatch m_open{ThisProgram(), "WinHttpOpen", &HttpsHandleCount::Open};
  ImportPatch m_connect{ThisProgram(), "WinHttpConnect", &HttpsHandleCount::Connect};
  ImportPatch m_request{ThisProgram(), "WinHttpOpenRequest", &HttpsHandleCount::OpenRequest};
  ImportPatch m_close{ThisProgram(), "WinHttpCloseHandle", &HttpsHandleCount::Close};
};

TEST_F(HttpsHandleCount, IsZeroAfterEveryKindOfAnswer) {
  StoreUserSettings("https=proxy.lab.test:8888", "http://wpad.lab.test/proxy.pac");
  for (const wchar_t* host : {L"ok.lab.test", L"s404.lab.test", L"untrusted.lab.test", L"refused.lab.test",
                              L"inner.lab.test", L"nowhere.lab.test", L""}) {
    IsDomainReachable(host);
    EXPECT_EQ(m_openHandles.load(), 0) << LenientUtf::ToUtf8(host);
  }
}

// ---- hosts that keep silent ----

// Windows' own limits must end every wait, before the reserve that guards against reports that never come.
class SlowHttps : public Https {
 protected:
  SlowHttps() {
    s_timeouts = 0;
    s_wait = m_patch.Original<decltype(::WaitForSingleObject)>();
  }
  ~SlowHttps() override { EXPECT_EQ(s_timeouts.load(), 0); }

 private:
  static DWORD WINAPI Wait(HANDLE handle, DWORD milliseconds) {
    const DWORD result = s_wait(handle, milliseconds);
    if (result == WAIT_TIMEOUT && milliseconds > 0) ++s_timeouts;
    return result;
  }

  static inline std::atomic<int> s_timeouts = 0;
  static inline decltype(&::WaitForSingleObject) s_wait = nullptr;
  const ImportPatch m_patch{ThisProgram(), "WaitForSingleObject", &Wait};
};

TEST_F(SlowHttps, AnswerNeverComes) {
  EXPECT_FALSE(Direct(L"mute"));
  // The request was sent; only sending leaves a line.
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(SlowHttps, ReportOfTheAnswerTellsTheFailure) {
  EXPECT_FALSE(AutoProxy(L"mute"));
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(SlowHttps, GreetingNeverComes) {
  EXPECT_FALSE(Direct(L"silent"));
  EXPECT_THAT(OnlyLine(), StartsWith("Send Request failed for silent.lab.test errorCode 1"));
}

TEST_F(SlowHttps, ConnectionNeverComesAbout) {
  EXPECT_FALSE(Direct(L"lost"));
  EXPECT_THAT(OnlyLine(), StartsWith("Send Request failed for lost.lab.test errorCode 1"));
}

TEST_F(SlowHttps, ConnectionInAnAsynchronousSessionNeverComesAbout) {
  EXPECT_FALSE(AutoProxy(L"lost"));
  EXPECT_THAT(OnlyLine(), StartsWith("Send Request failed for lost.lab.test errorCode 1"));
}

}  // namespace

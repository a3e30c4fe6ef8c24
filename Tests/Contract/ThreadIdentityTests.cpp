// A thread that impersonated the interactive user and cannot become itself again: nothing more is asked or stored with
// the user's identity.
#include <winsock2.h>
#include <windows.h>

#include <gmock/gmock.h>
#include <windns.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/Windows/FakeHttps.h"
#include "ScriptedWindows/Windows/FakeInteractiveUser.h"
#include "ScriptedWindows/Windows/FakeProcesses.h"
#include "ScriptedWindows/Windows/FakeSystem.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "ScriptedWindows/Windows/WindowsScript.h"
#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/StoredSet.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ThreadThatStaysTheUser : public ServiceTest {
 protected:
  ThreadThatStaysTheUser() {
    // No host answers; the third attempt of each probe impersonates the user.
    m_https.answers = {HttpsAnswer::Status(404)};
    m_user.proxyList = L"p1:8080";
    m_registry.MakeEmptyKey();
    m_registry.ClearCalls();
  }
  ~ThreadThatStaysTheUser() override {
    m_user.LetGo();
    EXPECT_TRUE(m_service->Save());
    EXPECT_FALSE(m_user.impersonating);
  }

  // A location that is current when `value` is met.
  void Add(const std::wstring& id, LOCATION_CRITERIA_TYPE kind, const std::wstring& value) {
    const std::shared_ptr<_IQeLocation> location = m_service->CreateLocation();
    location->SetId(id);
    EXPECT_EQ(location->AddCriteria(&kind, value), LCR_OK);
    EXPECT_EQ(m_service->AddLocation(location), LSR_OK);
  }

  std::vector<std::string> Identity() const {
    return m_windows.Calls({"ImpersonateLoggedOnUser", "RevertToSelf", "SetThreadToken"});
  }
  std::size_t Attempts() const { return m_windows.Count("WinHttpOpen"); }
  // On its way to the token, a probe reads another key.
  std::vector<ScriptedRegistry::Call> CallsForTheSet() const {
    std::vector<ScriptedRegistry::Call> calls = m_registry.Calls();
    std::erase_if(calls, [](const ScriptedRegistry::Call& call) { return call.name != kLaKeyPath; });
    return calls;
  }

  std::shared_ptr<_IQeLaApiSmart> m_service = m_library.SmartApi();
  WindowsScript m_windows{Module()};
  FakeSystem m_system{m_windows};
  FakeProcesses m_processes{m_windows};
  FakeInteractiveUser m_user{m_windows};
  FakeHttps m_https{m_windows};
};

TEST_F(ThreadThatStaysTheUser, WritesNothingToTheRegistry) {
  Add(L"A", LCT_DOMAIN_REACHABLE, L"host.test");
  m_user.KeepIdentity();
  EXPECT_FALSE(m_service->Save());
  EXPECT_THAT(CallsForTheSet(), IsEmpty());
  EXPECT_EQ(m_registry.Value(), std::nullopt);
  // The three ways when the impersonation ends, and again before the write.
  EXPECT_THAT(Identity(),
              ElementsAre("ImpersonateLoggedOnUser(token)", "RevertToSelf()", "RevertToSelf()", "SetThreadToken(null)",
                          "RevertToSelf()", "RevertToSelf()", "SetThreadToken(null)"));
}

TEST_F(ThreadThatStaysTheUser, KeepsWhatWasStoredBefore) {
  Add(L"A", LCT_DOMAIN_REACHABLE, L"host.test");
  EXPECT_TRUE(m_service->Save());
  const auto stored = m_registry.Value();
  Add(L"B", LCT_DOMAIN_REACHABLE, L"host.test");
  m_user.KeepIdentity();
  EXPECT_FALSE(m_service->Save());
  EXPECT_FALSE(m_service->Save());
  EXPECT_EQ(m_registry.Value(), stored);
  m_user.LetGo();
  EXPECT_TRUE(m_service->Save());
  EXPECT_NE(m_registry.Value(), stored);
}

TEST_F(ThreadThatStaysTheUser, WritesWhenItBecomesItselfJustBefore) {
  Add(L"\u00c4", LCT_DOMAIN_REACHABLE, L"host.test");
  m_user.KeepIdentity();
  // The way out opens between the calculation and the write, while the set is turned into bytes.
  static const ImportPatch* s_convert;
  const ImportPatch convert(
      Module(), "WideCharToMultiByte",
      +[](UINT page, DWORD flags, LPCWCH text, int length, LPSTR out, int size, LPCCH unknown, LPBOOL used)
           WINAPI -> int {
        if (page == CP_UTF8) WindowsScript::Current().Heal("SetThreadToken");
        return s_convert->Original<int WINAPI(UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL)>()(
            page, flags, text, length, out, size, unknown, used);
      });
  s_convert = &convert;
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(Attempts(), 2u);
  EXPECT_TRUE(m_registry.Value().has_value());
}

TEST_F(ThreadThatStaysTheUser, MeetsNoFurtherCriterionThatWouldBeAskedAsTheUser) {
  static std::atomic<int> s_queries;
  s_queries = 0;
  const ImportPatch dns(
      Module(), "DnsQuery_W", +[](PCWSTR, WORD, DWORD, PVOID, PDNS_RECORD*, PVOID*) WINAPI -> DNS_STATUS {
        ++s_queries;
        return 0;
      });
  Add(L"A", LCT_DOMAIN_REACHABLE, L"host.test");
  Add(L"B", LCT_DOMAIN_REACHABLE, L"another.test");
  Add(L"C", LCT_REGISTRY_KEY, L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\Tessel\\Firewall\\LA\\");
  Add(L"D", LCT_ZELT_REACHABLE, L"");
  Add(L"E", LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  m_user.KeepIdentity();
  EXPECT_FALSE(m_service->Save());
  EXPECT_EQ(Attempts(), 2u);  // direct and auto-proxy, as the service
  EXPECT_EQ(s_queries, 0);
  EXPECT_THAT(CallsForTheSet(), IsEmpty());
  EXPECT_EQ(m_log.Count(L"IsDomainReachable was unable to match domain another.test"), 1u);
  EXPECT_EQ(m_log.Count(L"CheckZeltReachability failed"), 1u);
  // What needs no question is decided as ever.
  EXPECT_EQ(CurrentIds(*m_service), Ids{L"E"});

  // In the next calculation all of them are asked again.
  m_user.LetGo();
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(Attempts(), 2u + 2 * 3);
  EXPECT_EQ(CurrentIds(*m_service), (Ids{L"C", L"E"}));
}

TEST_F(ThreadThatStaysTheUser, TriesToBecomeItselfBeforeItCalculatesAgain) {
  Add(L"A", LCT_DOMAIN_REACHABLE, L"host.test");
  m_user.KeepIdentity();
  EXPECT_FALSE(m_service->Save());
  const std::size_t before = Identity().size();
  m_https.answers = {HttpsAnswer::Status(200)};
  EXPECT_FALSE(m_service->Save());
  EXPECT_EQ(Attempts(), 2u);
  EXPECT_EQ(Identity().size(), before + 6);  // before the calculation and before the write

  m_windows.Heal("SetThreadToken");
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(Identity().size(), before + 9);
  EXPECT_EQ(Attempts(), 3u);
  EXPECT_EQ(CurrentIds(*m_service), Ids{L"A"});
}

TEST_F(ThreadThatStaysTheUser, BecomesItselfBeforeItReadsTheStoredSet) {
  Add(L"A", LCT_DOMAIN_REACHABLE, L"host.test");
  EXPECT_TRUE(m_service->Save());
  m_user.KeepIdentity();
  EXPECT_FALSE(m_service->Save());
  EXPECT_TRUE(m_user.impersonating);
  m_windows.Heal("SetThreadToken");
  int reads = 0;
  bool asTheUser = false;
  m_registry.OnCall([&](const ScriptedRegistry::Call& call) {
    if (call.name != kLaKeyPath) return;
    ++reads;
    asTheUser = asTheUser || m_user.impersonating;
  });
  EXPECT_TRUE(m_service->Load());
  m_registry.OnCall({});
  EXPECT_GT(reads, 0);
  EXPECT_FALSE(asTheUser);
}

TEST_F(ThreadThatStaysTheUser, DoesNotKeepOthersFromTheirWork) {
  Add(L"A", LCT_DOMAIN_REACHABLE, L"host.test");
  m_user.KeepIdentity();
  EXPECT_FALSE(m_service->Save());
  m_https.answers = {HttpsAnswer::Status(200)};
  const std::size_t calls = Identity().size();
  OtherThread([this] {
    EXPECT_TRUE(m_service->Save());
    EXPECT_EQ(CurrentIds(*m_service), Ids{L"A"});
  }).Join();
  EXPECT_EQ(Identity().size(), calls);
  EXPECT_FALSE(m_service->Save());
}

TEST_F(ThreadThatStaysTheUser, IsNotAHostsThreadThatImpersonatesByItself) {
  Add(L"A", LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  ASSERT_TRUE(::ImpersonateSelf(SecurityImpersonation));
  EXPECT_TRUE(m_service->Save());
  EXPECT_TRUE(::RevertToSelf());
  EXPECT_THAT(Identity(), IsEmpty());
  EXPECT_TRUE(m_registry.Value().has_value());
}

// A host may call from its log sink, which is called at every point of a probe.
TEST_F(ThreadThatStaysTheUser, IsNotOneThatIsTheUserForAMomentAndIsLeftToItsProbe) {
  Add(L"A", LCT_DOMAIN_REACHABLE, L"host.test");
  int saves = 0;
  static std::function<void()> s_saveAsTheUser;
  s_saveAsTheUser = [&] {
    ++saves;
    const std::size_t attempts = Attempts();
    EXPECT_TRUE(m_user.impersonating);
    EXPECT_FALSE(m_service->Save());
    EXPECT_TRUE(m_user.impersonating);
    EXPECT_EQ(Attempts(), attempts);
    EXPECT_THAT(CallsForTheSet(), IsEmpty());
  };
  static const ImportPatch* s_read;
  const ImportPatch read(
      Module(), "WinHttpGetIEProxyConfigForCurrentUser", +[](WINHTTP_CURRENT_USER_IE_PROXY_CONFIG* config) WINAPI {
        s_saveAsTheUser();
        return s_read->Original<BOOL WINAPI(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG*)>()(config);
      });
  s_read = &read;
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(saves, 1);
  EXPECT_THAT(Identity(), ElementsAre("ImpersonateLoggedOnUser(token)", "RevertToSelf()"));
  EXPECT_TRUE(m_registry.Value().has_value());
}

// The slot that tells of it goes with the library, and what it tells is not mistaken for memory.
TEST(ThreadThatStaysTheUserAtUnload, TakesNoSlotOfTheProcess) {
  const LogRecorder log;
  const auto nextSlot = [] {
    const DWORD slot = ::TlsAlloc();
    ::TlsFree(slot);
    return slot;
  };
  const auto visit = [] {
    const ServiceLibrary library;
    StoredRegistry registry(library.Module());
    LocationBlob location{.id = "A"};
    location.texts[LCT_DOMAIN_REACHABLE] = {"host.test"};
    registry.Put(PackedSet({location}));
    AdapterList adapter;
    adapter.Add(L"Office");
    const FakeAdapters adapters(library.Module(), adapter);
    WindowsScript windows(library.Module());
    const FakeSystem system(windows);
    const FakeProcesses processes(windows);
    FakeInteractiveUser user(windows);
    FakeHttps https(windows);
    https.answers = {HttpsAnswer::Status(404)};
    user.KeepIdentity();
    EXPECT_FALSE(library.SmartApi()->Save());
    EXPECT_TRUE(std::exchange(user.impersonating, false));
  };
  visit();  // the system's own libraries come with the first, and stay
  const DWORD before = nextSlot();
  for (int i = 0; i < 3; ++i) visit();
  EXPECT_EQ(nextSlot(), before);
}

}  // namespace

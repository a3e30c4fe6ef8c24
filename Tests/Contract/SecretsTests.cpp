// The credentials of the proxy: after a probe, however it ended, no copy of them is left in the process.
#include <winsock2.h>
#include <windows.h>
#include <BLFramework.h>
#include <BLFrameworkCallback.h>
#include <KzVariantHost.h>
#include <gmock/gmock.h>

#include <cstdlib>
#include <cwchar>
#include <deque>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/Windows/FakeHttps.h"
#include "ScriptedWindows/Windows/FakeInteractiveUser.h"
#include "ScriptedWindows/Windows/FakeProcesses.h"
#include "ScriptedWindows/Windows/FakeSystem.h"
#include "ScriptedWindows/Windows/WindowsScript.h"
#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/SecretSearch.h"

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// As long as they may be: what a heap keeps of a freed block, and what it soon puts there, covers only a part.
constexpr Secret kUser{"the user's name", QELA_USER_NAME_UNITS - 1};
constexpr Secret kPassword{"password", QELA_PASSWORD_UNITS - 1};

enum class Framework {
  kShipped,       // wipes what it is given back
  kWipesNothing,  // as that of another product may
};

class Secrets : public ServiceTest, public testing::WithParamInterface<Framework> {
 protected:
  Secrets() {
    s_self = this;
    EXPECT_EQ(BLFrameworkSetCredentialsCallback(&GiveCredentials, nullptr), QELA_STATUS_OK);
    if (GetParam() == Framework::kWipesNothing) {
      m_invoke.emplace(Module(), "BLInvokeMethod", &Answer);
      m_free.emplace(Module(), "BLFree", &Free);
    }
    LocationBlob location{.id = "A"};
    location.texts[LCT_DOMAIN_REACHABLE] = {"host.test"};
    m_registry.Put(PackedSet({location}));
  }
  ~Secrets() override {
    BLFrameworkSetCredentialsCallback(nullptr, nullptr);
    s_self = nullptr;
  }

  // Calculates with one probe, whose first two attempts reach nobody. Whether the location is current then.
  bool Probe(std::deque<HttpsAnswer> answersOfThirdAttempt) {
    m_https.answers = {HttpsAnswer::Status(404), HttpsAnswer::Status(404)};
    for (HttpsAnswer& answer : answersOfThirdAttempt) m_https.answers.push_back(std::move(answer));
    m_service->Load();
    return !CurrentIds(*m_service).empty();
  }

  static void ExpectNothingLeft() {
    for (const Secret* secret : {&kUser, &kPassword}) EXPECT_THAT(FindInMemory(*secret), IsEmpty());
  }

  int m_given = 0;                   // how often the framework was asked for the credentials
  int m_told = 0;                    // how often both came to the request whole
  std::function<void()> m_onGiving;  // runs when the library is about to get them
  qela_status m_answer = QELA_STATUS_OK;

  std::shared_ptr<_IQeLaApiSmart> m_service = m_library.SmartApi();
  WindowsScript m_windows{Module()};
  FakeSystem m_system{m_windows};
  FakeProcesses m_processes{m_windows};
  FakeInteractiveUser m_user{m_windows};
  FakeHttps m_https{m_windows};

 private:
  static qela_status QELA_CALL GiveCredentials(qela_credentials* credentials, void*) {
    ++s_self->m_given;
    kUser.WriteTo(credentials->user_name);
    kPassword.WriteTo(credentials->password);
    if (s_self->m_onGiving) s_self->m_onGiving();
    return s_self->m_answer;
  }

  static int Answer(BLObjectHandle, const char*, const KzVariant*, KzVariant** answer) {
    qela_credentials credentials{};
    const qela_status status = GiveCredentials(&credentials, nullptr);
    const KzvElement elements[] = {{L"userName", credentials.user_name}, {L"password", credentials.password}};
    if (status == QELA_STATUS_OK) *answer = s_self->m_handedOut = BuildNewKzVariantList(elements, 2, &std::malloc);
    ::SecureZeroMemory(&credentials, sizeof credentials);
    return status;
  }
  static void Free(void* block) {
    if (block == s_self->m_handedOut)
      std::free(block);
    else
      s_self->m_free->Original<decltype(BLFree)>()(block);
  }

  // The library's last call to the framework: it has the credentials, where it uses them, and nobody else has.
  static void CleanUp() {
    for (const Secret* secret : {&kUser, &kPassword}) {
      const std::vector<std::string> found = FindInMemory(*secret);
      EXPECT_THAT(found, Each(HasSubstr("in use")));
      EXPECT_LE(found.size(), secret->Units() / Secret::kPieceUnits) << "there are two copies";
    }
    s_self->m_cleanUp.Original<decltype(BLFrameworkCleanUp)>()();
  }

  // In the place of the scripted ones, which write down what they are told.
  static BOOL WINAPI SetCredentials(HINTERNET, DWORD, DWORD, LPCWSTR user, LPCWSTR password, LPVOID) {
    if (kUser.Equals(user, std::wcslen(user)) && kPassword.Equals(password, std::wcslen(password))) ++s_self->m_told;
    return TRUE;
  }
  static BOOL WINAPI SetOption(HINTERNET request, DWORD option, LPVOID value, DWORD size) {
    if (option != WINHTTP_OPTION_PROXY_USERNAME)
      return s_self->m_setOption.Original<BOOL WINAPI(HINTERNET, DWORD, LPVOID, DWORD)>()(request, option, value, size);
    const auto* const text = static_cast<const wchar_t*>(value);
    if (kUser.Equals(text, size)) s_self->m_hasUser = true;
    if (s_self->m_hasUser && kPassword.Equals(text, size)) ++s_self->m_told;
    return TRUE;
  }

  static inline Secrets* s_self = nullptr;
  KzVariant* m_handedOut = nullptr;
  bool m_hasUser = false;
  std::optional<ImportPatch> m_invoke;
  std::optional<ImportPatch> m_free;
  ImportPatch m_cleanUp{Module(), "BLFrameworkCleanUp", &CleanUp};
  ImportPatch m_setCredentials{Module(), "WinHttpSetCredentials", &SetCredentials};
  ImportPatch m_setOption{Module(), "WinHttpSetOption", &SetOption};
};

TEST_P(Secrets, AreGoneAfterAProxyThatTakesThem) {
  m_user.proxyList = L"proxy.test:8080";
  EXPECT_TRUE(Probe({HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_BASIC), HttpsAnswer::Status(200)}));
  EXPECT_EQ(m_given, 1);
  EXPECT_EQ(m_told, 1);
  ExpectNothingLeft();
}

TEST_P(Secrets, AreGoneAfterAProxyThatTakesThemAsAPassport) {
  m_user.proxyList = L"proxy.test:8080";
  EXPECT_TRUE(Probe({HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_PASSPORT), HttpsAnswer::Status(200)}));
  EXPECT_EQ(m_told, 1);
  ExpectNothingLeft();
}

TEST_P(Secrets, AreGoneAfterRequestsThatFail) {
  m_user.configUrl = L"http://proxy.test/proxy.pac";
  m_user.proxyList = L"proxy.test:8080";
  EXPECT_FALSE(Probe(
      {HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_BASIC), HttpsAnswer::SendFails(ERROR_WINHTTP_CANNOT_CONNECT),
       HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_NTLM), HttpsAnswer::ReceiveFails(ERROR_WINHTTP_CONNECTION_ERROR)}));
  EXPECT_EQ(m_told, 2);
  ExpectNothingLeft();
}

TEST_P(Secrets, AreGoneThoughNoProxyAskedForThem) {
  EXPECT_FALSE(Probe({}));
  EXPECT_EQ(m_given, 1);
  EXPECT_EQ(m_told, 0);
  ExpectNothingLeft();
}

TEST_P(Secrets, AreGoneWhenTheFrameworkTakesThemBack) {
  m_user.proxyList = L"proxy.test:8080";
  m_answer = QELA_STATUS_SYSTEM_ERROR;
  EXPECT_FALSE(Probe({HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_BASIC), HttpsAnswer::Status(200)}));
  EXPECT_EQ(m_given, 1);
  EXPECT_EQ(m_told, 0);
  ExpectNothingLeft();
}

TEST_P(Secrets, OfTheProbeBeforeAreNotUsedWhenTheFrameworksObjectIsUnavailable) {
  m_user.proxyList = L"proxy.test:8080";
  const auto probe = [this] {
    return Probe({HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_BASIC), HttpsAnswer::Status(200)});
  };
  EXPECT_TRUE(probe());
  const ImportPatch unavailable(
      Module(), "BLGetObjectHandle", +[](const char*, unsigned int, unsigned int, BLObjectHandle*) { return -1; });
  EXPECT_FALSE(probe());
  EXPECT_EQ(m_given, 1);
  EXPECT_EQ(m_told, 1);
  ExpectNothingLeft();
}

// Each allocation from the moment on at which the library is about to get them, alone and with all that follow.
TEST_P(Secrets, AreGoneWhereverMemoryRunsOut) {
  m_user.configUrl = L"http://proxy.test/a-script-whose-name-needs-memory.pac";
  m_user.proxyList = L"a-proxy-whose-name-needs-memory.test:8080";
  int thrown = 0;
  WarmUpExceptions(Module());
  HeapWatch heap(Module());
  for (const HeapWatch::Failing failing : {HeapWatch::Failing::kOnce, HeapWatch::Failing::kFromThenOn}) {
    bool failed = true;
    for (std::size_t n = 0; failed && !HasFailure(); ++n) {
      SCOPED_TRACE(n);
      m_onGiving = [&] { heap.FailAt(n, failing); };
      try {
        Probe({HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_BASIC), HttpsAnswer::Status(404),
               HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_BASIC), HttpsAnswer::Status(200)});
      } catch (const std::bad_alloc&) {
        ++thrown;
      }
      failed = heap.StopFailing();
      ExpectNothingLeft();
    }
  }
  EXPECT_GE(thrown, 10);
  EXPECT_GT(m_told, 10) << "memory also ran out when the proxy had them";
}

INSTANTIATE_TEST_SUITE_P(OfAFramework, Secrets, testing::Values(Framework::kShipped, Framework::kWipesNothing),
                         [](const auto& framework) {
                           return std::string(framework.param == Framework::kShipped ? "ThatShips"
                                                                                     : "ThatWipesNothing");
                         });

// The search itself: it sees what nobody wiped.
class SecretSearch : public testing::Test {
 protected:
  ~SecretSearch() override { EXPECT_THAT(FindInMemory(kPassword), IsEmpty()) << "the test wiped what it wrote"; }
};

TEST_F(SecretSearch, FindsWhatIsInUseAndWhatWasFreed) {
  // A heap of its own, whose end takes the copy away.
  const HANDLE heap = ::HeapCreate(0, 0, 0);
  auto* const text = static_cast<wchar_t*>(::HeapAlloc(heap, 0, QELA_PASSWORD_UNITS * sizeof(wchar_t)));
  ASSERT_NE(text, nullptr);
  kPassword.WriteTo(text);
  EXPECT_THAT(FindInMemory(kPassword),
              Contains(AllOf(HasSubstr("from unit 0 on, in a block of a heap"), HasSubstr("in use"))));
  ::HeapFree(heap, 0, text);
  EXPECT_THAT(FindInMemory(kPassword),
              Contains(AllOf(HasSubstr("from unit 108 on, in a block of a heap"), HasSubstr("free"))));
  ::HeapDestroy(heap);
}

TEST_F(SecretSearch, FindsNarrowTexts) {
  std::string text(kPassword.Units(), '\0');
  for (std::size_t i = 0; i < text.size(); ++i) text[i] = static_cast<char>(kPassword.Unit(i));
  EXPECT_THAT(FindInMemory(kPassword), Contains(HasSubstr("password, narrow, from unit 0 on, in a block of a heap")));
  ::SecureZeroMemory(text.data(), text.size());
}

TEST_F(SecretSearch, FindsWhatIsOnTheStackAndInTheDataOfAModule) {
  static wchar_t s_text[QELA_PASSWORD_UNITS];
  wchar_t text[QELA_PASSWORD_UNITS];
  kPassword.WriteTo(s_text);
  kPassword.WriteTo(text);
  const std::vector<std::string> found = FindInMemory(kPassword);
  EXPECT_THAT(found, Contains(HasSubstr("in a stack")));
  EXPECT_THAT(found, Contains(HasSubstr("in a module")));
  ::SecureZeroMemory(s_text, sizeof s_text);
  ::SecureZeroMemory(text, sizeof text);
}

}  // namespace

#include "FwClient/Service/QeLaLib/ProxyCredentials.h"

#include <windows.h>
#include <BLFrameworkHost.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ScriptedWindows/ImportTable/HeapLimit.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/WindowsScript.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using Calls = std::vector<std::string>;

// Writes down every call to the framework, with what matters of its arguments, and passes it on.
class FrameworkSpy {
 public:
  FrameworkSpy() { s_self = this; }
  ~FrameworkSpy() { s_self = nullptr; }
  FrameworkSpy(const FrameworkSpy&) = delete;
  FrameworkSpy& operator=(const FrameworkSpy&) = delete;

  Calls calls;

 private:
  static std::string Name(const void* block) {
    return block == s_self->m_argument ? "argument" : block == s_self->m_answer ? "answer" : "unknown";
  }
  static void Add(std::string call) { s_self->calls.push_back(std::move(call)); }

  static inline FrameworkSpy* s_self = nullptr;
  void* m_argument = nullptr;
  KzVariant* m_answer = nullptr;
  BLObjectHandle m_handle = nullptr;

  const HMODULE m_module = ThisProgram();
  ImportPatch m_init{m_module, "BLFrameworkInit", +[]() {
                       Add("BLFrameworkInit");
                       return s_self->m_init.Original<decltype(BLFrameworkInit)>()();
                     }};
  ImportPatch m_cleanUp{m_module, "BLFrameworkCleanUp", +[]() {
                          Add("BLFrameworkCleanUp");
                          s_self->m_cleanUp.Original<decltype(BLFrameworkCleanUp)>()();
                        }};
  ImportPatch m_get{m_module, "BLGetObjectHandle",
                    +[](const char* name, unsigned int first, unsigned int second, BLObjectHandle* handle) {
                      Add("BLGetObjectHandle " + std::string(name == nullptr ? "null" : name) + " " +
                          std::to_string(first) + " " + std::to_string(second));
                      const int status =
                          s_self->m_get.Original<decltype(BLGetObjectHandle)>()(name, first, second, handle);
                      s_self->m_handle = *handle;
                      return status;
                    }};
  ImportPatch m_release{m_module, "BLReleaseObjectHandle", +[](BLObjectHandle handle) {
                          Add(handle == s_self->m_handle ? "BLReleaseObjectHandle" : "BLReleaseObjectHandle unknown");
                          return s_self->m_release.Original<decltype(BLReleaseObjectHandle)>()(handle);
                        }};
  ImportPatch m_alloc{m_module, "BLAlloc", +[](std::size_t bytes) {
                        Add("BLAlloc");
                        return s_self->m_argument = s_self->m_alloc.Original<decltype(BLAlloc)>()(bytes);
                      }};
  ImportPatch m_invoke{
      m_module, "BLInvokeMethod",
      +[](BLObjectHandle handle, const char* method, const KzVariant* argument, KzVariant** answer) {
        Add(std::string("BLInvokeMethod ") + method + "(" + WindowsScript::Text(KzvView(argument).String()) + ")");
        const int status = s_self->m_invoke.Original<decltype(BLInvokeMethod)>()(handle, method, argument, answer);
        s_self->m_answer = *answer;
        return status;
      }};
  ImportPatch m_free{m_module, "BLFree", +[](void* block) {
                       Add("BLFree " + Name(block));
                       s_self->m_free.Original<decltype(BLFree)>()(block);
                     }};
};

// A framework whose answer is a text and no list.
constexpr wchar_t kLonelySecret[] = L"a lonely secret";
int AnswerText(BLObjectHandle, const char*, const KzVariant*, KzVariant** answer) {
  // Not through the import table, where a spy would take the block for the caller's.
  const FARPROC alloc = ::GetProcAddress(::GetModuleHandleW(L"blframework.dll"), "BLAlloc");
  *answer = KzvString(kLonelySecret, nullptr, 0)
                .BuildNewKzVariant(reinterpret_cast<KzVariantAlloc>(reinterpret_cast<void*>(alloc)));
  return 0;
}

class ProxyCredentials : public testing::Test {
 protected:
  ~ProxyCredentials() override {
    const BLFrameworkHost::InUse inUse = BLFrameworkHost::inUse();
    EXPECT_EQ(inUse.initializations, 0u);
    EXPECT_EQ(inUse.objectHandles, 0u);
    EXPECT_EQ(inUse.blocks, 0u);
    EXPECT_TRUE(m_log.Texts().empty()) << "credentials, and how they are fetched, never reach the log";
    BLFrameworkHost::reset();
  }

  // What a context holds after a fetch; it held `user` and `password` before.
  void ExpectFetched(std::wstring_view userBefore, std::wstring_view passwordBefore, std::wstring_view user,
                     std::wstring_view password) {
    ProxyContext context;
    AssignSecret(context.userName, userBefore);
    AssignSecret(context.password, passwordBefore);
    EXPECT_TRUE(GetProxyCredentials(context, L"host.example"));
    EXPECT_EQ(context.userName, user);
    EXPECT_EQ(context.password, password);
  }

  void ExpectFetched(std::wstring_view user, std::wstring_view password) { ExpectFetched(L"", L"", user, password); }

  template <std::size_t kCount>
  void Answer(const KzvElement (&elements)[kCount]) {
    BLFrameworkHost::setAnswer(elements, kCount);
  }

  // The calls of one fetch that leaves the context as it was.
  Calls CallsOfFailedFetch() {
    FrameworkSpy spy;
    ExpectFetched(L"old user", L"old password", L"old user", L"old password");
    return spy.calls;
  }

 private:
  LogRecorder m_log;
};

TEST_F(ProxyCredentials, AreTheTextsOfTheAnswer) {
  BLFrameworkHost::setProxyCredentials(L"Zoë", L"correct horse battery staple");
  ExpectFetched(L"Zoë", L"correct horse battery staple");
}

TEST_F(ProxyCredentials, AreFoundWhateverTheCaseOfTheirNames) {
  Answer({{L"USERNAME", L"user"}, {L"Password", L"secret"}});
  ExpectFetched(L"user", L"secret");
}

TEST_F(ProxyCredentials, ElementsOfOtherNamesAreIgnored) {
  Answer({{L"userNameX", L"1"},
          {L"pass", L"2"},
          {L"userNam", L"3"},
          {L"passwordX", L"4"},
          {L" password", L"5"},
          {L"", L"6"},
          {nullptr, L"7"}});
  ExpectFetched(L"before", L"before", L"before", L"before");
}

TEST_F(ProxyCredentials, LaterElementsOverwriteEarlierOnes) {
  Answer({{L"password", L"a first password of some length"},
          {L"userName", L"first"},
          {L"username", L"second, which is longer than what a string holds in itself"},
          {L"PASSWORD", L"2"}});
  ExpectFetched(L"second, which is longer than what a string holds in itself", L"2");
}

TEST_F(ProxyCredentials, AnEmptyTextOverwritesToo) {
  Answer({{L"userName", L"user"}, {L"userName", L""}, {L"password", L""}});
  ExpectFetched(L"before", L"before", L"", L"");
}

TEST_F(ProxyCredentials, WhatTheAnswerLeavesOutStaysAsItWas) {
  Answer({{L"password", L"new"}});
  ExpectFetched(L"old user", L"old password", L"old user", L"new");
}

TEST_F(ProxyCredentials, ElementsThatAreNoTextsAreIgnored) {
  Answer({{L"userName", nullptr}, {L"password", nullptr}});
  ExpectFetched(L"old user", L"old password", L"old user", L"old password");
}

TEST_F(ProxyCredentials, AreNoneWhenNothingWasSet) { ExpectFetched(L"", L""); }

TEST_F(ProxyCredentials, TheFrameworkIsCalledInItsOrder) {
  BLFrameworkHost::setProxyCredentials(L"user", L"secret");
  FrameworkSpy spy;
  ExpectFetched(L"user", L"secret");
  EXPECT_EQ(spy.calls, (Calls{"BLFrameworkInit", "BLGetObjectHandle RVX 0 0", "BLAlloc",
                              "BLInvokeMethod proxyCredentials(proxyCredentials)", "BLFree answer",
                              "BLReleaseObjectHandle", "BLFree argument", "BLFrameworkCleanUp"}));
}

TEST_F(ProxyCredentials, AFrameworkThatDoesNotStartIsAskedForNothing) {
  BLFrameworkHost::setProxyCredentials(L"user", L"secret");
  const ImportPatch failing(ThisProgram(), "BLFrameworkInit", +[]() { return 5; });
  EXPECT_EQ(CallsOfFailedFetch(), (Calls{"BLFrameworkInit"}));
}

TEST_F(ProxyCredentials, AnUnavailableObjectEndsInCleanUp) {
  BLFrameworkHost::setProxyCredentials(L"user", L"secret");
  const ImportPatch failing(
      ThisProgram(), "BLGetObjectHandle", +[](const char*, unsigned int, unsigned int, BLObjectHandle*) { return -1; });
  EXPECT_EQ(CallsOfFailedFetch(), (Calls{"BLFrameworkInit", "BLGetObjectHandle RVX 0 0", "BLFrameworkCleanUp"}));
}

TEST_F(ProxyCredentials, WithoutMemoryForTheArgumentTheMethodIsNotInvoked) {
  BLFrameworkHost::setProxyCredentials(L"user", L"secret");
  const ImportPatch failing(ThisProgram(), "BLAlloc", +[](std::size_t) -> void* { return nullptr; });
  EXPECT_EQ(CallsOfFailedFetch(), (Calls{"BLFrameworkInit", "BLGetObjectHandle RVX 0 0", "BLAlloc",
                                         "BLReleaseObjectHandle", "BLFrameworkCleanUp"}));
}

TEST_F(ProxyCredentials, AFailedMethodReleasesHandleThenArgument) {
  BLFrameworkHost::setProxyCredentials(L"user", L"secret");
  const ImportPatch failing(
      ThisProgram(), "BLInvokeMethod", +[](BLObjectHandle, const char*, const KzVariant*, KzVariant**) { return 1; });
  EXPECT_EQ(CallsOfFailedFetch(), (Calls{"BLFrameworkInit", "BLGetObjectHandle RVX 0 0", "BLAlloc",
                                         "BLInvokeMethod proxyCredentials(proxyCredentials)", "BLReleaseObjectHandle",
                                         "BLFree argument", "BLFrameworkCleanUp"}));
}

TEST_F(ProxyCredentials, WhatAFailedMethodLeavesAsItsAnswerIsNotTouched) {
  const ImportPatch patch(
      ThisProgram(), "BLInvokeMethod", +[](BLObjectHandle, const char*, const KzVariant*, KzVariant** answer) {
        *answer = reinterpret_cast<KzVariant*>(0x1);  // reading or freeing it would crash
        return 1;
      });
  ExpectFetched(L"old user", L"old password", L"old user", L"old password");
}

TEST_F(ProxyCredentials, AFailedReleaseOfTheObjectChangesNothing) {
  BLFrameworkHost::setProxyCredentials(L"user", L"secret");
  static const ImportPatch* s_failing;
  const ImportPatch failing(
      ThisProgram(), "BLReleaseObjectHandle", +[](BLObjectHandle handle) {
        s_failing->Original<decltype(BLReleaseObjectHandle)>()(handle);
        return 1;
      });
  s_failing = &failing;
  ExpectFetched(L"user", L"secret");
}

TEST_F(ProxyCredentials, AnAnswerThatIsNoListIsFreedAndIgnored) {
  const ImportPatch framework(ThisProgram(), "BLInvokeMethod", &AnswerText);
  const Calls calls = CallsOfFailedFetch();
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "BLFree answer"), 1);
}

TEST_F(ProxyCredentials, AMissingAnswerIsIgnored) {
  const ImportPatch framework(
      ThisProgram(), "BLInvokeMethod", +[](BLObjectHandle, const char*, const KzVariant*, KzVariant** answer) {
        *answer = nullptr;
        return 0;
      });
  const Calls calls = CallsOfFailedFetch();
  EXPECT_EQ(calls.back(), "BLFrameworkCleanUp");
}

TEST_F(ProxyCredentials, TheObjectsNameIsConvertedToTheThreadsCodePage) {
  static int s_calls;
  s_calls = 0;
  const ImportPatch patch(
      ThisProgram(), "WideCharToMultiByte",
      +[](UINT page, DWORD flags, const wchar_t* text, int length, char* buffer, int bytes,
          const char* defaultCharacter, BOOL* usedDefault) WINAPI {
        if (page == CP_THREAD_ACP) {
          ++s_calls;
          EXPECT_EQ(flags, 0u);
          EXPECT_STREQ(text, L"RVX");
          EXPECT_EQ(length, -1);
          EXPECT_EQ(bytes, 8);
          EXPECT_EQ(defaultCharacter, nullptr);
          EXPECT_EQ(usedDefault, nullptr);
          std::strcpy(buffer, "qqq");
        }
        return 4;
      });
  EXPECT_EQ(CallsOfFailedFetch(), (Calls{"BLFrameworkInit", "BLGetObjectHandle qqq 0 0", "BLFrameworkCleanUp"}));
  EXPECT_EQ(s_calls, 1);
}

TEST_F(ProxyCredentials, ANameThatCannotBeConvertedIsNotPassed) {
  const ImportPatch patch(
      ThisProgram(), "WideCharToMultiByte",
      +[](UINT, DWORD, const wchar_t*, int, char* buffer, int, const char*, BOOL*) WINAPI {
        buffer[0] = 'R';  // what a conversion that fails half-way leaves behind
        return 0;
      });
  EXPECT_EQ(CallsOfFailedFetch(), (Calls{"BLFrameworkInit", "BLGetObjectHandle null 0 0", "BLFrameworkCleanUp"}));
}

constexpr std::size_t kHugeBytes = 1'000'000;

TEST_F(ProxyCredentials, WantOfMemoryReachesTheCallerAfterEverythingWasReleased) {
  const std::wstring huge(kHugeBytes, L'x');
  BLFrameworkHost::setProxyCredentials(huge.c_str(), huge.c_str());
  FrameworkSpy spy;
  ProxyContext context;
  {
    const HeapLimit memory(ThisProgram(), kHugeBytes);
    EXPECT_THROW(GetProxyCredentials(context, L"host.example"), std::bad_alloc);
  }
  EXPECT_EQ(spy.calls, (Calls{"BLFrameworkInit", "BLGetObjectHandle RVX 0 0", "BLAlloc",
                              "BLInvokeMethod proxyCredentials(proxyCredentials)", "BLFree answer",
                              "BLReleaseObjectHandle", "BLFree argument", "BLFrameworkCleanUp"}));
}

// Looks into every heap block that the library frees.
class FreedMemorySpy {
 public:
  explicit FreedMemorySpy(std::wstring_view secret) : m_secret(secret) { s_self = this; }
  ~FreedMemorySpy() { s_self = nullptr; }
  FreedMemorySpy(const FreedMemorySpy&) = delete;
  FreedMemorySpy& operator=(const FreedMemorySpy&) = delete;

  int BlocksWithSecret() const { return m_found; }

 private:
  static void Free(void* block) {
    if (block != nullptr) {
      const std::wstring_view units(static_cast<const wchar_t*>(block), ::_msize(block) / sizeof(wchar_t));
      if (units.find(s_self->m_secret) != std::wstring_view::npos) ++s_self->m_found;
    }
    s_self->m_free.Original<decltype(std::free)>()(block);
  }

  static inline FreedMemorySpy* s_self = nullptr;
  const std::wstring_view m_secret;
  int m_found = 0;
  ImportPatch m_free{ThisProgram(), "free", &FreedMemorySpy::Free};
};

TEST_F(ProxyCredentials, LeaveNoCopyOnTheHeap) {
  // Each is longer than the one before, so that the string moves to a new block.
  std::wstring answers[4];
  for (std::size_t i = 0; i < std::size(answers); ++i)
    answers[i] = std::wstring(i * 100, L'-') + L"the secret" + std::wstring(i * 100, L'-');
  Answer({{L"password", answers[0].c_str()},
          {L"password", answers[1].c_str()},
          {L"userName", answers[2].c_str()},
          {L"userName", answers[3].c_str()},
          {L"password", L"short"}});
  const FreedMemorySpy spy(L"the secret");
  {
    auto context = std::make_unique<ProxyContext>();
    EXPECT_TRUE(GetProxyCredentials(*context, L"host.example"));
    EXPECT_TRUE(GetProxyCredentials(*context, L"host.example"));
    EXPECT_EQ(context->userName, answers[3]);
    context.reset();
  }
  EXPECT_EQ(spy.BlocksWithSecret(), 0);
  // The spy does see a text that is freed as it is.
  {
    const std::wstring unwiped(answers[1]);
  }
  EXPECT_EQ(spy.BlocksWithSecret(), 1);
}

// Looks into every block that is given back to the framework, before the framework may wipe it by itself.
class ReturnedMemorySpy {
 public:
  explicit ReturnedMemorySpy(std::vector<std::wstring> secrets) : m_secrets(std::move(secrets)) { s_self = this; }
  ~ReturnedMemorySpy() { s_self = nullptr; }
  ReturnedMemorySpy(const ReturnedMemorySpy&) = delete;
  ReturnedMemorySpy& operator=(const ReturnedMemorySpy&) = delete;

  int Blocks() const { return m_blocks; }
  const std::vector<std::wstring>& Found() const { return m_found; }

 private:
  static void Free(void* block) {
    ++s_self->m_blocks;
    const std::wstring_view units(static_cast<const wchar_t*>(block), ::_msize(block) / sizeof(wchar_t));
    for (const std::wstring& secret : s_self->m_secrets)
      if (units.find(secret) != std::wstring_view::npos) s_self->m_found.push_back(secret);
    s_self->m_free.Original<decltype(BLFree)>()(block);
  }

  static inline ReturnedMemorySpy* s_self = nullptr;
  const std::vector<std::wstring> m_secrets;
  int m_blocks = 0;
  std::vector<std::wstring> m_found;
  ImportPatch m_free{ThisProgram(), "BLFree", &ReturnedMemorySpy::Free};
};

TEST_F(ProxyCredentials, AreWipedFromTheAnswerBeforeItIsGivenBack) {
  // Texts of other names, and of none, as well: a later version of the product may name its secrets otherwise.
  Answer({{L"userName", L"a user"},
          {L"password", L"a secret"},
          {L"PASSWORD", L"#"},
          {L"domain", L"a domain"},
          {nullptr, L"a nameless text"},
          {L"password", L""},
          {L"password", nullptr}});
  const ReturnedMemorySpy spy({L"a user", L"a secret", L"#", L"a domain", L"a nameless text"});
  ProxyContext context;
  EXPECT_TRUE(GetProxyCredentials(context, L"host.example"));
  EXPECT_EQ(context.userName, L"a user");
  EXPECT_EQ(context.password, L"");
  EXPECT_EQ(spy.Blocks(), 2);  // the answer and the argument
  EXPECT_TRUE(spy.Found().empty());
}

TEST_F(ProxyCredentials, AreWipedFromAnAnswerThatIsNoList) {
  const ImportPatch framework(ThisProgram(), "BLInvokeMethod", &AnswerText);
  const ReturnedMemorySpy spy({kLonelySecret});
  ExpectFetched(L"", L"");
  EXPECT_EQ(spy.Blocks(), 2);
  EXPECT_TRUE(spy.Found().empty());
}

TEST_F(ProxyCredentials, AreWipedFromTheAnswerWhenMemoryRunsOut) {
  const std::wstring huge(kHugeBytes, L'x');
  Answer({{L"password", L"a secret"}, {L"userName", huge.c_str()}, {L"password", L"a later secret"}});
  const ReturnedMemorySpy spy({L"a secret", L"a later secret", L"xxx"});
  ProxyContext context;
  {
    const HeapLimit memory(ThisProgram(), kHugeBytes);
    EXPECT_THROW(GetProxyCredentials(context, L"host.example"), std::bad_alloc);
  }
  EXPECT_EQ(spy.Blocks(), 2);
  EXPECT_TRUE(spy.Found().empty());
}

TEST_F(ProxyCredentials, ThatAreShortAreWipedFromTheContextItself) {
  alignas(ProxyContext) unsigned char memory[sizeof(ProxyContext)] = {};
  auto* const context = ::new (memory) ProxyContext;
  BLFrameworkHost::setProxyCredentials(L"usr", L"secret");
  EXPECT_TRUE(GetProxyCredentials(*context, L"host.example"));
  const auto holds = [&memory](std::wstring_view text) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    return std::search(std::begin(memory), std::end(memory), bytes, bytes + text.size() * sizeof(wchar_t)) !=
           std::end(memory);
  };
  EXPECT_TRUE(holds(L"usr"));
  EXPECT_TRUE(holds(L"secret"));
  context->~ProxyContext();
  EXPECT_FALSE(holds(L"usr"));
  EXPECT_FALSE(holds(L"secret"));
}

}  // namespace

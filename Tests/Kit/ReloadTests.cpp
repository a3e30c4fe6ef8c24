// What somebody else stores reaches a running service.
#include <winsock2.h>
#include <windows.h>

#include <atomic>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Kit/KitTest.h"

namespace {

// How often the kit asks for the registry's next change, and what it is answered.
std::atomic<int> g_requests;
std::atomic<LSTATUS> g_answer;
decltype(&::RegNotifyChangeKeyValue) g_request;
LSTATUS WINAPI CountRequest(HKEY key, BOOL subtree, DWORD filter, HANDLE event, BOOL asynchronous) {
  const LSTATUS answer =
      g_answer != ERROR_SUCCESS ? g_answer.load() : g_request(key, subtree, filter, event, asynchronous);
  ++g_requests;
  return answer;
}

class KitReload : public KitTest {
 protected:
  KitReload() {
    g_requests = 0;
    g_answer = ERROR_SUCCESS;
    g_request = m_patch.Original<LSTATUS WINAPI(HKEY, BOOL, DWORD, HANDLE, BOOL)>();
  }
  ~KitReload() override {
    if (m_service != nullptr) qela_stop(m_service);
    EXPECT_TRUE(m_threads.Count() == 0 || m_threads.WaitForEnd()) << "the worker still uses what ends here";
  }

  static constexpr wchar_t kTop[] = L"SOFTWARE\\Corvane";
  // A key that somebody makes or removes, by the real calls.
  static void Make(const wchar_t* path) {
    HKEY key = nullptr;
    ASSERT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, path, 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr), 0);
    ::RegCloseKey(key);
  }
  static void RemoveTree(const wchar_t* path) { ASSERT_EQ(::RegDeleteTreeW(HKEY_LOCAL_MACHINE, path), 0); }

  // The worker has noticed a change of the registry. It asks for the next one before it looks at the value.
  static void WaitForRequestsAfter(int requests) {
    const ULONGLONG start = ::GetTickCount64();
    while (g_requests == requests && ::GetTickCount64() - start < 10'000) ::Sleep(1);
    EXPECT_GT(g_requests, requests) << "the change is not noticed";
  }
  // When this returns, the worker has looked at the value since: a callback that is set anew is told by a later look.
  void LetTheWorkerLook(const Ids& current) {
    Start(m_host);
    ExpectTold(m_host, current);
  }

  ToldHost m_host;
  ImportPatch m_patch{Kit(), "RegNotifyChangeKeyValue", &CountRequest};
};

TEST_F(KitReload, AnEditBySomebodyElseIsLoadedAndTold) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Start(m_host);
  ExpectTold(m_host, {L"office"});
  StoreAsSomebodyElse({{"headquarters", "10.0.0.1"}});
  ExpectTold(m_host, {L"headquarters"});
  StoreAsSomebodyElse({{"office", "10.0.0.1"}, {"headquarters", "10.0.0.1"}});
  ExpectTold(m_host, {L"office", L"headquarters"});
  EXPECT_EQ(StoredIds(), (Ids{L"office", L"headquarters"}));
}

TEST_F(KitReload, TheKeyNeedNotExistYet) {
  Start(m_host);
  ExpectTold(m_host, {});
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  ExpectTold(m_host, {L"office"});
}

TEST_F(KitReload, TheKeyMayComeStepByStep) {
  Start(m_host);
  ExpectTold(m_host, {});
  Make(kTop);
  Make(L"SOFTWARE\\Corvane\\Tessel\\Firewall");
  Make(kLaKeyPath);
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  ExpectTold(m_host, {L"office"});
}

TEST_F(KitReload, ARemovedValueChangesNothingAndANewOneIsLoaded) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Start(m_host);
  ExpectTold(m_host, {L"office"});
  const int requests = g_requests;
  RemoveTree(kTop);
  WaitForRequestsAfter(requests);
  LetTheWorkerLook({L"office"});
  EXPECT_EQ(StoredIds(), Ids{L"office"});
  StoreAsSomebodyElse({{"headquarters", "10.0.0.1"}});
  ExpectTold(m_host, {L"headquarters"});
}

TEST_F(KitReload, WhatWasStoredBetweenOpenAndStartIsLoaded) {
  Open();
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Start(m_host);
  ExpectTold(m_host, {L"office"});
}

// The worker looks again after each write of the service's own, and has nothing to do. A calculation more would ask for
// the adapters.
TEST_F(KitReload, OwnWritesAreNotLoadedAgain) {
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Start(m_host);
  ExpectTold(m_host, {L"office"});
  ASSERT_TRUE(Listens());
  const std::size_t asked = m_adapters.CallCount();
  const int requests = g_requests;
  Add(L"home", L"192.168.0.1");
  EXPECT_EQ(qela_save(m_service), QELA_STATUS_OK);
  WaitForRequestsAfter(requests);
  LetTheWorkerLook({L"office"});
  EXPECT_EQ(m_adapters.CallCount(), asked + 1) << "one for the save";
  StoreAsSomebodyElse({{"last", "10.0.0.1"}});
  ExpectTold(m_host, {L"last"});
  EXPECT_EQ(m_adapters.CallCount(), asked + 2);
}

TEST_F(KitReload, EditsThatWaitToBeSavedAreKept) {
  Start(m_host);
  ExpectTold(m_host, {});
  Add(L"mine", kOfficeGateway);
  const int requests = g_requests;
  StoreAsSomebodyElse({{"theirs", "10.0.0.1"}});
  WaitForRequestsAfter(requests);
  LetTheWorkerLook({});
  EXPECT_EQ(StoredIds(), Ids{L"mine"});
  EXPECT_EQ(qela_save(m_service), QELA_STATUS_OK);
  ExpectTold(m_host, {L"mine"});
  EXPECT_EQ(StoredIds(), Ids{L"mine"});
}

TEST_F(KitReload, IsLeftWhereTheHostDoesNotWantIt) {
  qela_options options = QELA_OPTIONS_INIT;
  options.flags = QELA_OPEN_NO_RELOAD;
  Open(options);
  Start(m_host);
  ExpectTold(m_host, {});
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  Add(L"mine", kOfficeGateway);
  EXPECT_EQ(qela_save(m_service), QELA_STATUS_OK);
  ExpectTold(m_host, {L"mine"});
  EXPECT_EQ(g_requests, 0);
}

TEST_F(KitReload, ABurstOfEditsIsLoadedOnce) {
  qela_options options = QELA_OPTIONS_INIT;
  options.quiet_ms = 300;
  Open(options);
  Start(m_host);
  ExpectTold(m_host, {});
  ASSERT_TRUE(Listens());
  const std::size_t asked = m_adapters.CallCount();
  for (const char* id : {"a", "b", "c", "d"}) {
    StoreAsSomebodyElse({{id, "10.0.0.1"}});
    ::Sleep(20);  // the pace of the burst
  }
  ExpectTold(m_host, {L"d"});
  EXPECT_EQ(m_adapters.CallCount(), asked + 1);
}

TEST_F(KitReload, ARegistryThatCannotBeWatchedIsLookedAt) {
  g_answer = ERROR_NOT_ENOUGH_MEMORY;
  Start(m_host);
  ExpectTold(m_host, {});
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  ExpectTold(m_host, {L"office"});
  g_answer = ERROR_SUCCESS;
}

TEST_F(KitReload, BadBytesAreToldOfOnce) {
  static std::atomic<int> told;
  told = 0;
  Start(m_host);
  ExpectTold(m_host, {});
  EXPECT_EQ(qela_set_error_callback(+[](const char*, void*) { ++told; }, nullptr), QELA_STATUS_OK);
  m_hive.Put({0xc1});
  const ULONGLONG start = ::GetTickCount64();
  while (told == 0 && ::GetTickCount64() - start < 10'000) ::Sleep(1);
  StoreAsSomebodyElse({{"office", "10.0.0.1"}});
  ExpectTold(m_host, {L"office"});
  EXPECT_EQ(told, 1);
  EXPECT_EQ(qela_set_error_callback(nullptr, nullptr), QELA_STATUS_OK);
}

}  // namespace

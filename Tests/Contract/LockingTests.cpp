// Which operations take the service's lock.
#include <windows.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Tests/Contract/ServiceTest.h"

namespace {

CRITICAL_SECTION g_hostLock;
std::atomic<int> g_entered{0};

void(WINAPI* g_enter)(CRITICAL_SECTION*);
void WINAPI CountEnter(CRITICAL_SECTION* section) {
  if (section == &g_hostLock) ++g_entered;
  g_enter(section);
}

// The service on the host's lock, with discovery unable to start its thread, so that only callers take the lock.
class Locking : public ServiceTest {
 protected:
  using Operation = std::pair<std::string, std::function<void()>>;

  Locking() {
    ::InitializeCriticalSection(&g_hostLock);
    g_enter = m_enterPatch.Original<void WINAPI(CRITICAL_SECTION*)>();
    m_service = m_library.SmartApi(&g_hostLock);
    EXPECT_EQ(m_service->AddLocation(NewLocation(*m_service, L"A")), LSR_OK);
  }
  ~Locking() override {
    m_service.reset();
    // The instance lives until the library is unloaded, and so does its use of the lock, which stays initialised.
  }

  std::vector<Operation> Locked() {
    return {{"AddLocation", [this] { m_service->AddLocation(nullptr); }},
            {"RemoveLocation", [this] { m_service->RemoveLocation(L"none"); }},
            {"RemoveAllLocations", [this] { m_service->RemoveAllLocations(); }},
            {"Load", [this] { m_service->Load(); }},
            {"Save", [this] { m_service->Save(); }},
            {"GetLocation", [this] { m_service->GetLocation(L"A"); }},
            {"UpdateLocation", [this] { m_service->UpdateLocation(nullptr); }},
            {"GetCurrentLocations", [this] { m_service->GetCurrentLocations(); }},
            {"Lock and Unlock", [this] {
               m_service->Lock();
               m_service->Unlock();
             }}};
  }
  std::vector<Operation> Unlocked() {
    return {{"CreateLocation", [this] { m_service->CreateLocation(); }},
            {"CreateLocations", [this] { m_service->CreateLocations(); }},
            {"GetLocations", [this] { m_service->GetLocations(); }},
            {"MatchAddressSpecification",
             [this] { m_service->MatchAddressSpecification({L"10.0.0.1"}, &m_kind, L"10.0.0.1", L""); }},
            {"MatchAdapterAddresses", [this] { m_service->MatchAdapterAddresses(&m_kind, L"10.0.0.7", L""); }},
            {"IsAdapterMediaType", [this] { m_service->IsAdapterMediaType(7, {kOfficeIndex}); }},
            {"GetMacAddresses", [this] { m_service->GetMacAddresses(); }},
            {"StartDiscovery", [this] { m_service->StartDiscovery([](std::shared_ptr<_IEnumQeLocations>) {}); }},
            {"StopDiscovery", [this] { m_service->StopDiscovery(); }},
            {"SetErrorPrinter", [this] { m_service->SetErrorPrinter(nullptr); }}};
  }

  const std::uint32_t m_kind = FIAT_SINGLE_IP;
  ImportPatch m_enterPatch{Module(), "EnterCriticalSection", &CountEnter};
  ImportPatch m_noThreads{Module(), "CreateThread", &NoThread};
  std::shared_ptr<_IQeLaApiSmart> m_service;
};

TEST_F(Locking, EditingAndReadingOperationsTakeTheLockAndLeaveIt) {
  for (const auto& [name, call] : Locked()) {
    g_entered = 0;
    call();
    EXPECT_GT(g_entered, 0) << name;
    EXPECT_TRUE(OtherThreadCanEnter(g_hostLock)) << name;
  }
}

TEST_F(Locking, OtherOperationsDoNotTouchTheLock) {
  for (const auto& [name, call] : Unlocked()) {
    g_entered = 0;
    call();
    EXPECT_EQ(g_entered, 0) << name;
  }
}

TEST_F(Locking, OtherOperationsReturnWhileAnotherThreadHoldsTheLock) {
  m_service->Lock();
  const OtherThread caller([&] {
    for (const auto& [name, call] : Unlocked()) call();
  });
  EXPECT_TRUE(caller.HasEnded());
  m_service->Unlock();
}

TEST_F(Locking, OperationOfAnotherThreadWaitsUntilTheHostUnlocks) {
  m_service->Lock();
  g_entered = 0;
  std::uint32_t added = 99;
  OtherThread adder([&] { added = m_service->AddLocation(NewLocation(*m_service, L"B")); });
  while (g_entered == 0) std::this_thread::yield();  // the other thread stands before the lock
  EXPECT_EQ(StoredIds(*m_service), Ids{L"A"});
  m_service->Unlock();
  adder.Join();
  EXPECT_EQ(added, LSR_OK);
  EXPECT_EQ(StoredIds(*m_service), (Ids{L"A", L"B"}));
}

TEST_F(Locking, HostThatHoldsTheLockMayCallEveryOperation) {
  m_service->Lock();
  for (const auto& [name, call] : Locked()) call();
  for (const auto& [name, call] : Unlocked()) call();
  EXPECT_FALSE(OtherThreadCanEnter(g_hostLock));
  m_service->Unlock();
  EXPECT_TRUE(OtherThreadCanEnter(g_hostLock));
}

TEST_F(Locking, LockIsHeldThroughTheWholeCalculation) {
  bool free = true;
  m_adapters.OnCall([&] { free = OtherThreadCanEnter(g_hostLock); });
  EXPECT_TRUE(m_service->Save());
  EXPECT_FALSE(free);
}

using LockingWhileMade = ServiceTest;

TEST_F(LockingWhileMade, ConstructionHoldsTheHostsLockWhileItReadsTheSet) {
  ::InitializeCriticalSection(&g_hostLock);
  int calls = 0;
  bool everFree = false;
  m_registry.OnCall([&](const ScriptedRegistry::Call&) {
    ++calls;
    everFree = everFree || OtherThreadCanEnter(g_hostLock);
  });
  m_library.SmartApi(&g_hostLock);
  m_registry.OnCall({});
  EXPECT_GT(calls, 0);
  EXPECT_FALSE(everFree);
}

TEST_F(Locking, LockIsHeldWhileTheSetIsReadAndWritten) {
  bool everFree = false;
  m_registry.OnCall([&](const ScriptedRegistry::Call&) { everFree = everFree || OtherThreadCanEnter(g_hostLock); });
  EXPECT_TRUE(m_service->Save());
  EXPECT_TRUE(m_service->Load());
  EXPECT_FALSE(everFree);
}

}  // namespace

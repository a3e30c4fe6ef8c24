// How the two instances are made, shared and destroyed.
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/StoredSet.h"

namespace {

using Ownership = ServiceTest;

TEST_F(Ownership, GetQeLaApiReturnsOnePointerAndAddsNoReference) {
  _IQeLaApi* const service = m_library.Api();
  EXPECT_EQ(m_library.Api(), service);
  EXPECT_EQ(service->AddRef(), 2u);
  EXPECT_EQ(m_library.Api(), service);
  EXPECT_EQ(service->AddRef(), 3u);
  EXPECT_EQ(service->Release(), 2u);
  EXPECT_EQ(service->Release(), 1u);
}

TEST_F(Ownership, SmartPointersShareOneInstanceAndCount) {
  const std::shared_ptr<_IQeLaApiSmart> first = m_library.SmartApi();
  EXPECT_EQ(first.use_count(), 2) << "the library's own and this one";
  {
    const std::shared_ptr<_IQeLaApiSmart> second = m_library.SmartApi();
    EXPECT_EQ(second, first);
    EXPECT_EQ(first.use_count(), 3);
  }
  EXPECT_EQ(first.use_count(), 2);
}

TEST_F(Ownership, SmartInstanceOutlivesTheLastPointerOfTheHost) {
  m_library.SmartApi()->AddLocation(NewLocation(*m_library.SmartApi(), L"A"));
  EXPECT_EQ(StoredIds(*m_library.SmartApi()), Ids{L"A"});
}

TEST_F(Ownership, TheTwoInstancesAreSeparate) {
  _IQeLaApi* const raw = m_library.Api();
  const std::shared_ptr<_IQeLaApiSmart> smart = m_library.SmartApi();
  ASSERT_NE(static_cast<void*>(smart.get()), static_cast<void*>(raw));

  EXPECT_EQ(raw->AddLocation(NewLocation(*raw, L"A")), LSR_OK);
  EXPECT_EQ(StoredIds(*smart), Ids{});
  EXPECT_EQ(CurrentIds(*smart), Ids{});
  EXPECT_TRUE(smart->Load());
  EXPECT_EQ(StoredIds(*smart), Ids{L"A"});
  EXPECT_EQ(CurrentIds(*smart), Ids{L"A"});
  EXPECT_EQ(smart->RemoveLocation(L"A"), LSR_OK);
  EXPECT_EQ(StoredIds(*raw), Ids{L"A"});
}

// A process that starts afresh, with the registry that the first one left.
class Restart : public ::testing::Test {
 protected:
  template <typename Act>
  Bytes LeftBy(Act act) {
    const ServiceLibrary library;
    StoredRegistry registry(library.Module());
    const FakeAdapters adapters(library.Module());
    act(library);
    return registry.Value().value_or(Bytes{});
  }
  static Ids FoundBy(const Bytes& left) {
    const ServiceLibrary library;
    StoredRegistry registry(library.Module());
    const FakeAdapters adapters(library.Module());
    if (!left.empty()) registry.Put(left);
    Ids ids;
    const std::shared_ptr<_IEnumQeLocations> stored = library.SmartApi()->GetLocations();
    for (std::uint64_t i = 0; i < stored->GetCount(); ++i) ids.push_back(stored->GetItem(i)->GetId());
    return ids;
  }
  static std::shared_ptr<_IQeLocation> Named(_IQeLaApiSmart& service, const wchar_t* id) {
    const std::shared_ptr<_IQeLocation> location = service.CreateLocation();
    location->SetId(id);
    return location;
  }

  LogRecorder m_log;
};

TEST_F(Restart, FindsWhatTheRawInstanceWasGivenAtOnce) {
  EXPECT_EQ(
      FoundBy(LeftBy([](const ServiceLibrary& library) { library.Api()->AddLocation(Named(*library.Api(), L"A")); })),
      Ids{L"A"});
}

TEST_F(Restart, FindsWhatTheSmartInstanceWasGivenOnlyAfterASave) {
  EXPECT_EQ(FoundBy(LeftBy([](const ServiceLibrary& library) {
              library.SmartApi()->AddLocation(Named(*library.SmartApi(), L"A"));
            })),
            Ids{});
  EXPECT_EQ(FoundBy(LeftBy([](const ServiceLibrary& library) {
              library.SmartApi()->AddLocation(Named(*library.SmartApi(), L"A"));
              EXPECT_TRUE(library.SmartApi()->Save());
            })),
            Ids{L"A"});
}

// What the library does to locks, handles and memory, in order.
std::vector<std::string> g_events;
void* g_ownLock = nullptr;
void* g_object = nullptr;
std::vector<HANDLE> g_handles;

void(WINAPI* g_initialize)(CRITICAL_SECTION*);
void(WINAPI* g_delete)(CRITICAL_SECTION*);
void(WINAPI* g_enter)(CRITICAL_SECTION*);
BOOL(WINAPI* g_close)(HANDLE);
void (*g_free)(void*);
HANDLE(WINAPI* g_createEvent)(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*);

class Destruction : public ServiceTest {
 protected:
  Destruction() {
    g_events.clear();
    g_handles.clear();
    g_ownLock = g_object = nullptr;
    g_initialize = m_initialize.Original<void WINAPI(CRITICAL_SECTION*)>();
    g_delete = m_delete.Original<void WINAPI(CRITICAL_SECTION*)>();
    g_enter = m_enter.Original<void WINAPI(CRITICAL_SECTION*)>();
    g_close = m_close.Original<BOOL WINAPI(HANDLE)>();
    g_free = m_free.Original<void(void*)>();
    g_createEvent = m_createEvent.Original<HANDLE WINAPI(SECURITY_ATTRIBUTES*, BOOL, BOOL, const wchar_t*)>();
  }

  static void WINAPI Initialize(CRITICAL_SECTION* section) {
    g_ownLock = section;
    g_initialize(section);
  }
  static void WINAPI Delete(CRITICAL_SECTION* section) {
    if (section == g_ownLock) g_events.push_back("delete lock");
    g_delete(section);
  }
  static void WINAPI Enter(CRITICAL_SECTION* section) {
    if (section == g_ownLock) g_events.push_back("enter lock");
    g_enter(section);
  }
  static BOOL WINAPI Close(HANDLE handle) {
    const auto found = std::find(g_handles.begin(), g_handles.end(), handle);
    if (found != g_handles.end()) g_events.push_back("close " + std::to_string(found - g_handles.begin()));
    return g_close(handle);
  }
  static void Free(void* memory) {
    if (memory != nullptr && memory == g_ownLock) g_events.push_back("free lock");
    if (memory != nullptr && memory == g_object) g_events.push_back("free object");
    g_free(memory);
  }
  static HANDLE WINAPI CreateEvent_(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) {
    HANDLE handle = g_createEvent(security, manual, set, name);
    g_handles.push_back(handle);
    return handle;
  }

  ImportPatch m_initialize{Module(), "InitializeCriticalSection", &Initialize};
  ImportPatch m_delete{Module(), "DeleteCriticalSection", &Delete};
  ImportPatch m_enter{Module(), "EnterCriticalSection", &Enter};
  ImportPatch m_close{Module(), "CloseHandle", &Close};
  ImportPatch m_free{Module(), "free", &Free};
  ImportPatch m_createEvent{Module(), "CreateEventW", &CreateEvent_};
};

TEST_F(Destruction, ReleaseToZeroDeletesTheOwnLockAndTheObjectWithoutEnteringTheLock) {
  _IQeLaApi* const service = m_library.Api();
  ASSERT_NE(g_ownLock, nullptr);
  g_object = service;
  g_events.clear();
  EXPECT_EQ(service->Release(), 0u);
  EXPECT_EQ(g_events, (std::vector<std::string>{"delete lock", "free lock", "free object"}));
}

TEST_F(Destruction, LockGoesFirstThenTheRefreshEventThenTheStopEvent) {
  const ImportPatch noThread(Module(), "CreateThread", &NoThread);
  _IQeLaApi* const service = m_library.Api();
  EXPECT_FALSE(service->StartDiscovery([](std::shared_ptr<_IEnumQeLocations>) {}));
  ASSERT_EQ(g_handles.size(), 2u);  // 0 is the stop event, 1 the refresh event
  g_object = service;
  g_events.clear();
  EXPECT_EQ(service->Release(), 0u);
  EXPECT_EQ(g_events, (std::vector<std::string>{"delete lock", "free lock", "close 1", "close 0", "free object"}));
}

TEST_F(Destruction, ReleaseAboveZeroDestroysNothing) {
  _IQeLaApi* const service = m_library.Api();
  g_object = service;
  service->AddRef();
  g_events.clear();
  EXPECT_EQ(service->Release(), 1u);
  EXPECT_EQ(g_events, std::vector<std::string>{});
}

TEST_F(Destruction, InstanceOnTheLockOfTheHostMakesNoneOfItsOwn) {
  CRITICAL_SECTION lock;
  ::InitializeCriticalSection(&lock);
  m_library.SmartApi(&lock);
  EXPECT_EQ(g_ownLock, nullptr);
}

TEST(HostLock, IsLeftAloneByUnloading) {
  const LogRecorder log;
  CRITICAL_SECTION lock;
  ::InitializeCriticalSection(&lock);
  CRITICAL_SECTION before;
  std::memcpy(&before, &lock, sizeof lock);
  {
    ServiceLibrary library;
    {
      StoredRegistry registry(library.Module());
      const FakeAdapters adapters(library.Module());
      library.SmartApi(&lock)->RemoveAllLocations();
    }
    library.Unload();
  }
  EXPECT_EQ(std::memcmp(&before, &lock, sizeof lock), 0);
  ::DeleteCriticalSection(&lock);
}

// Two locks that a host may offer.
class HostLockChoice : public ServiceTest {
 protected:
  HostLockChoice() {
    ::InitializeCriticalSection(&m_first);
    ::InitializeCriticalSection(&m_second);
  }

  static bool UsesLock(CRITICAL_SECTION& lock, _IQeLaApiSmart& service) {
    service.Lock();
    const bool used = lock.RecursionCount == 1;
    service.Unlock();
    return used;
  }

  // Whether an edit comes through while another thread holds the lock.
  static bool EditsWhileHeld(CRITICAL_SECTION& lock, _IQeLaApiSmart& service) {
    ::EnterCriticalSection(&lock);
    const OtherThread editor([&] { service.RemoveLocation(L"none"); });
    const bool came = editor.HasEnded();
    ::LeaveCriticalSection(&lock);
    return came;
  }

  CRITICAL_SECTION m_first;
  CRITICAL_SECTION m_second;
};

TEST_F(HostLockChoice, LockOfALaterCallIsIgnored) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi(&m_first);
  EXPECT_EQ(m_library.SmartApi(&m_second), service);
  EXPECT_TRUE(UsesLock(m_first, *service));
  EXPECT_TRUE(EditsWhileHeld(m_second, *service));
}

TEST_F(HostLockChoice, NullAtTheFirstCallMeansAnOwnLockForGood) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi(nullptr);
  EXPECT_EQ(m_library.SmartApi(&m_first), service);
  EXPECT_FALSE(UsesLock(m_first, *service));
  EXPECT_TRUE(EditsWhileHeld(m_first, *service));
}

}  // namespace

// Memory that runs out at every single allocation of every operation.
#include <windows.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/HeapWatch.h"

namespace {

CRITICAL_SECTION g_lock;

int g_initialised = 0;
int g_deleted = 0;
void(WINAPI* g_initialize)(CRITICAL_SECTION*);
void(WINAPI* g_delete)(CRITICAL_SECTION*);
void WINAPI CountInitialize(CRITICAL_SECTION* section) {
  ++g_initialised;
  g_initialize(section);
}
void WINAPI CountDelete(CRITICAL_SECTION* section) {
  ++g_deleted;
  g_delete(section);
}

class FailureInjection : public ServiceTest {
 protected:
  // More allocations than any operation here makes; reaching it means that failing never ends.
  static constexpr std::size_t kEnough = 5000;

  FailureInjection() { ::InitializeCriticalSection(&g_lock); }

  // Lets the first, the second, ... allocation of `act` fail until it comes through. `before` and `after` run each time
  // with memory as usual.
  void FailEveryAllocation(const std::function<void()>& act, const std::function<void()>& before,
                           const std::function<void()>& after) {
    HeapWatch heap(Module());
    for (std::size_t n = 0; n < kEnough; ++n) {
      before();
      heap.FailAt(n);
      bool failed = false;
      try {
        act();
        failed = heap.StopFailing();
      } catch (const std::bad_alloc&) {
        failed = heap.StopFailing();
        EXPECT_TRUE(failed) << "bad_alloc without a cause";
      } catch (...) {
        heap.StopFailing();
        ADD_FAILURE() << "another exception at allocation " << n;
        return;
      }
      after();
      if (!failed) return;
      if (HasFailure()) {
        ADD_FAILURE() << "at allocation " << n;
        return;
      }
    }
    ADD_FAILURE() << "failing does not end";
  }

  // The set that operations work on: every kind of text, long enough not to fit into a string object.
  static Bytes StoredSet() {
    LocationBlob a{.id = "the first location's identifier", .name = std::string(2000, 'n'), .adapterIndexes = {1, 2}};
    for (std::vector<std::string>& list : a.texts) list = {std::string(100, 'x'), "y"};
    LocationBlob b{.id = "the second location's identifier", .note = "a note that needs memory of its own"};
    b.texts[LCT_DEFAULT_GATEWAY] = {"10.0.0.1"};
    b.texts[LCT_DNS_SUFFIX] = {"[*", "c*rp.example"};
    return PackedSet({a, b});
  }
  static constexpr wchar_t kFirst[] = L"the first location's identifier";
  static constexpr wchar_t kSecond[] = L"the second location's identifier";
};

// Both instances, every operation: only std::bad_alloc leaves, and everything is as if nothing had happened.
TEST_F(FailureInjection, OperationsLeaveNothingBehindAndTheServiceWorksOn) {
  m_registry.Put(StoredSet());
  const std::shared_ptr<_IQeLaApiSmart> smart = m_library.SmartApi(&g_lock);
  _IQeLaApi* const raw = m_library.Api();
  const std::shared_ptr<_IQeLocation> stored = smart->GetLocation(kSecond);
  const std::shared_ptr<_IQeLocation> added = smart->GetLocation(kFirst);
  added->SetId(L"a further location's identifier");
  const std::wstring first = kFirst;
  const std::wstring second = kSecond;
  const Bytes set = StoredSet();

  const auto forEachOperation = [&](_IQeLaApiSmart& service, const char* instance) {
    const std::vector<std::pair<const char*, std::function<void()>>> operations{
        {"CreateLocation", [&] { service.CreateLocation(); }},
        {"CreateLocations", [&] { service.CreateLocations(); }},
        {"AddLocation", [&] { service.AddLocation(added); }},
        {"RemoveLocation", [&] { service.RemoveLocation(first); }},
        {"RemoveAllLocations", [&] { service.RemoveAllLocations(); }},
        {"Load", [&] { service.Load(); }},
        {"Save", [&] { service.Save(); }},
        {"GetLocation", [&] { service.GetLocation(first); }},
        {"UpdateLocation", [&] { service.UpdateLocation(stored); }},
        {"GetCurrentLocations", [&] { service.GetCurrentLocations(); }},
        {"GetLocations", [&] { service.GetLocations(); }},
        {"GetMacAddresses", [&] { service.GetMacAddresses(); }},
        {"StopDiscovery", [&] { service.StopDiscovery(); }}};
    for (const auto& [name, operation] : operations) {
      SCOPED_TRACE(std::string(instance) + "::" + name);
      const HandleLedger ledger(Module());
      FailEveryAllocation(
          operation,
          [&] {
            m_registry.Put(set);
            ASSERT_TRUE(service.Load());
          },
          [&] {
            EXPECT_TRUE(OtherThreadCanEnter(g_lock));
            EXPECT_EQ(ledger.Leaks(), std::vector<std::string>{});
            EXPECT_EQ(ledger.Mistakes(), std::vector<std::string>{});
            EXPECT_EQ(m_registry.OpenKeys(), 0u);
          });
      m_registry.Put(set);
      EXPECT_TRUE(service.Load());
      EXPECT_EQ(StoredIds(service), (Ids{kFirst, kSecond}));
      EXPECT_EQ(CurrentIds(service), Ids{kSecond});
      EXPECT_TRUE(service.Save());
    }
  };
  forEachOperation(*smart, "smart");
  forEachOperation(*raw, "raw");
}

TEST_F(FailureInjection, SnapshotThrowsNothingAndIsWholeOrEmpty) {
  AdapterList list;
  for (int i = 0; i < 3; ++i)
    list.Add(L"an adapter with a description that needs memory").Gateway("10.0.0.1").Mac({1, 2, 3, 4, 5, 6});
  m_adapters.Set(list);
  m_registry.Put(PackedSet({{.id = "A"}}));
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  std::size_t failed = 0;
  FailEveryAllocation([&] { service->Save(); }, [&] { m_log.Clear(); },
                      [&] {
                        EXPECT_EQ(m_log.Count(L"Adapters List :"), 1u) << "the report is written in any case";
                        const std::size_t separators =
                            m_log.Count(L"//---------------------------------------------\n");
                        if (m_log.Count(L"CalculateCurrentAdapterProps failed.") == 1) {
                          ++failed;
                          EXPECT_EQ(separators, 0u);
                          EXPECT_EQ(CurrentIds(*service), Ids{});
                        }
                      });
  EXPECT_GT(failed, 3u);
  EXPECT_EQ(CurrentIds(*service), Ids{L"A"});
}

TEST_F(FailureInjection, StartOfDiscoveryLeavesNoEventAndNoReferenceToTheLibrary) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  const ImportPatch noThread(Module(), "CreateThread", &NoThread);
  const HandleLedger ledger(Module());
  int thrown = 0;
  bool finished = false;
  FailEveryAllocation(
      [&] {
        finished = false;
        ++thrown;
        EXPECT_FALSE(service->StartDiscovery([](std::shared_ptr<_IEnumQeLocations>) {}));
        finished = true;
        --thrown;
      },
      [] {},
      [&] {
        EXPECT_EQ(ledger.Open("GetModuleHandleExW"), 0u);
        if (!finished) {
          EXPECT_EQ(ledger.Open("CreateEventW"), 0u);
        }
      });
  EXPECT_GE(thrown, 1);
}

TEST_F(FailureInjection, FailedSaveLeavesTheStoredSetAsItWas) {
  m_registry.Put(StoredSet());
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  EXPECT_TRUE(service->Save());
  const Bytes saved = m_registry.Value().value();
  bool savedNow = false;
  FailEveryAllocation([&] { savedNow = service->Save(); }, [&] { savedNow = false; },
                      [&] { EXPECT_EQ(m_registry.Value(), saved); });
  EXPECT_TRUE(savedNow);
}

TEST_F(FailureInjection, FailedEditLeavesTheSetWholeOrUnchanged) {
  m_registry.Put(StoredSet());
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  const std::shared_ptr<_IQeLocation> added = service->GetLocation(kFirst);
  added->SetId(L"a further location's identifier");
  std::uint32_t result = 99;
  FailEveryAllocation([&] { result = service->AddLocation(added); },
                      [&] {
                        service->RemoveLocation(added->GetId());
                        result = 99;
                      },
                      [&] {
                        EXPECT_EQ(service->GetLocations()->GetCount(), result == LSR_OK ? 3u : 2u);
                        if (result == LSR_OK) {
                          EXPECT_EQ(service->GetLocation(added->GetId())->GetCriterias()->GetCount(), 16u);
                        }
                      });
  EXPECT_EQ(result, LSR_OK);
}

TEST_F(FailureInjection, ConstructionInGetQeLaApiIsTriedAgainByTheNextCall) {
  m_registry.Put(StoredSet());
  HeapWatch heap(Module());
  // The first exception of a process makes the runtime initialise locks of its own.
  heap.FailAt(0);
  EXPECT_THROW(m_library.SmartApi(), std::bad_alloc);
  heap.StopFailing();
  const ImportPatch initialize(Module(), "InitializeCriticalSection", &CountInitialize);
  const ImportPatch remove(Module(), "DeleteCriticalSection", &CountDelete);
  g_initialize = initialize.Original<void WINAPI(CRITICAL_SECTION*)>();
  g_delete = remove.Original<void WINAPI(CRITICAL_SECTION*)>();
  g_initialised = g_deleted = 0;
  const HandleLedger ledger(Module());
  _IQeLaApi* service = nullptr;
  std::size_t failures = 0;
  for (std::size_t n = 0; n < kEnough && service == nullptr; ++n) {
    heap.FailAt(n);
    try {
      service = m_library.Api();
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    heap.StopFailing();
    EXPECT_EQ(ledger.Leaks(), std::vector<std::string>{});
    EXPECT_EQ(m_registry.OpenKeys(), 0u);
    EXPECT_EQ(g_initialised - g_deleted, service != nullptr ? 1 : 0) << "own locks alive after try " << n;
  }
  EXPECT_GE(failures, 2u);
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(m_library.Api(), service);
  EXPECT_EQ(service->AddRef(), 2u);
  EXPECT_EQ(service->Release(), 1u);
  service->Load();
  EXPECT_EQ(StoredIds(*service), (Ids{kFirst, kSecond}));
}

TEST_F(FailureInjection, ConstructionInGetQeLaApiSmartIsTriedAgainByTheNextCall) {
  m_registry.Put(StoredSet());
  const HandleLedger ledger(Module());
  std::shared_ptr<_IQeLaApiSmart> service;
  std::size_t failures = 0;
  HeapWatch heap(Module());
  for (std::size_t n = 0; n < kEnough && service == nullptr; ++n) {
    heap.FailAt(n);
    try {
      service = m_library.SmartApi(&g_lock);
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    heap.StopFailing();
    EXPECT_EQ(ledger.Leaks(), std::vector<std::string>{});
    EXPECT_TRUE(OtherThreadCanEnter(g_lock));
  }
  EXPECT_GE(failures, 2u);
  ASSERT_NE(service, nullptr);
  EXPECT_EQ(service.use_count(), 2);
  EXPECT_EQ(m_library.SmartApi(), service);
}

}  // namespace

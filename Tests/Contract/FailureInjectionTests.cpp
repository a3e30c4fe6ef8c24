// Memory that runs out at every single allocation of every operation.
#include <winsock2.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/HandleWatch.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Contract/DiscoveryTest.h"
#include "Tests/Support/StoredSet.h"

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

using Lines = std::vector<std::string>;
Lines g_printed;
void Print(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  g_printed.push_back(std::string(format) + '|' + va_arg(arguments, const char*));
  va_end(arguments);
}

// Lets one conversion of a stored text fail with an error of the test's.
class FailingConversion {
 public:
  explicit FailingConversion(HMODULE module) : m_patch(module, "MultiByteToWideChar", &Convert) {
    s_real = m_patch.Original<int WINAPI(UINT, DWORD, LPCCH, int, LPWSTR, int)>();
  }
  void FailAt(std::size_t n, DWORD error) {
    s_left = static_cast<std::ptrdiff_t>(n);
    s_error = error;
    s_failed = false;
  }
  bool StopFailing() {
    s_left = -1;
    return s_failed;
  }

 private:
  static int WINAPI Convert(UINT page, DWORD flags, LPCCH text, int bytes, LPWSTR out, int units) {
    if (s_left < 0 || s_left-- > 0) return s_real(page, flags, text, bytes, out, units);
    s_failed = true;
    ::SetLastError(s_error);
    return 0;
  }

  static inline int(WINAPI* s_real)(UINT, DWORD, LPCCH, int, LPWSTR, int);
  static inline std::ptrdiff_t s_left = -1;  // calls until the failure; negative when there is to be none
  static inline DWORD s_error = 0;
  static inline bool s_failed = false;
  ImportPatch m_patch;
};

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
      const HandleWatch ledger(Module());
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
  const HandleWatch ledger(Module());
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

TEST_F(FailureInjection, FailedLoadAnswersFalseAndLeavesTheSetAlone) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  const std::shared_ptr<_IQeLocation> kept = NewLocation(*service, L"the location that was there before", L"10.0.0.1");
  std::size_t refused = 0;
  bool loaded = false;
  bool threw = true;
  FailEveryAllocation(
      [&] {
        loaded = service->Load();
        threw = false;
      },
      [&] {
        service->RemoveAllLocations();
        EXPECT_EQ(service->AddLocation(kept), LSR_OK);
        m_registry.Put(StoredSet());
        loaded = false;
        threw = true;
        g_printed.clear();
        service->SetErrorPrinter(&Print);
      },
      [&] {
        EXPECT_FALSE(threw);
        EXPECT_EQ(StoredIds(*service), loaded ? (Ids{kFirst, kSecond}) : Ids{kept->GetId()});
        EXPECT_EQ(service->GetLocations()->GetItem(0)->GetCriterias()->GetCount(), loaded ? 16u : 1u);
        EXPECT_EQ(m_registry.Value(), StoredSet());
        if (!loaded) ++refused;
        if (!g_printed.empty()) {
          EXPECT_FALSE(loaded);
        }
      });
  EXPECT_TRUE(loaded);
  EXPECT_GT(refused, 25u);
}

TEST_F(FailureInjection, FailedLoadTellsThePrinterAndStillCalculates) {
  m_registry.Put(StoredSet());
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  service->SetErrorPrinter(&Print);
  // The key's path, the buffer for the value's bytes, the parser's memory and the first texts.
  for (std::size_t n = 0; n < 20; ++n) {
    HeapWatch heap(Module());
    m_adapters.ClearCalls();
    g_printed.clear();
    heap.FailAt(n);
    EXPECT_FALSE(service->Load()) << n;
    EXPECT_TRUE(heap.StopFailing());
    EXPECT_EQ(g_printed, Lines{"UCD DeserializeFromBytes failed for %s|class CQeLaLib"}) << n;
    EXPECT_EQ(m_adapters.CallCount(), 1u) << n;
    EXPECT_EQ(CurrentIds(*service), Ids{kSecond}) << n;
  }
}

// A system that cannot convert texts says nothing about the texts.
TEST_F(FailureInjection, LoadWhoseTextsCannotBeConvertedLeavesTheSetAlone) {
  m_registry.Put(StoredSet());
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  const std::shared_ptr<_IQeLocation> kept = NewLocation(*service, L"kept", L"10.0.0.1");
  service->SetErrorPrinter(&Print);
  FailingConversion conversion(Module());
  for (const DWORD error : {DWORD{ERROR_NOT_ENOUGH_MEMORY}, DWORD{ERROR_SUCCESS}, DWORD{ERROR_INVALID_PARAMETER},
                            DWORD{ERROR_BUFFER_OVERFLOW}}) {
    for (std::size_t n = 0;; ++n) {
      service->RemoveAllLocations();
      EXPECT_EQ(service->AddLocation(kept), LSR_OK);
      m_adapters.ClearCalls();
      g_printed.clear();
      conversion.FailAt(n, error);
      const bool loaded = service->Load();
      const bool failed = conversion.StopFailing();
      EXPECT_EQ(loaded, !failed);
      EXPECT_EQ(g_printed.size(), failed ? 1u : 0u);
      EXPECT_EQ(StoredIds(*service), failed ? Ids{L"kept"} : (Ids{kFirst, kSecond}));
      EXPECT_EQ(m_adapters.CallCount(), 1u);
      if (!failed || HasFailure()) break;
    }
  }
}

TEST_F(FailureInjection, LoadOfATextThatIsBadKeepsWhatWasConvertedBefore) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  service->SetErrorPrinter(&Print);
  constexpr std::size_t kTexts = 2 * (8 + 3);
  for (std::size_t bad = 0; bad < kTexts; ++bad) {
    SCOPED_TRACE(bad);
    std::vector<LocationBlob> set{{.id = "A", .note = "a"}, {.id = "B", .note = "b"}};
    std::vector<std::string*> texts;  // in the order of the bytes
    for (LocationBlob& location : set) {
      for (std::vector<std::string>& list : location.texts) texts.push_back(&list.emplace_back("10.0.0.1"));
      for (std::string* text : {&location.id, &location.name, &location.note}) texts.push_back(text);
    }
    ASSERT_EQ(texts.size(), kTexts);
    *texts[bad] = "\xff";
    m_registry.Put(PackedSet(set));
    service->RemoveAllLocations();
    g_printed.clear();
    EXPECT_FALSE(service->Load());
    EXPECT_EQ(g_printed.size(), 1u);
    const std::shared_ptr<_IEnumQeLocations> locations = service->GetLocations();
    ASSERT_EQ(locations->GetCount(), 2u) << "the list is resized first";
    // The criteria come first, then ID, name and note; what is behind the bad text is that of a new location.
    EXPECT_EQ(locations->GetItem(0)->GetId() == L"A", bad > 8);
    EXPECT_EQ(locations->GetItem(0)->GetNote() == L"a", bad > 10);
    EXPECT_EQ(locations->GetItem(1)->GetCriterias()->GetCount(), bad <= 10 ? 0u : std::min<std::size_t>(bad - 10, 8));
    EXPECT_EQ(locations->GetItem(1)->GetId() == L"B", bad > 19);
    EXPECT_EQ(locations->GetItem(1)->GetId().empty(), false);
  }
}

TEST_F(FailureInjection, ConstructionInGetQeLaApiIsTriedAgainByTheNextCall) {
  m_registry.Put(StoredSet());
  HeapWatch heap(Module());
  const ImportPatch initialize(Module(), "InitializeCriticalSection", &CountInitialize);
  const ImportPatch remove(Module(), "DeleteCriticalSection", &CountDelete);
  g_initialize = initialize.Original<void WINAPI(CRITICAL_SECTION*)>();
  g_delete = remove.Original<void WINAPI(CRITICAL_SECTION*)>();
  g_initialised = g_deleted = 0;
  const HandleWatch ledger(Module());
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
  const HandleWatch ledger(Module());
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

// The library is loaded anew for every failure, since an instance is made once a load.
class FirstCall : public ::testing::TestWithParam<bool> {
 protected:
  struct World {
    ServiceLibrary library;
    StoredRegistry registry{library.Module()};
    FakeAdapters adapters{library.Module(), ServiceTestNetwork()};
    LogRecorder log;
  };
  static AdapterList ServiceTestNetwork() {
    AdapterList list;
    list.Add(L"Office").Index(5).Gateway("10.0.0.1").DnsSuffix(L"corp.example").Ip("10.0.0.7");
    return list;
  }
  static LocationBlob First() {
    LocationBlob blob{.id = "the first location's identifier" + kUmlaut,
                      .name = std::string(700, 'n') + kUmlaut,
                      .adapterIndexes = {1, 2}};
    for (std::vector<std::string>& list : blob.texts) list = {std::string(100, 'x') + kUmlaut, kUmlaut};
    blob.texts[LCT_DNS_SUFFIX].emplace_back("[a-c]*orp.example");  // an expression, for which the runtime takes memory
    return blob;
  }
  static LocationBlob Second() {
    LocationBlob blob{.id = "the second location's identifier",
                      .name = "Name" + kUmlaut,
                      .note = "a note that needs memory of its own" + kUmlaut};
    blob.texts[LCT_DEFAULT_GATEWAY] = {"10.0.0.1"};
    return blob;
  }
  // In nearly every text, so that it takes the system to convert it.
  static inline const std::string kUmlaut = "\xc3\xbc";
  static bool IsRaw() { return GetParam(); }

  // Calls the export for the first time. Null when it threw std::bad_alloc.
  static _IQeLaApiSmart* Call(const ServiceLibrary& library) {
    try {
      if (IsRaw()) return library.Api();
      return library.SmartApi().get();
    } catch (const std::bad_alloc&) {
      return nullptr;
    }
  }

  // The library never frees the one of GetQeLaApi; the other goes with it.
  static void Release(const ServiceLibrary& library) {
    if (!IsRaw()) return;
    EXPECT_EQ(library.Api()->Release(), 0u);
  }

  static void ExpectWholeSet(_IQeLaApiSmart& service) {
    const std::shared_ptr<_IEnumQeLocations> locations = service.GetLocations();
    ASSERT_EQ(locations->GetCount(), 2u);
    Bytes bytes;
    EXPECT_TRUE(locations->GetItem(0)->SerializeToBytes(bytes));
    EXPECT_EQ(bytes, First().Pack());
    // The second is current where the snapshot succeeded, and then knows its adapter.
    LocationBlob second = Second();
    if (service.GetCurrentLocations()->GetCount() > 0) second.adapterIndexes = {5};
    EXPECT_TRUE(locations->GetItem(1)->SerializeToBytes(bytes));
    EXPECT_EQ(bytes, second.Pack());
  }

  // Lets one call after the other fail: `arm(n)` before the export is called, `disarm()`, which tells whether it came
  // to that, after it. Returns how often the export threw.
  template <typename Make>
  static std::size_t FailInTurn(Make makeFailure) {
    constexpr std::size_t kEnough = 5000;
    const Bytes stored = PackedSet({First(), Second()});
    std::size_t thrown = 0;
    for (std::size_t n = 0; n < kEnough; ++n) {
      SCOPED_TRACE(n);
      World world;
      world.registry.Put(stored);
      bool failed = false;
      _IQeLaApiSmart* service = nullptr;
      {
        const auto failure = makeFailure(world.library.Module());
        failure->FailAt(n);
        service = Call(world.library);
        failed = failure->StopFailing();
      }
      EXPECT_EQ(world.registry.Value(), stored);
      if (service == nullptr) {
        EXPECT_TRUE(failed);
        ++thrown;
        service = Call(world.library);
      }
      if (service == nullptr) {
        ADD_FAILURE() << "the next call fails as well";
        return thrown;
      }
      ExpectWholeSet(*service);
      // What the next edit stores has the old locations in it.
      service->AddLocation(service->CreateLocation());
      EXPECT_EQ(service->GetLocations()->GetCount(), 3u);
      EXPECT_TRUE(service->Save());
      service->Load();
      EXPECT_EQ(service->GetLocations()->GetCount(), 3u);
      Release(world.library);
      if (!failed || HasFailure()) return thrown;
    }
    ADD_FAILURE() << "failing does not end";
    return thrown;
  }
};

TEST_P(FirstCall, WithoutMemoryThrowsOrHasTheWholeStoredSet) {
  EXPECT_GT(FailInTurn([](HMODULE module) { return std::make_unique<HeapWatch>(module); }), 25u);
}

struct ConversionWithError : FailingConversion {
  ConversionWithError(HMODULE module, DWORD conversionError) : FailingConversion(module), error(conversionError) {}
  void FailAt(std::size_t n) { FailingConversion::FailAt(n, error); }
  DWORD error;
};

TEST_P(FirstCall, WhoseTextsCannotBeConvertedThrows) {
  // Two calls for each of the 20 texts that are neither empty nor ASCII.
  for (const DWORD error :
       {DWORD{ERROR_NOT_ENOUGH_MEMORY}, DWORD{ERROR_SUCCESS}, DWORD{ERROR_INVALID_PARAMETER}, DWORD{111}})
    EXPECT_EQ(FailInTurn([&](HMODULE module) { return std::make_unique<ConversionWithError>(module, error); }), 40u)
        << error;
}

// Bad bytes are no reason to refuse: what could be read is there.
TEST_P(FirstCall, WithATextThatIsBadKeepsWhatWasConvertedBefore) {
  World world;
  LocationBlob second = Second();
  second.note = "\xff";
  world.registry.Put(PackedSet({First(), second}));
  _IQeLaApiSmart* const service = Call(world.library);
  ASSERT_NE(service, nullptr);
  const std::shared_ptr<_IEnumQeLocations> locations = service->GetLocations();
  ASSERT_EQ(locations->GetCount(), 2u);
  EXPECT_EQ(locations->GetItem(1)->GetId(), L"the second location's identifier");
  EXPECT_EQ(locations->GetItem(1)->GetNote(), L"");
  Release(world.library);
}

INSTANTIATE_TEST_SUITE_P(Exports, FirstCall, ::testing::Bool(),
                         [](const auto& raw) { return raw.param ? "GetQeLaApi" : "GetQeLaApiSmart"; });

// ---- memory that is gone for good ----

// Every load brings a runtime that has never thrown, and every thread here is one that has never thrown.
class GoneForGood : public FirstCall {
 protected:
  // `prepare(world)` runs with memory as usual and returns the operation; that runs on a thread of its own, whose
  // allocations fail from number n on, for every n. Nothing but std::bad_alloc leaves it, and it can be repeated.
  template <typename Prepare>
  static void FailFromEveryPlaceOn(Prepare prepare) {
    constexpr std::size_t kEnough = 5000;
    bool failed = true;
    std::size_t n = 0;
    for (; failed; ++n) {
      SCOPED_TRACE(n);
      ASSERT_LT(n, kEnough);
      World world;
      world.registry.Put(PackedSet({First(), Second()}));
      std::function<void()> operation = prepare(world);
      {
        HeapWatch heap(world.library.Module());
        bool returned = false;
        OtherThread([&] {
          heap.FailAt(n, HeapWatch::Failing::kFromThenOn);
          try {
            operation();
          } catch (const std::bad_alloc&) {
          }
          failed = heap.StopFailing();
          returned = true;
        }).Join();
        // A throw that ends in an overflow of the stack may take the thread alone.
        ASSERT_TRUE(returned);
      }
      operation();
      operation = nullptr;  // it may hold what the library made
      Release(world.library);
      ASSERT_FALSE(HasFailure());
    }
    EXPECT_GT(n, 10u);
  }
};

TEST_P(GoneForGood, FirstCallThrowsAndTheProcessLivesOn) {
  FailFromEveryPlaceOn([](World& world) {
    return [&world] {
      if (IsRaw())
        world.library.Api();
      else
        world.library.SmartApi();
    };
  });
}

TEST_P(GoneForGood, SaveThrowsOrFailsAndTheProcessLivesOn) {
  FailFromEveryPlaceOn([](World& world) {
    _IQeLaApiSmart* const service = Call(world.library);
    return [service] { service->Save(); };
  });
}

// What these throw ends inside.
TEST_P(GoneForGood, LoadFailsAndTheProcessLivesOn) {
  FailFromEveryPlaceOn([](World& world) {
    _IQeLaApiSmart* const service = Call(world.library);
    return [service] { service->Load(); };
  });
}

TEST_P(GoneForGood, ReadingALocationFailsAndTheProcessLivesOn) {
  FailFromEveryPlaceOn([](World& world) {
    const std::shared_ptr<_IQeLocation> location = Call(world.library)->CreateLocation();
    return [location, bytes = First().Pack()] { location->DeserializeFromBytes(bytes); };
  });
}

INSTANTIATE_TEST_SUITE_P(Exports, GoneForGood, ::testing::Bool(),
                         [](const auto& raw) { return raw.param ? "GetQeLaApi" : "GetQeLaApiSmart"; });

// What each thread has of the library's image: the initialised part of it.
std::vector<std::byte> ThreadsCopyOf(HMODULE module) {
  const auto* base = reinterpret_cast<const std::byte*>(module);
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& entry = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_TLS];
  const auto* directory = reinterpret_cast<const IMAGE_TLS_DIRECTORY64*>(base + entry.VirtualAddress);
  const auto* copies = reinterpret_cast<const std::byte* const*>(__readgsqword(0x58));  // in every thread's block
  const std::byte* copy = copies[*reinterpret_cast<const ULONG*>(directory->AddressOfIndex)];
  return {copy, copy + (directory->EndAddressOfRawData - directory->StartAddressOfRawData)};
}

HMODULE g_module;
std::vector<std::byte> g_threadsCopy;
void KeepThreadsCopy(const char*, ...) { g_threadsCopy = ThreadsCopyOf(g_module); }

// What the runtime notes of an exception may lie nowhere else: in front of a thread's copy is what belongs to others.
TEST_F(FailureInjection, ExceptionsAreNotedInTheThreadsCopyOfTheImage) {
  g_module = Module();
  m_registry.Put({0xc1});
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  service->SetErrorPrinter(&KeepThreadsCopy);
  const std::vector<std::byte> before = ThreadsCopyOf(g_module);
  EXPECT_FALSE(service->Load());
  service->SetErrorPrinter(nullptr);
  EXPECT_NE(g_threadsCopy, before) << "the printer is called where the exception is caught";
  EXPECT_EQ(ThreadsCopyOf(g_module), before);
}

// The discovery thread, each time a new one, whose memory is gone from one place of its pass to the end of the pass.
class ThreadWithoutMemoryForGood : public DiscoveryTest {
 protected:
  ThreadWithoutMemoryForGood() {
    s_heap = &m_heap;
    s_wait = m_wait.Original<DWORD WINAPI(DWORD, const HANDLE*, BOOL, DWORD)>();
  }

  // The host has memory, and so have the fakes of the next pass.
  static void Callback(std::shared_ptr<_IEnumQeLocations> locations) {
    s_heap->StopFailing();
    HostCallback::First(std::move(locations));
  }
  static DWORD WINAPI Wait(DWORD count, const HANDLE* handles, BOOL all, DWORD ms) {
    s_failed = s_heap->StopFailing() || s_failed;
    return s_wait(count, handles, all, ms);
  }

  static inline HeapWatch* s_heap;
  static inline std::atomic<bool> s_failed;
  static inline DWORD(WINAPI* s_wait)(DWORD, const HANDLE*, BOOL, DWORD);
  HeapWatch m_heap{Module()};
  ImportPatch m_wait{Module(), "WaitForMultipleObjects", &Wait};
};

TEST_F(ThreadWithoutMemoryForGood, LosesAtMostThePassAndNeverEndsTheProcess) {
  const Ids office{L"a location whose identifier is too long for a string without memory"};
  Store(office[0].c_str(), kOfficeGateway);
  std::size_t rounds = 0;
  do {
    SCOPED_TRACE(++rounds);
    ASSERT_LT(rounds, 2000u);
    s_failed = false;
    StartDiscovery(&Callback);
    m_adapters.OnCall([&] {
      m_heap.FailAt(rounds - 1, HeapWatch::Failing::kFromThenOn);
      m_adapters.OnCall(nullptr);
    });
    Join({kOffice});
    FireAddressChange();
    FireAddressChange();
    ExpectCallbackWith(office);
    Join({});
    FireAddressChange();
    ExpectCallbackWith({});
    ExpectNoCallback();
    EXPECT_TRUE(Service().StopDiscovery());
    ASSERT_FALSE(HasFailure());
  } while (s_failed);
  EXPECT_GT(rounds, 10u);
}

}  // namespace

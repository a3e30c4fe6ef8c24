// Every function that the library imports fails, at its calls: the host gets an answer that the operation's contract
// names, nothing is left behind, and the next call works.
//
// Of the calls of each import only two fail here, so that it takes seconds; ./dev torture takes all.
#include <winsock2.h>
#include <windows.h>

#include <BLFrameworkHost.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windns.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <set>
#include <source_location>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "FwClient/Service/QeLaLib/HostComState.h"
#include "ScriptedWindows/Complaint.h"
#include "ScriptedWindows/ImportTable/HandleWatch.h"
#include "ScriptedWindows/ImportTable/ImportFaults.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"
#include "ScriptedWindows/ImportTable/PlainLock.h"
#include "ScriptedWindows/ImportTable/ThreadWatch.h"
#include "ScriptedWindows/Windows/AdapterList.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/FakeAddressChanges.h"
#include "ScriptedWindows/Windows/FakeAddressTable.h"
#include "ScriptedWindows/Windows/FakeCertificates.h"
#include "ScriptedWindows/Windows/FakeHttps.h"
#include "ScriptedWindows/Windows/FakeInteractiveUser.h"
#include "ScriptedWindows/Windows/FakeProcesses.h"
#include "ScriptedWindows/Windows/FakeSystem.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "ScriptedWindows/Windows/WaitWatch.h"
#include "ScriptedWindows/Windows/WindowsScript.h"
#include "Tests/Support/FailEveryImport.h"
#include "Tests/Support/ImportFailures.h"
#include "Tests/Support/LoadNotice.h"
#include "Tests/Support/LocationBlob.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/ModuleCopy.h"
#include "Tests/Support/OtherThread.h"
#include "Tests/Support/ProcessCounts.h"
#include "Tests/Support/ServiceLibrary.h"
#include "Tests/Support/StoredSet.h"
#include "Tests/Support/TestFile.h"

namespace {

using ::testing::AnyOf;
using ::testing::Eq;
using ::testing::IsEmpty;
using Ids = std::vector<std::wstring>;

constexpr std::uint32_t kMostCalls = 2;
// What is waited for a short time is not tried without rest.
constexpr DWORD kLongestWaitMs = 5;

// What the thread that made it has let the library wait, in bounded waits.
class OrderedWaits : public OnlyOne<OrderedWaits> {
 public:
  explicit OrderedWaits(HMODULE module)
      : m_wait(module, "WaitForSingleObject", &Wait), m_sleep(module, "Sleep", &Rest) {}

  ULONGLONG Ms() const { return m_ms; }

 private:
  static DWORD WINAPI Wait(HANDLE handle, DWORD ms) {
    Note(ms);
    return Current().m_wait.Original<decltype(Wait)>()(handle, ms);
  }
  static void WINAPI Rest(DWORD ms) {
    Note(ms);
    Current().m_sleep.Original<decltype(Rest)>()(ms);
  }
  static void Note(DWORD ms) {
    if (ms != INFINITE && ::GetCurrentThreadId() == Current().m_thread) Current().m_ms += ms;
  }

  const DWORD m_thread = ::GetCurrentThreadId();
  std::atomic<ULONGLONG> m_ms = 0;
  ImportPatch m_wait;
  ImportPatch m_sleep;
};

// What a host is told in a run. Only a failure explains another answer than the expected one, and std::bad_alloc;
// nothing explains another exception, or that an operation takes longer than the waits that it orders.
class Judge {
 public:
  using Place = std::source_location;

  explicit Judge(const Attempt& attempt) : m_attempt(attempt) {}

  // What the operation answers, or nothing where it ends with std::bad_alloc.
  template <typename Operation>
  auto Ask(Operation operation, Place place = Place::current()) const -> std::optional<decltype(operation())> {
    const Limit limit(place);
    try {
      return operation();
    } catch (const std::bad_alloc&) {
      if (!m_attempt.Fails()) Complain("std::bad_alloc though nothing fails", place);
    } catch (...) {
      Complain("another exception than std::bad_alloc", place);
    }
    return std::nullopt;
  }
  // What it hands out, or null.
  template <typename Operation>
  auto Gives(Operation operation, Place place = Place::current()) const -> decltype(operation()) {
    return Ask(operation, place).value_or(nullptr);
  }
  // Whether it came to its end.
  template <typename Operation>
  bool Does(Operation operation, Place place = Place::current()) const {
    return Ask([&] { return operation(), true; }, place).has_value();
  }
  // Whether it answered what is expected, and otherwise one of the refusals.
  template <typename Answer, typename Operation>
  bool Answers(const Answer& expected, Operation operation,
               std::type_identity_t<std::initializer_list<Answer>> refusals = {},
               Place place = Place::current()) const {
    const auto answer = Ask([&] { return Answer(operation()); }, place);
    if (!answer || *answer == expected) return answer.has_value();
    if (!m_attempt.Fails() || std::find(refusals.begin(), refusals.end(), *answer) == refusals.end())
      Complain("an answer that the contract does not name: " + ::testing::PrintToString(*answer), place);
    return false;
  }

 private:
  class Limit {
   public:
    explicit Limit(const Place& place) : m_place(place) {}
    ~Limit() {
      constexpr ULONGLONG kBusyMachineMs = 5000;
      const ULONGLONG ordered = OrderedWaits::Current().Ms() - m_ordered;
      const ULONGLONG took = ::GetTickCount64() - m_start;
      if (took > ordered + kBusyMachineMs)
        Complain(std::to_string(took) + " ms, of which " + std::to_string(ordered) + " are ordered", m_place);
    }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;

   private:
    const Place m_place;
    const ULONGLONG m_start = ::GetTickCount64();
    const ULONGLONG m_ordered = OrderedWaits::Current().Ms();
  };

  static void Complain(const std::string& what, const Place& place) {
    ADD_FAILURE_AT(place.file_name(), static_cast<int>(place.line())) << what;
  }

  const Attempt& m_attempt;
};

// The memory that the library has taken and nobody has given back: what it hands out, the program frees.
class LibraryBlocks : public OnlyOne<LibraryBlocks> {
 public:
  explicit LibraryBlocks(HMODULE module)
      : m_malloc(module, "malloc", &Malloc),
        m_calloc(module, "calloc", &Calloc),
        m_realloc(module, "realloc", &Realloc),
        m_free(module, "free", &Free),
        m_programsFree(ThisProgram(), "free", &Free) {}

  std::size_t Count() {
    const std::lock_guard lock(m_lock);
    return m_count;
  }

 private:
  static constexpr std::size_t kPlaces = 1 << 14;

  static void* Malloc(std::size_t bytes) { return Taken(Current().m_malloc.Original<decltype(Malloc)>()(bytes)); }
  static void* Calloc(std::size_t count, std::size_t bytes) {
    return Taken(Current().m_calloc.Original<decltype(Calloc)>()(count, bytes));
  }
  static void* Realloc(void* block, std::size_t bytes) {
    const std::lock_guard lock(Current().m_lock);
    const bool known = Current().Forget(block);
    void* const moved = Current().m_realloc.Original<decltype(Realloc)>()(block, bytes);
    if (moved == nullptr) return known ? Taken(block), nullptr : nullptr;
    return Taken(moved);
  }
  static void Free(void* block) {
    const std::lock_guard lock(Current().m_lock);
    Current().Forget(block);
    Current().m_free.Original<decltype(Free)>()(block);
  }
  static void* Taken(void* block) {
    LibraryBlocks& self = Current();
    const std::lock_guard lock(self.m_lock);
    if (block == nullptr) return block;
    Require(self.m_count < kPlaces / 2, "more blocks than there are places for");
    std::size_t place = FirstPlace(block);
    while (self.m_blocks[place] != nullptr) place = (place + 1) % kPlaces;
    self.m_blocks[place] = block;
    ++self.m_count;
    return block;
  }
  // Without memory of its own. What stands behind moves up, so that it is found.
  bool Forget(const void* block) {
    if (block == nullptr) return false;
    std::size_t place = FirstPlace(block);
    while (m_blocks[place] != block) {
      if (m_blocks[place] == nullptr) return false;
      place = (place + 1) % kPlaces;
    }
    m_blocks[place] = nullptr;
    --m_count;
    for (std::size_t next = (place + 1) % kPlaces; m_blocks[next] != nullptr; next = (next + 1) % kPlaces) {
      const std::size_t wanted = FirstPlace(m_blocks[next]);
      if ((next + kPlaces - wanted) % kPlaces < (next + kPlaces - place) % kPlaces) continue;
      m_blocks[place] = std::exchange(m_blocks[next], nullptr);
      place = next;
    }
    return true;
  }
  static std::size_t FirstPlace(const void* block) {
    return (reinterpret_cast<std::uintptr_t>(block) >> 4) * 0x9E3779B97F4A7C15 >> 50;
  }

  PlainLock m_lock;
  std::array<const void*, kPlaces> m_blocks{};
  std::size_t m_count = 0;
  ImportPatch m_malloc;
  ImportPatch m_calloc;
  ImportPatch m_realloc;
  ImportPatch m_free;
  ImportPatch m_programsFree;
};

// The record through which a host and the library share COM; the library finds it by an export of the program.
class HostOfCom : public OnlyOne<HostOfCom> {
 public:
  explicit HostOfCom(HMODULE module) : m_find(module, "GetProcAddress", &Find) {
    ::InitializeCriticalSection(&record.lock);
  }
  ~HostOfCom() { ::DeleteCriticalSection(&record.lock); }

  HostComState record{};

 private:
  static FARPROC WINAPI Find(HMODULE module, const char* name) {
    if (!IS_INTRESOURCE(name) && std::string_view(name) == "CisbMs")
      return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(+[] { return &Current().record; }));
    return Current().m_find.Original<decltype(Find)>()(module, name);
  }

  ImportPatch m_find;
};

// The starts of COM that fail, for whatever reason: the host hears of no end of these.
class FailedComStarts : public OnlyOne<FailedComStarts> {
 public:
  explicit FailedComStarts(HMODULE module) : m_start(module, "CoInitializeEx", &Start) {}

  std::uint32_t Count() const { return m_count; }

 private:
  static HRESULT WINAPI Start(void* reserved, DWORD model) {
    const HRESULT result = Current().m_start.Original<decltype(Start)>()(reserved, model);
    if (FAILED(result)) ++Current().m_count;
    return result;
  }

  std::atomic<std::uint32_t> m_count = 0;
  ImportPatch m_start;
};

constexpr char kOffice[] = "the identifier of the office";
constexpr char kHome[] = "the identifier of a home";
const std::wstring kOfficeId = L"the identifier of the office";
const std::wstring kHomeId = L"the identifier of a home";
constexpr std::uint32_t kIndex = 5;
constexpr std::size_t kUuidLength = 36;

constexpr wchar_t kSiteKey[] = L"SOFTWARE\\Site";
constexpr wchar_t kAgentKey[] = L"SOFTWARE\\Quillon\\Mervo\\Shared Components\\Framework";
constexpr wchar_t kShellKey[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon";

// Knows the second of the management servers.
DNS_STATUS WINAPI QueryDns(const wchar_t* name, WORD, DWORD, void*, PDNS_RECORD* records, void**) {
  *records = nullptr;
  if (std::wstring_view(name) != L"srv2.example") return DNS_ERROR_RCODE_NAME_ERROR;
  *records = static_cast<PDNS_RECORD>(WindowsScript::Current().Open("DNS records", "DnsFree"));
  return 0;
}
void WINAPI FreeDns(void* records, DNS_FREE_TYPE) { WindowsScript::Current().Close("DnsFree", records); }

// As the tests store them. The adapters of the first are those that it matches, so that a calculation that fails
// changes no byte of it.
LocationBlob Office() {
  LocationBlob blob{.id = kOffice, .name = "an office in M\xc3\xbcnchen", .adapterIndexes = {kIndex}};
  blob.texts[LCT_DEFAULT_GATEWAY] = {"10.0.0.1"};
  return blob;
}
LocationBlob Home() {
  LocationBlob blob{.id = kHome, .name = "a home with a long name", .note = "a note that is long as well"};
  blob.texts[LCT_DEFAULT_GATEWAY] = {"192.168.0.1"};
  return blob;
}
// The text of `blob`, as a location of the library's.
bool Fill(const Judge& judge, _IQeLocation& location, const LocationBlob& blob) {
  const auto wide = [](const std::string& text) { return std::wstring(text.begin(), text.end()); };
  const LOCATION_CRITERIA_TYPE kind = LCT_DEFAULT_GATEWAY;
  return judge.Does([&] { location.SetId(wide(blob.id)); }) && judge.Does([&] { location.SetName(wide(blob.name)); }) &&
         judge.Does([&] { location.SetNote(wide(blob.note)); }) && judge.Answers(std::uint32_t{LCR_OK}, [&] {
           return location.AddCriteria(&kind, wide(blob.texts[LCT_DEFAULT_GATEWAY][0]));
         });
}

// The library as a process has it that has just loaded it, on a machine that is scripted.
class Stage {
 public:
  Stage() {
    Join("10.0.0.1");
    waits.CutBoundedWaitsShort(kLongestWaitMs);
    registry.Put(PackedSet({Office()}));
    registry.SetText(kSiteKey, L"Name", L"Office");
    registry.SetText(kAgentKey, L"ZeltServerList", L"srv1.example|10.0.0.1|443;srv2.example|10.0.0.2|443");
    registry.SetText(kShellKey, L"Shell", L"explorer.exe");
    user.configUrl = L"http://proxy.example/user.pac";
    user.proxyList = L"https=proxy.example:8080";
    processes.list = {{L"[System Process]", 0}, {L"explorer.exe", 4711}};
    BLFrameworkHost::setProxyCredentials(L"a user with a long name", L"a password that is not short");
  }
  ~Stage() { Close(); }
  Stage(const Stage&) = delete;
  Stage& operator=(const Stage&) = delete;

  // A network with that gateway.
  void Join(const char* gateway) {
    AdapterList list;
    list.Add(L"an adapter with a long description")
        .Index(kIndex)
        .Ip("10.0.0.7")
        .Ip("fe80::1")
        .Gateway(gateway)
        .DnsServer("10.0.0.2")
        .DnsSuffix(L"corp.example")
        .Dhcp("10.0.0.3")
        .Wins("10.0.0.4")
        .Wins("10.0.0.5")
        .Mac({1, 2, 3, 4, 5, 6});
    adapters.Set(list);
  }
  void Move(const char* gateway) {
    Join(gateway);
    table.Change();
    changes.Fire();
  }

  // The two instances, made at the first call. Null where that failed.
  _IQeLaApiSmart* Smart(const Judge& judge) {
    if (m_smart == nullptr) m_smart = judge.Gives([&] { return m_library.SmartApi(); });
    return m_smart.get();
  }
  _IQeLaApiSmart* Raw(const Judge& judge) {
    if (m_raw == nullptr) m_raw = judge.Gives([&] { return m_library.Api(); });
    return m_raw;
  }

  // What a host does before it unloads the library.
  void Close() {
    BLFrameworkHost::reset();
    m_smart.reset();
    if (_IQeLaApi* const raw = std::exchange(m_raw, nullptr); raw != nullptr) {
      EXPECT_EQ(raw->Release(), 0u);
    }
    ExpectNothingOpen();
  }

  // One certificate is found in each run; the store counts them all.
  void ForgetCertificates() { certificates.matching = windows.Count("CertDuplicateCertificateContext") + 1; }

  void ExpectNothingOpen() const {
    EXPECT_THAT(windows.OpenHandles(), IsEmpty());
    EXPECT_EQ(registry.OpenKeys(), 0u);
    std::vector<std::string> leaks = handles.Leaks();
    std::erase_if(leaks, [](const std::string& leak) {
      return leak.starts_with("CreateEventW x") || leak.starts_with("CreateThread x");
    });
    EXPECT_THAT(leaks, IsEmpty());
    // Two events and the thread's handle are kept by order, of each start of discovery.
    EXPECT_LE(handles.Open("CreateEventW"), 2 * starts);
    EXPECT_EQ(handles.Open("CreateThread"), threads.Count());
    EXPECT_THAT(handles.Mistakes(), IsEmpty());
    const BLFrameworkHost::InUse framework = BLFrameworkHost::inUse();
    EXPECT_EQ(framework.initializations + framework.objectHandles + framework.blocks, 0u);
    if (host.record.initCount != 0) {
      EXPECT_EQ(host.record.initCount, host.record.uninitCount + failedComStarts.Count()) << "starts and ends of COM";
    }
    OtherThread([this] { ExpectFree(host.record.lock); }).Join();
  }

 private:
  static void ExpectFree(CRITICAL_SECTION& lock) {
    if (::TryEnterCriticalSection(&lock))
      ::LeaveCriticalSection(&lock);
    else
      ADD_FAILURE() << "the lock of the host's record is kept";
  }

  ServiceLibrary m_library;
  std::shared_ptr<_IQeLaApiSmart> m_smart;
  _IQeLaApi* m_raw = nullptr;

 public:
  HandleWatch handles{m_library.Module()};
  WindowsScript windows{m_library.Module()};
  StoredRegistry registry{windows};
  FakeAdapters adapters{m_library.Module()};
  FakeSystem system{windows};
  mutable HostOfCom host{m_library.Module()};
  FakeProcesses processes{windows};
  FakeInteractiveUser user{windows};
  FakeCertificates certificates{windows};
  FakeHttps https{windows};
  FakeAddressTable table{m_library.Module()};
  FakeAddressChanges changes{m_library.Module()};
  WaitWatch waits{m_library.Module()};
  ThreadWatch threads{m_library.Module()};
  std::size_t starts = 0;
  ImportPatch dns{m_library.Module(), "DnsQuery_W", &QueryDns};
  ImportPatch dnsFree{m_library.Module(), "DnsFree", &FreeDns};
  LibraryBlocks blocks{m_library.Module()};
  OrderedWaits orderedWaits{m_library.Module()};
  ImportFaults faults{m_library.Module()};
  FailedComStarts failedComStarts{m_library.Module()};
};

class LibraryEveryImport : public testing::Test {
 protected:
  // Runs the scene on stages of its own, and looks at what is left of each.
  void FailAll(const std::function<void(Attempt&, Stage&)>& scene) {
    Stage* current = nullptr;
    std::optional<std::size_t> level;
    const auto withStage = [&](const std::function<void(ImportFaults&)>& use) {
      Stage stage;
      current = &stage;
      ExpectKnownImports(stage.faults);
      use(stage.faults);
      const std::size_t blocks = stage.blocks.Count();
      if (!level) level = blocks;
      EXPECT_EQ(blocks, *level) << "blocks on the heap";
    };
    FailEveryImport(withStage, kMostCalls, [&](Attempt& attempt) {
      scene(attempt, *current);
      attempt.EndFailures();
      ExpectAllAtRest(*current);
    });
  }

  // Locks are free, the thread is itself, and nothing is open; the stored set is read again, so that the next run finds
  // what this one did.
  static void ExpectAllAtRest(Stage& stage) {
    const Attempt clean;
    const Judge judge(clean);
    stage.user.LetGo();
    for (_IQeLaApiSmart* const service : {stage.Smart(judge), stage.Raw(judge)}) {
      OtherThread([&] { service->Lock(), service->Unlock(); }).Join();
      stage.registry.Put(PackedSet({Office()}));
      EXPECT_TRUE(service->Load());
      EXPECT_EQ(service->GetCurrentLocations()->GetCount(), 1u);
    }
    EXPECT_FALSE(stage.user.impersonating);
    stage.ExpectNothingOpen();
  }

  LogRecorder m_log;
};

// ---- the set: from the first call over edits to the store ----

void ExpectStored(Stage& stage, const std::vector<LocationBlob>& before, const std::vector<LocationBlob>& after) {
  EXPECT_THAT(stage.registry.Value(), AnyOf(Eq(PackedSet(before)), Eq(PackedSet(after))));
}

// As long as nothing is refused.
bool Edit(const Judge& judge, Stage& stage, _IQeLaApiSmart& service, bool savesItself) {
  constexpr std::uint32_t kOk = LSR_OK;
  if (!judge.Answers(true, [&] { return service.Load(); }, {false})) return false;
  const auto location = judge.Gives([&] { return service.CreateLocation(); });
  if (location == nullptr || !Fill(judge, *location, Home())) return false;

  std::vector<LocationBlob> before{Office()};
  const auto save = [&](const std::vector<LocationBlob>& after) {
    if (savesItself) ExpectStored(stage, before, after);
    const std::size_t flushed = stage.registry.Count("RegFlushKey");
    const bool saved = judge.Answers(true, [&] { return service.Save(); }, {false});
    if (saved) {
      EXPECT_EQ(stage.registry.Value(), PackedSet(after));
      EXPECT_EQ(stage.registry.Count("RegFlushKey"), flushed + 1) << "saved, and not flushed";
    } else {
      ExpectStored(stage, before, after);
    }
    before = after;
    return saved;
  };
  if (!judge.Answers(kOk, [&] { return service.AddLocation(location); }, {LSR_FAILED})) return false;
  if (!save({Office(), Home()})) return false;
  LocationBlob changed = Home();
  changed.name = "a home with another name";
  if (!judge.Does([&] { location->SetName(L"a home with another name"); })) return false;
  if (!judge.Answers(kOk, [&] { return service.UpdateLocation(location); }, {LSR_FAILED})) return false;
  if (!save({Office(), changed})) return false;
  if (!judge.Answers(kOk, [&] { return service.RemoveLocation(kHomeId); })) return false;
  if (!save({Office()})) return false;
  stage.registry.Remove();  // which Save makes again
  if (judge.Answers(true, [&] { return service.Save(); }, {false})) {
    EXPECT_EQ(stage.registry.Value(), PackedSet({Office()}));
  } else {
    EXPECT_THAT(stage.registry.Value(), AnyOf(Eq(std::nullopt), Eq(PackedSet({Office()}))));
  }
  if (!judge.Answers(true, [&] { return service.RemoveAllLocations(); })) return false;
  return stage.registry.Value().has_value() && save({});
}

void EditBoth(Attempt& attempt, Stage& stage) {
  const Judge judge(attempt);
  for (const bool savesItself : {false, true}) {
    stage.registry.Put(PackedSet({Office()}));
    _IQeLaApiSmart* const service = savesItself ? stage.Raw(judge) : stage.Smart(judge);
    if (service != nullptr) Edit(judge, stage, *service, savesItself);
  }
}

TEST_F(LibraryEveryImport, FailsFromTheFirstCallOverEditsToTheStore) { FailAll(&EditBoth); }

// ---- locations, their byte form, and questions about addresses ----

void IgnoreError(const char*, ...) {}

const Bytes kUntouched{1, 2, 3};

bool IsTextBad(const Attempt& attempt) { return attempt.FailsWith(ERROR_NO_UNICODE_TRANSLATION); }

// The byte form of `object`, read into `other`: whole, or nothing of it.
void PackAndUnpack(Attempt& attempt, const ILaSerializer& object, ILaSerializer& other) {
  const Judge judge(attempt);
  Bytes before = kUntouched;
  if (!judge.Answers(true, [&] { return other.SerializeToBytes(before); }, {false})) {
    EXPECT_EQ(before, kUntouched);
    return;
  }
  Bytes bytes = kUntouched;
  if (!judge.Answers(true, [&] { return object.SerializeToBytes(bytes); }, {false})) {
    EXPECT_EQ(bytes, kUntouched);
    return;
  }
  const bool read = judge.Answers(true, [&] { return other.DeserializeFromBytes(bytes); }, {false});
  if (!read) attempt.EndFailures();
  Bytes now;
  // A text that is bad ends the reading, and what was read before it stays.
  if (judge.Answers(true, [&] { return other.SerializeToBytes(now); }, {false}) && !IsTextBad(attempt)) {
    EXPECT_EQ(now, read ? bytes : before);
  }
  judge.Answers(false, [&] { return other.DeserializeFromBytes({0xC1}); });
}

void UseLocation(Attempt& attempt, _IQeLaApiSmart& service) {
  const Judge judge(attempt);
  constexpr std::uint32_t kOk = LCR_OK;
  const auto made = judge.Gives([&] { return service.CreateLocation(); });
  const auto other = judge.Gives([&] { return service.CreateLocation(); });
  if (made == nullptr || other == nullptr) return;
  _IQeLocation& location = *made;
  if (!attempt.Fails()) {
    EXPECT_EQ(location.GetId().size(), kUuidLength);
  }
  for (std::uint32_t number = LCT_DNS_SUFFIX; number <= LCT_ZELT_REACHABLE; ++number) {
    const auto kind = static_cast<LOCATION_CRITERIA_TYPE>(number);
    const std::wstring text = L"0000:0000:0000:0000:0000:FFFF:0A00:0001";  // which is normalised
    judge.Answers(kOk, [&] { return location.AddCriteria(&kind, text); });
  }
  const LOCATION_CRITERIA_TYPE suffix = LCT_DNS_SUFFIX;
  judge.Answers(kOk, [&] { return location.RemoveCriteria(&suffix, L"10.0.0.1"); }, {LCR_NOT_FOUND});
  judge.Does([&] { location.SetAdapterIndexes({1, 2, 3}); });
  std::vector<std::uint32_t> indexes;
  judge.Does([&] { location.GetAdapterIndexes(indexes); });
  for (const auto get : {&_IQeLocation::GetId, &_IQeLocation::GetName, &_IQeLocation::GetNote})
    judge.Does([&] { (location.*get)(); });
  const auto criteria = judge.Gives([&] { return location.GetCriterias(); });
  const auto others = judge.Gives([&] { return other->GetCriterias(); });
  if (criteria != nullptr && others != nullptr) {
    LOCATION_CRITERIA_TYPE kind{};
    std::wstring text;
    std::vector<std::wstring> texts;
    for (std::size_t i = 0; i < criteria->GetCount(); ++i)
      judge.Answers(true, [&] { return criteria->GetAt(i, kind, text); });
    judge.Answers(true, [&] { return criteria->GetStringCriteria(LCT_DEFAULT_GATEWAY, texts); });
    PackAndUnpack(attempt, *criteria, *others);
  }
  PackAndUnpack(attempt, location, *other);
  judge.Answers(true, [&] { return location.ClearCriterias(); });
  const auto all = judge.Gives([&] { return service.GetLocations(); });
  const auto collection = judge.Gives([&] { return service.CreateLocations(); });
  if (all == nullptr || collection == nullptr) return;
  judge.Ask([&] { return all->GetItem(0); });
  judge.Ask([&] { return all->FindLocation(kOfficeId); });
  PackAndUnpack(attempt, *all, *collection);
}

// What is outside matches in no case.
void AskAboutAddresses(const Judge& judge, _IQeLaApiSmart& service) {
  struct Question {
    FirewallAddressType kind;
    std::wstring first;
    std::wstring second;
  };
  const std::vector<std::wstring> addresses{L"10.0.0.7", L"fe80::1"};
  // What lies in subnets and ranges of which an end, or the address, is taken to be zero.
  const std::vector<std::wstring> nearZero{L"0.0.0.0", L"0.0.0.1", L"9.0.0.1", L"::", L"::1", L"fe7f::1"};
  const auto ask = [&](const Question& question, bool matches) {
    const std::uint32_t kind = question.kind;
    const std::initializer_list<bool> refusals = {false};
    judge.Answers(
        matches, [&] { return service.MatchAddressSpecification(addresses, &kind, question.first, question.second); },
        refusals);
    judge.Answers(false, [&] {
      const bool isFamily = question.kind == FIAT_ANY_IP_V4 || question.kind == FIAT_ANY_IP_V6;
      return !isFamily && service.MatchAddressSpecification(nearZero, &kind, question.first, question.second);
    });
    judge.Answers(
        matches, [&] { return service.MatchAdapterAddresses(&kind, question.first, question.second); }, refusals);
  };
  for (const Question& inside : std::vector<Question>{{FIAT_SINGLE_IP, L"10.0.0.7", L""},
                                                      {FIAT_SUBNET, L"10.0.0.0/8", L""},
                                                      {FIAT_SUBNET, L"fe80::/64", L""},
                                                      {FIAT_RANGE_IP, L"10.0.0.1", L"10.0.0.0xff"},
                                                      {FIAT_ANY_IP_V4, L"0.0.0.0", L"255.255.255.255"},
                                                      {FIAT_ANY_IP_V6, L"::", L"ffff::"}})
    ask(inside, true);
  for (const Question& outside : std::vector<Question>{{FIAT_SINGLE_IP, L"10.0.0.8", L""},
                                                       {FIAT_SUBNET, L"10.1.0.0/16", L""},
                                                       {FIAT_SUBNET, L"fe81::/64", L""},
                                                       {FIAT_RANGE_IP, L"10.0.0.8", L"10.0.0.9"}})
    ask(outside, false);
  judge.Answers(true, [&] { return service.IsAdapterMediaType(Wired, {1, kIndex}); }, {false});
  judge.Answers(false, [&] { return service.IsAdapterMediaType(Wireless, {1, kIndex}); });
  judge.Answers(std::vector<std::wstring>{L"01-02-03-04-05-06"}, [&] { return service.GetMacAddresses(); },
                {std::vector<std::wstring>{}});
}

void UseLocationsAndAddresses(Attempt& attempt, Stage& stage) {
  const Judge judge(attempt);
  _IQeLaApiSmart* const service = stage.Smart(judge);
  if (service == nullptr) return;
  service->SetErrorPrinter(&IgnoreError);
  UseLocation(attempt, *service);
  judge.Answers(true, [&] { return service->GetLocation(kOfficeId) != nullptr; }, {false});
  AskAboutAddresses(judge, *service);
}

TEST_F(LibraryEveryImport, FailsInLocationsTheirByteFormAndQuestionsAboutAddresses) {
  FailAll(&UseLocationsAndAddresses);
}

// ---- a calculation with all kinds of criteria ----

LocationBlob Everything() {
  LocationBlob blob{.id = "the identifier of what asks for all", .adapterIndexes = {kIndex}, .zeltReachable = true};
  blob.texts[LCT_DNS_SUFFIX] = {"[*", "c*rp.example"};
  blob.texts[LCT_DEFAULT_GATEWAY] = {"10.0.0.9", "10.0.0.1"};
  blob.texts[LCT_DHCP_SERVER] = {"10.0.0.3"};
  blob.texts[LCT_DNS_SERVER] = {"10.0.0.2"};
  blob.texts[LCT_PRIMARY_WINS] = {"10.0.0.4"};
  blob.texts[LCT_SECONDARY_WINS] = {"10.0.0.5"};
  blob.texts[LCT_REGISTRY_KEY] = {"HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Name=Office"};
  blob.texts[LCT_DOMAIN_REACHABLE] = {"host.example"};
  return blob;
}
const std::wstring kEverythingId = L"the identifier of what asks for all";

LocationBlob Asks(const char* id, LOCATION_CRITERIA_TYPE kind, const char* text) {
  LocationBlob blob{.id = id};
  blob.texts[kind] = {text};
  return blob;
}

// Loads, which calculates. What is current is `current`, and nothing where something fails; with the set from before,
// where it cannot be loaded, the office.
void ExpectCurrent(const Attempt& attempt, _IQeLaApiSmart& service, const Ids& current) {
  const Judge judge(attempt);
  const auto countStored = [&] { return judge.Ask([&] { return service.GetLocations()->GetCount(); }); };
  const auto before = countStored();
  const bool loaded = judge.Answers(true, [&] { return service.Load(); }, {false});
  if (const auto after = countStored(); !loaded && before && after && !IsTextBad(attempt)) {
    EXPECT_EQ(*after, *before) << "the set from before";
  }
  const auto found = judge.Gives([&] { return service.GetCurrentLocations(); });
  if (found == nullptr) return;
  judge.Answers(loaded ? current : Ids{kOfficeId},
                [&] {
                  Ids ids;
                  for (std::uint64_t i = 0; i < found->GetCount(); ++i) ids.push_back(found->GetItem(i)->GetId());
                  return ids;
                },
                {Ids{}});
}

// Directly: the server asks for a client certificate and is content with none. By auto-discovery: it is another server.
// By the user's script: the proxy asks who we are, in one way, and lets nobody through. By the user's proxy: it asks in
// another way, and lets us through.
std::deque<HttpsAnswer> ReachableInTheEnd() {
  const HttpsAnswer certificate = HttpsAnswer::SendFails(ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED);
  return {certificate,
          certificate,
          certificate,
          HttpsAnswer::Status(HTTP_STATUS_NOT_FOUND),
          HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_PASSPORT),
          HttpsAnswer::Status(HTTP_STATUS_NOT_FOUND),
          HttpsAnswer::ProxyAsks(WINHTTP_AUTH_SCHEME_BASIC),
          HttpsAnswer::Status(HTTP_STATUS_OK)};
}

void CalculateWithAllKinds(Attempt& attempt, Stage& stage) {
  const Judge judge(attempt);
  stage.https.answers = ReachableInTheEnd();
  stage.ForgetCertificates();
  _IQeLaApiSmart* const service = stage.Smart(judge);
  if (service == nullptr) return;
  stage.registry.Put(PackedSet(
      {Everything(), Asks("an identifier of another gateway", LCT_DEFAULT_GATEWAY, "10.0.0.9"),
       Asks("an identifier of another suffix", LCT_DNS_SUFFIX, "*.other.example"),
       Asks("an identifier of another value", LCT_REGISTRY_KEY, "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Name=Home"),
       Asks("an identifier of another key", LCT_REGISTRY_KEY, "HKEY_LOCAL_MACHINE\\SOFTWARE\\Other\\")}));
  const std::set<std::string> farthest = {"CertFindChainInStore", "WinHttpSetCredentials"};
  const std::size_t before = stage.windows.Calls(farthest).size();
  ExpectCurrent(attempt, *service, {kEverythingId});
  if (!attempt.Fails()) {
    EXPECT_EQ(stage.windows.Calls(farthest).size() - before, 2u + 1) << "it takes another way";
  }
}

TEST_F(LibraryEveryImport, FailsInACalculationWithAllKinds) { FailAll(&CalculateWithAllKinds); }

// The user is found the other way, RevertToSelf never works, the list of management servers is in the other view, and
// COM is the host's affair.
void CalculateWhereNobodyAnswers(Attempt& attempt, Stage& stage) {
  const Judge judge(attempt);
  stage.https.answers = {HttpsAnswer::SendFails(ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED),
                         HttpsAnswer::Status(HTTP_STATUS_NOT_FOUND)};
  stage.ForgetCertificates();
  stage.https.discoveryErrors = {ERROR_WINHTTP_LOGIN_FAILURE};
  stage.host.record.hostComActive = true;
  stage.system.wow64DirectoryLength = 0;
  stage.windows.FailAlways("RevertToSelf", ERROR_INTERNAL_ERROR);
  stage.registry.RemoveKey(kAgentKey);
  stage.registry.MakeKey(kAgentKey);
  stage.registry.SetText(kAgentKey, L"ZeltServerList", L"srv1.example|10.0.0.1|443", KEY_WOW64_32KEY);
  _IQeLaApiSmart* const service = stage.Smart(judge);
  if (service == nullptr) return;
  stage.registry.Put(PackedSet({Asks("an identifier of a web host", LCT_DOMAIN_REACHABLE, "host.example"),
                                {.id = "an identifier of a server", .zeltReachable = true}}));
  ExpectCurrent(attempt, *service, {});
}

TEST_F(LibraryEveryImport, FailsWhereNobodyAnswersAndNothingBecomesCurrent) { FailAll(&CalculateWhereNobodyAnswers); }

// ---- discovery, from the start over a stop to a restart ----

// What the host was told, in order.
class Told {
 public:
  static void Forget() {
    const std::lock_guard lock(Get().m_mutex);
    Get().m_lists.clear();
    Get().m_lostOne = false;
  }

  // The host reads again what could not be read. By value, since the signature is fixed.
  // NOLINTNEXTLINE(performance-unnecessary-value-param)
  static void OnChange(std::shared_ptr<_IEnumQeLocations> current) {
    for (int tries = 0; tries < 2; ++tries) {
      try {
        Ids ids;
        for (std::uint64_t i = 0; i < current->GetCount(); ++i) ids.push_back(current->GetItem(i)->GetId());
        const std::lock_guard lock(Get().m_mutex);
        Get().m_lists.push_back(std::move(ids));
        Get().m_called.notify_all();
        return;
      } catch (const std::bad_alloc&) {
      }
    }
    const std::lock_guard lock(Get().m_mutex);
    Get().m_lostOne = true;
  }

  // Whether there was a list that could not be read, so that to the library the host knows it.
  static bool LostOne() {
    const std::lock_guard lock(Get().m_mutex);
    return Get().m_lostOne;
  }
  // Whether the host is told this at last.
  static bool AtLast(const Ids& ids, std::chrono::milliseconds limit) {
    std::unique_lock lock(Get().m_mutex);
    return Get().m_called.wait_for(lock, limit, [&] { return !Get().m_lists.empty() && Get().m_lists.back() == ids; });
  }
  static std::vector<Ids> All() {
    const std::lock_guard lock(Get().m_mutex);
    return Get().m_lists;
  }

 private:
  static Told& Get() {
    static Told told;
    return told;
  }

  std::mutex m_mutex;
  std::condition_variable m_called;
  std::vector<Ids> m_lists;
  bool m_lostOne = false;
};

// A move is news where nothing fails, and where memory was short, which the thread tries again. Where something else
// fails the pass may be lost, or discovery may have ended; so the host is not waited for then.
bool IsNews(const Attempt& attempt, bool loaded) { return !attempt.Fails() || (loaded && attempt.LacksMemoryOnce()); }
void ExpectTold(const Ids& ids, bool isNews) {
  using std::chrono::milliseconds;
  EXPECT_TRUE(Told::AtLast(ids, isNews ? milliseconds(10'000) : milliseconds(20)) || !isNews);
}

void Discover(Attempt& attempt, Stage& stage) {
  const Judge judge(attempt);
  Told::Forget();
  _IQeLaApiSmart* service = stage.Smart(judge);
  if (service == nullptr) {
    attempt.EndFailures();
    service = stage.Smart(judge);
  }
  stage.registry.Put(PackedSet({Office(), Home()}));
  stage.Join("10.0.0.1");
  const bool isNews = IsNews(attempt, judge.Answers(true, [&] { return service->Load(); }, {false}));
  const auto start = [&] {
    ++stage.starts;
    return service->StartDiscovery(&Told::OnChange);
  };
  const auto startAndMove = [&](const char* gateway, const std::wstring& id) {
    const std::size_t before = stage.waits.Count();
    if (!judge.Answers(true, start, {false})) return;
    if (isNews) {
      EXPECT_TRUE(stage.waits.WaitForCount(before + 1));
    }
    stage.Move(gateway);
    ExpectTold({id}, isNews);
  };
  startAndMove("192.168.0.1", kHomeId);
  judge.Answers(true, [&] { return service->Save(); }, {false});
  // As it was put there, or as the library had it: with the adapters of the move, or from before, where it could not be
  // loaded. A text that is bad ends the reading of a set, so that less is saved.
  LocationBlob matched = Home();
  matched.adapterIndexes = {kIndex};
  if (!IsTextBad(attempt)) {
    EXPECT_THAT(stage.registry.Value(), AnyOf(Eq(PackedSet({Office(), Home()})), Eq(PackedSet({Office(), matched})),
                                              Eq(PackedSet({Office()})), Eq(PackedSet({}))));
  }
  judge.Answers(true, [&] { return service->StopDiscovery(); });
  startAndMove("10.0.0.1", kOfficeId);

  attempt.EndFailures();
  stage.registry.Put(PackedSet({Office(), Home()}));  // which a set that was not loaded has been saved over
  EXPECT_TRUE(service->Load());
  // A thread that was told to end, and not waited for, is no longer what a start needs.
  service->StopDiscovery();
  EXPECT_TRUE(stage.threads.WaitForEnd(stage.threads.Count()));
  EXPECT_TRUE(start());
  // That it was at home last the host may have been told without being able to read it; the move after it is news.
  const bool lostOne = Told::LostOne();
  if (lostOne) Told::Forget();
  stage.Move("192.168.0.1");
  EXPECT_TRUE(Told::AtLast({kHomeId}, std::chrono::milliseconds(lostOne ? 500 : 10'000)) || lostOne);
  stage.Move("10.0.0.1");
  EXPECT_TRUE(Told::AtLast({kOfficeId}, std::chrono::seconds(10))) << ::testing::PrintToString(Told::All());
  for (const Ids& ids : Told::All())
    for (const std::wstring& id : ids) {
      const bool isCutShort = IsTextBad(attempt) && id.size() == kUuidLength;  // and has an ID of its own
      EXPECT_TRUE(isCutShort || id == kOfficeId || id == kHomeId) << ::testing::PrintToString(id);
    }
  EXPECT_TRUE(service->StopDiscovery());
  EXPECT_TRUE(stage.threads.WaitForEnd(stage.threads.Count()));
}

TEST_F(LibraryEveryImport, FailsInDiscovery) { FailAll(&Discover); }

// ---- from the load to the unload ----

// Nothing is scripted, since the library must really go: the adapters are the machine's, and nobody is at home. One
// thread loads it and another unloads it: the runtime makes a record of each.
void LoadUseAndUnload(Attempt& attempt, HANDLE gone) {
  const Judge judge(attempt);
  HMODULE module = nullptr;
  OtherThread([&] { module = ::LoadLibraryW((ProgramFolder() / L"QeLaLib.dll").c_str()); }).Join();
  if (module == nullptr) {
    EXPECT_TRUE(attempt.Fails());
    return;
  }
  {
    const ServiceLibrary library;
    ::FreeLibrary(module);  // which holds it from here on
    const OrderedWaits waits(module);
    const auto smart = judge.Gives([&] { return library.SmartApi(); });
    if (smart != nullptr) {
      const auto location = judge.Gives([&] { return smart->CreateLocation(); });
      // What throws inside.
      if (location != nullptr) judge.Answers(false, [&] { return location->DeserializeFromBytes({0xC1}); });
    }
  }
  EXPECT_EQ(::WaitForSingleObject(gone, 10'000), WAIT_OBJECT_0) << "it stays loaded";
}

TEST_F(LibraryEveryImport, FailsWhileItIsLoadedAndUnloaded) {
  const RedirectedMachineHive registry;
  // What ours imports stays loaded by the copy.
  std::optional<ModuleCopy> copy;
  std::optional<ModuleCopy::Loaded> loaded;
  std::optional<ImportFaults> faults;
  {
    const ServiceLibrary library;
    copy.emplace(L"QeLaLib.dll");
    loaded.emplace(*copy);
    faults.emplace(library.Module());
    faults->Leave();
  }
  const UniqueKernelHandle gone(::CreateEventW(nullptr, FALSE, FALSE, nullptr));
  const LoadNotice notice(
      L"QeLaLib.dll", [&](HMODULE module) { faults->Enter(module); },
      [&] {
        faults->Leave();
        ::SetEvent(gone.get());
      });
  // Where the runtime's own start or end fails, it keeps its record of the thread, which has two handles.
  constexpr std::size_t kKept = 2;
  FailEveryImport(*faults, kMostCalls, [&](Attempt& attempt) {
    ::ResetEvent(gone.get());
    const std::size_t handles = CountHandles();
    LoadUseAndUnload(attempt, gone.get());
    EXPECT_LE(CountHandles(), handles + kKept);
  });
}

// ---- what is reached ----

// A program that says nothing is ended. That a look into its pipe fails while it lives is no failure of Windows's.
void WaitForASilentTasklist(Attempt& attempt, Stage& stage) {
  const Judge judge(attempt);
  stage.https.answers = {HttpsAnswer::Status(HTTP_STATUS_NOT_FOUND)};
  stage.system.wow64DirectoryLength = 20;
  stage.processes.output.clear();
  stage.processes.silent = true;
  stage.registry.Put(PackedSet({Asks("an identifier of a web host", LCT_DOMAIN_REACHABLE, "host.example")}));
  ExpectCurrent(attempt, *stage.Smart(judge), {});
}

// What the runtime calls as well, so that it is not looked for elsewhere.
const std::set<std::string> kOursToo = {"DuplicateHandle", "GetCurrentProcess", "GetModuleHandleA",
                                        "OpenProcess",     "TerminateProcess",  "TlsSetValue"};
const std::set<std::string> kOutOfReach = {"GetModuleHandleW",         // called while the library is loaded
                                           "TryEnterCriticalSection",  // by the runtime alone, as the next
                                           "_errno"};

TEST_F(LibraryEveryImport, IsReachedOrNamedAsOutOfReach) {
  Stage stage;
  Attempt clean;
  for (const auto scene : {&EditBoth, &UseLocationsAndAddresses, &CalculateWithAllKinds, &CalculateWhereNobodyAnswers,
                           &Discover, &WaitForASilentTasklist}) {
    scene(clean, stage);
    ExpectAllAtRest(stage);
  }
  stage.Close();
  for (std::size_t i = 0; i < stage.faults.Names().size(); ++i) {
    const std::string& name = stage.faults.Names()[i];
    const bool named = kOutOfReach.contains(name) || (IsRuntimesOwn(name) && !kOursToo.contains(name));
    EXPECT_TRUE(named || stage.faults.Calls(i) != 0) << name << " is reached by no scene";
    EXPECT_TRUE(!kOutOfReach.contains(name) || stage.faults.Calls(i) == 0) << name << " is reached";
  }
}

}  // namespace

// The location set in the registry: Load and Save.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstdarg>
#include <string>
#include <vector>

#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/StoredSet.h"

namespace {

const Bytes kEmptySet{0x91, 0x91, 0x90};

// What happens in the library, in order, as far as Save's order goes.
std::vector<std::string> g_sequence;

BOOL(WINAPI* g_setEvent)(HANDLE);
BOOL WINAPI NoteSetEvent(HANDLE event) {
  g_sequence.emplace_back("signal");
  return g_setEvent(event);
}

int(WINAPI* g_toUtf8)(UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL);
int WINAPI NoteToUtf8(UINT codePage, DWORD flags, LPCWCH text, int length, LPSTR out, int outSize, LPCCH unknown,
                      LPBOOL used) {
  if (g_sequence.empty() || g_sequence.back() != "serialise") g_sequence.emplace_back("serialise");
  return g_toUtf8(codePage, flags, text, length, out, outSize, unknown, used);
}

class Storage : public ServiceTest {
 protected:
  std::vector<std::string> CallNames() const {
    std::vector<std::string> names;
    for (const ScriptedRegistry::Call& call : m_registry.Calls()) names.push_back(call.function);
    return names;
  }
  std::shared_ptr<_IQeLaApiSmart> Service() {
    std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
    m_registry.ClearCalls();
    m_adapters.ClearCalls();
    m_log.Clear();
    return service;
  }
};

using Names = std::vector<std::string>;

TEST_F(Storage, LoadRefusesASetWithFewerFieldsThanItClaims) {
  std::vector<std::uint8_t> bytes = PackedSet({{.id = "B"}});
  ASSERT_EQ(bytes[0], 0x91);
  bytes[0] = 0x92;
  const std::vector<std::wstring> before = StoredIds(*Service());
  m_registry.Put(bytes);
  EXPECT_FALSE(Service()->Load());
  EXPECT_EQ(StoredIds(*Service()), before);
}

TEST_F(Storage, EmptySetIsStoredAsThreeBytes) {
  EXPECT_TRUE(Service()->Save());
  EXPECT_EQ(m_registry.Value(), kEmptySet);
  EXPECT_EQ(m_registry.ValueType(), static_cast<DWORD>(REG_BINARY));
}

TEST_F(Storage, SaveWritesTheSetByteForByte) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  const std::shared_ptr<_IQeLocation> location = NewLocation(*service, L"A", L"10.0.0.1");
  location->SetName(L"Caf\u00e9");
  location->SetNote(std::wstring(32, L'n'));
  EXPECT_EQ(service->AddLocation(location), LSR_OK);
  EXPECT_EQ(service->AddLocation(NewLocation(*service, L"B", L"10.9.9.9")), LSR_OK);
  EXPECT_TRUE(service->Save());

  LocationBlob a{.id = "A", .name = "Caf\xc3\xa9", .note = std::string(32, 'n'), .adapterIndexes = {kOfficeIndex}};
  a.texts[LCT_DEFAULT_GATEWAY] = {"10.0.0.1"};
  LocationBlob b{.id = "B"};
  const std::wstring name = service->GetLocation(L"B")->GetName();
  b.name = std::string(name.begin(), name.end());
  b.texts[LCT_DEFAULT_GATEWAY] = {"10.9.9.9"};
  EXPECT_EQ(m_registry.Value(), PackedSet({a, b}));
}

TEST_F(Storage, SaveMakesTheKeyWhereThereIsNone) {
  EXPECT_TRUE(Service()->Save());
  EXPECT_TRUE(m_registry.HasKey());
  EXPECT_EQ(CallNames(), (Names{"RegOpenKeyExW", "RegCreateKeyExW", "RegSetValueExW", "RegFlushKey", "RegCloseKey"}));
  EXPECT_EQ(m_registry.Calls()[0].access, static_cast<REGSAM>(KEY_ALL_ACCESS));
  EXPECT_EQ(m_registry.Calls()[1].access, static_cast<REGSAM>(KEY_READ | KEY_WRITE));
}

TEST_F(Storage, SaveOpensTheKeyThatIsThere) {
  m_registry.MakeEmptyKey();
  EXPECT_TRUE(Service()->Save());
  EXPECT_EQ(CallNames(), (Names{"RegOpenKeyExW", "RegSetValueExW", "RegFlushKey", "RegCloseKey"}));
}

TEST_F(Storage, SaveTriesToMakeTheKeyAlsoWhenOpeningIsDenied) {
  m_registry.MakeEmptyKey();
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  m_registry.FailAlways("RegOpenKeyExW", ERROR_ACCESS_DENIED);
  EXPECT_TRUE(service->Save());
  EXPECT_EQ(m_registry.Value(), kEmptySet);
}

TEST_F(Storage, SaveFailsWithTheKeyTheValueOrTheFlush) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  m_registry.FailAlways("RegCreateKeyExW", ERROR_ACCESS_DENIED);
  EXPECT_FALSE(service->Save());
  EXPECT_EQ(CallNames(), (Names{"RegOpenKeyExW", "RegCreateKeyExW"}));

  m_registry.HealAll();
  m_registry.ClearCalls();
  m_registry.FailAlways("RegSetValueExW", ERROR_ACCESS_DENIED);
  EXPECT_FALSE(service->Save());
  EXPECT_EQ(m_registry.Count("RegFlushKey"), 0u);
  EXPECT_EQ(m_registry.OpenKeys(), 0u);

  m_registry.HealAll();
  m_registry.FailAlways("RegFlushKey", ERROR_WRITE_FAULT);
  EXPECT_FALSE(service->Save());
  EXPECT_EQ(m_registry.OpenKeys(), 0u);

  m_registry.HealAll();
  EXPECT_TRUE(service->Save());
}

TEST_F(Storage, SaveCalculatesThenSignalsThenSerialisesThenWrites) {
  // A discovery thread that is never run: the service takes it for running.
  const ImportPatch thread(
      Module(), "CreateThread", +[](SECURITY_ATTRIBUTES*, SIZE_T, LPTHREAD_START_ROUTINE, void*, DWORD, DWORD*) {
        return ::CreateEventW(nullptr, TRUE, TRUE, nullptr);
      });
  const ImportPatch setEvent(Module(), "SetEvent", &NoteSetEvent);
  const ImportPatch toUtf8(Module(), "WideCharToMultiByte", &NoteToUtf8);
  g_setEvent = setEvent.Original<BOOL WINAPI(HANDLE)>();
  g_toUtf8 = toUtf8.Original<int WINAPI(UINT, DWORD, LPCWCH, int, LPSTR, int, LPCCH, LPBOOL)>();
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  service->AddLocation(NewLocation(*service, L"\u00c4"));
  EXPECT_TRUE(service->StartDiscovery([](std::shared_ptr<_IEnumQeLocations>) {}));

  g_sequence.clear();
  m_adapters.OnCall([] { g_sequence.emplace_back("calculate"); });
  m_registry.OnCall([](const ScriptedRegistry::Call& call) {
    if (call.function == "RegSetValueExW") g_sequence.emplace_back("write");
  });
  EXPECT_TRUE(service->Save());
  EXPECT_EQ(g_sequence, (Names{"calculate", "signal", "serialise", "write"}));

  // The host learns what is current also when the set cannot be written as bytes.
  service->AddLocation(NewLocation(*service, L"\xd800"));
  g_sequence.clear();
  EXPECT_FALSE(service->Save());
  EXPECT_EQ(g_sequence, (Names{"calculate", "signal", "serialise"}));
  m_registry.OnCall({});
  m_adapters.OnCall({});
}

TEST_F(Storage, SaveSignalsNobodyWhileDiscoveryDoesNotRun) {
  const ImportPatch setEvent(Module(), "SetEvent", &NoteSetEvent);
  g_setEvent = setEvent.Original<BOOL WINAPI(HANDLE)>();
  g_sequence.clear();
  EXPECT_TRUE(Service()->Save());
  EXPECT_EQ(g_sequence, Names{});
}

TEST_F(Storage, TextThatIsNotUnicodeIsNotSavedAndTheRegistryIsNotTouched) {
  m_registry.Put(PackedSet({{.id = "A"}}));
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  const std::shared_ptr<_IQeLocation> location = service->GetLocation(L"A");
  location->SetName(L"lone \xdc00 surrogate");
  EXPECT_EQ(service->UpdateLocation(location), LSR_OK);
  EXPECT_FALSE(service->Save());
  EXPECT_EQ(CallNames(), Names{});
  EXPECT_EQ(m_registry.Value(), PackedSet({{.id = "A"}}));
  EXPECT_EQ(m_adapters.CallCount(), 1u) << "calculated before";
}

TEST_F(Storage, LoadReadsTheSetAndCalculates) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  m_registry.Put(PackedSet({{.id = "A"}, {.id = "B", .enabled = false}}));
  EXPECT_TRUE(service->Load());
  EXPECT_EQ(StoredIds(*service), (Ids{L"A", L"B"}));
  EXPECT_EQ(CurrentIds(*service), Ids{L"A"});
  EXPECT_EQ(CallNames(), (Names{"RegOpenKeyExW", "RegQueryValueExW", "RegQueryValueExW", "RegCloseKey"}));
  EXPECT_EQ(m_registry.Calls()[0].access, static_cast<REGSAM>(KEY_READ));
}

TEST_F(Storage, LoadWithoutAKeyAnswersFalseAndStillCalculates) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  service->AddLocation(NewLocation(*service, L"A"));
  EXPECT_FALSE(service->Load());
  EXPECT_EQ(CallNames(), Names{"RegOpenKeyExW"});
  EXPECT_EQ(m_adapters.CallCount(), 1u);
  EXPECT_EQ(StoredIds(*service), Ids{L"A"}) << "a missing value does not empty the set";
  EXPECT_EQ(CurrentIds(*service), Ids{L"A"});
}

// Every way in which reading fails leaves the set, calculates, and closes the key.
TEST_F(Storage, LoadThatCannotReadLeavesTheSetAndStillCalculates) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  service->AddLocation(NewLocation(*service, L"A"));
  const std::vector<std::pair<const char*, std::function<void()>>> failures{
      {"no value", [&] { m_registry.MakeEmptyKey(); }},
      {"text", [&] { m_registry.Put(PackedSet({{.id = "B"}}), REG_SZ); }},
      {"number", [&] { m_registry.Put({1, 0, 0, 0}, REG_DWORD); }},
      {"no bytes", [&] { m_registry.Put({}); }},
      {"denied", [&] { m_registry.Fail("RegOpenKeyExW", ERROR_ACCESS_DENIED, 1); }},
      {"no size", [&] { m_registry.Fail("RegQueryValueExW", ERROR_GEN_FAILURE, 1); }},
      {"no bytes read", [&] {
         m_registry.Put(PackedSet({{.id = "B"}}));
         m_registry.Fail("RegQueryValueExW", ERROR_GEN_FAILURE, 2);
       }}};
  for (const auto& [name, prepare] : failures) {
    prepare();
    m_adapters.ClearCalls();
    EXPECT_FALSE(service->Load()) << name;
    EXPECT_EQ(StoredIds(*service), Ids{L"A"}) << name;
    EXPECT_EQ(CurrentIds(*service), Ids{L"A"}) << name;
    EXPECT_EQ(m_adapters.CallCount(), 1u) << name;
    EXPECT_EQ(m_registry.OpenKeys(), 0u) << name;
  }
}

TEST_F(Storage, ValueThatChangesBetweenTheTwoQueries) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  service->AddLocation(NewLocation(*service, L"A"));
  int queries = 0;
  Bytes changed;
  DWORD changedType = REG_BINARY;
  m_registry.OnCall([&](const ScriptedRegistry::Call& call) {
    if (call.function == "RegQueryValueExW" && ++queries == 2) m_registry.Put(changed, changedType);
  });

  m_registry.Put(PackedSet({{.id = "B"}}));
  changed = PackedSet({{.id = "B"}, {.id = "C"}});
  EXPECT_FALSE(service->Load()) << "grown";
  EXPECT_EQ(StoredIds(*service), Ids{L"A"});

  queries = 0;
  m_registry.Put(PackedSet({{.id = "B"}}));
  changed = PackedSet({{.id = "B"}});
  changedType = REG_SZ;
  EXPECT_FALSE(service->Load()) << "of another type";
  EXPECT_EQ(StoredIds(*service), Ids{L"A"});

  queries = 0;
  m_registry.Put(PackedSet({{.id = "B"}, {.id = "C"}}));
  changed = PackedSet({{.id = "D"}});
  changedType = REG_BINARY;
  EXPECT_TRUE(service->Load()) << "shrunk";
  EXPECT_EQ(StoredIds(*service), Ids{L"D"});
  EXPECT_EQ(m_registry.OpenKeys(), 0u);
}

TEST_F(Storage, LoadOfBytesThatAreNoSetLeavesTheSetAndStillCalculates) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  service->AddLocation(NewLocation(*service, L"A"));
  Bytes truncated = PackedSet({{.id = "B"}, {.id = "C"}});
  truncated.pop_back();
  // The last claims four billion entries.
  const std::vector<Bytes> blobs{truncated, {0xc1},       {0x80},
                                 {0xc0},    {0x91, 0xa0}, {0x91, 0x91, 0xdd, 255, 255, 255, 255}};
  for (const Bytes& blob : blobs) {
    m_registry.Put(blob);
    m_adapters.ClearCalls();
    EXPECT_FALSE(service->Load());
    EXPECT_EQ(StoredIds(*service), Ids{L"A"});
    EXPECT_EQ(m_adapters.CallCount(), 1u);
  }
}

TEST_F(Storage, LoadThatMeetsAWrongTypeKeepsWhatItReadBefore) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  const Bytes second = Blob::Array({Blob::Array({}), Blob::Number(7)});
  m_registry.Put(Blob::Array({Blob::Array({Blob::Array({LocationBlob{.id = "A"}.Pack(), second})})}));
  EXPECT_FALSE(service->Load());
  const Ids ids = StoredIds(*service);
  ASSERT_EQ(ids.size(), 2u);
  EXPECT_EQ(ids[0], L"A");
  EXPECT_EQ(ids[1].size(), 36u) << "a new location keeps its own ID";
  EXPECT_EQ(m_adapters.CallCount(), 1u);
}

TEST_F(Storage, ShortOuterArraysLeaveTheSetAndAnEmptyListEmptiesIt) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  service->AddLocation(NewLocation(*service, L"A"));
  for (const Bytes& blob : {Bytes{0x90}, Bytes{0x91, 0x90}}) {
    m_registry.Put(blob);
    EXPECT_TRUE(service->Load());
    EXPECT_EQ(StoredIds(*service), Ids{L"A"});
  }
  m_registry.Put(kEmptySet);
  EXPECT_TRUE(service->Load());
  EXPECT_EQ(StoredIds(*service), Ids{});
}

TEST_F(Storage, FurtherElementsAndBytesAreIgnored) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  Bytes nested(200, 0x91);
  nested.push_back(0x90);
  m_registry.Put(
      Blob::Join({Blob::Array({Blob::Array({Blob::Array({LocationBlob{.id = "A"}.Pack()}), nested}), nested}),
                  Bytes{0xc1, 0xc1}}));
  EXPECT_TRUE(service->Load());
  EXPECT_EQ(StoredIds(*service), Ids{L"A"});
}

TEST_F(Storage, LoadOverwritesInPlaceSoThatShortRecordsKeepTheRest) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  const std::shared_ptr<_IQeLocation> location = NewLocation(*service, L"A");
  location->SetNote(L"kept");
  service->AddLocation(location);
  m_registry.Put(Blob::Array({Blob::Array({Blob::Array({Blob::Array({Blob::Array({}), Blob::Str("B")})})})}));
  EXPECT_TRUE(service->Load());
  EXPECT_EQ(StoredIds(*service), Ids{L"B"});
  EXPECT_EQ(service->GetLocation(L"B")->GetNote(), L"kept");
}

TEST_F(Storage, WhatIsSavedIsReadBackTheSame) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  const std::shared_ptr<_IQeLocation> location = NewLocation(*service, L"A", L"10.0.0.1");
  location->SetName(std::wstring(100000, L'\u20ac'));
  location->SetNote(L"line\r\nbreak \U0001F512");
  for (std::uint32_t kind = 0; kind <= LCT_ZELT_REACHABLE; ++kind) {
    const auto criterion = static_cast<LOCATION_CRITERIA_TYPE>(kind);
    location->AddCriteria(&criterion, L"text of kind " + std::to_wstring(kind));
  }
  const bool disabled = false;
  location->SetEnabled(&disabled);
  location->SetAdapterIndexes({0, 127, 128, 255, 256, 65535, 65536, 0xffffffff});
  EXPECT_EQ(service->AddLocation(location), LSR_OK);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(service->AddLocation(service->CreateLocation()), LSR_OK);
  const Ids ids = StoredIds(*service);
  EXPECT_TRUE(service->Save());
  Bytes before;
  EXPECT_TRUE(service->GetLocation(L"A")->SerializeToBytes(before));

  EXPECT_TRUE(service->RemoveAllLocations());
  EXPECT_TRUE(service->Load());
  EXPECT_EQ(StoredIds(*service), ids);
  Bytes after;
  EXPECT_TRUE(service->GetLocation(L"A")->SerializeToBytes(after));
  EXPECT_EQ(after, before);
}

TEST_F(Storage, RegistryErrorsAreNotLogged) {
  const std::shared_ptr<_IQeLaApiSmart> service = Service();
  EXPECT_FALSE(service->Load());
  const std::vector<std::wstring> ordinary = m_log.Texts();
  m_log.Clear();
  m_registry.FailAlways("RegCreateKeyExW", ERROR_ACCESS_DENIED);
  EXPECT_FALSE(service->Save());
  EXPECT_EQ(m_log.Texts(), ordinary);
}

// The same on the system's own registry.
TEST(RealRegistry, HoldsTheSetAcrossInstances) {
  WithStoredSet<RedirectedMachineHive> hive;
  const LogRecorder log;
  const ServiceLibrary library;
  const FakeAdapters adapters(library.Module());
  const std::shared_ptr<_IQeLaApiSmart> service = library.SmartApi();
  EXPECT_FALSE(service->Load());
  EXPECT_FALSE(hive.HasKey()) << "loading makes no key";
  EXPECT_TRUE(service->Save());
  EXPECT_EQ(hive.Value(), kEmptySet);

  const std::shared_ptr<_IQeLocation> location = service->CreateLocation();
  EXPECT_EQ(library.Api()->AddLocation(location), LSR_OK);
  EXPECT_TRUE(service->Load());
  EXPECT_NE(service->GetLocation(location->GetId()), nullptr);

  hive.Put(*hive.Value(), REG_NONE);
  EXPECT_FALSE(service->Load()) << "a value of another type";
  EXPECT_TRUE(service->Save());
  EXPECT_TRUE(service->Load()) << "saving makes it binary again";
}

}  // namespace

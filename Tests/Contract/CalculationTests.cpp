// Which of the stored locations are current, and what a calculation leaves behind.
#include <windows.h>
#include <rpc.h>

#include <gmock/gmock.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/ImportTable/HandleWatch.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "Tests/Contract/ServiceTest.h"

namespace {

using ::testing::StartsWith;
using Indexes = std::vector<std::uint32_t>;

class Calculation : public ServiceTest {
 protected:
  Calculation() { m_log.Clear(); }

  static constexpr wchar_t kMapped[] = L"0000:0000:0000:0000:0000:ffff:0a00:0002";
  static constexpr char kMappedNarrow[] = "0000:0000:0000:0000:0000:ffff:0a00:0002";

  // Loads the set, which calculates, and forgets how it came there.
  void LoadSet(const std::vector<LocationBlob>& locations) {
    m_registry.Put(PackedSet(locations));
    EXPECT_TRUE(m_service->Load());
  }
  static LocationBlob WithTexts(const char* id, LOCATION_CRITERIA_TYPE kind, std::vector<std::string> texts,
                                Indexes indexes = {}) {
    LocationBlob blob{.id = id, .adapterIndexes = std::move(indexes)};
    blob.texts[kind] = std::move(texts);
    return blob;
  }
  Ids AddedLines() const {
    Ids lines;
    for (const std::wstring& text : m_log.Texts())
      if (text.starts_with(L"Adding current location ID ")) lines.push_back(text);
    return lines;
  }

  std::shared_ptr<_IQeLaApiSmart> m_service = m_library.SmartApi();
};

TEST_F(Calculation, LogsItsStepsInOrder) {
  m_service->AddLocation(NewLocation(*m_service, L"A"));
  m_log.Clear();
  EXPECT_TRUE(m_service->Save());
  const std::wstring name = m_service->GetLocation(L"A")->GetName();
  const Ids texts = m_log.Texts();
  ASSERT_EQ(texts.size(), 10u);
  EXPECT_EQ(texts[0], L"Calculating current locations...");
  EXPECT_EQ(texts[1], L"GetAdaptersAddresses succeeds, the return value is : 0");
  EXPECT_EQ(texts[2], L"Adapters List :");
  EXPECT_THAT(texts[3], StartsWith(L"Adapter properties:\n"));
  EXPECT_EQ(texts[4], L"//---------------------------------------------\n");
  EXPECT_EQ(texts[5], L"IsCurrentLocation checking location " + name);
  EXPECT_EQ(texts[6], L"IsCurrentLocation bZeltReachabilityCriteria 0");
  EXPECT_EQ(texts[7], L"IsCurrentLocation criteria count is 0");
  EXPECT_EQ(texts[8], L"IsCurrentLocation returning matched criterias 1 for location " + name + L"...");
  EXPECT_EQ(texts[9], L"Adding current location ID A");
  for (const LoggedEvent& event : m_log.Events()) EXPECT_EQ(event.severity, 8);
}

TEST_F(Calculation, NoAdapterIsThereWhileTheSystemIsAsked) {
  AdapterList list;
  list.Add(L"Office").Mac({0, 1, 2, 3, 4, 5});
  m_adapters.Set(list);
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(m_service->GetMacAddresses().size(), 1u);
  std::size_t seen = 99;
  m_adapters.OnCall([&] { seen = m_service->GetMacAddresses().size(); });
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(seen, 0u);
}

TEST_F(Calculation, MatchingLocationsAreCurrentInStoredOrderAndEachIsLogged) {
  LoadSet({WithTexts("B", LCT_DEFAULT_GATEWAY, {"10.0.0.1"}), WithTexts("elsewhere", LCT_DEFAULT_GATEWAY, {"10.9.9.9"}),
           WithTexts("A", LCT_DNS_SUFFIX, {"*.example"})});
  EXPECT_EQ(CurrentIds(*m_service), (Ids{L"B", L"A"}));
  EXPECT_EQ(AddedLines(), (Ids{L"Adding current location ID B", L"Adding current location ID A"}));
}

TEST_F(Calculation, DisabledLocationIsNotEvenEvaluated) {
  LoadSet({{.id = "A", .name = "off", .enabled = false, .adapterIndexes = {1}}, {.id = "B", .name = "on"}});
  EXPECT_EQ(CurrentIds(*m_service), Ids{L"B"});
  EXPECT_EQ(m_log.Count(L"IsCurrentLocation checking location off"), 0u);
  EXPECT_EQ(m_log.Count(L"IsCurrentLocation checking location on"), 1u);
  EXPECT_EQ(MatchedAdapters(*m_service, L"A"), Indexes{1});
}

TEST_F(Calculation, WithoutLocationsStillTakesASnapshot) {
  LoadSet({{.id = "A"}});
  EXPECT_EQ(CurrentIds(*m_service), Ids{L"A"});
  m_service->RemoveAllLocations();
  m_adapters.ClearCalls();
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(m_adapters.CallCount(), 1u);
  m_service->AddLocation(NewLocation(*m_service, L"A"));
  EXPECT_EQ(CurrentIds(*m_service), Ids{}) << "the ID is gone from the list, not only the location";
}

TEST_F(Calculation, FailedSnapshotEmptiesTheListAndEvaluatesNothing) {
  LoadSet({{.id = "A"}});
  m_adapters.FailAlways(ERROR_NOT_SUPPORTED);
  m_log.Clear();
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(CurrentIds(*m_service), Ids{});
  EXPECT_EQ(m_log.Texts(),
            (Ids{L"Calculating current locations...", L"Adapters List :", L"CalculateCurrentAdapterProps failed."}));
  EXPECT_EQ(m_log.Texts(8).size(), 3u);
  m_adapters.FailAlways(ERROR_SUCCESS);
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(CurrentIds(*m_service), Ids{L"A"});
}

TEST_F(Calculation, LocationWithoutCriteriaIsNotCurrentOnAMachineWithoutAdapters) {
  AdapterList loopbackOnly;
  loopbackOnly.AddLoopback();
  m_adapters.Set(loopbackOnly);
  LoadSet({{.id = "A"}});
  EXPECT_EQ(CurrentIds(*m_service), Ids{});
  EXPECT_EQ(m_log.Count(L"CalculateCurrentAdapterProps failed."), 1u);
}

TEST_F(Calculation, StoresTheMatchedAdaptersInSnapshotOrder) {
  AdapterList list;
  list.Add(L"nine").Index(9).Gateway("10.0.0.1");
  list.Add(L"two").Index(2).Gateway("10.0.0.2");
  list.Add(L"four").Index(4).Gateway("10.0.0.1");
  m_adapters.Set(list);
  LoadSet({WithTexts("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1"}, {77, 78, 79}), {.id = "B"}});
  EXPECT_EQ(MatchedAdapters(*m_service, L"A"), (Indexes{9, 4})) << "replaced, not appended";
  EXPECT_EQ(MatchedAdapters(*m_service, L"B"), (Indexes{9, 2, 4}));
}

TEST_F(Calculation, LocationThatIsNoLongerCurrentKeepsItsMatchedAdapters) {
  LoadSet({WithTexts("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1"})});
  EXPECT_EQ(MatchedAdapters(*m_service, L"A"), Indexes{kOfficeIndex});
  AdapterList elsewhere;
  elsewhere.Add(L"Cafe").Index(6).Gateway("10.9.9.9");
  m_adapters.Set(elsewhere);
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(CurrentIds(*m_service), Ids{});
  EXPECT_EQ(MatchedAdapters(*m_service, L"A"), Indexes{kOfficeIndex});
}

TEST_F(Calculation, WriteBackDoesNotSave) {
  m_registry.Put(PackedSet({{.id = "A"}}));
  _IQeLaApi* const raw = m_library.Api();
  EXPECT_EQ(MatchedAdapters(*raw, L"A"), Indexes{kOfficeIndex});
  EXPECT_EQ(m_registry.Count("RegSetValueExW"), 0u);
  EXPECT_TRUE(raw->Load());
  EXPECT_EQ(m_registry.Count("RegSetValueExW"), 0u);
}

TEST_F(Calculation, WriteBackNormalisesWhatWasStoredRaw) {
  LoadSet({WithTexts("A", LCT_DEFAULT_GATEWAY, {kMappedNarrow, "10.0.0.1"}),
           WithTexts("B", LCT_DEFAULT_GATEWAY, {kMappedNarrow})});
  EXPECT_EQ(CurrentIds(*m_service), Ids{L"A"});
  std::vector<std::wstring> gateways;
  m_service->GetLocation(L"A")->GetCriterias()->GetStringCriteria(LCT_DEFAULT_GATEWAY, gateways);
  EXPECT_EQ(gateways, (Ids{L"10.0.0.2", L"10.0.0.1"}));
  m_service->GetLocation(L"B")->GetCriterias()->GetStringCriteria(LCT_DEFAULT_GATEWAY, gateways);
  EXPECT_EQ(gateways, Ids{kMapped}) << "a location that is not current is not written back";
}

TEST_F(Calculation, WriteBackThatFailsKeepsTheOldMatchedAdapters) {
  LoadSet({WithTexts("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1", "10.0.0.1"}, {77})});
  EXPECT_EQ(AddedLines(), Ids{L"Adding current location ID A"});
  EXPECT_EQ(MatchedAdapters(*m_service, L"A"), Indexes{77});
  EXPECT_EQ(CurrentIds(*m_service), Ids{});
}

TEST_F(Calculation, EntriesThatOnlyBecomeEqualByNormalisingFailTheWriteBackToo) {
  LoadSet({WithTexts("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1", "10.0.0.2", kMappedNarrow}, {77})});
  EXPECT_EQ(AddedLines(), Ids{L"Adding current location ID A"});
  EXPECT_EQ(MatchedAdapters(*m_service, L"A"), Indexes{77});
}

int g_uuids = 0;
RPC_STATUS(RPC_ENTRY* g_uuidCreate)(UUID*);

// Each location that is made anew costs a UUID. Where nothing is to be refused, none is made.
TEST_F(Calculation, WriteBackMakesALocationAnewOnlyInSetsThatBytesAloneCanHold) {
  const ImportPatch uuid(
      Module(), "UuidCreate", +[](UUID* made) -> RPC_STATUS { return ++g_uuids, g_uuidCreate(made); });
  g_uuidCreate = uuid.Original<RPC_STATUS RPC_ENTRY(UUID*)>();
  LoadSet({WithTexts("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1"}), WithTexts("B", LCT_DNS_SUFFIX, {"*"}), {.id = "C"}});
  g_uuids = 0;
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(CurrentIds(*m_service), (Ids{L"A", L"B", L"C"}));
  EXPECT_EQ(g_uuids, 0);
  LoadSet({WithTexts("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1"}), WithTexts("B", LCT_DNS_SUFFIX, {"*", "*"}), {.id = "C"}});
  g_uuids = 0;
  EXPECT_TRUE(m_service->Save());
  EXPECT_EQ(g_uuids, 3);
  EXPECT_EQ(CurrentIds(*m_service), (Ids{L"A", L"C"}));
}

TEST_F(Calculation, OfTwoLocationsWithOneIdTheFirstTakesBothResults) {
  LocationBlob second = WithTexts("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1"}, {88});
  second.name = "second";
  LoadSet({{.id = "A", .name = "first", .adapterIndexes = {77}}, second});
  EXPECT_EQ(AddedLines(), (Ids{L"Adding current location ID A", L"Adding current location ID A"}));
  const std::shared_ptr<_IEnumQeLocations> stored = m_service->GetLocations();
  ASSERT_EQ(stored->GetCount(), 2u);
  EXPECT_EQ(stored->GetItem(0)->GetName(), L"second") << "the copy that was evaluated last";
  Indexes indexes;
  stored->GetItem(0)->GetAdapterIndexes(indexes);
  EXPECT_EQ(indexes, Indexes{kOfficeIndex});
  stored->GetItem(1)->GetAdapterIndexes(indexes);
  EXPECT_EQ(indexes, Indexes{88});
}

// What was read of it is kept, and no longer what could have been added.
TEST_F(Calculation, OfASetThatCannotBeReadToItsEndAnIdIsCurrentOnce) {
  LoadSet({{.id = "A"}});
  m_registry.Put(PackedSet({{.id = "A"}, {.id = "A", .note = "\xff"}}));
  EXPECT_FALSE(m_service->Load());
  EXPECT_EQ(StoredIds(*m_service), (Ids{L"A", L"A"}));
  EXPECT_EQ(CurrentIds(*m_service), Ids{L"A"});
}

TEST_F(Calculation, SuffixThatIsNoValidExpressionMatchesNothingAndEndsNothing) {
  const HandleWatch ledger(Module());
  LoadSet({WithTexts("A", LCT_DNS_SUFFIX, {"[*"}),
           WithTexts("B", LCT_DNS_SUFFIX, {"(*.example", "corp.example"}),
           {.id = "C"}});
  EXPECT_EQ(CurrentIds(*m_service), (Ids{L"B", L"C"}));
  EXPECT_EQ(ledger.Leaks(), std::vector<std::string>{});
  EXPECT_EQ(ledger.Count("CoInitializeEx"), 1u);
  EXPECT_EQ(ledger.Count("CoUninitialize"), 1u);
}

TEST_F(Calculation, RunsOnceForALoadASaveAndAnEditOfTheRawInstance) {
  m_adapters.ClearCalls();
  m_service->Load();
  EXPECT_EQ(m_adapters.CallCount(), 1u);
  m_service->Save();
  EXPECT_EQ(m_adapters.CallCount(), 2u);
  m_library.Api();
  EXPECT_EQ(m_adapters.CallCount(), 3u);
  m_library.Api()->RemoveLocation(L"none");
  EXPECT_EQ(m_adapters.CallCount(), 4u);
}

TEST_F(Calculation, ReadingDoesNotCalculate) {
  LoadSet({{.id = "A"}});
  m_adapters.ClearCalls();
  m_service->GetCurrentLocations();
  m_service->GetLocations();
  m_service->GetLocation(L"A");
  m_service->GetMacAddresses();
  EXPECT_EQ(m_adapters.CallCount(), 0u);
}

// The host's own code runs inside a calculation, on the thread that holds the recursive lock: in its log sink, in a
// registry filter, in the function that hands out its COM record. It may edit and save there.
class EditsDuringACalculation : public Calculation {
 protected:
  static constexpr char kKey[] = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\";

  ~EditsDuringACalculation() override {
    m_log.OnEvent(nullptr);
    m_registry.OnCall(nullptr);
  }

  // Runs once, when the calculation that follows asks the registry for a criterion.
  void WhenTheRegistryIsAsked(std::function<void()> act) {
    m_registry.OnCall([this, act = std::move(act)](const ScriptedRegistry::Call& call) {
      if (call.function != "RegOpenKeyExW") return;
      m_registry.OnCall(nullptr);
      act();
    });
  }
  void AddForty(_IQeLaApiSmart& service) {
    for (int i = 0; i < 40; ++i)
      EXPECT_EQ(service.AddLocation(NewLocation(service, L"added " + std::to_wstring(i))), LSR_OK);
  }
  static std::shared_ptr<_IQeLocation> Renamed(_IQeLaApiSmart& service, const std::wstring& id) {
    const std::shared_ptr<_IQeLocation> location = service.GetLocation(id);
    location->SetName(L"renamed");
    return location;
  }
};

TEST_F(EditsDuringACalculation, LocationsThatAreAddedAreKeptAndCountFromTheNextOneOn) {
  LoadSet({WithTexts("A", LCT_REGISTRY_KEY, {kKey}), {.id = "B"}, {.id = "C"}});
  WhenTheRegistryIsAsked([this] { AddForty(*m_service); });
  m_service->Save();
  EXPECT_EQ(StoredIds(*m_service).size(), 43u);
  EXPECT_EQ(CurrentIds(*m_service), (Ids{L"B", L"C"}));
  m_service->Save();
  EXPECT_EQ(CurrentIds(*m_service).size(), 42u);
}

TEST_F(EditsDuringACalculation, EditsOfTheInstanceThatSavesByItselfAreKeptAndStored) {
  m_registry.Put(PackedSet({WithTexts("A", LCT_REGISTRY_KEY, {kKey}), {.id = "B"}}));
  _IQeLaApi& raw = *m_library.Api();
  WhenTheRegistryIsAsked([&] { AddForty(raw); });
  raw.Save();
  EXPECT_EQ(StoredIds(raw).size(), 42u);
  m_service->Load();
  EXPECT_EQ(StoredIds(*m_service).size(), 42u) << "all of them reached the registry";
  raw.Save();
  EXPECT_EQ(CurrentIds(raw).size(), 41u);
}

TEST_F(EditsDuringACalculation, LocationThatIsReplacedKeepsTheEditAndTakesTheMatchedAdapters) {
  LoadSet({{.id = "A", .name = "before"}});
  m_log.OnEvent([this](const LoggedEvent& event) {
    if (event.text != L"IsCurrentLocation checking location before") return;
    m_log.OnEvent(nullptr);
    EXPECT_EQ(m_service->UpdateLocation(Renamed(*m_service, L"A")), LSR_OK);
    AdapterList elsewhere;
    elsewhere.Add(L"Cafe").Index(6);
    m_adapters.Set(elsewhere);
  });
  AdapterList moved;
  moved.Add(L"Train").Index(4);
  m_adapters.Set(moved);
  m_service->Save();
  EXPECT_EQ(m_service->GetLocation(L"A")->GetName(), L"renamed");
  EXPECT_EQ(MatchedAdapters(*m_service, L"A"), Indexes{4});
  m_service->Save();
  EXPECT_EQ(MatchedAdapters(*m_service, L"A"), Indexes{6});
}

TEST_F(EditsDuringACalculation, LocationOfARawSetThatIsReplacedKeepsTheEditToo) {
  LoadSet({{.id = "A", .name = "before"},
           WithTexts("B", LCT_DEFAULT_GATEWAY, {"0000:0000:0000:0000:0000:ffff:0a00:0007"})});
  m_log.OnEvent([this](const LoggedEvent& event) {
    if (event.text != L"IsCurrentLocation checking location before") return;
    m_log.OnEvent(nullptr);
    EXPECT_EQ(m_service->UpdateLocation(Renamed(*m_service, L"A")), LSR_OK);
  });
  m_service->Save();
  EXPECT_EQ(m_service->GetLocation(L"A")->GetName(), L"renamed");
}

// Writing back brings raw texts into their normal form. A save inside the calculation does so under its feet.
TEST_F(EditsDuringACalculation, RawSetStaysAsItWasAlsoWhenASaveInsideWritesItBack) {
  AdapterList list;
  list.Add(L"LAN").Index(3).Gateway("10.0.0.7");
  list.Add(L"Wi-Fi").Index(5).Gateway("10.0.0.1");
  m_adapters.Set(list);
  bool isInside = false;
  m_log.OnEvent([&](const LoggedEvent& event) {
    if (event.text != L"IsCurrentLocation checking location first") return;
    m_log.OnEvent(nullptr);
    isInside = true;
    m_service->Save();
  });
  // What is raw matches no adapter; what it becomes would match the first.
  LoadSet({{.id = "A", .name = "first"},
           WithTexts("B", LCT_DEFAULT_GATEWAY, {"0000:0000:0000:0000:0000:ffff:0a00:0007", "10.0.0.1"})});
  EXPECT_TRUE(isInside);
  EXPECT_EQ(MatchedAdapters(*m_service, L"B"), Indexes{5});
}

TEST_F(EditsDuringACalculation, LocationThatIsLoadedAnewKeepsWhatWasLoaded) {
  LoadSet({{.id = "A", .name = "before"}});
  m_log.OnEvent([this](const LoggedEvent& event) {
    if (event.text != L"IsCurrentLocation checking location before") return;
    m_log.OnEvent(nullptr);
    LoadSet({{.id = "A", .name = "loaded"}});
  });
  m_service->Save();
  EXPECT_EQ(m_service->GetLocation(L"A")->GetName(), L"loaded");
}

// A load without memory takes the set back that was there before it, but not the host's edit with it.
TEST_F(EditsDuringACalculation, LocationThatIsAddedIsKeptWhenTheLoadThenRunsOutOfMemory) {
  LoadSet({{.id = "A"}});
  m_registry.Put(PackedSet({{.id = "B", .name = "loaded"}}));
  HeapWatch heap(Module());
  m_log.OnEvent([&](const LoggedEvent& event) {
    if (event.text != L"IsCurrentLocation checking location loaded") return;
    m_log.OnEvent(nullptr);
    EXPECT_EQ(m_service->AddLocation(NewLocation(*m_service, L"C")), LSR_OK);
    heap.FailAt(0, HeapWatch::Failing::kFromThenOn);
  });
  EXPECT_FALSE(m_service->Load());
  EXPECT_TRUE(heap.StopFailing());
  EXPECT_EQ(StoredIds(*m_service), (Ids{L"B", L"C"}));
}

TEST_F(EditsDuringACalculation, LocationThatIsRemovedIsNotBroughtBack) {
  LoadSet({{.id = "A", .name = "first"}, {.id = "B", .name = "second"}});
  m_log.Clear();
  m_log.OnEvent([this](const LoggedEvent& event) {
    if (event.text != L"IsCurrentLocation checking location first") return;
    m_log.OnEvent(nullptr);
    EXPECT_EQ(m_service->RemoveLocation(L"A"), LSR_OK);
  });
  m_service->Save();
  EXPECT_EQ(StoredIds(*m_service), Ids{L"B"});
  EXPECT_EQ(AddedLines(), (Ids{L"Adding current location ID A", L"Adding current location ID B"}));
  EXPECT_EQ(CurrentIds(*m_service), Ids{L"B"});
}

// What follows moves up: the adapters of the removed one are not written to the next.
TEST_F(EditsDuringACalculation, LocationBehindOneThatIsRemovedKeepsItsOwnAdapters) {
  LoadSet({{.id = "A", .name = "first"}, WithTexts("B", LCT_DEFAULT_GATEWAY, {"10.9.9.9"}, {77})});
  m_log.OnEvent([this](const LoggedEvent& event) {
    if (event.text != L"IsCurrentLocation checking location first") return;
    m_log.OnEvent(nullptr);
    EXPECT_EQ(m_service->RemoveLocation(L"A"), LSR_OK);
  });
  m_service->Save();
  EXPECT_EQ(MatchedAdapters(*m_service, L"B"), Indexes{77});
}

// At every single line of the log: the set grows, shrinks, is loaded anew, and calculated inside the calculation.
TEST_F(EditsDuringACalculation, AreSafeAtEveryLineOfTheLog) {
  AdapterList list;
  for (int i = 0; i < 5; ++i) list.Add(L"an adapter with a description that needs memory").Gateway("10.0.0.1");
  const std::vector<LocationBlob> set{WithTexts("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1"}),
                                      WithTexts("B", LCT_DNS_SUFFIX, {"c*rp.example"}),
                                      WithTexts("C", LCT_REGISTRY_KEY, {kKey}),
                                      {.id = "D"}};
  m_adapters.Set(list);
  LoadSet(set);
  m_log.Clear();
  m_service->Save();
  const std::size_t lines = m_log.Events().size();
  ASSERT_GT(lines, 30u);
  for (std::size_t line = 0; line < lines; ++line) {
    SCOPED_TRACE(line);
    LoadSet(set);
    std::size_t logged = 0;
    m_log.OnEvent([&](const LoggedEvent&) {
      if (logged++ != line) return;
      AddForty(*m_service);
      m_adapters.Set(OfficeNetwork());
      m_service->Save();
      m_service->RemoveAllLocations();
      m_adapters.Set(list);
      LoadSet(set);
      AddForty(*m_service);
    });
    m_service->Save();
    m_log.OnEvent(nullptr);
    EXPECT_EQ(StoredIds(*m_service).size(), 44u);
    m_service->Save();
    EXPECT_EQ(CurrentIds(*m_service).size(), 42u) << "all but those that look for a suffix and a key";
    ASSERT_FALSE(HasFailure());
  }
}

TEST_F(EditsDuringACalculation, QuestionAboutMediaTypesSurvivesASaveInsideTheLog) {
  AdapterList list;
  for (int i = 0; i < 5; ++i) list.Add(L"an adapter with a description that needs memory");
  m_adapters.Set(list);
  m_service->Save();
  m_log.Clear();
  m_log.OnEvent([this](const LoggedEvent& event) {
    if (!event.text.starts_with(L"The Adapter ")) return;
    m_log.OnEvent(nullptr);
    m_adapters.Set(OfficeNetwork());
    m_service->Save();
  });
  EXPECT_FALSE(m_service->IsAdapterMediaType(1, {99}));
  EXPECT_EQ(m_log.Count(L"The Adapter an adapter with a description that needs memory has Media Type as 1."), 5u);
}

}  // namespace

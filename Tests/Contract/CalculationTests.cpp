// Which of the stored locations are current, and what a calculation leaves behind.
#include <gmock/gmock.h>

#include <cstdint>
#include <string>
#include <vector>

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

TEST_F(Calculation, SuffixThatIsNoValidExpressionMatchesNothingAndEndsNothing) {
  const HandleLedger ledger(Module());
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

}  // namespace

// Adding, updating, removing, finding and listing locations.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/ImportTable/FreedMemory.h"
#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/HostLocation.h"

namespace {

class Store : public ServiceTest {
 protected:
  // How often the registry is written while `act` runs.
  std::size_t WritesBy(const std::function<void()>& act) {
    m_registry.ClearCalls();
    act();
    return m_registry.Count("RegSetValueExW");
  }
  std::size_t CalculationsBy(const std::function<void()>& act) {
    m_adapters.ClearCalls();
    act();
    return m_adapters.CallCount();
  }
};

TEST_F(Store, CreatedObjectsAreFreshAndNotStored) {
  _IQeLaApi* const service = m_library.Api();
  const std::shared_ptr<_IQeLocation> location = service->CreateLocation();
  EXPECT_EQ(location.use_count(), 1);
  EXPECT_EQ(location->GetId().size(), 36u);
  EXPECT_EQ(location->GetName(), location->GetId() + L" Location");
  EXPECT_TRUE(location->IsEnabled());
  EXPECT_NE(service->CreateLocation()->GetId(), location->GetId());
  const std::shared_ptr<_IEnumQeLocations> locations = service->CreateLocations();
  EXPECT_EQ(locations.use_count(), 1);
  EXPECT_EQ(locations->GetCount(), 0u);
  EXPECT_EQ(service->GetLocations()->GetCount(), 0u);
}

TEST_F(Store, AddAppendsAndKeepsTheOrder) {
  _IQeLaApi* const service = m_library.Api();
  for (const wchar_t* id : {L"C", L"A", L"B"}) EXPECT_EQ(service->AddLocation(NewLocation(*service, id)), LSR_OK);
  EXPECT_EQ(StoredIds(*service), (Ids{L"C", L"A", L"B"}));
}

TEST_F(Store, AddingAnIdTwiceAnswersTwoAndKeepsTheFirst) {
  _IQeLaApi* const service = m_library.Api();
  const std::shared_ptr<_IQeLocation> first = NewLocation(*service, L"A");
  first->SetName(L"first");
  const std::shared_ptr<_IQeLocation> second = NewLocation(*service, L"A");
  second->SetName(L"second");
  EXPECT_EQ(service->AddLocation(first), 0u);
  EXPECT_EQ(service->AddLocation(second), 2u);
  EXPECT_EQ(StoredIds(*service), Ids{L"A"});
  EXPECT_EQ(service->GetLocation(L"A")->GetName(), L"first");
}

TEST_F(Store, ResultCodesAreUneven) {
  _IQeLaApi* const service = m_library.Api();
  EXPECT_EQ(service->AddLocation(nullptr), 1u);
  EXPECT_EQ(service->UpdateLocation(nullptr), 4u);
  EXPECT_EQ(service->RemoveLocation(L"A"), 3u) << "from an empty set";
  EXPECT_EQ(service->UpdateLocation(NewLocation(*service, L"A")), 1u);
  EXPECT_EQ(service->AddLocation(NewLocation(*service, L"A")), 0u);
  EXPECT_EQ(service->RemoveLocation(L"B"), 3u);
  EXPECT_EQ(service->UpdateLocation(NewLocation(*service, L"B")), 1u);
  EXPECT_EQ(service->UpdateLocation(NewLocation(*service, L"A")), 0u);
  EXPECT_EQ(service->RemoveLocation(L"A"), 0u);
  EXPECT_TRUE(service->RemoveAllLocations());
  EXPECT_TRUE(service->RemoveAllLocations());
}

TEST_F(Store, LocationThatCannotBeCopiedIsNotStored) {
  _IQeLaApi* const service = m_library.Api();
  EXPECT_EQ(service->AddLocation(UncopyableLocation(*service, "A")), 1u);
  EXPECT_EQ(StoredIds(*service), Ids{});
}

TEST_F(Store, DuplicateIdIsFoundBeforeACopyIsTried) {
  _IQeLaApi* const service = m_library.Api();
  service->AddLocation(NewLocation(*service, L"A"));
  EXPECT_EQ(service->AddLocation(UncopyableLocation(*service, "A")), 2u);
}

TEST_F(Store, UpdateThatCannotCopyLeavesTheStoredLocation) {
  _IQeLaApi* const service = m_library.Api();
  const std::shared_ptr<_IQeLocation> location = NewLocation(*service, L"A");
  location->SetName(L"before");
  service->AddLocation(location);
  EXPECT_EQ(service->UpdateLocation(UncopyableLocation(*service, "A")), 1u);
  EXPECT_EQ(service->GetLocation(L"A")->GetName(), L"before");
  EXPECT_EQ(service->GetLocation(L"A")->GetCriterias()->GetCount(), 0u);
}

TEST_F(Store, UpdateReplacesAtTheSamePlace) {
  _IQeLaApi* const service = m_library.Api();
  for (const wchar_t* id : {L"A", L"B", L"C"}) service->AddLocation(NewLocation(*service, id));
  const std::shared_ptr<_IQeLocation> changed = service->GetLocation(L"B");
  changed->SetName(L"new");
  const LOCATION_CRITERIA_TYPE kind = LCT_ZELT_REACHABLE;
  changed->AddCriteria(&kind, L"");
  EXPECT_EQ(service->UpdateLocation(changed), LSR_OK);
  EXPECT_EQ(StoredIds(*service), (Ids{L"A", L"B", L"C"}));
  EXPECT_EQ(service->GetLocation(L"B")->GetName(), L"new");
  EXPECT_EQ(service->GetLocation(L"B")->GetCriterias()->GetCount(), 1u);
}

TEST_F(Store, UpdateTakesTheMatchedAdaptersOfTheCallersObject) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  service->AddLocation(NewLocation(*service, L"A"));
  const std::shared_ptr<_IQeLocation> stale = service->GetLocation(L"A");
  EXPECT_TRUE(service->Save());
  EXPECT_EQ(MatchedAdapters(*service, L"A"), std::vector<std::uint32_t>{kOfficeIndex});
  EXPECT_EQ(service->UpdateLocation(stale), LSR_OK);
  EXPECT_EQ(MatchedAdapters(*service, L"A"), std::vector<std::uint32_t>{});
}

TEST_F(Store, RemovalKeepsTheOrderOfTheOthers) {
  _IQeLaApi* const service = m_library.Api();
  for (const wchar_t* id : {L"A", L"B", L"C", L"D"}) service->AddLocation(NewLocation(*service, id));
  EXPECT_EQ(service->RemoveLocation(L"B"), LSR_OK);
  EXPECT_EQ(StoredIds(*service), (Ids{L"A", L"C", L"D"}));
  EXPECT_EQ(service->RemoveLocation(L"D"), LSR_OK);
  EXPECT_EQ(StoredIds(*service), (Ids{L"A", L"C"}));
}

TEST_F(Store, RemovalTakesOnlyTheFirstOfEqualIds) {
  m_registry.Put(PackedSet({{.id = "A", .name = "1"}, {.id = "B", .name = "2"}, {.id = "A", .name = "3"}}));
  _IQeLaApi* const service = m_library.Api();
  EXPECT_EQ(service->RemoveLocation(L"A"), LSR_OK);
  EXPECT_EQ(StoredIds(*service), (Ids{L"B", L"A"}));
  EXPECT_EQ(service->GetLocation(L"A")->GetName(), L"3");
}

TEST_F(Store, RemoveAllEmptiesTheSet) {
  _IQeLaApi* const service = m_library.Api();
  for (const wchar_t* id : {L"A", L"B"}) service->AddLocation(NewLocation(*service, id));
  EXPECT_TRUE(service->RemoveAllLocations());
  EXPECT_EQ(StoredIds(*service), Ids{});
  EXPECT_EQ(CurrentIds(*service), Ids{});
}

TEST_F(Store, IdsAreComparedExactly) {
  _IQeLaApi* const service = m_library.Api();
  const Ids ids{L"Office", L"office", L"Office ", std::wstring(L"Office\0x", 8), L""};
  for (const std::wstring& id : ids) EXPECT_EQ(service->AddLocation(NewLocation(*service, id)), LSR_OK);
  EXPECT_EQ(service->AddLocation(NewLocation(*service, L"")), LSR_DUPLICATE_ID);
  EXPECT_EQ(StoredIds(*service), ids);
  EXPECT_EQ(service->GetLocation(L"OFFICE"), nullptr);
  EXPECT_EQ(service->RemoveLocation(L"office"), LSR_OK);
  EXPECT_EQ(StoredIds(*service), (Ids{L"Office", L"Office ", std::wstring(L"Office\0x", 8), L""}));
}

TEST_F(Store, EverythingHandedOutIsAFreshCopy) {
  _IQeLaApi* const service = m_library.Api();
  const std::shared_ptr<_IQeLocation> mine = NewLocation(*service, L"A");
  service->AddLocation(mine);
  mine->SetName(L"changed after adding");
  const std::shared_ptr<_IQeLocation> first = service->GetLocation(L"A");
  const std::shared_ptr<_IQeLocation> second = service->GetLocation(L"A");
  EXPECT_NE(first, second);
  EXPECT_EQ(first.use_count(), 1);
  EXPECT_NE(first->GetName(), L"changed after adding");

  first->SetName(L"changed");
  EXPECT_NE(service->GetLocation(L"A")->GetName(), L"changed");
  EXPECT_EQ(service->UpdateLocation(first), LSR_OK);
  EXPECT_EQ(service->GetLocation(L"A")->GetName(), L"changed");

  const std::shared_ptr<_IEnumQeLocations> list = service->GetLocations();
  EXPECT_EQ(list.use_count(), 1);
  EXPECT_NE(list->GetItem(0), list->GetItem(0));
  EXPECT_EQ(list->GetItem(0).use_count(), 1);
  EXPECT_NE(list->FindLocation(L"A"), list->FindLocation(L"A"));
  list->GetItem(0)->SetName(L"of the list");
  EXPECT_EQ(list->GetItem(0)->GetName(), L"changed");
  service->RemoveAllLocations();
  EXPECT_EQ(list->GetCount(), 1u);
  EXPECT_EQ(first->GetId(), L"A");
}

TEST_F(Store, ItemBeyondTheEndIsEmpty) {
  _IQeLaApi* const service = m_library.Api();
  service->AddLocation(NewLocation(*service, L"A"));
  const std::shared_ptr<_IEnumQeLocations> list = service->GetLocations();
  EXPECT_EQ(list->GetItem(list->GetCount()), nullptr);
  EXPECT_EQ(list->GetItem(UINT64_MAX), nullptr);
  EXPECT_EQ(list->FindLocation(L"B"), nullptr);
  EXPECT_EQ(service->GetLocation(L"B"), nullptr);
}

TEST_F(Store, RawInstanceSavesOnceAfterEveryEditEvenAFailedOne) {
  _IQeLaApi* const service = m_library.Api();
  const std::vector<std::pair<const char*, std::function<void()>>> edits{
      {"add", [&] { EXPECT_EQ(service->AddLocation(NewLocation(*service, L"A")), 0u); }},
      {"add null", [&] { EXPECT_EQ(service->AddLocation(nullptr), 1u); }},
      {"add uncopyable", [&] { EXPECT_EQ(service->AddLocation(UncopyableLocation(*service, "B")), 1u); }},
      {"add again", [&] { EXPECT_EQ(service->AddLocation(NewLocation(*service, L"A")), 2u); }},
      {"update", [&] { EXPECT_EQ(service->UpdateLocation(NewLocation(*service, L"A")), 0u); }},
      {"update unknown", [&] { EXPECT_EQ(service->UpdateLocation(NewLocation(*service, L"B")), 1u); }},
      {"update uncopyable", [&] { EXPECT_EQ(service->UpdateLocation(UncopyableLocation(*service, "A")), 1u); }},
      {"update null", [&] { EXPECT_EQ(service->UpdateLocation(nullptr), 4u); }},
      {"remove unknown", [&] { EXPECT_EQ(service->RemoveLocation(L"B"), 3u); }},
      {"remove", [&] { EXPECT_EQ(service->RemoveLocation(L"A"), 0u); }},
      {"remove all", [&] { EXPECT_TRUE(service->RemoveAllLocations()); }}};
  for (const auto& [name, edit] : edits) {
    std::size_t writes = 0;
    const std::size_t calculations = CalculationsBy([&] { writes = WritesBy(edit); });
    EXPECT_EQ(writes, 1u) << name;
    EXPECT_EQ(calculations, 1u) << name;
  }
}

TEST_F(Store, SmartInstanceNeitherSavesNorCalculatesAfterAnEdit) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  std::size_t writes = 0;
  const std::size_t calculations = CalculationsBy([&] {
    writes = WritesBy([&] {
      service->AddLocation(NewLocation(*service, L"A"));
      service->AddLocation(nullptr);
      service->AddLocation(UncopyableLocation(*service, "B"));
      service->AddLocation(NewLocation(*service, L"A"));
      service->UpdateLocation(NewLocation(*service, L"A"));
      service->UpdateLocation(NewLocation(*service, L"B"));
      service->UpdateLocation(nullptr);
      service->RemoveLocation(L"B");
      service->RemoveLocation(L"A");
      service->RemoveAllLocations();
    });
  });
  EXPECT_EQ(writes, 0u);
  EXPECT_EQ(calculations, 0u);
  EXPECT_TRUE(m_registry.Calls().empty());
}

TEST_F(Store, ResultOfAnEditIsItsOwnWhenSavingFails) {
  _IQeLaApi* const service = m_library.Api();
  m_registry.FailAlways("RegSetValueExW", ERROR_ACCESS_DENIED);
  EXPECT_EQ(service->AddLocation(NewLocation(*service, L"A")), LSR_OK);
  EXPECT_EQ(StoredIds(*service), Ids{L"A"});
  EXPECT_TRUE(service->RemoveAllLocations());
}

TEST_F(Store, StoreOperationsLogNothingOfTheirOwn) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  m_log.Clear();
  service->AddLocation(nullptr);
  service->AddLocation(NewLocation(*service, L"A"));
  service->UpdateLocation(nullptr);
  service->RemoveLocation(L"B");
  service->RemoveAllLocations();
  EXPECT_TRUE(m_log.Events().empty());
}

TEST_F(Store, CurrentLocationsComeInStoredOrder) {
  _IQeLaApi* const service = m_library.Api();
  service->AddLocation(NewLocation(*service, L"C", L"10.0.0.1"));
  service->AddLocation(NewLocation(*service, L"elsewhere", L"10.9.9.9"));
  service->AddLocation(NewLocation(*service, L"A"));
  service->AddLocation(NewLocation(*service, L"B", L"10.0.0.1"));
  EXPECT_EQ(CurrentIds(*service), (Ids{L"C", L"A", L"B"}));
  const std::shared_ptr<_IEnumQeLocations> current = service->GetCurrentLocations();
  EXPECT_EQ(current.use_count(), 1);
  EXPECT_NE(service->GetCurrentLocations(), current);
}

TEST_F(Store, CurrentIdThatOccursTwiceIsListedOnce) {
  m_registry.Put(PackedSet({{.id = "A", .name = "1"}, {.id = "A", .name = "2"}}));
  _IQeLaApi* const service = m_library.Api();
  EXPECT_EQ(m_log.Count(L"Adding current location ID A"), 2u);
  EXPECT_EQ(CurrentIds(*service), Ids{L"A"});
}

TEST_F(Store, CurrentIdWithoutALocationIsLeftOut) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  for (const wchar_t* id : {L"A", L"B"}) service->AddLocation(NewLocation(*service, id));
  EXPECT_TRUE(service->Save());
  EXPECT_EQ(service->RemoveLocation(L"A"), LSR_OK);
  EXPECT_EQ(CurrentIds(*service), Ids{L"B"});
}

TEST_F(Store, CurrentLocationThatCannotBeCopiedIsLeftOut) {
  LocationBlob blob{.id = "A"};
  blob.texts[LCT_DEFAULT_GATEWAY] = {"10.0.0.1", "10.0.0.1"};
  m_registry.Put(PackedSet({blob, {.id = "B"}}));
  _IQeLaApi* const service = m_library.Api();
  EXPECT_EQ(m_log.Count(L"Adding current location ID A"), 1u);
  EXPECT_EQ(CurrentIds(*service), Ids{L"B"});
  EXPECT_EQ(StoredIds(*service), (Ids{L"A", L"B"}));
}

TEST_F(Store, HostsOwnLocationIsCopiedThroughItsInterface) {
  _IQeLaApi* const service = m_library.Api();
  EXPECT_EQ(service->AddLocation(std::make_shared<HostLocation>()), LSR_OK);
  const std::shared_ptr<_IQeLocation> stored = service->GetLocation(L"host id");
  ASSERT_NE(stored, nullptr);
  EXPECT_EQ(stored->GetName(), L"host name");
  EXPECT_EQ(stored->GetNote(), L"host note");
  EXPECT_FALSE(stored->IsEnabled());
  EXPECT_EQ(MatchedAdapters(*service, L"host id"), (std::vector<std::uint32_t>{1, 2}));
}

// A location of the host's is asked in the middle of an operation, and its code may put another set in the place of the
// one that the operation began with.
TEST_F(Store, HostsOwnLocationMayLoadWhileItIsStored) {
  m_registry.Put(PackedSet({{.id = "A"}, {.id = "B"}}));
  const FreedMemory freed(Module());
  for (_IQeLaApiSmart* service : {m_library.SmartApi().get(), static_cast<_IQeLaApiSmart*>(m_library.Api())}) {
    const auto location = std::make_shared<HostLocation>();
    location->onId = [&] {
      m_registry.Put(PackedSet({{.id = "A"}, {.id = "C"}}));
      EXPECT_TRUE(service->Load());
      return L"D";
    };
    EXPECT_EQ(service->AddLocation(location), LSR_OK);
    EXPECT_EQ(StoredIds(*service), (Ids{L"A", L"C", L"D"}));
    location->onId = [&] {
      m_registry.Put(PackedSet({{.id = "B"}, {.id = "A"}}));
      EXPECT_TRUE(service->Load());
      return L"A";
    };
    EXPECT_EQ(service->UpdateLocation(location), LSR_OK);
    EXPECT_EQ(StoredIds(*service), (Ids{L"B", L"A"}));
    EXPECT_EQ(service->GetLocation(L"A")->GetName(), L"host name");
  }
}

TEST_F(Store, HostsOwnLocationMayEditWhileItIsStored) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  const auto location = std::make_shared<HostLocation>();
  bool asked = false;
  location->onId = [&] {
    if (std::exchange(asked, true)) service->AddLocation(NewLocation(*service, L"A"));
    return L"A";
  };
  EXPECT_EQ(service->AddLocation(location), LSR_DUPLICATE_ID) << "another one came first";
  EXPECT_EQ(StoredIds(*service), Ids{L"A"});
  asked = false;
  location->onId = [&] {
    if (std::exchange(asked, true)) service->RemoveLocation(L"A");
    return L"A";
  };
  EXPECT_EQ(service->UpdateLocation(location), LSR_FAILED) << "it is there no more";
  EXPECT_EQ(StoredIds(*service), Ids{});
}

}  // namespace

#include "FwClient/Service/QeLaLib/QeLocations.h"

#include <gtest/gtest.h>

#include <limits>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "Tests/Support/Blob.h"
#include "Tests/Support/HostLocation.h"
#include "Tests/Support/LocationBlob.h"
#include "Tests/Unit/PrintedErrors.h"

namespace {

using Blob::Bytes;
using Names = std::vector<std::wstring>;

const char kReadFailed[] = "UCD DeserializeFromBytes failed for class CQeLocations";
constexpr LOCATION_CRITERIA_TYPE kGateway = LCT_DEFAULT_GATEWAY;

CQeLocation Location(const std::wstring& id, const std::wstring& name = L"n") {
  CQeLocation location;
  location.SetId(id);
  location.SetName(name);
  return location;
}

// Locations with these IDs, stored through Add.
CQeLocations Collection(const Names& ids) {
  CQeLocations locations;
  for (const std::wstring& id : ids) {
    const CQeLocation location = Location(id);
    EXPECT_EQ(locations.Add(&location), 0u);
  }
  return locations;
}

// The bytes of a collection of these locations; at most 15.
Bytes BlobOf(std::initializer_list<Bytes> locations) { return Blob::Array({Blob::Array(locations)}); }

CQeLocations Read(const Bytes& bytes) {
  CQeLocations locations;
  EXPECT_TRUE(locations.DeserializeFromBytes(bytes));
  return locations;
}

Bytes BytesOf(const CQeLocations& locations) {
  Bytes bytes;
  EXPECT_TRUE(locations.SerializeToBytes(bytes));
  return bytes;
}

Names Ids(const CQeLocations& locations) {
  Names ids;
  for (std::uint64_t i = 0; i < locations.GetCount(); ++i) ids.push_back(locations.GetItem(i)->GetId());
  return ids;
}

Names NamesOf(const CQeLocations& locations) {
  Names names;
  for (const CQeLocation& location : locations.Items()) names.push_back(location.GetName());
  return names;
}

// A location whose copy fails, because it holds one gateway twice.
CQeLocation Uncopyable(const std::string& id) {
  using namespace Blob;
  CQeLocation location;
  EXPECT_TRUE(location.DeserializeFromBytes(
      Array({Array({Array({}), Array({Str("10.0.0.1"), Str("10.0.0.1")})}), Str(id), Str("uncopyable")})));
  return location;
}

// ---- adding ----

TEST(QeLocations, IsEmptyAtFirst) {
  const CQeLocations locations;
  EXPECT_EQ(locations.GetCount(), 0u);
  EXPECT_EQ(locations.GetItem(0), nullptr);
  EXPECT_EQ(locations.FindLocation(L""), nullptr);
}

TEST(QeLocations, AddsAtTheEnd) { EXPECT_EQ(Ids(Collection({L"c", L"a", L"b"})), (Names{L"c", L"a", L"b"})); }

TEST(QeLocations, AddingNoLocationGives1) {
  CQeLocations locations;
  EXPECT_EQ(locations.Add(nullptr), 1u);
  EXPECT_EQ(locations.GetCount(), 0u);
}

TEST(QeLocations, AddingSameIdTwiceGives2AndKeepsTheFirst) {
  CQeLocations locations;
  const CQeLocation first = Location(L"id", L"first"), second = Location(L"id", L"second");
  EXPECT_EQ(locations.Add(&first), 0u);
  EXPECT_EQ(locations.Add(&second), 2u);
  EXPECT_EQ(NamesOf(locations), Names{L"first"});
}

TEST(QeLocations, AddingWhatCannotBeCopiedGives1AndStoresNothing) {
  CQeLocations locations = Collection({L"a"});
  const CQeLocation location = Uncopyable("b");
  EXPECT_EQ(locations.Add(&location), 1u);
  EXPECT_EQ(Ids(locations), Names{L"a"});
}

TEST(QeLocations, ADuplicateIdIsSeenBeforeACopyIsTried) {
  CQeLocations locations = Collection({L"a"});
  const CQeLocation location = Uncopyable("a");
  EXPECT_EQ(locations.Add(&location), 2u);
}

TEST(QeLocations, IdsAreComparedExactly) {
  CQeLocations locations =
      Collection({L"Office", L"office", L" Office", L"Office ", std::wstring(L"Office\0", 7), L"\x212a", L"k", L"K"});
  EXPECT_EQ(locations.GetCount(), 8u);
  EXPECT_EQ(locations.FindLocation(L"OFFICE"), nullptr);
  EXPECT_EQ(locations.FindLocation(L"office")->GetId(), L"office");
}

TEST(QeLocations, AnEmptyIdIsAnIdLikeAnyOther) {
  CQeLocations locations = Collection({L"a", L""});
  const CQeLocation second = Location(L"");
  EXPECT_EQ(locations.Add(&second), 2u);
  EXPECT_EQ(locations.Update(&second), 0u);
  EXPECT_NE(locations.FindLocation(L""), nullptr);
  EXPECT_EQ(locations.Remove(L""), 0u);
  EXPECT_EQ(Ids(locations), Names{L"a"});
}

TEST(QeLocations, WhatWasAddedIsACopy) {
  CQeLocations locations;
  CQeLocation location = Location(L"id", L"before");
  locations.Add(&location);
  location.SetName(L"after");
  EXPECT_EQ(NamesOf(locations), Names{L"before"});
}

// ---- handing out ----

TEST(QeLocations, AnIndexBeyondTheEndGivesNoLocation) {
  const CQeLocations locations = Collection({L"a", L"b"});
  EXPECT_NE(locations.GetItem(1), nullptr);
  for (const std::uint64_t index :
       {std::uint64_t{2}, std::uint64_t{1} << 32, std::numeric_limits<std::uint64_t>::max()})
    EXPECT_EQ(locations.GetItem(index), nullptr);
}

TEST(QeLocations, EveryLocationHandedOutIsACopyOfItsOwn) {
  const CQeLocations locations = Collection({L"a"});
  const std::shared_ptr<_IQeLocation> copies[] = {locations.GetItem(0), locations.GetItem(0),
                                                  locations.FindLocation(L"a"), locations.FindLocation(L"a")};
  for (const auto& copy : copies) {
    EXPECT_EQ(copy.use_count(), 1);
    for (const auto& other : copies) EXPECT_EQ(&copy == &other, copy == other);
    EXPECT_NE(static_cast<const void*>(copy.get()), locations.Find(L"a"));
    copy->SetName(L"changed");
    copy->AddCriteria(&kGateway, L"10.0.0.1");
  }
  EXPECT_EQ(NamesOf(locations), Names{L"n"});
  EXPECT_EQ(locations.GetItem(0)->GetCriterias()->GetCount(), 0u);
}

TEST(QeLocations, CopiesOutliveTheCollection) {
  std::shared_ptr<_IQeLocation> copy;
  {
    const CQeLocations locations = Collection({L"a"});
    copy = locations.GetItem(0);
  }
  EXPECT_EQ(copy->GetId(), L"a");
}

TEST(QeLocations, FindsTheFirstOfEqualIds) {
  const CQeLocations locations =
      Read(BlobOf({Blob::Location("a", "1"), Blob::Location("b", "2"), Blob::Location("b", "3")}));
  EXPECT_EQ(locations.FindLocation(L"b")->GetName(), L"2");
  EXPECT_EQ(locations.Find(L"b"), &locations.Items()[1]);
  EXPECT_EQ(locations.Find(L"c"), nullptr);
}

// Without normalising or merging, unlike what Add does: the copy of a location is the location.
TEST(QeLocations, HandsOutLocationsAsTheyAreStored) {
  const CQeLocation stored = Uncopyable("a");
  Bytes storedBytes, copyBytes;
  ASSERT_TRUE(stored.SerializeToBytes(storedBytes));
  const CQeLocations locations = Read(BlobOf({storedBytes}));
  ASSERT_TRUE(locations.GetItem(0)->SerializeToBytes(copyBytes));
  EXPECT_EQ(copyBytes, storedBytes);
  ASSERT_TRUE(locations.FindLocation(L"a")->SerializeToBytes(copyBytes));
  EXPECT_EQ(copyBytes, storedBytes);
}

TEST(QeLocations, CollectionsAreCopiedWholeAndInOrder) {
  CQeLocations locations = Collection({L"a", L"b", L"c"});
  const CQeLocations copy = locations;
  locations.Clear();
  EXPECT_EQ(Ids(copy), (Names{L"a", L"b", L"c"}));
}

// ---- updating ----

TEST(QeLocations, UpdatesInPlace) {
  CQeLocations locations = Collection({L"a", L"b", L"c"});
  CQeLocation changed = Location(L"b", L"changed");
  changed.SetAdapterIndexes({7});
  EXPECT_EQ(locations.Update(&changed), 0u);
  EXPECT_EQ(Ids(locations), (Names{L"a", L"b", L"c"}));
  EXPECT_EQ(NamesOf(locations), (Names{L"n", L"changed", L"n"}));
  std::vector<std::uint32_t> indexes;
  locations.GetItem(1)->GetAdapterIndexes(indexes);
  EXPECT_EQ(indexes, std::vector<std::uint32_t>{7});  // the caller's, stale or not
}

TEST(QeLocations, UpdatingReplacesTheCriteria) {
  CQeLocations locations;
  CQeLocation location = Location(L"a");
  location.AddCriteria(&kGateway, L"10.0.0.1");
  locations.Add(&location);
  location.ClearCriterias();
  location.AddCriteria(&kGateway, L"10.0.0.2");
  EXPECT_EQ(locations.Update(&location), 0u);
  std::vector<std::wstring> gateways;
  locations.GetItem(0)->GetCriterias()->GetStringCriteria(kGateway, gateways);
  EXPECT_EQ(gateways, Names{L"10.0.0.2"});
}

TEST(QeLocations, UpdatingNoLocationGives4) {
  CQeLocations locations = Collection({L"a"});
  EXPECT_EQ(locations.Update(nullptr), 4u);
}

TEST(QeLocations, UpdatingAnUnknownIdGives1) {
  CQeLocations locations = Collection({L"a"});
  const CQeLocation location = Location(L"A", L"changed");
  EXPECT_EQ(locations.Update(&location), 1u);
  EXPECT_EQ(NamesOf(locations), Names{L"n"});
}

TEST(QeLocations, UpdatingWithWhatCannotBeCopiedGives1AndKeepsTheStored) {
  CQeLocations locations = Collection({L"a"});
  const CQeLocation location = Uncopyable("a");
  EXPECT_EQ(locations.Update(&location), 1u);
  EXPECT_EQ(NamesOf(locations), Names{L"n"});
}

TEST(QeLocations, UpdatesTheFirstOfEqualIds) {
  CQeLocations locations = Read(BlobOf({Blob::Location("a", "1"), Blob::Location("a", "2")}));
  const CQeLocation changed = Location(L"a", L"changed");
  EXPECT_EQ(locations.Update(&changed), 0u);
  EXPECT_EQ(NamesOf(locations), (Names{L"changed", L"2"}));
}

// ---- removing ----

TEST(QeLocations, RemovingKeepsTheOrderOfTheOthers) {
  CQeLocations locations = Collection({L"a", L"b", L"c", L"d"});
  EXPECT_EQ(locations.Remove(L"b"), 0u);
  EXPECT_EQ(Ids(locations), (Names{L"a", L"c", L"d"}));
  EXPECT_EQ(locations.Remove(L"d"), 0u);
  EXPECT_EQ(locations.Remove(L"a"), 0u);
  EXPECT_EQ(Ids(locations), Names{L"c"});
  EXPECT_EQ(locations.Remove(L"c"), 0u);
  EXPECT_EQ(locations.GetCount(), 0u);
}

TEST(QeLocations, RemovingAnUnknownIdGives3) {
  CQeLocations locations;
  EXPECT_EQ(locations.Remove(L"a"), 3u);
  EXPECT_EQ(locations.Remove(L""), 3u);
  locations = Collection({L"a"});
  EXPECT_EQ(locations.Remove(L"A"), 3u);
  EXPECT_EQ(locations.GetCount(), 1u);
}

TEST(QeLocations, RemovesOnlyTheFirstOfEqualIds) {
  CQeLocations locations = Read(BlobOf({Blob::Location("x", "1"), Blob::Location("a", "2"), Blob::Location("y", "3"),
                                        Blob::Location("a", "4"), Blob::Location("z", "5")}));
  EXPECT_EQ(locations.Remove(L"a"), 0u);
  EXPECT_EQ(NamesOf(locations), (Names{L"1", L"3", L"4", L"5"}));
}

TEST(QeLocations, ClearRemovesEverything) {
  CQeLocations locations = Collection({L"a", L"b"});
  locations.Clear();
  EXPECT_EQ(locations.GetCount(), 0u);
  EXPECT_EQ(locations.FindLocation(L"a"), nullptr);
}

// ---- byte form ----

TEST(QeLocations, WritesAnArrayOfOneArray) {
  EXPECT_EQ(BytesOf(CQeLocations()), (Bytes{0x91, 0x90}));
  EXPECT_EQ(BytesOf(Collection({L"a", L"b"})), BlobOf({Blob::Location("a"), Blob::Location("b")}));
}

TEST(QeLocations, WritesAndReadsCollectionsOfEverySize) {
  for (const auto& [count, header] : {std::pair{15u, Bytes{0x9f}}, std::pair{16u, Bytes{0xdc, 0x00, 0x10}},
                                      std::pair{3000u, Bytes{0xdc, 0x0b, 0xb8}}}) {
    const Bytes bytes = Blob::Join({{0x91}, header, Blob::Repeat(Blob::Location("id", "name"), count)});
    const CQeLocations locations = Read(bytes);
    EXPECT_EQ(locations.GetCount(), count);
    EXPECT_TRUE(BytesOf(locations) == bytes) << count;
  }
}

TEST(QeLocations, EmptyRecordLeavesTheSetAndAnEmptyListEmptiesIt) {
  CQeLocations locations = Collection({L"a"});
  EXPECT_TRUE(locations.DeserializeFromBytes({0x90}));
  EXPECT_EQ(locations.GetCount(), 1u);
  EXPECT_TRUE(locations.DeserializeFromBytes({0x91, 0x90}));
  EXPECT_EQ(locations.GetCount(), 0u);
}

TEST(QeLocations, SurplusLocationsGoFromTheEnd) {
  CQeLocations locations = Collection({L"a", L"b", L"c"});
  EXPECT_TRUE(locations.DeserializeFromBytes(BlobOf({Blob::Array({})})));
  EXPECT_EQ(Ids(locations), Names{L"a"});
}

TEST(QeLocations, LocationsAreOverwrittenInPlacePositionByPosition) {
  CQeLocations locations = Collection({L"a", L"b"});
  EXPECT_TRUE(locations.DeserializeFromBytes(
      BlobOf({Blob::Array({Blob::kNoCriteria, Blob::Str("x")}), Blob::Array({}), Blob::Location("c", "new")})));
  EXPECT_EQ(Ids(locations), (Names{L"x", L"b", L"c"}));
  EXPECT_EQ(NamesOf(locations), (Names{L"n", L"n", L"new"}));
}

TEST(QeLocations, NewLocationsWithShortRecordsHaveIdsOfTheirOwn) {
  const CQeLocations locations = Read(BlobOf({Blob::Array({}), Blob::Array({Blob::kNoCriteria})}));
  const Names ids = Ids(locations);
  ASSERT_EQ(ids.size(), 2u);
  EXPECT_EQ(ids[0].size(), 36u);
  EXPECT_EQ(ids[1].size(), 36u);
  EXPECT_NE(ids[0], ids[1]);
}

TEST(QeLocations, KeepsEqualIdsThatItReads) {
  EXPECT_EQ(Ids(Read(BlobOf({Blob::Location("a"), Blob::Location("a")}))), (Names{L"a", L"a"}));
}

TEST(QeLocations, IgnoresFurtherFieldsAndBytesBehind) {
  for (const Bytes& more : {Bytes{0xc0}, Bytes{0xc0, 0xc1}, Blob::Join({Bytes(100'000, 0x91), {0x90}})})
    EXPECT_EQ(Ids(Read(Blob::Join({{0x92, 0x91}, Blob::Location("a"), more}))), Names{L"a"});
}

TEST(QeLocations, BytesCutAnywhereLeaveTheSetUntouched) {
  const Bytes whole = BlobOf({Blob::Location("x"), Blob::Location("y")});
  CQeLocations locations = Collection({L"a"});
  for (std::size_t length = 0; length < whole.size(); ++length) {
    const PrintedErrors errors;
    EXPECT_FALSE(locations.DeserializeFromBytes(Bytes(whole.begin(), whole.begin() + static_cast<int>(length))));
    EXPECT_EQ(BytesOf(locations), BlobOf({Blob::Location("a")})) << length;
    EXPECT_EQ(errors.Lines(), length == 0 ? std::vector<std::string>{} : std::vector<std::string>{kReadFailed});
  }
}

TEST(QeLocations, ATypeErrorKeepsTheLocationsBeforeIt) {
  const PrintedErrors errors;
  CQeLocations locations = Collection({L"a", L"b", L"c"});
  EXPECT_FALSE(locations.DeserializeFromBytes(
      BlobOf({Blob::Location("x", "new"), Blob::Array({Blob::kNoCriteria, Blob::Str("y"), {0x07}})})));
  EXPECT_EQ(Ids(locations), (Names{L"x", L"y"}));
  EXPECT_EQ(NamesOf(locations), (Names{L"new", L"n"}));
  EXPECT_EQ(errors.Lines(), std::vector<std::string>{kReadFailed});  // the collection's name, not the location's
}

TEST(QeLocations, EveryLevelMustBeAnArray) {
  for (const Bytes& bytes : {Bytes{0xc0}, Bytes{0x80}, Bytes{0xa0}, Bytes{0x91, 0xc0}, Bytes{0x91, 0x80},
                             Bytes{0x91, 0xa1, 'a'}, Bytes{0x91, 0x05}}) {
    CQeLocations locations = Collection({L"a"});
    EXPECT_FALSE(locations.DeserializeFromBytes(bytes));
    EXPECT_EQ(Ids(locations), Names{L"a"});
  }
  CQeLocations locations;
  EXPECT_FALSE(locations.DeserializeFromBytes(BlobOf({Bytes{0xc0}})));
}

TEST(QeLocations, LoneSurrogateInOneLocationCannotBeWritten) {
  const PrintedErrors errors;
  const CQeLocations locations = Collection({L"a", L"b\xd800", L"c"});
  Bytes bytes{1, 2, 3};
  EXPECT_FALSE(locations.SerializeToBytes(bytes));
  EXPECT_EQ(bytes, (Bytes{1, 2, 3}));
  EXPECT_EQ(errors.Lines(), std::vector<std::string>{"UCD SerializeToBytes failed for class CQeLocations"});
}

// ---- memory that runs out ----

TEST(QeLocations, AddsWhollyOrNotWhenMemoryRunsOut) {
  CQeLocation location = Location(L"b", L"a name too long for a string's own buffer");
  location.AddCriteria(&kGateway, L"10.0.0.1");
  location.SetAdapterIndexes({1, 2});
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    CQeLocations locations = Collection({L"a"});
    bool thrown = false;
    attempt([&] {
      try {
        locations.Add(&location);
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
    });
    EXPECT_EQ(locations.GetCount(), thrown ? 1u : 2u);
    EXPECT_EQ(locations.Add(&location), thrown ? 0u : 2u);
    EXPECT_EQ(locations.Items()[1].GetName(), location.GetName());
  });
}

TEST(QeLocations, UpdatesWhollyOrNotWhenMemoryRunsOut) {
  CQeLocation location = Location(L"a", L"a name too long for a string's own buffer");
  location.AddCriteria(&kGateway, L"10.0.0.1");
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    CQeLocations locations = Collection({L"a"});
    bool thrown = false;
    attempt([&] {
      try {
        locations.Update(&location);
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
    });
    EXPECT_EQ(locations.Items()[0].GetName(), thrown ? L"n" : location.GetName());
    EXPECT_EQ(locations.Items()[0].GetCriterias()->GetCount(), thrown ? 0u : 1u);
  });
}

TEST(QeLocations, CopiesThatFailLeaveNothingWhenMemoryRunsOut) {
  const CQeLocations locations = Read(BlobOf({Blob::Location("a"), Blob::Location("b")}));
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    bool thrown = false;
    std::shared_ptr<_IQeLocation> item, found;
    CQeLocations copy;
    attempt([&] {
      try {
        item = locations.GetItem(0);
        found = locations.FindLocation(L"b");
        copy = locations;
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
    });
    EXPECT_EQ(copy.GetCount(), thrown ? 0u : 2u);
  });
}

TEST(QeLocations, AreReadWhollyOrLeftAsTheyWereWhenMemoryRunsOut) {
  const Bytes whole =
      BlobOf({Blob::Location("a", "a name, long one"), Blob::Location("b"), Blob::Location("c"), Blob::Array({})});
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    const PrintedErrors errors;
    CQeLocations locations = Collection({L"x"});
    Bytes before;
    EXPECT_TRUE(locations.SerializeToBytes(before));
    bool read = false;
    attempt([&] { read = locations.DeserializeFromBytes(whole); });
    EXPECT_EQ(errors.Count(), read ? 0u : 1u);
    Bytes bytes;
    EXPECT_TRUE(locations.SerializeToBytes(bytes));
    EXPECT_EQ(bytes == before, !read);
    EXPECT_TRUE(locations.DeserializeFromBytes(whole));
    EXPECT_EQ(locations.GetCount(), 4u);
  });
}

// Taken for plain, it would be taken over with the ID twice.
TEST(QeLocations, AreTakenOverByTheRuleOfAddingWhereThereWasNoMemoryToFindOutWhetherTheyNeedIt) {
  CQeLocations locations;
  {
    std::vector<CQeLocation> items{Location(L"A", L"first"), Location(L"A", L"second")};
    HeapWatch heap(ThisProgram());
    heap.FailAt(0);
    locations = CQeLocations::Of(std::move(items));
    EXPECT_TRUE(heap.StopFailing());
  }
  EXPECT_FALSE(locations.IsPlain());
  CQeLocations taken;
  taken.AddFrom(locations, {L"A", L"A"});
  EXPECT_EQ(NamesOf(taken), Names{L"first"});
}

// What a set is known to hold decides whether the rules can come down to plain copies.
LocationBlob WithGateways(const char* id, std::vector<std::string> gateways) {
  LocationBlob blob{.id = id};
  blob.texts[LCT_DEFAULT_GATEWAY] = std::move(gateways);
  return blob;
}
CQeLocations ReadBack(const std::vector<LocationBlob>& blobs) {
  std::vector<Bytes> packed;
  for (const LocationBlob& blob : blobs) packed.push_back(blob.Pack());
  return Read(Blob::Array({Blob::Array(packed)}));
}
constexpr char kMapped[] = "0000:0000:0000:0000:0000:ffff:0a00:0001";

TEST(QeLocations, ArePlainWhenTheyCouldHaveBeenAdded) {
  EXPECT_TRUE(CQeLocations().IsPlain());
  EXPECT_TRUE(Collection({L"A", L"B"}).IsPlain());
  EXPECT_TRUE(ReadBack({}).IsPlain());
  EXPECT_TRUE(ReadBack({WithGateways("A", {"10.0.0.1", "10.0.0.2"}), WithGateways("a", {"10.0.0.1"})}).IsPlain());
  EXPECT_FALSE(ReadBack({WithGateways("A", {}), WithGateways("B", {}), WithGateways("A", {})}).IsPlain());
  EXPECT_FALSE(ReadBack({WithGateways("A", {"10.0.0.1", "10.0.0.2", "10.0.0.1"})}).IsPlain());
  EXPECT_FALSE(ReadBack({WithGateways("A", {kMapped})}).IsPlain());
}

TEST(QeLocations, AreKnownToBePlainAgainOnlyWhenAllIsReadOrGone) {
  CQeLocations locations = ReadBack({WithGateways("A", {}), WithGateways("A", {})});
  EXPECT_FALSE(CQeLocations(locations).IsPlain()) << "a copy is as its original";
  EXPECT_EQ(locations.Remove(L"A"), 0u);
  EXPECT_FALSE(locations.IsPlain()) << "not looked for again";
  EXPECT_TRUE(locations.DeserializeFromBytes(BlobOf({})));
  EXPECT_TRUE(locations.IsPlain());
  EXPECT_FALSE(locations.DeserializeFromBytes(BlobOf({Blob::Number(1)}))) << "a number is no location";
  EXPECT_FALSE(locations.IsPlain()) << "who knows what was read";
  locations.Clear();
  EXPECT_TRUE(locations.IsPlain());
}

TEST(QeLocations, AreNotPlainAnyMoreWhenALocationOfTheHostsChangesItsMind) {
  HostLocation fickle;
  bool asked = false;
  fickle.onId = [&] { return std::exchange(asked, true) ? L"A" : L"B"; };
  CQeLocations added = Collection({L"A"});
  EXPECT_EQ(added.Add(&fickle), 0u);
  EXPECT_FALSE(added.IsPlain());
  CQeLocations updated = Collection({L"A", L"B"});
  asked = false;
  EXPECT_EQ(updated.Update(&fickle), 0u);
  EXPECT_FALSE(updated.IsPlain());
}

// The same for sets of both sorts: what a loop of finding and adding would give.
TEST(QeLocations, AreTakenOverInTheOrderOfTheIdsByTheRuleOfAdding) {
  const std::vector<CQeLocations> sources{
      Collection({L"A", L"B", L"C", L"D"}),
      ReadBack({WithGateways("A", {"x"}), WithGateways("B", {"x", "x"}), WithGateways("A", {kMapped}),
                WithGateways("C", {kMapped}), WithGateways("D", {})})};
  for (const CQeLocations& source : sources) {
    for (const Names& ids :
         {Names{}, Names{L"A", L"C", L"D"}, Names{L"D", L"A"}, Names{L"A", L"A", L"B"}, Names{L"C", L"C"},
          Names{L"none", L"B", L"none"}, Names{L"B", L"A", L"B", L"C"}, Names{L"A", L"B", L"C", L"D"}}) {
      CQeLocations expected;
      for (const std::wstring& id : ids)
        if (const CQeLocation* location = source.Find(id); location != nullptr) expected.Add(location);
      CQeLocations taken;
      taken.AddFrom(source, ids);
      EXPECT_EQ(BytesOf(taken), BytesOf(expected)) << ::testing::PrintToString(ids);
    }
  }
}

}  // namespace

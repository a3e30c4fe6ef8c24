#include "FwClient/Service/QeLaLib/QeLocationCriterias.h"

#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "Tests/Support/Blob.h"
#include "Tests/Unit/PrintedErrors.h"

namespace {

using Blob::Bytes;
using Entry = std::tuple<std::uint32_t, std::wstring>;

constexpr LOCATION_CRITERIA_TYPE Kind(std::uint32_t value) { return static_cast<LOCATION_CRITERIA_TYPE>(value); }

constexpr LOCATION_CRITERIA_TYPE kTextKinds[] = {LCT_DNS_SUFFIX,   LCT_DEFAULT_GATEWAY, LCT_DHCP_SERVER,
                                                 LCT_DNS_SERVER,   LCT_PRIMARY_WINS,    LCT_SECONDARY_WINS,
                                                 LCT_REGISTRY_KEY, LCT_DOMAIN_REACHABLE};

std::vector<std::wstring> Texts(const CQeLocationCriterias& criterias, LOCATION_CRITERIA_TYPE kind) {
  std::vector<std::wstring> texts;
  EXPECT_TRUE(criterias.GetStringCriteria(kind, texts));
  return texts;
}

// Every entry in the order of the enumeration; the management-server criterion with an empty text.
std::vector<Entry> Entries(const CQeLocationCriterias& criterias) {
  std::vector<Entry> entries;
  for (std::size_t i = 0; i < criterias.GetCount(); ++i) {
    LOCATION_CRITERIA_TYPE kind{};
    std::wstring text;
    EXPECT_TRUE(criterias.GetAt(i, kind, text));
    entries.emplace_back(kind, text);
  }
  return entries;
}

// ---- adding ----

TEST(QeLocationCriterias, IsEmptyAtFirst) {
  const CQeLocationCriterias criterias;
  EXPECT_EQ(criterias.GetCount(), 0u);
  for (const LOCATION_CRITERIA_TYPE kind : kTextKinds) EXPECT_TRUE(Texts(criterias, kind).empty());
  bool reachable = true;
  EXPECT_TRUE(criterias.GetBoolCriteria(LCT_ZELT_REACHABLE, reachable));
  EXPECT_FALSE(reachable);
}

TEST(QeLocationCriterias, KeepsEachKindInItsOwnList) {
  CQeLocationCriterias criterias;
  for (const LOCATION_CRITERIA_TYPE kind : kTextKinds)
    EXPECT_EQ(criterias.Add(kind, L"text " + std::to_wstring(kind)), 0u);
  for (const LOCATION_CRITERIA_TYPE kind : kTextKinds)
    EXPECT_EQ(Texts(criterias, kind), std::vector<std::wstring>{L"text " + std::to_wstring(kind)});
}

TEST(QeLocationCriterias, OneTextMayStandUnderSeveralKinds) {
  CQeLocationCriterias criterias;
  for (const LOCATION_CRITERIA_TYPE kind : kTextKinds) EXPECT_EQ(criterias.Add(kind, L"10.0.0.1"), 0u);
  EXPECT_EQ(criterias.GetCount(), 8u);
}

TEST(QeLocationCriterias, AddingAnEntryTwiceGives2AndKeepsOne) {
  for (const LOCATION_CRITERIA_TYPE kind : kTextKinds) {
    CQeLocationCriterias criterias;
    EXPECT_EQ(criterias.Add(kind, L"same"), 0u);
    EXPECT_EQ(criterias.Add(kind, L"same"), 2u);
    EXPECT_EQ(criterias.GetCount(), 1u);
  }
}

TEST(QeLocationCriterias, AddingTheManagementServerTwiceGives2AndCountsOnce) {
  CQeLocationCriterias criterias;
  EXPECT_EQ(criterias.Add(LCT_ZELT_REACHABLE, L"ignored"), 0u);
  EXPECT_EQ(criterias.Add(LCT_ZELT_REACHABLE, L"other"), 2u);
  EXPECT_EQ(criterias.GetCount(), 1u);
}

TEST(QeLocationCriterias, NormalisesTheTextsOfEveryKind) {
  for (const LOCATION_CRITERIA_TYPE kind : kTextKinds) {
    CQeLocationCriterias criterias;
    EXPECT_EQ(criterias.Add(kind, L"0000:0000:0000:0000:0000:FFFF:0A00:0001"), 0u);
    EXPECT_EQ(Texts(criterias, kind), std::vector<std::wstring>{L"10.0.0.1"});
    EXPECT_EQ(criterias.Add(kind, L"10.0.0.1"), 2u);
  }
}

TEST(QeLocationCriterias, BothSpellingsOfAServerAreOneEntry) {
  CQeLocationCriterias criterias;
  EXPECT_EQ(criterias.Add(LCT_DEFAULT_GATEWAY, L"0000:0000:0000:0000:0000:ffff:0a00:0001"), 0u);
  EXPECT_EQ(criterias.Add(LCT_DEFAULT_GATEWAY, L"10.0.0.1"), 2u);
  EXPECT_EQ(criterias.Remove(LCT_DEFAULT_GATEWAY, L"0000:0000:0000:0000:0000:FFFF:0a00:0001"), 0u);
  EXPECT_EQ(criterias.GetCount(), 0u);
}

TEST(QeLocationCriterias, TextsThatDifferInLetterCaseAreTwoEntries) {
  CQeLocationCriterias criterias;
  EXPECT_EQ(criterias.Add(LCT_DNS_SUFFIX, L"CORP.EXAMPLE"), 0u);
  EXPECT_EQ(criterias.Add(LCT_DNS_SUFFIX, L"corp.example"), 0u);
  EXPECT_EQ(Texts(criterias, LCT_DNS_SUFFIX), (std::vector<std::wstring>{L"CORP.EXAMPLE", L"corp.example"}));
}

TEST(QeLocationCriterias, TextsAreComparedToTheirEndPastNuls) {
  CQeLocationCriterias criterias;
  EXPECT_EQ(criterias.Add(LCT_DNS_SUFFIX, std::wstring(L"a\0b", 3)), 0u);
  EXPECT_EQ(criterias.Add(LCT_DNS_SUFFIX, std::wstring(L"a\0c", 3)), 0u);
  EXPECT_EQ(criterias.Add(LCT_DNS_SUFFIX, L"a"), 0u);
  EXPECT_EQ(criterias.Add(LCT_DNS_SUFFIX, L" a"), 0u);  // blanks count
  EXPECT_EQ(criterias.GetCount(), 4u);
}

TEST(QeLocationCriterias, EmptyTextIsAnEntry) {
  CQeLocationCriterias criterias;
  EXPECT_EQ(criterias.Add(LCT_PRIMARY_WINS, L""), 0u);
  EXPECT_EQ(criterias.Add(LCT_PRIMARY_WINS, L""), 2u);
  EXPECT_EQ(criterias.GetCount(), 1u);
  EXPECT_EQ(criterias.Remove(LCT_PRIMARY_WINS, L""), 0u);
}

TEST(QeLocationCriterias, KindsAbove8AreInvalid) {
  CQeLocationCriterias criterias;
  criterias.Add(LCT_DNS_SUFFIX, L"x");
  for (const std::uint32_t value : {9u, 255u, 0x80000000u, 0xffffffffu}) {
    EXPECT_EQ(criterias.Add(Kind(value), L"x"), 1u);
    EXPECT_EQ(criterias.Remove(Kind(value), L"x"), 1u);
  }
  EXPECT_EQ(criterias.GetCount(), 1u);
}

TEST(QeLocationCriterias, TakesTextsOfAHundredThousandCharacters) {
  CQeLocationCriterias criterias;
  const std::wstring text(100'000, L'\x4e16');
  EXPECT_EQ(criterias.Add(LCT_REGISTRY_KEY, text), 0u);
  EXPECT_EQ(criterias.Add(LCT_REGISTRY_KEY, text), 2u);
  Bytes bytes;
  CQeLocationCriterias copy;
  ASSERT_TRUE(criterias.SerializeToBytes(bytes));
  ASSERT_TRUE(copy.DeserializeFromBytes(bytes));
  EXPECT_TRUE(Texts(copy, LCT_REGISTRY_KEY) == std::vector<std::wstring>{text});
}

// ---- removing ----

TEST(QeLocationCriterias, RemovingKeepsTheOrderOfTheOthers) {
  CQeLocationCriterias criterias;
  for (const wchar_t* text : {L"a", L"b", L"c"}) criterias.Add(LCT_DNS_SERVER, text);
  EXPECT_EQ(criterias.Remove(LCT_DNS_SERVER, L"b"), 0u);
  EXPECT_EQ(Texts(criterias, LCT_DNS_SERVER), (std::vector<std::wstring>{L"a", L"c"}));
}

TEST(QeLocationCriterias, RemovingWhatIsAbsentGives3AndChangesNothing) {
  CQeLocationCriterias criterias;
  criterias.Add(LCT_DNS_SUFFIX, L"corp.example");
  EXPECT_EQ(criterias.Remove(LCT_DNS_SUFFIX, L"CORP.example"), 3u);
  EXPECT_EQ(criterias.Remove(LCT_DNS_SERVER, L"corp.example"), 3u);
  EXPECT_EQ(criterias.Remove(LCT_ZELT_REACHABLE, L"corp.example"), 3u);
  EXPECT_EQ(Entries(criterias), (std::vector<Entry>{{0, L"corp.example"}}));
}

TEST(QeLocationCriterias, RemovesTheManagementServer) {
  CQeLocationCriterias criterias;
  criterias.Add(LCT_ZELT_REACHABLE, L"");
  EXPECT_EQ(criterias.Remove(LCT_ZELT_REACHABLE, L"anything"), 0u);
  EXPECT_EQ(criterias.GetCount(), 0u);
}

TEST(QeLocationCriterias, RemovesOnlyTheFirstOfEqualEntries) {
  CQeLocationCriterias criterias;
  ASSERT_TRUE(criterias.DeserializeFromBytes(
      Blob::Array({Blob::Array({Blob::Str("a"), Blob::Str("b"), Blob::Str("a"), Blob::Str("c")})})));
  EXPECT_EQ(criterias.Remove(LCT_DNS_SUFFIX, L"a"), 0u);
  EXPECT_EQ(Texts(criterias, LCT_DNS_SUFFIX), (std::vector<std::wstring>{L"b", L"a", L"c"}));
}

// The stored text is the mapped form, the text looked up is the dotted one: they are not equal.
TEST(QeLocationCriterias, EntriesReadAsMappedAddressesCannotBeRemoved) {
  const std::wstring mapped = L"0000:0000:0000:0000:0000:ffff:0a00:0001";
  const std::string narrow(mapped.begin(), mapped.end());
  CQeLocationCriterias criterias;
  ASSERT_TRUE(
      criterias.DeserializeFromBytes(Blob::Join({{0x91, 0x91, 0xd9, 39}, Bytes(narrow.begin(), narrow.end())})));
  EXPECT_EQ(criterias.Remove(LCT_DNS_SUFFIX, mapped), 3u);
  EXPECT_EQ(criterias.Add(LCT_DNS_SUFFIX, mapped), 0u);
  EXPECT_EQ(Texts(criterias, LCT_DNS_SUFFIX), (std::vector<std::wstring>{mapped, L"10.0.0.1"}));
}

TEST(QeLocationCriterias, ClearRemovesEverything) {
  CQeLocationCriterias criterias;
  for (const LOCATION_CRITERIA_TYPE kind : kTextKinds) criterias.Add(kind, L"x");
  criterias.Add(LCT_ZELT_REACHABLE, L"");
  criterias.Clear();
  EXPECT_EQ(criterias.GetCount(), 0u);
  EXPECT_EQ(criterias.Add(LCT_ZELT_REACHABLE, L""), 0u);
}

// ---- enumerating ----

TEST(QeLocationCriterias, EnumeratesByKindThenInOrderOfAddingAndTheManagementServerLast) {
  CQeLocationCriterias criterias;
  criterias.Add(LCT_ZELT_REACHABLE, L"");
  for (std::uint32_t kind = 8; kind-- > 0;) {  // added the other way round
    if (kind == LCT_DHCP_SERVER) continue;     // an empty list in the middle
    criterias.Add(Kind(kind), L"z");
    criterias.Add(Kind(kind), L"a");
  }
  EXPECT_EQ(Entries(criterias), (std::vector<Entry>{{0, L"z"},
                                                    {0, L"a"},
                                                    {1, L"z"},
                                                    {1, L"a"},
                                                    {3, L"z"},
                                                    {3, L"a"},
                                                    {4, L"z"},
                                                    {4, L"a"},
                                                    {5, L"z"},
                                                    {5, L"a"},
                                                    {6, L"z"},
                                                    {6, L"a"},
                                                    {7, L"z"},
                                                    {7, L"a"},
                                                    {8, L""}}));
}

TEST(QeLocationCriterias, OneGatewayAndTheManagementServerAreTwoEntries) {
  CQeLocationCriterias criterias;
  criterias.Add(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  criterias.Add(LCT_ZELT_REACHABLE, L"");
  LOCATION_CRITERIA_TYPE kind{};
  std::wstring text;
  EXPECT_TRUE(criterias.GetAt(0, kind, text));
  EXPECT_EQ(kind, LCT_DEFAULT_GATEWAY);
  EXPECT_EQ(text, L"10.0.0.1");
  text = L"untouched";
  EXPECT_TRUE(criterias.GetAt(1, kind, text));
  EXPECT_EQ(kind, LCT_ZELT_REACHABLE);
  EXPECT_EQ(text, L"untouched");
  EXPECT_FALSE(criterias.GetAt(2, kind, text));
}

TEST(QeLocationCriterias, AnIndexBeyondTheEndWritesNothing) {
  CQeLocationCriterias criterias;
  for (const bool reachable : {false, true}) {
    if (reachable) criterias.Add(LCT_ZELT_REACHABLE, L"");
    for (const std::size_t index : {criterias.GetCount(), criterias.GetCount() + 1, ~std::size_t{0}}) {
      LOCATION_CRITERIA_TYPE kind = LCT_DNS_SERVER;
      std::wstring text = L"untouched";
      EXPECT_FALSE(criterias.GetAt(index, kind, text));
      EXPECT_EQ(kind, LCT_DNS_SERVER);
      EXPECT_EQ(text, L"untouched");
    }
  }
}

TEST(QeLocationCriterias, BooleanIsAnsweredForTheManagementServerOnly) {
  CQeLocationCriterias criterias;
  criterias.Add(LCT_ZELT_REACHABLE, L"");
  bool value = false;
  EXPECT_TRUE(criterias.GetBoolCriteria(LCT_ZELT_REACHABLE, value));
  EXPECT_TRUE(value);
  for (const std::uint32_t kind : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 9u, 0xffffffffu}) {
    for (const bool before : {false, true}) {
      value = before;
      EXPECT_FALSE(criterias.GetBoolCriteria(Kind(kind), value));
      EXPECT_EQ(value, before);
    }
  }
}

TEST(QeLocationCriterias, TextsAreAnsweredForTextKindsOnly) {
  CQeLocationCriterias criterias;
  criterias.Add(LCT_DNS_SUFFIX, L"a");
  criterias.Add(LCT_ZELT_REACHABLE, L"");
  std::vector<std::wstring> values{L"x", L"y"};
  for (const std::uint32_t kind : {8u, 9u, 0xffffffffu}) EXPECT_FALSE(criterias.GetStringCriteria(Kind(kind), values));
  EXPECT_EQ(values, (std::vector<std::wstring>{L"x", L"y"}));
  EXPECT_TRUE(criterias.GetStringCriteria(LCT_DNS_SUFFIX, values));  // replaced, not appended
  EXPECT_EQ(values, std::vector<std::wstring>{L"a"});
  EXPECT_TRUE(criterias.GetStringCriteria(LCT_DNS_SERVER, values));
  EXPECT_TRUE(values.empty());
}

// ---- copying and merging ----

TEST(QeLocationCriterias, CopiesAreIndependent) {
  CQeLocationCriterias original;
  original.Add(LCT_DNS_SUFFIX, L"a");
  const CQeLocationCriterias copy = original;
  original.Add(LCT_DNS_SUFFIX, L"b");
  original.Add(LCT_ZELT_REACHABLE, L"");
  EXPECT_EQ(Entries(copy), (std::vector<Entry>{{0, L"a"}}));
}

TEST(QeLocationCriterias, MergeAddsEveryEntryBehindItsOwn) {
  CQeLocationCriterias source, target;
  source.Add(LCT_DNS_SUFFIX, L"new");
  source.Add(LCT_ZELT_REACHABLE, L"");
  target.Add(LCT_DNS_SUFFIX, L"old");
  EXPECT_TRUE(target.Merge(source));
  EXPECT_EQ(Entries(target), (std::vector<Entry>{{0, L"old"}, {0, L"new"}, {8, L""}}));
}

TEST(QeLocationCriterias, MergeOfNothingSucceeds) {
  CQeLocationCriterias target;
  EXPECT_TRUE(target.Merge(CQeLocationCriterias()));
}

TEST(QeLocationCriterias, MergeFailsForADuplicateButAddsAllOthers) {
  CQeLocationCriterias source, target;
  source.Add(LCT_DNS_SUFFIX, L"same");
  source.Add(LCT_DNS_SUFFIX, L"new");
  source.Add(LCT_ZELT_REACHABLE, L"");
  target.Add(LCT_DNS_SUFFIX, L"same");
  EXPECT_FALSE(target.Merge(source));
  EXPECT_EQ(Entries(target), (std::vector<Entry>{{0, L"same"}, {0, L"new"}, {8, L""}}));
}

TEST(QeLocationCriterias, MergeFailsWhenTheManagementServerIsThereAlready) {
  CQeLocationCriterias source, target;
  source.Add(LCT_ZELT_REACHABLE, L"");
  target.Add(LCT_ZELT_REACHABLE, L"");
  EXPECT_FALSE(target.Merge(source));
}

// A host's own set may refuse an index or answer kinds that there are not.
struct OddCriterias final : _IEnumQeLocationCriterias {
  bool SerializeToBytes(Bytes&) const override { return false; }
  bool DeserializeFromBytes(const Bytes&) override { return false; }
  std::size_t GetCount() const override { return 3; }
  bool GetAt(std::size_t index, LOCATION_CRITERIA_TYPE& kind, std::wstring& value) const override {
    if (index == 0) return false;
    kind = index == 1 ? Kind(oddKind) : LCT_DNS_SUFFIX;
    value = L"text " + std::to_wstring(index);
    return true;
  }
  bool GetBoolCriteria(LOCATION_CRITERIA_TYPE, bool&) const override { return false; }
  bool GetStringCriteria(LOCATION_CRITERIA_TYPE, std::vector<std::wstring>&) const override { return false; }

  std::uint32_t oddKind = 0;
};

TEST(QeLocationCriterias, MergePassesOverAnIndexThatGivesNoEntry) {
  CQeLocationCriterias target;
  EXPECT_TRUE(target.Merge(OddCriterias()));
  EXPECT_EQ(Entries(target), (std::vector<Entry>{{0, L"text 1"}, {0, L"text 2"}}));
}

TEST(QeLocationCriterias, MergeFailsForAnInvalidKindButAddsAllOthers) {
  OddCriterias source;
  source.oddKind = 9;
  CQeLocationCriterias target;
  EXPECT_FALSE(target.Merge(source));
  EXPECT_EQ(Entries(target), (std::vector<Entry>{{0, L"text 2"}}));
}

// ---- byte form ----

TEST(QeLocationCriterias, WritesTheEmptySet) {
  Bytes bytes;
  EXPECT_TRUE(CQeLocationCriterias().SerializeToBytes(bytes));
  EXPECT_EQ(bytes, Blob::kNoCriteria);
}

TEST(QeLocationCriterias, WritesTheListsInKindOrderAndTheBooleanLast) {
  CQeLocationCriterias criterias;
  for (const LOCATION_CRITERIA_TYPE kind : kTextKinds) criterias.Add(kind, std::to_wstring(kind));
  criterias.Add(LCT_DNS_SUFFIX, L"second");
  criterias.Add(LCT_ZELT_REACHABLE, L"");
  Bytes bytes;
  EXPECT_TRUE(criterias.SerializeToBytes(bytes));
  using namespace Blob;
  EXPECT_EQ(bytes, Array({Array({Str("0"), Str("second")}), Array({Str("1")}), Array({Str("2")}), Array({Str("3")}),
                          Array({Str("4")}), Array({Str("5")}), Array({Str("6")}), Array({Str("7")}), kTrue}));
}

TEST(QeLocationCriterias, WritesListsOf15And16And65536Entries) {
  for (const auto& [count, header] :
       {std::tuple{15u, Bytes{0x9f}}, std::tuple{16u, Bytes{0xdc, 0x00, 0x10}},
        std::tuple{65535u, Bytes{0xdc, 0xff, 0xff}}, std::tuple{65536u, Bytes{0xdd, 0x00, 0x01, 0x00, 0x00}}}) {
    // Read, since Add compares with every entry.
    const Bytes list = Blob::Join({header, Blob::Repeat({0xa1, 'x'}, count)});
    CQeLocationCriterias criterias;
    ASSERT_TRUE(criterias.DeserializeFromBytes(Blob::Join({{0x91}, list})));
    EXPECT_EQ(criterias.GetCount(), count);
    Bytes bytes;
    ASSERT_TRUE(criterias.SerializeToBytes(bytes));
    EXPECT_TRUE(bytes == Blob::Join({{0x99}, list, Bytes(7, 0x90), {0xc2}})) << count;
  }
}

TEST(QeLocationCriterias, ReadsWhatItWrote) {
  CQeLocationCriterias criterias;
  for (const LOCATION_CRITERIA_TYPE kind : kTextKinds)
    for (int i = 0; i < 20; ++i) criterias.Add(kind, L"\xd83d\xde00 " + std::to_wstring(i));
  criterias.Add(LCT_ZELT_REACHABLE, L"");
  Bytes bytes;
  ASSERT_TRUE(criterias.SerializeToBytes(bytes));
  CQeLocationCriterias copy;
  ASSERT_TRUE(copy.DeserializeFromBytes(bytes));
  EXPECT_EQ(Entries(copy), Entries(criterias));
}

TEST(QeLocationCriterias, TakesReadListsAsStored) {
  CQeLocationCriterias criterias;
  criterias.Add(LCT_DNS_SUFFIX, L"old");
  ASSERT_TRUE(criterias.DeserializeFromBytes(
      Blob::Array({Blob::Array({Blob::Str("a"), Blob::Str("a")}), Blob::Array({Blob::Str("10.0.0.1")})})));
  EXPECT_EQ(Entries(criterias), (std::vector<Entry>{{0, L"a"}, {0, L"a"}, {1, L"10.0.0.1"}}));
}

TEST(QeLocationCriterias, ShortRecordKeepsTheOtherLists) {
  CQeLocationCriterias criterias;
  for (const LOCATION_CRITERIA_TYPE kind : {LCT_DNS_SUFFIX, LCT_DEFAULT_GATEWAY, LCT_DHCP_SERVER})
    criterias.Add(kind, L"old");
  criterias.Add(LCT_ZELT_REACHABLE, L"");
  ASSERT_TRUE(criterias.DeserializeFromBytes(Blob::Array({Blob::Array({Blob::Str("new")}), Blob::Array({})})));
  EXPECT_EQ(Entries(criterias), (std::vector<Entry>{{0, L"new"}, {2, L"old"}, {8, L""}}));
}

TEST(QeLocationCriterias, EmptyRecordChangesNothing) {
  CQeLocationCriterias criterias;
  criterias.Add(LCT_DNS_SUFFIX, L"old");
  EXPECT_TRUE(criterias.DeserializeFromBytes({0x90}));
  EXPECT_EQ(Entries(criterias), (std::vector<Entry>{{0, L"old"}}));
}

TEST(QeLocationCriterias, IgnoresFurtherFieldsOfAnyTypeAndDepth) {
  const Bytes fields = Bytes(Blob::kNoCriteria.begin() + 1, Blob::kNoCriteria.end());
  for (const Bytes& more : {Bytes{0xc0}, Bytes{0x81, 0xa1, 'k', 0x93, 0x01, 0x02, 0x03}, Bytes{0xc4, 0x01, 0x00},
                            Blob::Join({Bytes(100'000, 0x91), {0xc0}})}) {
    CQeLocationCriterias criterias;
    EXPECT_TRUE(criterias.DeserializeFromBytes(Blob::Join({{0x9a}, fields, more})));
    EXPECT_EQ(criterias.GetCount(), 0u);
  }
}

TEST(QeLocationCriterias, ATypeErrorKeepsWhatWasReadBefore) {
  const PrintedErrors errors;
  using namespace Blob;
  const Bytes good = Array({Str("new")});
  for (const Bytes& bad : {Bytes{0xc0}, Bytes{0x80}, Bytes{0x01}, Str("text"), Array({Bytes{0xc4, 0x01, 'a'}}),
                           Array({Bytes{0x01}}), Array({Bytes{0xa1, 0xff}})}) {
    CQeLocationCriterias criterias;
    criterias.Add(LCT_DHCP_SERVER, L"old");
    EXPECT_FALSE(criterias.DeserializeFromBytes(Array({good, bad, good})));
    EXPECT_EQ(Texts(criterias, LCT_DNS_SUFFIX), std::vector<std::wstring>{L"new"});
    EXPECT_EQ(Texts(criterias, LCT_DHCP_SERVER), std::vector<std::wstring>{L"old"});
  }
  EXPECT_EQ(errors.Count(), 7u);
  EXPECT_EQ(errors.Lines().front(), "UCD DeserializeFromBytes failed for class CQeLocationCriterias");
}

TEST(QeLocationCriterias, NumbersAreNoBoolean) {
  for (const std::uint8_t number : Bytes{0x00, 0x01}) {
    Bytes bytes = Blob::kNoCriteria;
    bytes.back() = number;
    CQeLocationCriterias criterias;
    EXPECT_FALSE(criterias.DeserializeFromBytes(bytes));
  }
}

TEST(QeLocationCriterias, MustBeAnArray) {
  CQeLocationCriterias criterias;
  for (const Bytes& bytes : {Bytes{0xc0}, Bytes{0x80}, Bytes{0xa0}, Bytes{0x00}, Bytes{0xc2}})
    EXPECT_FALSE(criterias.DeserializeFromBytes(bytes));
}

TEST(QeLocationCriterias, LoneSurrogateCannotBeWritten) {
  const PrintedErrors errors;
  CQeLocationCriterias criterias;
  criterias.Add(LCT_REGISTRY_KEY, L"key \xd800");
  Bytes bytes{1, 2, 3};
  EXPECT_FALSE(criterias.SerializeToBytes(bytes));
  EXPECT_EQ(bytes, (Bytes{1, 2, 3}));
  EXPECT_EQ(errors.Lines(), std::vector<std::string>{"UCD SerializeToBytes failed for class CQeLocationCriterias"});
}

// ---- memory that runs out ----

TEST(QeLocationCriterias, AddLeavesTheSetAsItWasWhenMemoryRunsOut) {
  const std::wstring mapped = L"0000:0000:0000:0000:0000:ffff:c0a8:0101";
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    CQeLocationCriterias criterias;
    criterias.Add(LCT_DNS_SERVER, L"the first text, too long for a string's own buffer");
    bool thrown = false;
    attempt([&] {
      try {
        criterias.Add(LCT_DNS_SERVER, mapped);
      } catch (const std::bad_alloc&) {
        thrown = true;
      }
    });
    EXPECT_EQ(criterias.GetCount(), thrown ? 1u : 2u);
    EXPECT_EQ(criterias.Add(LCT_DNS_SERVER, mapped), thrown ? 0u : 2u);
    EXPECT_EQ(criterias.Remove(LCT_DNS_SERVER, L"192.168.1.1"), 0u);
  });
}

TEST(QeLocationCriterias, AreReadWhollyOrLeftAsTheyWereWhenMemoryRunsOut) {
  CQeLocationCriterias source;
  for (std::uint32_t kind = 0; kind <= LCT_ZELT_REACHABLE; ++kind)
    source.Add(static_cast<LOCATION_CRITERIA_TYPE>(kind), L"a text too long for a string's own buffer");
  Bytes whole;
  ASSERT_TRUE(source.SerializeToBytes(whole));
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    const PrintedErrors errors;
    CQeLocationCriterias criterias;
    criterias.Add(LCT_DNS_SUFFIX, L"corp.example");
    criterias.Add(LCT_REGISTRY_KEY, L"the text that was there before");
    Bytes before, after;
    EXPECT_TRUE(criterias.SerializeToBytes(before));
    bool read = false;
    attempt([&] { read = criterias.DeserializeFromBytes(whole); });
    EXPECT_EQ(errors.Count(), read ? 0u : 1u);
    EXPECT_TRUE(criterias.SerializeToBytes(after));
    EXPECT_TRUE(after == (read ? whole : before));
  });
}

}  // namespace

#include "FwClient/Service/QeLaLib/QeLocation.h"

#include <windows.h>
#include <gtest/gtest.h>

#include <rpc.h>

#include <memory>
#include <new>
#include <regex>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Support/Blob.h"
#include "Tests/Support/HostLocation.h"
#include "Tests/Unit/PrintedErrors.h"

namespace {

using Blob::Bytes;
using Indexes = std::vector<std::uint32_t>;

// Collections move their locations when they grow; a move that could fail would copy instead.
static_assert(std::is_nothrow_move_constructible_v<CQeLocation> && std::is_nothrow_move_assignable_v<CQeLocation>);

constexpr LOCATION_CRITERIA_TYPE kGateway = LCT_DEFAULT_GATEWAY;
constexpr LOCATION_CRITERIA_TYPE kSuffix = LCT_DNS_SUFFIX;
constexpr LOCATION_CRITERIA_TYPE kZelt = LCT_ZELT_REACHABLE;

const char kReadFailed[] = "UCD DeserializeFromBytes failed for class CQeLocation";
const char kWriteFailed[] = "UCD SerializeToBytes failed for class CQeLocation";

Bytes BytesOf(const CQeLocation& location) {
  Bytes bytes;
  EXPECT_TRUE(location.SerializeToBytes(bytes));
  return bytes;
}

Indexes IndexesOf(const _IQeLocation& location) {
  Indexes indexes{99, 98, 97};
  location.GetAdapterIndexes(indexes);
  return indexes;
}

std::vector<std::wstring> TextsOf(const _IQeLocation& location, LOCATION_CRITERIA_TYPE kind) {
  std::vector<std::wstring> texts;
  location.GetCriterias()->GetStringCriteria(kind, texts);
  return texts;
}

// Every field differs from its default.
CQeLocation Office() {
  CQeLocation office;
  office.SetId(L"id");
  office.SetName(L"Office");
  office.SetNote(L"note");
  const bool enabled = false;
  office.SetEnabled(&enabled);
  office.SetAdapterIndexes({127, 300, 70000});
  office.AddCriteria(&kGateway, L"10.0.0.1");
  office.AddCriteria(&kZelt, L"");
  return office;
}

const Bytes kOfficeCriteria =
    Blob::Array({Blob::Array({}), Blob::Array({Blob::Str("10.0.0.1")}), Blob::Array({}), Blob::Array({}),
                 Blob::Array({}), Blob::Array({}), Blob::Array({}), Blob::Array({}), Blob::kTrue});
const Bytes kOfficeEnd =
    Blob::Join({Blob::Str("note"), Blob::kFalse, {0x93, 0x7f, 0xcd, 0x01, 0x2c, 0xce, 0x00, 0x01, 0x11, 0x70}});
const Bytes kOffice = Blob::Join({{0x96}, kOfficeCriteria, Blob::Str("id"), Blob::Str("Office"), kOfficeEnd});

// ---- a new location ----

TEST(QeLocation, IsNewWithAnIdANameAndNothingElse) {
  const CQeLocation location;
  EXPECT_TRUE(std::regex_match(location.GetId(), std::wregex(L"[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}")));
  EXPECT_EQ(location.GetId().size(), 36u);
  EXPECT_EQ(location.GetName(), location.GetId() + L" Location");
  EXPECT_EQ(location.GetNote(), L"");
  EXPECT_TRUE(location.IsEnabled());
  EXPECT_TRUE(IndexesOf(location).empty());
  EXPECT_EQ(location.GetCriterias()->GetCount(), 0u);
}

TEST(QeLocation, EachHasAnIdOfItsOwn) {
  std::set<std::wstring> ids;
  for (int i = 0; i < 1000; ++i) ids.insert(CQeLocation().GetId());
  EXPECT_EQ(ids.size(), 1000u);
}

RPC_STATUS g_uuidStatus, g_textStatus;
int g_textCalls, g_freed;
wchar_t g_uuidText[] = L"01234567-89ab-cdef-0123-456789abcdef";

class QeLocationUuid : public testing::Test {
 protected:
  QeLocationUuid()
      : m_create(
            ThisProgram(), "UuidCreate", +[](UUID*) { return g_uuidStatus; }),
        m_toText(
            ThisProgram(), "UuidToStringW",
            +[](const UUID*, RPC_WSTR* text) {
              ++g_textCalls;
              if (g_textStatus == RPC_S_OK) *text = reinterpret_cast<RPC_WSTR>(g_uuidText);
              return g_textStatus;
            }),
        m_free(
            ThisProgram(), "RpcStringFreeW", +[](RPC_WSTR* text) -> RPC_STATUS {
              if (*text == reinterpret_cast<RPC_WSTR>(g_uuidText)) ++g_freed;
              *text = nullptr;
              return RPC_S_OK;
            }) {
    g_uuidStatus = g_textStatus = RPC_S_OK;
    g_textCalls = g_freed = 0;
  }

 private:
  ImportPatch m_create;
  ImportPatch m_toText;
  ImportPatch m_free;
};

TEST_F(QeLocationUuid, TextIsTakenOverAndFreedOnce) {
  const CQeLocation location;
  EXPECT_EQ(location.GetId(), g_uuidText);
  EXPECT_EQ(g_freed, 1);
}

TEST_F(QeLocationUuid, WithoutAUuidTheIdIsEmptyAndTheNameStartsWithABlank) {
  // A UUID that is unique on this machine only is none.
  for (const RPC_STATUS status :
       {RPC_STATUS{RPC_S_UUID_LOCAL_ONLY}, RPC_STATUS{RPC_S_UUID_NO_ADDRESS}, RPC_STATUS{-1}}) {
    g_uuidStatus = status;
    const CQeLocation location;
    EXPECT_EQ(location.GetId(), L"");
    EXPECT_EQ(location.GetName(), L" Location");
    EXPECT_TRUE(location.IsEnabled());
  }
  EXPECT_EQ(g_textCalls, 0);
  EXPECT_EQ(g_freed, 0);
}

TEST_F(QeLocationUuid, WithoutItsTextTheIdIsEmptyAndNothingIsFreed) {
  g_textStatus = RPC_S_OUT_OF_MEMORY;
  const CQeLocation location;
  EXPECT_EQ(location.GetId(), L"");
  EXPECT_EQ(location.GetName(), L" Location");
  EXPECT_EQ(g_textCalls, 1);
  EXPECT_EQ(g_freed, 0);
}

TEST_F(QeLocationUuid, TextIsFreedOnceWhenMemoryRunsOut) {
  FailEveryAllocation(ThisProgram(), [](auto attempt) {
    g_freed = 0;
    attempt([] {
      try {
        const CQeLocation location;
      } catch (const std::bad_alloc&) {
      }
    });
    EXPECT_EQ(g_freed, 1);
  });
}

// ---- fields ----

TEST(QeLocation, TakesWhatIsSet) {
  const CQeLocation office = Office();
  EXPECT_EQ(office.GetId(), L"id");
  EXPECT_EQ(office.Id(), L"id");
  EXPECT_EQ(office.GetName(), L"Office");
  EXPECT_EQ(office.GetNote(), L"note");
  EXPECT_FALSE(office.IsEnabled());
  EXPECT_EQ(IndexesOf(office), (Indexes{127, 300, 70000}));
}

TEST(QeLocation, IdMayBeAnyText) {
  CQeLocation location;
  for (const std::wstring& id : {std::wstring(), std::wstring(L"{Office}"), std::wstring(L"a\0b", 3)}) {
    location.SetId(id);
    EXPECT_EQ(location.GetId(), id);
  }
}

TEST(QeLocation, EnablesAndDisables) {
  CQeLocation location;
  for (const bool enabled : {false, true}) {
    location.SetEnabled(&enabled);
    EXPECT_EQ(location.IsEnabled(), enabled);
  }
}

TEST(QeLocation, NullPointersAreAnsweredAndChangeNothing) {
  CQeLocation location = Office();
  location.SetEnabled(nullptr);
  EXPECT_EQ(location.AddCriteria(nullptr, L"x"), 1u);
  EXPECT_EQ(location.RemoveCriteria(nullptr, L"10.0.0.1"), 1u);
  EXPECT_EQ(BytesOf(location), kOffice);
}

TEST(QeLocation, TextsMayBeSetFromThemselves) {
  CQeLocation location = Office();
  location.SetName(location.GetName());
  const std::wstring& own = location.Id();
  location.SetId(own);
  EXPECT_EQ(BytesOf(location), kOffice);
}

TEST(QeLocation, IndexesAreReplacedNotAppended) {
  CQeLocation location;
  location.SetAdapterIndexes({1, 2, 3});
  location.SetAdapterIndexes({4});
  EXPECT_EQ(IndexesOf(location), Indexes{4});
  location.SetAdapterIndexes({});
  EXPECT_TRUE(IndexesOf(location).empty());
}

TEST(QeLocation, EditsItsCriteria) {
  CQeLocation location;
  EXPECT_EQ(location.AddCriteria(&kGateway, L"0000:0000:0000:0000:0000:ffff:0a00:0001"), 0u);
  EXPECT_EQ(location.AddCriteria(&kGateway, L"10.0.0.1"), 2u);
  EXPECT_EQ(location.AddCriteria(&kZelt, L""), 0u);
  EXPECT_EQ(location.GetCriterias()->GetCount(), 2u);
  EXPECT_EQ(location.RemoveCriteria(&kGateway, L"10.0.0.2"), 3u);
  EXPECT_EQ(location.RemoveCriteria(&kGateway, L"10.0.0.1"), 0u);
  const auto invalid = static_cast<LOCATION_CRITERIA_TYPE>(9);
  EXPECT_EQ(location.AddCriteria(&invalid, L""), 1u);
  EXPECT_EQ(location.RemoveCriteria(&invalid, L""), 1u);
  EXPECT_TRUE(location.ClearCriterias());
  EXPECT_TRUE(location.ClearCriterias());  // also when there are none
  EXPECT_EQ(location.GetCriterias()->GetCount(), 0u);
}

TEST(QeLocation, CriteriaAreHandedOutAsASnapshot) {
  CQeLocation location;
  const auto before = location.GetCriterias();
  location.AddCriteria(&kGateway, L"10.0.0.1");
  EXPECT_EQ(before->GetCount(), 0u);
  const auto after = location.GetCriterias();
  EXPECT_EQ(after->GetCount(), 1u);
  EXPECT_NE(before, after);
  EXPECT_EQ(after.use_count(), 1);
  EXPECT_TRUE(after->DeserializeFromBytes(Blob::kNoCriteria));  // the snapshot is the caller's own
  EXPECT_EQ(location.GetCriterias()->GetCount(), 1u);
}

TEST(QeLocation, SnapshotOutlivesItsLocation) {
  std::shared_ptr<_IEnumQeLocationCriterias> criterias;
  {
    const CQeLocation office = Office();
    criterias = office.GetCriterias();
  }
  EXPECT_EQ(criterias->GetCount(), 2u);
}

TEST(QeLocation, CopiesAreIndependent) {
  CQeLocation original = Office();
  const CQeLocation copy = original;
  original.SetName(L"other");
  original.SetAdapterIndexes({});
  original.ClearCriterias();
  EXPECT_EQ(BytesOf(copy), kOffice);
}

// ---- taking over another location ----

TEST(QeLocation, AssignsEveryField) {
  CQeLocation target;
  EXPECT_TRUE(target.AssignFrom(Office()));
  EXPECT_EQ(BytesOf(target), kOffice);
}

TEST(QeLocation, AssigningMergesIntoTheCriteriaThatAreThere) {
  CQeLocation target;
  target.AddCriteria(&kGateway, L"10.0.0.9");
  EXPECT_TRUE(target.AssignFrom(Office()));
  EXPECT_EQ(TextsOf(target, kGateway), (std::vector<std::wstring>{L"10.0.0.9", L"10.0.0.1"}));
}

TEST(QeLocation, AssigningDuplicateCriteriaFailsButCopiesTheRest) {
  using namespace Blob;
  const std::string mapped = "0000:0000:0000:0000:0000:ffff:0a00:0001";
  const Bytes gateways =
      Join({{0x93}, Str("10.0.0.1"), {0xda, 0x00, 39}, Bytes(mapped.begin(), mapped.end()), Str("x")});
  CQeLocation source;
  ASSERT_TRUE(source.DeserializeFromBytes(
      Array({Array({Array({Str("s")}), gateways}), Str("id"), Str("Office"), Str("note"), kFalse, {0x91, 0x05}})));
  CQeLocation target;
  EXPECT_FALSE(target.AssignFrom(source));
  EXPECT_EQ(TextsOf(target, kGateway), (std::vector<std::wstring>{L"10.0.0.1", L"x"}));
  EXPECT_EQ(TextsOf(target, kSuffix), std::vector<std::wstring>{L"s"});
  EXPECT_EQ(target.GetId(), L"id");
  EXPECT_EQ(target.GetName(), L"Office");
  EXPECT_EQ(target.GetNote(), L"note");
  EXPECT_FALSE(target.IsEnabled());
  EXPECT_EQ(IndexesOf(target), Indexes{5});
}

TEST(QeLocation, AssignsThroughTheInterfaceInAFixedOrder) {
  const HostLocation host;
  CQeLocation target;
  EXPECT_TRUE(target.AssignFrom(host));  // a host without a criteria set has no criteria
  EXPECT_EQ(host.calls, "inoeac");
  EXPECT_EQ(target.GetId(), L"host id");
  EXPECT_EQ(target.GetName(), L"host name");
  EXPECT_EQ(target.GetNote(), L"host note");
  EXPECT_FALSE(target.IsEnabled());
  EXPECT_EQ(IndexesOf(target), (Indexes{1, 2}));
  EXPECT_EQ(target.GetCriterias()->GetCount(), 0u);
}

TEST(QeLocation, CanBeAssignedAfterMemoryRanOut) {
  const CQeLocation office = Office();
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    CQeLocation target;
    attempt([&] {
      try {
        target.AssignFrom(office);
      } catch (const std::bad_alloc&) {
      }
    });
    target.ClearCriterias();
    EXPECT_TRUE(target.AssignFrom(office));
    EXPECT_TRUE(BytesOf(target) == kOffice);
  });
}

// ---- byte form ----

TEST(QeLocation, WritesItsFieldsInOrder) { EXPECT_EQ(BytesOf(Office()), kOffice); }

TEST(QeLocation, ReadsWhatItWrote) {
  CQeLocation location;
  ASSERT_TRUE(location.DeserializeFromBytes(kOffice));
  EXPECT_EQ(BytesOf(location), kOffice);
}

TEST(QeLocation, WritesNamesOf31BytesAsFixstrAndOf32AsStr16) {
  CQeLocation location = Office();
  const auto written = [&](const Bytes& header, std::size_t length) {
    location.SetName(std::wstring(length, L'x'));
    return BytesOf(location) ==
           Blob::Join({{0x96}, kOfficeCriteria, Blob::Str("id"), header, Bytes(length, 'x'), kOfficeEnd});
  };
  EXPECT_TRUE(written({0xbf}, 31));
  EXPECT_TRUE(written({0xda, 0x00, 0x20}, 32));
  EXPECT_TRUE(written({0xda, 0x00, 0xff}, 255));
  EXPECT_TRUE(written({0xda, 0x01, 0x00}, 256));
  EXPECT_TRUE(written({0xda, 0xff, 0xff}, 65535));
  EXPECT_TRUE(written({0xdb, 0x00, 0x01, 0x00, 0x00}, 65536));
}

TEST(QeLocation, WritesIndexListsOfEveryLength) {
  for (const auto& [count, header] :
       {std::pair{0u, Bytes{0x90}}, std::pair{15u, Bytes{0x9f}}, std::pair{16u, Bytes{0xdc, 0x00, 0x10}},
        std::pair{65535u, Bytes{0xdc, 0xff, 0xff}}, std::pair{65536u, Bytes{0xdd, 0x00, 0x01, 0x00, 0x00}}}) {
    CQeLocation location = Office();
    location.SetAdapterIndexes(Indexes(count, 0xffffffff));
    const Bytes bytes = BytesOf(location);
    const Bytes tail = Blob::Join({header, Blob::Repeat({0xce, 0xff, 0xff, 0xff, 0xff}, count)});
    ASSERT_GT(bytes.size(), tail.size());
    EXPECT_TRUE(std::equal(tail.rbegin(), tail.rend(), bytes.rbegin())) << count;
    CQeLocation copy;
    EXPECT_TRUE(copy.DeserializeFromBytes(bytes));
    EXPECT_TRUE(IndexesOf(copy) == Indexes(count, 0xffffffff)) << count;
  }
}

TEST(QeLocation, KeepsNamesOfAHundredThousandCharactersOfEveryPlane) {
  CQeLocation location, copy;
  std::wstring name;
  while (name.size() < 100'000) name += L"a\xe9\x20ac\xd83d\xde00\xdbff\xdffd";
  location.SetName(name);
  ASSERT_TRUE(copy.DeserializeFromBytes(BytesOf(location)));
  EXPECT_TRUE(copy.GetName() == name);
}

TEST(QeLocation, TextsAreWrittenUpToTheirFirstNul) {
  CQeLocation location = Office(), copy;
  location.SetName(std::wstring(L"ab\0\xd800", 4));
  ASSERT_TRUE(copy.DeserializeFromBytes(BytesOf(location)));
  EXPECT_EQ(copy.GetName(), L"ab");
  EXPECT_EQ(location.GetName().size(), 4u);  // writing does not change what is held
}

TEST(QeLocation, LoneSurrogateInAnyTextCannotBeWritten) {
  for (void (CQeLocation::* const set)(const std::wstring&) :
       {&CQeLocation::SetId, &CQeLocation::SetName, &CQeLocation::SetNote}) {
    const PrintedErrors errors;
    CQeLocation location;
    (location.*set)(L"x\xd800");
    Bytes bytes{1, 2, 3};
    EXPECT_FALSE(location.SerializeToBytes(bytes));
    EXPECT_EQ(bytes, (Bytes{1, 2, 3}));
    EXPECT_EQ(errors.Lines(), std::vector<std::string>{kWriteFailed});
  }
}

TEST(QeLocation, FailureInItsCriteriaIsReportedUnderItsOwnName) {
  const PrintedErrors errors;
  CQeLocation location;
  location.AddCriteria(&kSuffix, L"\xdc00");
  Bytes bytes;
  EXPECT_FALSE(location.SerializeToBytes(bytes));
  EXPECT_FALSE(location.DeserializeFromBytes(Blob::Array({Bytes{0xc0}})));
  EXPECT_EQ(errors.Lines(), (std::vector<std::string>{kWriteFailed, kReadFailed}));
}

TEST(QeLocation, RecordOfTwoFieldsSetsOnlyCriteriaAndId) {
  CQeLocation location = Office();
  EXPECT_TRUE(location.DeserializeFromBytes(Blob::Array({Blob::kNoCriteria, Blob::Str("new")})));
  EXPECT_EQ(BytesOf(location),
            Blob::Join({{0x96}, Blob::kNoCriteria, Blob::Str("new"), Blob::Str("Office"), kOfficeEnd}));
}

TEST(QeLocation, EmptyRecordChangesNothing) {
  CQeLocation location = Office();
  EXPECT_TRUE(location.DeserializeFromBytes({0x90}));
  EXPECT_EQ(BytesOf(location), kOffice);
}

TEST(QeLocation, FreshOneKeepsItsIdWhenTheRecordHasNone) {
  CQeLocation location;
  const std::wstring id = location.GetId();
  EXPECT_TRUE(location.DeserializeFromBytes(Blob::Array({kOfficeCriteria})));
  EXPECT_EQ(location.GetId(), id);
  EXPECT_EQ(location.GetName(), id + L" Location");
  EXPECT_EQ(location.GetCriterias()->GetCount(), 2u);
}

TEST(QeLocation, IgnoresFurtherFieldsHoweverDeepAndBytesBehindTheRecord) {
  Bytes longer = kOffice;
  longer[0] = 0x97;
  for (const Bytes& more : {Bytes{0xc0}, Bytes{0xc7, 0x01, 0x05, 0x00}, Blob::Join({Bytes(100'000, 0x91), {0x90}}),
                            Blob::Join({{0xc3}, {0xc1, 0xff, 0xdd}})}) {
    CQeLocation location;
    EXPECT_TRUE(location.DeserializeFromBytes(Blob::Join({longer, more})));
    EXPECT_EQ(BytesOf(location), kOffice);
  }
}

TEST(QeLocation, FurtherFieldsOfItsCriteriaAreNotTakenForItsOwn) {
  const Bytes fields = Bytes(Blob::kNoCriteria.begin() + 1, Blob::kNoCriteria.end());
  CQeLocation location;
  EXPECT_TRUE(location.DeserializeFromBytes(
      Blob::Array({Blob::Join({{0x9a}, fields, Blob::Str("later")}), Blob::Str("id"), Blob::Str("name")})));
  EXPECT_EQ(location.GetId(), L"id");
  EXPECT_EQ(location.GetName(), L"name");
}

TEST(QeLocation, BytesCutAnywhereLeaveItUntouched) {
  for (std::size_t length = 0; length < kOffice.size(); ++length) {
    const PrintedErrors errors;
    CQeLocation location;
    const Bytes before = BytesOf(location);
    EXPECT_FALSE(location.DeserializeFromBytes(Bytes(kOffice.begin(), kOffice.begin() + static_cast<int>(length))));
    EXPECT_EQ(BytesOf(location), before) << length;
    // No bytes at all are the one failure without a report.
    EXPECT_EQ(errors.Lines(), length == 0 ? std::vector<std::string>{} : std::vector<std::string>{kReadFailed});
  }
}

TEST(QeLocation, ATypeErrorKeepsTheFieldsBeforeIt) {
  using namespace Blob;
  const Bytes fields[] = {kOfficeCriteria, Str("id"), Str("Office"), Str("note"), kFalse, {0x91, 0x05}};
  const Bytes bad[] = {{0xc0}, {0xc4, 0x01, 'a'}, {0x01}, {0xa1, 0xff}, {0x01}, {0x91, 0xff}};
  for (std::size_t wrong = 0; wrong < 6; ++wrong) {
    const PrintedErrors errors;
    Bytes bytes{0x96};
    for (std::size_t i = 0; i < 6; ++i) bytes = Join({bytes, i == wrong ? bad[i] : fields[i]});
    CQeLocation location;
    const std::wstring id = location.GetId();
    EXPECT_FALSE(location.DeserializeFromBytes(bytes));
    EXPECT_EQ(errors.Lines(), std::vector<std::string>{kReadFailed});
    EXPECT_EQ(location.GetCriterias()->GetCount(), wrong > 0 ? 2u : 0u);
    EXPECT_EQ(location.GetId(), wrong > 1 ? L"id" : id);
    EXPECT_EQ(location.GetName(), wrong > 2 ? L"Office" : id + L" Location");
    EXPECT_EQ(location.GetNote(), wrong > 3 ? L"note" : L"");
    EXPECT_EQ(location.IsEnabled(), wrong <= 4);
    EXPECT_NE(IndexesOf(location), Indexes{5});
  }
}

TEST(QeLocation, IndexesReadBeforeABadOneStay) {
  for (const Bytes& bad : {Bytes{0xff}, Bytes{0xd0, 0xff}, Bytes{0xca, 0x3f, 0x80, 0x00, 0x00}, Bytes{0xc0},
                           Bytes{0xcf, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00}}) {
    CQeLocation location = Office();
    const Bytes bytes = Blob::Join(
        {{0x96}, kOfficeCriteria, Blob::Str("id"), Blob::Str("n"), Blob::Str(""), Blob::kTrue, {0x92, 0x05}, bad});
    EXPECT_FALSE(location.DeserializeFromBytes(bytes));
    EXPECT_EQ(IndexesOf(location), (Indexes{5, 300}));  // resized, and the second still holds its old value
  }
}

TEST(QeLocation, IndexesMustBeAnArray) {
  for (const Bytes& bad : {Bytes{0x05}, Bytes{0xc0}, Bytes{0x81, 0x05, 0x05}}) {
    CQeLocation location = Office();
    EXPECT_FALSE(location.DeserializeFromBytes(
        Blob::Array({kOfficeCriteria, Blob::Str("id"), Blob::Str("n"), Blob::Str(""), Blob::kTrue, bad})));
    EXPECT_EQ(IndexesOf(location), (Indexes{127, 300, 70000}));
  }
}

TEST(QeLocation, AnArrayOfFourBillionIsRefusedBeforeAnythingIsRead) {
  for (const Bytes& list : {Bytes{0xdd, 0xff, 0xff, 0xff, 0xff, 0x01}, Bytes{0xdf, 0xff, 0xff, 0xff, 0xff, 0x01}}) {
    CQeLocation location;
    const Bytes before = BytesOf(location);
    EXPECT_FALSE(location.DeserializeFromBytes(
        Blob::Join({{0x96}, kOfficeCriteria, Blob::Str("id"), Blob::Str("n"), Blob::Str(""), Blob::kTrue, list})));
    EXPECT_EQ(BytesOf(location), before);
  }
}

// ---- memory that runs out ----

TEST(QeLocation, WritesWhollyOrLeavesTheBytesWhenMemoryRunsOut) {
  CQeLocation office = Office();
  office.SetNote(std::wstring(20'000, L'x'));  // more than a string's own buffer, the stack's and the first packer's
  const Bytes whole = BytesOf(office);
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    const PrintedErrors errors;
    Bytes bytes{1, 2, 3};
    bool written = false;
    attempt([&] { written = office.SerializeToBytes(bytes); });
    EXPECT_TRUE(bytes == (written ? whole : Bytes{1, 2, 3}));
    EXPECT_EQ(errors.Count(), written ? 0u : 1u);
    EXPECT_TRUE(office.SerializeToBytes(bytes) && bytes == whole);
  });
}

TEST(QeLocation, IsReadWhollyOrLeftAsItWasWhenMemoryRunsOut) {
  CQeLocation office = Office();
  office.SetNote(std::wstring(2'000, L'x'));
  const Bytes whole = BytesOf(office);
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    const PrintedErrors errors;
    CQeLocation location;
    location.SetAdapterIndexes({7});
    const Bytes before = BytesOf(location);
    bool read = false;
    attempt([&] { read = location.DeserializeFromBytes(whole); });
    EXPECT_EQ(errors.Count(), read ? 0u : 1u);
    EXPECT_TRUE(BytesOf(location) == (read ? whole : before));
    EXPECT_TRUE(location.DeserializeFromBytes(whole));
    EXPECT_TRUE(BytesOf(location) == whole);
  });
}

}  // namespace

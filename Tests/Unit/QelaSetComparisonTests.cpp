#include "Tools/qela/SetComparison.h"

#include <gmock/gmock.h>

#include <chrono>

#include "Tests/Support/LocationBlob.h"

namespace {

using testing::ElementsAre;

LocationSet Set(const std::vector<LocationBlob>& locations) { return DecodeSet(PackedSet(locations)); }

// The set of these IDs.
LocationSet Ids(const std::string& letters) {
  std::vector<LocationBlob> locations;
  for (const char letter : letters) locations.push_back({.id = {letter}});
  return Set(locations);
}

// Such as "+a", "-b", "c name note".
std::vector<std::string> Words(const LocationSet& before, const LocationSet& after) {
  std::vector<std::string> words;
  for (const LocationDifference& difference : Compare(before, after)) {
    const CQeLocation& location = difference.after != nullptr ? *difference.after : *difference.before;
    std::string word = difference.before == nullptr ? "+" : difference.after == nullptr ? "-" : "";
    word.append(location.Id().begin(), location.Id().end());
    for (const FieldDifference& field : difference.fields) word += " " + field.field;
    words.push_back(word);
  }
  return words;
}

TEST(QelaSetComparison, EqualSetsDoNotDiffer) {
  EXPECT_THAT(Words({}, {}), ElementsAre());
  EXPECT_THAT(Words(Ids("abc"), Ids("abc")), ElementsAre());
}

TEST(QelaSetComparison, EveryFieldIsNamedWithBothValues) {
  const LocationSet before = Set({{.id = "a", .name = "Old", .note = "n"}});
  LocationBlob changed{.id = "a", .name = "New", .enabled = false, .zeltReachable = true};
  changed.texts.fill({"x", "y"});
  const auto differences = Compare(before, Set({changed}));
  ASSERT_EQ(differences.size(), 1u);
  std::vector<std::string> fields;
  for (const FieldDifference& field : differences[0].fields)
    fields.push_back(field.field + ": " + field.before.dump() + " " + field.after.dump());
  EXPECT_THAT(
      fields,
      ElementsAre(R"(name: "Old" "New")", "enabled: true false", R"(note: "n" "")", R"(dnsSuffixes: [] ["x","y"])",
                  R"(gateways: [] ["x","y"])", R"(dhcpServers: [] ["x","y"])", R"(dnsServers: [] ["x","y"])",
                  R"(primaryWins: [] ["x","y"])", R"(secondaryWins: [] ["x","y"])", R"(registry: [] ["x","y"])",
                  R"(httpsHosts: [] ["x","y"])", "managementServer: false true"));
}

TEST(QelaSetComparison, TheOrderOfValuesCountsAndTheAdaptersDoNot) {
  LocationBlob one{.id = "a", .adapterIndexes = {1}};
  one.texts[LCT_DEFAULT_GATEWAY] = {"x", "y"};
  LocationBlob other{.id = "a", .adapterIndexes = {2, 3}};
  other.texts[LCT_DEFAULT_GATEWAY] = {"x", "y"};
  EXPECT_THAT(Words(Set({one}), Set({other})), ElementsAre());
  other.texts[LCT_DEFAULT_GATEWAY] = {"y", "x"};
  EXPECT_THAT(Words(Set({one}), Set({other})), ElementsAre("a gateways"));
}

TEST(QelaSetComparison, WhatOneSetLacksIsToldOnce) {
  EXPECT_THAT(Words(Ids("abc"), Ids("bd")), ElementsAre("+d", "-a", "-c"));
  EXPECT_THAT(Words({}, Ids("a")), ElementsAre("+a"));
  EXPECT_THAT(Words(Ids("a"), {}), ElementsAre("-a"));
}

TEST(QelaSetComparison, NoMoreLocationsAreMovedThanMustBe) {
  EXPECT_THAT(Words(Ids("abcde"), Ids("eabcd")), ElementsAre("e place"));
  EXPECT_THAT(Words(Ids("abcde"), Ids("bcdea")), ElementsAre("a place"));
  EXPECT_THAT(Words(Ids("ab"), Ids("xbya")), testing::SizeIs(3));
  EXPECT_THAT(Words(Ids("abc"), Ids("cba")), testing::SizeIs(2));
  // Others that come and go move nothing.
  EXPECT_THAT(Words(Ids("abc"), Ids("xbyc")), ElementsAre("+x", "+y", "-a"));
  const auto place = Compare(Ids("abc"), Ids("xcab"));
  ASSERT_EQ(place.size(), 2u);
  EXPECT_EQ(place[1].fields[0].before, 3);
  EXPECT_EQ(place[1].fields[0].after, 2);
}

TEST(QelaSetComparison, IdsThatAreThereSeveralTimesGoTogetherInTheirOrder) {
  const LocationSet twice = Set({{.id = "a", .name = "1"}, {.id = "a", .name = "2"}});
  EXPECT_THAT(Words(twice, twice), ElementsAre());
  EXPECT_THAT(Words(twice, Set({{.id = "a", .name = "1"}})), ElementsAre("-a"));
  EXPECT_THAT(Words(Set({{.id = "a", .name = "1"}}), twice), ElementsAre("+a"));
  EXPECT_THAT(Words(twice, Set({{.id = "a", .name = "2"}, {.id = "a", .name = "1"}})), ElementsAre("a name", "a name"));
}

TEST(QelaSetComparison, TenThousandLocationsInReverseTakeNoLongTime) {
  LocationSet before(10'000, CQeLocation::ToBeRead());
  for (std::size_t i = 0; i < before.size(); ++i) before[i].SetId(std::to_wstring(i));
  const LocationSet after(before.rbegin(), before.rend());
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(Compare(before, after).size(), 9'999u);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
}

}  // namespace

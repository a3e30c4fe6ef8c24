// The matcher by itself: what it decides, what it asks, and what it tells. No Windows call is replaced here, since it
// makes none. What the log says is tested in LocationMatchingTests.
#include "FwClient/Service/QeLaLib/LocationMatcher.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/MatchReport.h"

namespace {

using ::testing::ElementsAre;
using Indexes = std::vector<std::uint32_t>;
using Texts = std::vector<std::wstring>;
using Outcome = MatchReport::Outcome;

// A location, as a test writes it down.
struct Place {
  std::wstring name = L"Place";
  std::array<Texts, kTextCriteriaKinds> lists = {};
  bool zeltReachable = false;

  LocationCriteria Asked() const {
    LocationCriteria asked;
    asked.name = &name;
    for (std::size_t kind = 0; kind < lists.size(); ++kind)
      asked.Add(static_cast<LOCATION_CRITERIA_TYPE>(kind), lists[kind]);
    asked.zeltReachable = zeltReachable;
    return asked;
  }
};

class Matcher : public ::testing::Test {
 protected:
  Matcher() {
    m_probes.isRegistryKeyCriterionMet = [this](const std::wstring& text) {
      m_questions.push_back(L"registry " + text);
      return text == L"yes";
    };
    m_probes.isDomainReachable = [this](const std::wstring& host) {
      m_questions.push_back(L"domain " + host);
      return host == L"up";
    };
    m_probes.isManagementServerReachable = [this] {
      m_questions.emplace_back(L"management server");
      return m_serverIsUp;
    };
    Add(7, L"Cable").gateways = {L"10.0.0.1"};
    Add(3, L"Radio").gateways = {L"192.168.1.1", L"10.0.0.1"};
  }

  AdapterProps& Add(std::uint32_t index, const wchar_t* description) {
    AdapterProps& adapter = m_adapters.emplace_back();
    adapter.ifIndex = index;
    adapter.description = description;
    return adapter;
  }

  // Asks the matcher, and leaves the report of it in m_location.
  bool IsCurrent(const Place& place, AfterFailure afterFailure = AfterFailure::kStop) {
    m_questions.clear();
    MatchReport report;
    MatchReporter reporter(report);
    const bool isCurrent =
        LocationMatcher(m_adapters, m_probes, reporter, afterFailure).IsCurrent(place.Asked(), m_matched);
    EXPECT_EQ(report.locations.size(), 1u);
    m_location = std::move(report.locations.at(0));
    EXPECT_EQ(m_location.isCurrent, isCurrent);
    return isCurrent;
  }
  // The outcomes of the kinds of one adapter, in their order.
  std::vector<std::pair<LOCATION_CRITERIA_TYPE, Outcome>> OutcomesOf(std::size_t adapter) const {
    std::vector<std::pair<LOCATION_CRITERIA_TYPE, Outcome>> outcomes;
    for (const MatchReport::Kind& kind : m_location.adapters.at(adapter).kinds)
      outcomes.emplace_back(kind.kind, kind.outcome);
    return outcomes;
  }

  std::vector<AdapterProps> m_adapters;
  LocationProbes m_probes;
  bool m_serverIsUp = true;
  Texts m_questions;
  Indexes m_matched;
  MatchReport::Location m_location;
};

TEST_F(Matcher, LocationWithoutCriteriaIsCurrentOnEveryAdapterAndOnNone) {
  EXPECT_TRUE(IsCurrent({}));
  EXPECT_EQ(m_matched, (Indexes{7, 3}));
  ASSERT_EQ(m_location.adapters.size(), 2u);
  EXPECT_TRUE(m_location.adapters[0].matches);
  m_adapters.clear();
  m_matched.clear();
  EXPECT_TRUE(IsCurrent({}));
  EXPECT_EQ(m_matched, Indexes{});
}

TEST_F(Matcher, AdaptersThatMatchAreAppendedInSnapshotOrderUnlessTheyAreListed) {
  Place place;
  place.lists[LCT_DEFAULT_GATEWAY] = {L"10.0.0.1"};
  m_matched = {3};
  EXPECT_TRUE(IsCurrent(place));
  EXPECT_EQ(m_matched, (Indexes{3, 7}));
}

// As those without IPv4 do, whose index is 0.
TEST_F(Matcher, AdaptersThatShareAnIndexAreListedOnce) {
  Add(9, L"Bridge").gateways = {L"10.0.0.1"};
  Add(7, L"Tunnel").gateways = {L"10.0.0.1"};
  Place place;
  place.lists[LCT_DEFAULT_GATEWAY] = {L"10.0.0.1"};
  EXPECT_TRUE(IsCurrent(place));
  EXPECT_EQ(m_matched, (Indexes{7, 3, 9}));
}

TEST_F(Matcher, ManagementServerIsAskedOnceAndOnlyWhenAnAdapterMatches) {
  Place place;
  place.zeltReachable = true;
  place.lists[LCT_DEFAULT_GATEWAY] = {L"10.9.9.9"};
  EXPECT_FALSE(IsCurrent(place));
  EXPECT_EQ(m_questions, Texts{});
  EXPECT_FALSE(m_location.managementServer.has_value());
  place.lists[LCT_DEFAULT_GATEWAY] = {L"10.0.0.1"};
  EXPECT_TRUE(IsCurrent(place));
  EXPECT_EQ(m_questions, Texts{L"management server"});
  m_serverIsUp = false;
  m_matched.clear();
  EXPECT_FALSE(IsCurrent(place));
  EXPECT_EQ(m_matched, (Indexes{7, 3})) << "they stay listed";
  ASSERT_TRUE(m_location.managementServer.has_value());
  EXPECT_FALSE(m_location.managementServer->answer);
}

TEST_F(Matcher, ProbesAreAskedForEveryAdapterThatGetsThereUntilOneValueHolds) {
  Place place;
  place.lists[LCT_DEFAULT_GATEWAY] = {L"10.0.0.1"};
  place.lists[LCT_REGISTRY_KEY] = {L"no", L"yes", L"never"};
  place.lists[LCT_DOMAIN_REACHABLE] = {L"down", L"up"};
  EXPECT_TRUE(IsCurrent(place));
  const Texts once{L"registry no", L"registry yes", L"domain down", L"domain up"};
  Texts twice = once;
  twice.insert(twice.end(), once.begin(), once.end());
  EXPECT_EQ(m_questions, twice);
}

TEST_F(Matcher, NothingIsAskedBehindAKindThatFails) {
  Place place;
  place.lists[LCT_DEFAULT_GATEWAY] = {L"192.168.1.1"};
  place.lists[LCT_DNS_SERVER] = {L"10.0.0.53"};
  place.lists[LCT_REGISTRY_KEY] = {L"yes"};
  EXPECT_FALSE(IsCurrent(place));
  EXPECT_EQ(m_questions, Texts{});
  EXPECT_THAT(OutcomesOf(0), ElementsAre(std::pair{LCT_DEFAULT_GATEWAY, Outcome::kFailed},
                                         std::pair{LCT_DNS_SERVER, Outcome::kNotReached},
                                         std::pair{LCT_REGISTRY_KEY, Outcome::kNotReached}));
  EXPECT_THAT(OutcomesOf(1),
              ElementsAre(std::pair{LCT_DEFAULT_GATEWAY, Outcome::kHeld}, std::pair{LCT_DNS_SERVER, Outcome::kFailed},
                          std::pair{LCT_REGISTRY_KEY, Outcome::kNotReached}));
}

// For reports: what costs nothing is still told, no probe is called, and the decision is the same.
TEST_F(Matcher, MayGoOnWithWhatCostsNothing) {
  m_adapters[0].dnsServers = {L"10.0.0.53"};
  Place place;
  place.zeltReachable = true;
  place.lists[LCT_DEFAULT_GATEWAY] = {L"10.9.9.9"};
  place.lists[LCT_DNS_SERVER] = {L"10.0.0.53"};
  place.lists[LCT_REGISTRY_KEY] = {L"yes"};
  place.lists[LCT_DOMAIN_REACHABLE] = {L"up"};
  EXPECT_FALSE(IsCurrent(place, AfterFailure::kTestWhatCostsNothing));
  EXPECT_EQ(m_questions, Texts{});
  EXPECT_EQ(m_matched, Indexes{});
  EXPECT_THAT(OutcomesOf(0),
              ElementsAre(std::pair{LCT_DEFAULT_GATEWAY, Outcome::kFailed}, std::pair{LCT_DNS_SERVER, Outcome::kHeld},
                          std::pair{LCT_REGISTRY_KEY, Outcome::kNotReached},
                          std::pair{LCT_DOMAIN_REACHABLE, Outcome::kNotReached}));
}

TEST_F(Matcher, ReportTellsWhatWasAskedSeenAndAnswered) {
  Place place{.name = L"Office"};
  place.lists[LCT_DEFAULT_GATEWAY] = {L"10.9.9.9", L"10.0.0.1"};
  place.lists[LCT_REGISTRY_KEY] = {L"no", L"yes"};
  EXPECT_TRUE(IsCurrent(place));
  EXPECT_EQ(m_location.name, L"Office");
  ASSERT_EQ(m_location.adapters.size(), 2u);
  const MatchReport::Adapter& radio = m_location.adapters[1];
  EXPECT_EQ(radio.ifIndex, 3u);
  EXPECT_EQ(radio.description, L"Radio");
  EXPECT_TRUE(radio.matches);
  ASSERT_EQ(radio.kinds.size(), 2u);
  EXPECT_EQ(radio.kinds[0].asked, (Texts{L"10.9.9.9", L"10.0.0.1"}));
  EXPECT_EQ(radio.kinds[0].seen, (Texts{L"192.168.1.1", L"10.0.0.1"}));
  EXPECT_EQ(radio.kinds[0].held, L"10.0.0.1");
  EXPECT_TRUE(radio.kinds[0].probes.empty());
  ASSERT_EQ(radio.kinds[1].probes.size(), 2u);
  EXPECT_EQ(radio.kinds[1].probes[0].text, L"no");
  EXPECT_FALSE(radio.kinds[1].probes[0].answer);
  EXPECT_TRUE(radio.kinds[1].probes[1].answer);
  EXPECT_GE(radio.kinds[1].probes[1].took.count(), 0);
  EXPECT_EQ(radio.kinds[1].held, L"yes");
}

TEST_F(Matcher, EveryKindIsComparedWithItsOwnField) {
  AdapterProps& adapter = m_adapters[0];
  adapter.dnsSuffix = L"corp.example";
  adapter.dhcpServer = L"4";
  adapter.dhcpV6Server = L"6";
  adapter.dnsServers = {L"53"};
  adapter.winsPrimary = L"41";
  adapter.winsSecondary = L"42";
  const struct {
    LOCATION_CRITERIA_TYPE kind;
    const wchar_t* held;
  } cases[] = {{LCT_DNS_SUFFIX, L"*.EXAMPLE"}, {LCT_DEFAULT_GATEWAY, L"10.0.0.1"},
               {LCT_DHCP_SERVER, L"4"},        {LCT_DHCP_SERVER, L"6"},
               {LCT_DNS_SERVER, L"53"},        {LCT_PRIMARY_WINS, L"41"},
               {LCT_SECONDARY_WINS, L"42"},    {LCT_REGISTRY_KEY, L"yes"},
               {LCT_DOMAIN_REACHABLE, L"up"}};
  struct : MatchObserver {
  } nobody;
  LocationMatcher matcher(m_adapters, m_probes, nobody);
  for (const auto& held : cases) {
    SCOPED_TRACE(held.held);
    EXPECT_TRUE(matcher.Matches(adapter, held.kind, {L"other", held.held}));
    EXPECT_FALSE(matcher.Matches(adapter, held.kind, {L"other"}));
    EXPECT_FALSE(matcher.Matches(adapter, held.kind, {}));
    for (const auto& other : cases) {
      if (other.kind != held.kind) {
        EXPECT_FALSE(matcher.Matches(adapter, other.kind, {held.held}));
      }
    }
  }
  EXPECT_FALSE(matcher.Matches(adapter, LCT_ZELT_REACHABLE, {L"yes"}));
  EXPECT_FALSE(matcher.Matches(adapter, static_cast<LOCATION_CRITERIA_TYPE>(9), {L"yes"}));
}

TEST_F(Matcher, WhatAProbeThrowsLeavesIt) {
  m_probes.isDomainReachable = [](const std::wstring&) -> bool { throw std::runtime_error("probe"); };
  Place place;
  place.lists[LCT_DOMAIN_REACHABLE] = {L"up"};
  MatchReport report;
  MatchReporter reporter(report);
  LocationMatcher matcher(m_adapters, m_probes, reporter);
  EXPECT_THROW(matcher.IsCurrent(place.Asked(), m_matched), std::runtime_error);
  EXPECT_EQ(m_matched, Indexes{});
}

}  // namespace

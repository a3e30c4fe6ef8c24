#include "FwClient/Service/QeLaLib/MatchReport.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

namespace {

TEST(MatchReport, NamesWhatAnAdapterShowsOfEachKind) {
  using Texts = std::vector<std::wstring>;
  AdapterProps adapter;
  adapter.dnsSuffix = L"suffix";
  adapter.gateways = {L"gateway 1", L"gateway 2"};
  adapter.dhcpServer = L"dhcp";
  adapter.dhcpV6Server = L"dhcp 6";
  adapter.dnsServers = {L"dns"};
  adapter.winsPrimary = L"primary";
  adapter.winsSecondary = L"secondary";
  EXPECT_EQ(SeenOf(adapter, LCT_DNS_SUFFIX), Texts{L"suffix"});
  EXPECT_EQ(SeenOf(adapter, LCT_DEFAULT_GATEWAY), (Texts{L"gateway 1", L"gateway 2"}));
  EXPECT_EQ(SeenOf(adapter, LCT_DHCP_SERVER), (Texts{L"dhcp", L"dhcp 6"}));
  EXPECT_EQ(SeenOf(adapter, LCT_DNS_SERVER), Texts{L"dns"});
  EXPECT_EQ(SeenOf(adapter, LCT_PRIMARY_WINS), Texts{L"primary"});
  EXPECT_EQ(SeenOf(adapter, LCT_SECONDARY_WINS), Texts{L"secondary"});
  for (const LOCATION_CRITERIA_TYPE kind : {LCT_REGISTRY_KEY, LCT_DOMAIN_REACHABLE, LCT_ZELT_REACHABLE})
    EXPECT_EQ(SeenOf(adapter, kind), Texts{});
}

TEST(MatchReport, TellsHowLongAProbeTook) {
  const std::vector<AdapterProps> adapters(1);
  const std::wstring name = L"Office";
  const std::vector<std::wstring> keys = {L"a key"};
  LocationCriteria location;
  location.name = &name;
  location.Add(LCT_REGISTRY_KEY, keys);
  const LocationProbes probes{[](const std::wstring&) { return true; }, nullptr, nullptr};
  MatchReport report;
  MatchReporter reporter(report);
  std::vector<std::uint32_t> matched;
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_TRUE(LocationMatcher(adapters, probes, reporter).IsCurrent(location, matched));
  const auto took = report.locations.at(0).adapters.at(0).kinds.at(0).probes.at(0).took;
  EXPECT_GE(took.count(), 0);
  EXPECT_LE(took, std::chrono::steady_clock::now() - begin);
}

}  // namespace

#include "FwClient/Service/QeLaLib/MatchReport.h"

#include <gtest/gtest.h>

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

}  // namespace

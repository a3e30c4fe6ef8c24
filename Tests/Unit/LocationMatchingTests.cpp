// Whether a location is current, and what the log says on the way.
#include <windows.h>
#include <windns.h>

#include <gtest/gtest.h>

#include <clocale>
#include <functional>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "FwClient/Service/QeLaLib/QeLocation.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/AdapterList.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Support/HostLocation.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using Indexes = std::vector<std::uint32_t>;
using Texts = std::vector<std::wstring>;

class Service : public CQeLaLib {
 public:
  Service() : CQeLaLib(nullptr, false, NotLoaded{}) { m_adapters = m_ownAdapters; }
  using CQeLaLib::IsCurrentLocation;
  using CQeLaLib::MatchAdapterCriteria;

  // The snapshot, still open to change.
  std::vector<AdapterProps>& Adapters() { return *m_ownAdapters; }

 private:
  std::shared_ptr<std::vector<AdapterProps>> m_ownAdapters = std::make_shared<std::vector<AdapterProps>>();
};

// "Checking" to "returning": the lines around every test of a location.
std::wstring Checking(const std::wstring& name) { return L"IsCurrentLocation checking location " + name; }
std::wstring Zelt(int set) { return L"IsCurrentLocation bZeltReachabilityCriteria " + std::to_wstring(set); }
std::wstring CountIs(int count) { return L"IsCurrentLocation criteria count is " + std::to_wstring(count); }
std::wstring Returning(int result, const std::wstring& name) {
  return L"IsCurrentLocation returning matched criterias " + std::to_wstring(result) + L" for location " + name +
         L"...";
}
// The lines around the test of an adapter.
std::wstring Adapter(const AdapterProps& adapter) {
  return L"Matching all the location criterias with the properties of adapter with index " +
         std::to_wstring(adapter.ifIndex) + L" and description " + adapter.description + L".";
}
std::wstring All(const AdapterProps& adapter) {
  return L"All the criteria's given in location matches adapter index " + std::to_wstring(adapter.ifIndex) +
         L" with description " + adapter.description + L". Hence this adapter will be matching.";
}
std::wstring NotAll(const AdapterProps& adapter) {
  return L"Not all the criteria's given in the location matches the adapter with index " +
         std::to_wstring(adapter.ifIndex) + L" and description " + adapter.description +
         L". Hence this adapter will be non-matching.";
}
constexpr wchar_t kNone[] =
    L"None of the available network adapter properties matches all the criteria's given in the location";
constexpr wchar_t kZeltSucceeded[] = L"CheckZeltReachability succeeded";
constexpr wchar_t kZeltFailed[] = L"CheckZeltReachability failed";

// What a criterion says when it has matched.
std::wstring Matched(const std::wstring& what, const AdapterProps& adapter) {
  return L"Location: " + what + L" for adapter with index " + std::to_wstring(adapter.ifIndex) + L" and description " +
         adapter.description + L".";
}

class LocationMatching : public testing::Test {
 protected:
  LocationMatching() { m_location.SetName(L"Office"); }

  static AdapterProps MakeAdapter(std::uint32_t index, const wchar_t* description) {
    AdapterProps adapter;
    adapter.ifIndex = index;
    adapter.description = description;
    return adapter;
  }

  AdapterProps& Add(std::uint32_t index, const wchar_t* description) {
    return m_service.Adapters().emplace_back(MakeAdapter(index, description));
  }

  void Require(LOCATION_CRITERIA_TYPE kind, const wchar_t* value = L"") {
    ASSERT_EQ(m_location.AddCriteria(&kind, value), 0u);
  }

  // The agent's list names one server, which DNS knows or not.
  void SetManagementServer(bool known) {
    m_registry.SetText(L"SOFTWARE\\Quillon\\Mervo\\Shared Components\\Framework", L"ZeltServerList", L"srv");
    s_serverIsKnown = known;
    m_matched.clear();
    m_log.Clear();
  }
  static DNS_STATUS WINAPI QueryDns(const wchar_t*, WORD, DWORD, void*, PDNS_RECORD*, void**) {
    return s_serverIsKnown ? ERROR_SUCCESS : DNS_ERROR_RCODE_NAME_ERROR;
  }

  std::uint32_t Check() { return m_service.IsCurrentLocation(m_location, m_matched); }

  // The lines of the matcher itself, without those of the probes that it calls.
  Texts OwnLines() const {
    Texts texts;
    for (const LoggedEvent& event : m_log.Events())
      if (event.file == "FwClient/Service/QeLaLib/LocationMatching.cpp") texts.push_back(event.text);
    return texts;
  }

  // One kind against one adapter, with what it logs.
  struct Answer {
    bool matches;
    Texts log;
    bool operator==(const Answer&) const = default;
  };
  Answer Ask(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind, const Texts& values) {
    m_log.Clear();
    const bool matches = m_service.MatchAdapterCriteria(adapter, kind, values);
    return {matches, m_log.Texts()};
  }
  const Answer kSilentNo = {false, {}};

  FakeAdapters m_system{ThisProgram()};
  ScriptedRegistry m_registry{ThisProgram()};
  ImportPatch m_dns{ThisProgram(), "DnsQuery_W", &QueryDns};
  static inline bool s_serverIsKnown;
  LogRecorder m_log;
  Service m_service;
  CQeLocation m_location;
  Indexes m_matched;
};

// A location of a host's own.
TEST_F(LocationMatching, WithoutACriteriaSetAllAdaptersMatchAndNobodyIsAsked) {
  Add(5, L"LAN");
  Add(7, L"WLAN");
  SetManagementServer(false);
  EXPECT_EQ(m_service.IsCurrentLocation(HostLocation(), m_matched), 1u);
  EXPECT_EQ(m_matched, (Indexes{5, 7}));
  EXPECT_EQ(m_log.Texts().at(1), Zelt(0));
}

// ---- one kind against one adapter ----

TEST_F(LocationMatching, DnsSuffixMatchLogsTheValue) {
  AdapterProps adapter = MakeAdapter(5, L"LAN");
  adapter.dnsSuffix = L"corp.example";
  EXPECT_EQ(Ask(adapter, LCT_DNS_SUFFIX, {L"Corp.Example"}),
            (Answer{true, {Matched(L"DNS suffix : Corp.Example matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_DNS_SUFFIX, {L"example.org", L"*.example", L"corp.example"}),
            (Answer{true, {Matched(L"DNS suffix : *.example matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_DNS_SUFFIX, {L"example.org"}), kSilentNo);
}

TEST_F(LocationMatching, ABrokenDnsSuffixDoesNotHideTheNextValue) {
  AdapterProps adapter = MakeAdapter(5, L"LAN");
  adapter.dnsSuffix = L"corp.example";
  EXPECT_EQ(Ask(adapter, LCT_DNS_SUFFIX, {L"*[.example", L"*(", L"corp.example"}),
            (Answer{true, {Matched(L"DNS suffix : corp.example matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_DNS_SUFFIX, {L"*[.example"}), kSilentNo);
}

TEST_F(LocationMatching, GatewayMatchLogsTheFirstValueThatMatches) {
  AdapterProps adapter = MakeAdapter(5, L"LAN");
  adapter.gateways = {L"10.0.0.1", L"fe80::1", L"10.0.0.2"};
  EXPECT_EQ(Ask(adapter, LCT_DEFAULT_GATEWAY, {L"10.0.0.9", L"10.0.0.2", L"10.0.0.1"}),
            (Answer{true, {Matched(L"Default gateway : 10.0.0.2 matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_DEFAULT_GATEWAY, {L"10.0.0.9"}), kSilentNo);
}

TEST_F(LocationMatching, AddressesAreComparedAsTexts) {
  AdapterProps adapter = MakeAdapter(5, L"LAN");
  adapter.gateways = {L"192.168.001.1", L"fe80::a"};
  EXPECT_EQ(Ask(adapter, LCT_DEFAULT_GATEWAY,
                {L"192.168.1.1", L"192.168.001.1 ", L"192.168.001.10", L"192.168.001.", L"FE80::A",
                 L"fe80:0:0:0:0:0:0:a", L""}),
            kSilentNo);
}

TEST_F(LocationMatching, DhcpServerMatchesEitherFamily) {
  AdapterProps adapter = MakeAdapter(5, L"LAN");
  adapter.dhcpServer = L"10.0.0.2";
  adapter.dhcpV6Server = L"fe80::2";
  for (const wchar_t* server : {L"10.0.0.2", L"fe80::2"})
    EXPECT_TRUE(Ask(adapter, LCT_DHCP_SERVER, {L"10.0.0.9", server}).matches) << server;
  EXPECT_EQ(Ask(adapter, LCT_DHCP_SERVER, {L"10.0.0.9", L""}), kSilentNo);
}

TEST_F(LocationMatching, DhcpV6MatchLogsTheDhcpV4Server) {
  AdapterProps adapter = MakeAdapter(5, L"LAN");
  adapter.dhcpServer = L"10.0.0.2";
  adapter.dhcpV6Server = L"fe80::2";
  EXPECT_EQ(Ask(adapter, LCT_DHCP_SERVER, {L"fe80::2"}),
            (Answer{true, {Matched(L"DHCP server : 10.0.0.2 matched", adapter)}}));
  adapter.dhcpServer.clear();
  EXPECT_EQ(Ask(adapter, LCT_DHCP_SERVER, {L"fe80::2"}), (Answer{true, {Matched(L"DHCP server :  matched", adapter)}}));
}

TEST_F(LocationMatching, DnsServerMatchLogsTheFirstValueThatMatches) {
  AdapterProps adapter = MakeAdapter(5, L"LAN");
  adapter.dnsServers = {L"10.0.0.3", L"10.0.0.4"};
  EXPECT_EQ(Ask(adapter, LCT_DNS_SERVER, {L"10.0.0.4", L"10.0.0.3"}),
            (Answer{true, {Matched(L"DNS server : 10.0.0.4 matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_DNS_SERVER, {L"10.0.0.5", L""}), kSilentNo);
}

TEST_F(LocationMatching, PrimaryWinsMatchesOnlyThePrimaryServer) {
  AdapterProps adapter = MakeAdapter(5, L"LAN");
  adapter.winsPrimary = L"10.0.0.6";
  adapter.winsSecondary = L"10.0.0.7";
  EXPECT_EQ(Ask(adapter, LCT_PRIMARY_WINS, {L"10.0.0.7", L"10.0.0.6"}),
            (Answer{true, {Matched(L"Primary WINS : 10.0.0.6 matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_PRIMARY_WINS, {L"10.0.0.7"}), kSilentNo);
}

TEST_F(LocationMatching, SecondaryWinsMatchLogsThePrimaryServer) {
  AdapterProps adapter = MakeAdapter(5, L"LAN");
  adapter.winsPrimary = L"10.0.0.6";
  adapter.winsSecondary = L"10.0.0.7";
  EXPECT_EQ(Ask(adapter, LCT_SECONDARY_WINS, {L"10.0.0.7"}),
            (Answer{true, {Matched(L"Secondary WINS : 10.0.0.6 matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_SECONDARY_WINS, {L"10.0.0.6"}), kSilentNo);
}

// Two empty texts are equal; lists, however, never hold one.
TEST_F(LocationMatching, AnEmptyValueMatchesAnEmptyField) {
  const AdapterProps adapter = MakeAdapter(5, L"LAN");
  EXPECT_EQ(Ask(adapter, LCT_DNS_SUFFIX, {L""}), (Answer{true, {Matched(L"DNS suffix :  matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_DHCP_SERVER, {L""}), (Answer{true, {Matched(L"DHCP server :  matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_PRIMARY_WINS, {L""}), (Answer{true, {Matched(L"Primary WINS :  matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_SECONDARY_WINS, {L""}), (Answer{true, {Matched(L"Secondary WINS :  matched", adapter)}}));
  EXPECT_EQ(Ask(adapter, LCT_DEFAULT_GATEWAY, {L""}), kSilentNo);
  EXPECT_EQ(Ask(adapter, LCT_DNS_SERVER, {L""}), kSilentNo);
}

TEST_F(LocationMatching, NoValuesAndUnknownKindsNeverMatch) {
  const AdapterProps adapter = MakeAdapter(5, L"LAN");
  for (std::uint32_t kind = 0; kind <= 9; ++kind)
    EXPECT_EQ(Ask(adapter, static_cast<LOCATION_CRITERIA_TYPE>(kind), {}), kSilentNo) << kind;
  for (const std::uint32_t kind : {8u, 9u, 100u, 0xffffffffu})
    EXPECT_EQ(Ask(adapter, static_cast<LOCATION_CRITERIA_TYPE>(kind), {L"", L"x"}), kSilentNo) << kind;
}

// ---- a location without a criterion that an adapter could meet ----

TEST_F(LocationMatching, ALocationWithoutCriteriaMatchesEveryAdapter) {
  Add(7, L"LAN");
  Add(3, L"Wi-Fi");
  EXPECT_EQ(Check(), 1u);
  EXPECT_EQ(m_matched, (Indexes{7, 3}));
  EXPECT_EQ(m_log.Texts(8), (Texts{Checking(L"Office"), Zelt(0), CountIs(0), Returning(1, L"Office")}));
}

TEST_F(LocationMatching, ALocationWithoutCriteriaIsCurrentEvenWithoutAdapters) {
  EXPECT_EQ(Check(), 1u);
  EXPECT_TRUE(m_matched.empty());
}

// Only the general path tests for duplicates.
TEST_F(LocationMatching, WithoutCriteriaAnIndexIsListedAsOftenAsItOccurs) {
  Add(0, L"IPv6 only");
  Add(0, L"IPv6 only, too");
  Add(7, L"LAN");
  m_matched = {7};
  EXPECT_EQ(Check(), 1u);
  EXPECT_EQ(m_matched, (Indexes{7, 0, 0, 7}));
}

// ---- locations with criteria ----

TEST_F(LocationMatching, EveryKindMustHoldForTheSameAdapter) {
  AdapterProps& lan = Add(7, L"LAN");
  lan.gateways = {L"10.0.0.1"};
  lan.dnsServers = {L"10.0.0.4"};
  AdapterProps& wifi = Add(3, L"Wi-Fi");
  wifi.gateways = {L"10.0.0.1"};
  wifi.dnsServers = {L"10.0.0.3"};
  Require(LCT_DNS_SERVER, L"10.0.0.3");
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  EXPECT_EQ(Check(), 1u);
  EXPECT_EQ(m_matched, Indexes{3});
  const AdapterProps& first = m_service.Adapters()[0];
  const AdapterProps& second = m_service.Adapters()[1];
  EXPECT_EQ(m_log.Texts(8), (Texts{Checking(L"Office"), Zelt(0),  //
                                   Adapter(first), Matched(L"Default gateway : 10.0.0.1 matched", first), NotAll(first),
                                   Adapter(second), Matched(L"Default gateway : 10.0.0.1 matched", second),
                                   Matched(L"DNS server : 10.0.0.3 matched", second), All(second),  //
                                   Returning(1, L"Office")}));
}

TEST_F(LocationMatching, KindsAreTestedInOrderAndTheFirstFailureEndsTheAdapter) {
  AdapterProps& adapter = Add(7, L"LAN");
  adapter.dnsSuffix = L"corp.example";
  adapter.gateways = {L"10.0.0.1"};
  adapter.dhcpServer = L"10.0.0.2";
  adapter.dnsServers = {L"10.0.0.3"};
  adapter.winsPrimary = L"10.0.0.6";
  adapter.winsSecondary = L"10.0.0.7";
  Require(LCT_SECONDARY_WINS, L"10.0.0.7");
  Require(LCT_PRIMARY_WINS, L"10.0.0.6");
  Require(LCT_DNS_SERVER, L"10.0.0.3");
  Require(LCT_DHCP_SERVER, L"10.0.0.2");
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  Require(LCT_DNS_SUFFIX, L"corp.example");
  Texts lines = {
      Matched(L"DNS suffix : corp.example matched", adapter), Matched(L"Default gateway : 10.0.0.1 matched", adapter),
      Matched(L"DHCP server : 10.0.0.2 matched", adapter),    Matched(L"DNS server : 10.0.0.3 matched", adapter),
      Matched(L"Primary WINS : 10.0.0.6 matched", adapter),   Matched(L"Secondary WINS : 10.0.0.6 matched", adapter)};
  const auto expectLog = [&](std::size_t passed, int result) {
    Texts expected = {Checking(L"Office"), Zelt(0), Adapter(adapter)};
    expected.insert(expected.end(), lines.begin(), lines.begin() + static_cast<std::ptrdiff_t>(passed));
    if (result == 1) {
      expected.push_back(All(adapter));
    } else {
      expected.push_back(NotAll(adapter));
      expected.emplace_back(kNone);
    }
    expected.push_back(Returning(result, L"Office"));
    EXPECT_EQ(m_log.Texts(8), expected) << passed;
    m_log.Clear();
  };
  EXPECT_EQ(Check(), 1u);
  expectLog(6, 1);

  // Broken from the last kind to the first, so that each failure hides the ones behind it.
  const std::function<void()> breaks[] = {[&] { adapter.winsSecondary = L"x"; }, [&] { adapter.winsPrimary = L"x"; },
                                          [&] { adapter.dnsServers.clear(); },   [&] { adapter.dhcpServer = L"x"; },
                                          [&] { adapter.gateways.clear(); },     [&] { adapter.dnsSuffix = L"x"; }};
  std::size_t passed = 6;
  for (const auto& damage : breaks) {
    damage();
    // The later lines name texts of fields that are already damaged, but are not logged any more.
    EXPECT_EQ(Check(), 0u);
    expectLog(--passed, 0);
  }
}

TEST_F(LocationMatching, WithoutAdaptersACriterionIsNotMet) {
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  m_matched = {9};
  EXPECT_EQ(Check(), 0u);
  EXPECT_EQ(m_matched, Indexes{9});
  EXPECT_EQ(m_log.Texts(8), (Texts{Checking(L"Office"), Zelt(0), kNone, Returning(0, L"Office")}));
}

TEST_F(LocationMatching, MatchingAdaptersAreListedInOrderAndOnce) {
  for (const std::uint32_t index : {7u, 0u, 3u, 0u, 9u}) Add(index, L"LAN").gateways = {L"10.0.0.1"};
  Add(4, L"elsewhere").gateways = {L"10.0.0.2"};
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  m_matched = {3, 3, 5};
  EXPECT_EQ(Check(), 1u);
  EXPECT_EQ(m_matched, (Indexes{3, 3, 5, 7, 0, 9}));
}

TEST_F(LocationMatching, AlternativesOfOneKindAreEnough) {
  Add(7, L"LAN").gateways = {L"10.0.0.1"};
  Add(8, L"Wi-Fi").gateways = {L"10.0.0.2"};
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.2");
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  EXPECT_EQ(Check(), 1u);
  EXPECT_EQ(m_matched, (Indexes{7, 8}));
}

// ---- the registry ----

constexpr wchar_t kSomeKey[] = L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\";
constexpr wchar_t kSomeKeyPath[] = L"SOFTWARE\\Vendor";

TEST_F(LocationMatching, RegistryMatchLogsNoValue) {
  m_registry.MakeKey(kSomeKeyPath);
  const AdapterProps adapter = MakeAdapter(5, L"LAN");
  EXPECT_TRUE(m_service.MatchAdapterCriteria(adapter, LCT_REGISTRY_KEY, {L"no hive", kSomeKey, kSomeKey}));
  EXPECT_EQ(OwnLines(), Texts{Matched(L"Registry key matched", adapter)});
  EXPECT_EQ(m_registry.Count("RegOpenKeyExW"), 1u) << "the first value that matches decides";
}

// The registry may change while adapters are tested: its answer is not kept from one to the next.
TEST_F(LocationMatching, TheRegistryIsAskedOnceForEveryAdapterThatGetsThere) {
  for (const std::uint32_t index : {1u, 2u, 3u}) Add(index, L"LAN").gateways = {L"10.0.0.1"};
  Add(4, L"elsewhere").gateways = {L"10.0.0.2"};
  Require(LCT_REGISTRY_KEY, kSomeKey);
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  m_registry.MakeKey(kSomeKeyPath);
  EXPECT_EQ(Check(), 1u);
  EXPECT_EQ(m_matched, (Indexes{1, 2, 3}));
  EXPECT_EQ(m_registry.Count("RegOpenKeyExW"), 3u);
}

TEST_F(LocationMatching, AMissingRegistryKeyMakesNoAdapterMatch) {
  const AdapterProps& adapter = Add(7, L"LAN");
  Require(LCT_REGISTRY_KEY, kSomeKey);
  EXPECT_EQ(Check(), 0u);
  EXPECT_EQ(m_registry.Count("RegOpenKeyExW"), 2u) << "in either view, once";
  EXPECT_EQ(OwnLines(),
            (Texts{Checking(L"Office"), Zelt(0), Adapter(adapter), NotAll(adapter), kNone, Returning(0, L"Office")}));
}

// ---- the management server ----

TEST_F(LocationMatching, WithTheManagementServerAloneEveryAdapterIsListedWhateverTheServerSays) {
  Add(7, L"LAN");
  Add(7, L"LAN again");
  Require(LCT_ZELT_REACHABLE);
  for (const bool known : {false, true}) {
    SetManagementServer(known);
    EXPECT_EQ(Check(), known ? 1u : 0u);
    EXPECT_EQ(m_matched, (Indexes{7, 7}));
    EXPECT_EQ(OwnLines(), (Texts{Checking(L"Office"), Zelt(1), CountIs(1), known ? kZeltSucceeded : kZeltFailed,
                                 Returning(known, L"Office")}));
  }
}

TEST_F(LocationMatching, TheManagementServerIsAskedAfterTheAdaptersMatched) {
  const AdapterProps& adapter = Add(7, L"LAN");
  m_service.Adapters()[0].gateways = {L"10.0.0.1"};
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  Require(LCT_ZELT_REACHABLE);
  for (const bool known : {false, true}) {
    SetManagementServer(known);
    EXPECT_EQ(Check(), known ? 1u : 0u);
    EXPECT_EQ(m_matched, Indexes{7}) << "stays listed when the server is not reachable";
    EXPECT_EQ(OwnLines(), (Texts{Checking(L"Office"), Zelt(1), Adapter(adapter),
                                 Matched(L"Default gateway : 10.0.0.1 matched", adapter), All(adapter),
                                 known ? kZeltSucceeded : kZeltFailed, Returning(known, L"Office")}));
  }
}

TEST_F(LocationMatching, TheManagementServerIsNotAskedWhenNoAdapterMatches) {
  const AdapterProps& adapter = Add(7, L"LAN");
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  Require(LCT_ZELT_REACHABLE);
  EXPECT_EQ(Check(), 0u);
  EXPECT_TRUE(m_matched.empty());
  EXPECT_EQ(m_log.Texts(8),
            (Texts{Checking(L"Office"), Zelt(1), Adapter(adapter), NotAll(adapter), kNone, Returning(0, L"Office")}));
}

TEST_F(LocationMatching, LogsAsTheFirewallDoes) {
  Add(7, L"LAN").gateways = {L"10.0.0.1"};
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  Check();
  const auto events = m_log.Events();
  ASSERT_EQ(events.size(), 6u);
  for (const LoggedEvent& event : events)
    ExpectFirewallEvent(event, 8, "FwClient/Service/QeLaLib/LocationMatching.cpp");
}

TEST_F(LocationMatching, IndexesAreLoggedAsSignedNumbers) {
  AdapterProps& adapter = Add(0xffffffff, L"LAN");
  adapter.gateways = {L"10.0.0.1"};
  Require(LCT_DEFAULT_GATEWAY, L"10.0.0.1");
  EXPECT_EQ(Check(), 1u);
  EXPECT_EQ(
      m_log.Count(
          L"Matching all the location criterias with the properties of adapter with index -1 and description LAN."),
      1u);
  EXPECT_EQ(m_matched, Indexes{0xffffffff});
}

// Names come from administrators: formats in them mean nothing, and no name may stop the calculation. The last line has
// a narrow format, so that in the C locale a name of other letters is cut or lost there.
TEST_F(LocationMatching, AnyNameAndDescriptionCanBeLogged) {
  const std::wstring names[] = {L"",
                                L"100%s %n %d",
                                L"B\u00fcro \u6771\u4eac",
                                std::wstring(1, static_cast<wchar_t>(0xd800)),
                                std::wstring(100000, L'x'),
                                std::wstring(L"a\0b", 3)};
  for (const std::wstring& name : names) {
    m_service.Adapters().clear();
    Add(7, L"").description = name;
    m_service.Adapters()[0].gateways = {L"10.0.0.1"};
    CQeLocation location;
    location.SetName(name);
    const auto kind = LCT_DEFAULT_GATEWAY;
    location.AddCriteria(&kind, L"10.0.0.1");
    m_log.Clear();
    Indexes matched;
    EXPECT_EQ(m_service.IsCurrentLocation(location, matched), 1u);
    EXPECT_EQ(matched, Indexes{7});
    EXPECT_EQ(m_log.Texts().size(), 6u);
  }
  const std::string before = std::setlocale(LC_ALL, nullptr);
  std::setlocale(LC_ALL, "C");
  m_location.SetName(L"B\u00fcro");
  m_log.Clear();
  EXPECT_EQ(Check(), 1u);
  EXPECT_EQ(m_log.Texts().front(), Checking(L"B\u00fcro"));
  EXPECT_EQ(m_log.Texts().size(), 4u);
  std::setlocale(LC_ALL, before.c_str());
}

TEST_F(LocationMatching, ADisabledLocationIsStillTestedWhenAsked) {
  Add(7, L"LAN");
  const bool no = false;
  m_location.SetEnabled(&no);
  EXPECT_EQ(Check(), 1u);
}

}  // namespace

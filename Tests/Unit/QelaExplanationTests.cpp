// Why a location is current or not, told of machines and of logged calculations.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Tests/Support/HostLogs.h"
#include "Tests/Support/RunQela.h"
#include "Tests/Unit/QelaMachines.h"
#include "Tools/qela/Explanation.h"
#include "Tools/qela/LocationSetFile.h"
#include "Tools/qela/Text.h"

namespace {

using Outcome = LocationExplanation::Outcome;
using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

std::vector<Outcome> OutcomesOf(const LocationExplanation::Adapter& adapter) {
  std::vector<Outcome> outcomes;
  for (const LocationExplanation::Kind& kind : adapter.kinds) outcomes.push_back(kind.outcome);
  return outcomes;
}

MachineSnapshot Machine(std::vector<AdapterProps> adapters) {
  MachineSnapshot machine;
  machine.adapters = std::move(adapters);
  return machine;
}

TEST(QelaExplanation, TheFirstKindThatFailsStopsTheLibraryAndWhatCostsNothingIsToldBehindIt) {
  const CQeLocation office = Location(L"Office", {{LCT_DNS_SUFFIX, {L"corp.example"}},
                                                  {LCT_DEFAULT_GATEWAY, {L"10.0.0.1", L"10.0.0.2"}},
                                                  {LCT_DHCP_SERVER, {L"10.0.0.67"}},
                                                  {LCT_DNS_SERVER, {L"10.0.0.53"}},
                                                  {LCT_DOMAIN_REACHABLE, {L"intranet.example"}}});
  AdapterProps adapter = Adapter(2, L"eth0", {L"10.20.0.1"}, L"Corp.Example");
  adapter.dnsServers = {L"10.0.0.53"};
  const LocationExplanation explained = Explain(office, Machine({adapter}));
  EXPECT_EQ(explained.verdict, Verdict::kNotCurrent);
  ASSERT_EQ(explained.adapters.size(), 1u);
  EXPECT_EQ(explained.adapters[0].matches, false);
  EXPECT_THAT(OutcomesOf(explained.adapters[0]),
              ElementsAre(Outcome::kHeld, Outcome::kFailed, Outcome::kFailsToo, Outcome::kHeld, Outcome::kNotReached));
  EXPECT_EQ(
      explained.sentence,
      "Office is not current: adapter 2 (eth0) fails at the default gateway: it shows 10.20.0.1, and the location "
      "asks for 10.0.0.1 or 10.0.0.2. It would hold on an adapter whose default gateway is 10.0.0.1 or 10.0.0.2, or "
      "if the location asked for what this one shows (qela location set Office --add-gateway 10.20.0.1). Then the "
      "DHCP server would fail as well.");
  EXPECT_EQ(ToText(explained),
            "Office: not current\n"
            "  adapter 2 (eth0): does not match\n"
            "    kind             asked             seen\n"
            "    DNS suffix       corp.example      Corp.Example  held\n"
            "    default gateway  10.0.0.1          10.20.0.1     FAIL\n"
            "                     10.0.0.2\n"
            "    DHCP server      10.0.0.67         none          fail\n"
            "    DNS server       10.0.0.53         10.0.0.53     held\n"
            "    web host         intranet.example                not reached\n"
            "  " +
                explained.sentence + "\n");
}

TEST(QelaExplanation, TheNearestAdapterIsTheOneOnWhichMostKindsHeldThenFewestFailThenTheFirst) {
  const auto nearest = [](const std::vector<AdapterProps>& adapters) {
    const CQeLocation office = Location(
        L"Office",
        {{LCT_DNS_SUFFIX, {L"corp.example"}}, {LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}, {LCT_DHCP_SERVER, {L"10.0.0.67"}}});
    return Explain(office, Machine(adapters)).failure->adapter;
  };
  const AdapterProps none = Adapter(1, L"a");
  const AdapterProps suffix = Adapter(2, L"b", {}, L"corp.example");
  AdapterProps suffixAndDhcp = suffix;
  suffixAndDhcp.dhcpServer = L"10.0.0.67";
  EXPECT_EQ(nearest({none, suffix}), 1u);
  EXPECT_EQ(nearest({suffix, none}), 0u);
  EXPECT_EQ(nearest({none, suffix, suffixAndDhcp}), 2u);
  EXPECT_EQ(nearest({suffix, suffix}), 0u);
  EXPECT_THAT(Explain(Location(L"Office", {{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}}), Machine({none, suffix})).sentence,
              HasSubstr("adapter 1 (a) comes nearest, and fails at the default gateway: it shows none, and"));
}

TEST(QelaExplanation, WhatNobodyAskedLeavesTheVerdictOpenOnlyWhereItDecides) {
  const CQeLocation office = Location(
      L"Office",
      {{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}, {LCT_REGISTRY_KEY, {L"A\\", L"B\\"}}, {LCT_DOMAIN_REACHABLE, {L"h"}}});
  MachineSnapshot machine = Machine({Adapter(2, L"eth0", {L"10.0.0.1"})});
  LocationExplanation explained = Explain(office, machine);
  EXPECT_EQ(explained.verdict, Verdict::kUnknown);
  EXPECT_EQ(explained.adapters[0].matches, std::nullopt);
  EXPECT_EQ(
      explained.sentence,
      "Whether Office is current depends on what was not asked: registry key or value A\\, registry key or value B\\ "
      "and web host h.");
  machine.registry = {{L"B\\", true}};
  machine.httpsHosts = {{L"h", true}};
  explained = Explain(office, machine);  // A is not known and does not matter
  EXPECT_EQ(explained.verdict, Verdict::kCurrent);
  EXPECT_EQ(explained.adapters[0].kinds[1].held, L"B\\");
  EXPECT_EQ(explained.sentence, "Office is current: adapter 2 (eth0) shows all that it asks for.");
  machine.registry.clear();
  machine.httpsHosts = {{L"h", false}};
  explained = Explain(office, machine);  // fails whatever the registry holds
  EXPECT_EQ(explained.verdict, Verdict::kNotCurrent);
  EXPECT_THAT(OutcomesOf(explained.adapters[0]), ElementsAre(Outcome::kHeld, Outcome::kUnknown, Outcome::kFailed));
}

TEST(QelaExplanation, TheManagementServerDecidesWhereTheAdaptersDo) {
  const CQeLocation office = Location(L"Office", {{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}, {LCT_ZELT_REACHABLE, {L""}}});
  MachineSnapshot machine = Machine({Adapter(2, L"eth0", {L"10.0.0.1"})});
  EXPECT_EQ(Explain(office, machine).verdict, Verdict::kUnknown);
  machine.managementServer = false;
  EXPECT_EQ(Explain(office, machine).verdict, Verdict::kNotCurrent);
  EXPECT_THAT(Explain(office, machine).sentence, HasSubstr("not current: the management server was not found"));
  machine.managementServer = true;
  EXPECT_EQ(
      Explain(office, machine).sentence,
      "Office is current: adapter 2 (eth0) shows all that it asks for, and the management server was found in DNS.");
  machine.adapters.front().gateways.clear();
  EXPECT_EQ(Explain(office, machine).managementServer, std::nullopt);
}

TEST(QelaExplanation, DisabledLocationsMachinesWithoutAdaptersAndMissingCriteriaAreTold) {
  CQeLocation office = Location(L"Main Office");
  EXPECT_EQ(Explain(office, Machine({Adapter(0, L"eth0")})).sentence,
            "Main Office is current: it has no criteria, and so is current wherever there is an adapter.");
  EXPECT_THAT(Explain(office, Machine({Adapter(0, L"eth0")})).caveats,
              ElementsAre("An adapter without IPv4 has the index 0."));
  EXPECT_EQ(Explain(office, Machine({})).sentence,
            "Main Office is not current: the machine shows no adapter that is up.");
  constexpr bool kDisabled = false;
  office.SetEnabled(&kDisabled);
  EXPECT_EQ(Explain(office, Machine({Adapter(2, L"eth0")})).sentence,
            "Main Office is not current: it is disabled (qela location enable \"Main Office\").");
}

TEST(QelaExplanation, JsonHoldsWhatIsKnownAndNullWhereItIsNot) {
  const CQeLocation office =
      Location(L"Office", {{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}, {LCT_DOMAIN_REACHABLE, {L"h"}}});
  EXPECT_EQ(
      ToJson(Explain(office, Machine({Adapter(2, L"eth0", {L"10.0.0.1"})}))).dump(),
      R"({"id":"id-Office","name":"Office","verdict":"unknown","enabled":true,"adapters":[{"index":2,)"
      R"("description":"eth0","matches":null,"kinds":[{"kind":"gateways","outcome":"held","asked":["10.0.0.1"],)"
      R"("seen":["10.0.0.1"],"held":"10.0.0.1"},{"kind":"httpsHosts","outcome":"unknown","asked":["h"],)"
      R"("answers":[{"asked":"h","answer":null}]}]}],"sentence":"Whether Office is current depends on what was not )"
      R"(asked: web host h."})");
  const Json failed = ToJson(Explain(office, Machine({Adapter(2, L"eth0", {L"10.0.0.9"})})));
  EXPECT_EQ(failed["failure"].dump(), R"({"adapter":2,"kind":"gateways"})");
}

// The messages of one calculation, as they would be logged, with their times.
class Log {
 public:
  Log& Say(const std::wstring& text, int after = 0) {
    m_now += after;
    m_messages.push_back({text, m_now});
    return *this;
  }
  // One adapter, with index 2 and the gateway 10.0.0.1.
  Log& Begin() {
    return Say(L"Calculating current locations...")
        .Say(L"GetAdaptersAddresses succeeds, the return value is : 0")
        .Say(L"Adapters List :")
        .Say(
            L"Adapter properties:\n\n\tInterface Index:2\n\tDescription :eth0\n\tDefault "
            L"Gateways:\n\t\tCount (1)\n\t\t\t10.0.0.1\n\tDHCP Enabled status:1\n\tDHCP Server:10.0.0.67\n\tDHCPV6 "
            L"Server:fe80::67\n\tIP Addresses:\n\t\tCount (0)\n\tDNS Domain:corp.example\n\tDNS Servers:\n\t\tCount "
            L"(0)\n\tWINS Primary Server:10.0.0.41\n\tWINS Secondary Server:10.0.0.42")
        .Say(L"//---------------------------------------------\n");
  }
  Log& Location(const std::wstring& name) {
    return Say(L"IsCurrentLocation checking location " + name)
        .Say(L"IsCurrentLocation bZeltReachabilityCriteria 0")
        .Say(L"Matching all the location criterias with the properties of adapter with index 2 and description eth0.");
  }
  Log& Held(const std::wstring& what) {
    return Say(L"Location: " + what + L" matched for adapter with index 2 and description eth0.");
  }
  Log& End(const std::wstring& name, bool isCurrent) {
    if (isCurrent)
      Say(L"All the criteria's given in location matches adapter index 2 with description eth0. Hence this adapter "
          L"will "
          L"be matching.");
    else
      Say(L"Not all the criteria's given in the location matches the adapter with index 2 and description eth0. Hence "
          L"this adapter will be non-matching.")
          .Say(L"None of the available network adapter properties matches all the criteria's given in the location");
    return Say(L"IsCurrentLocation returning matched criterias " + std::to_wstring(isCurrent ? 1 : 0) +
               L" for location " + name + L"...");
  }

  LoggedCalculation Calculation() const {
    CalculationReader reader;
    for (const auto& [text, now] : m_messages)
      EXPECT_FALSE(reader.OnMessage({text, LogTime{now, {}}, 0, 0}).has_value());
    auto calculation = reader.End();
    EXPECT_TRUE(calculation.has_value());
    EXPECT_EQ(calculation.value().broken, "");
    return *std::move(calculation);
  }
  LocationExplanation Alone() const {
    const LoggedCalculation calculation = Calculation();
    return Explain(calculation, calculation.locations.at(0));
  }
  LocationExplanation With(const CQeLocation& location) const {
    const LoggedCalculation calculation = Calculation();
    return Explain(location, calculation, calculation.locations.at(0));
  }

  // What the command says of all locations that are in it.
  std::string Told(const LocationSet& set = {}) const {
    std::vector<std::wstring> texts;
    for (const auto& [text, now] : m_messages) texts.push_back(text);
    const LogFolder folder;
    const std::wstring log = folder.Write(L"a.log", ToUtf8(LogOf(HostFormats().front(), texts)));
    std::vector<std::wstring> arguments = {L"explain", L"--all", L"--from-log", log};
    if (!set.empty()) arguments.insert(arguments.end(), {L"--set", folder.Write(L"set.json", SetAsJson(set))});
    const QelaAnswer answer = RunQela(arguments);
    EXPECT_EQ(answer.err, "");
    return answer.out;
  }

 private:
  std::vector<std::pair<std::wstring, int>> m_messages;
  int m_now = 0;
};

TEST(QelaExplanation, ALogAloneNamesTheKindsOfWhichOneFailed) {
  const LocationExplanation explained =
      Log().Begin().Location(L"Office").Held(L"DNS server : 10.0.0.53").End(L"Office", false).Alone();
  EXPECT_EQ(explained.verdict, Verdict::kNotCurrent);
  EXPECT_THAT(explained.adapters[0].oneOfFailed, ElementsAre(LCT_PRIMARY_WINS, LCT_SECONDARY_WINS, LCT_REGISTRY_KEY));
  EXPECT_EQ(explained.failure.has_value(), false);
  EXPECT_EQ(explained.sentence,
            "Office was not current: on adapter 2 (eth0), DNS server 10.0.0.53 held, and one of primary WINS server, "
            "secondary WINS server and registry key or value failed; the log does not say which. With --set and the "
            "locations of that time, it can be told.");
}

TEST(QelaExplanation, TheAdapterThatCameNearestIsTheOneThatHeldMostEvenIfItIsNotKnownWhatFailedThere) {
  LoggedCalculation calculation;
  LoggedLocation office;
  office.name = L"Office";
  office.asksForManagementServer = false;
  office.isCurrent = false;
  office.adapters = {
      {2, L"a", {{LCT_DNS_SUFFIX, L"x"}}, {{LoggedRegistryFact::What::kKeyMissing64, L"k", L""}}, {}, false},
      {3, L"b", {{LCT_DNS_SUFFIX, L"x"}, {LCT_DEFAULT_GATEWAY, L"y"}}, {}, {}, false}};
  EXPECT_THAT(Explain(calculation, office).sentence,
              HasSubstr("on adapter 3 (b), DNS suffix x and default gateway y held, and one of DHCP server"));
  std::swap(office.adapters[0].held, office.adapters[1].held);
  const LocationExplanation known = Explain(calculation, office);
  EXPECT_THAT(known.sentence, HasSubstr("adapter 2 (a) comes nearest, and failed at the registry key or value"));
  ASSERT_TRUE(known.failure.has_value());
}

TEST(QelaExplanation, WhatWasAskedOfAHostIsKnownFromTheLogWithItsTimeAndItsErrors) {
  const LocationExplanation explained = Log()
                                            .Begin()
                                            .Location(L"Office")
                                            .Held(L"Default gateway : 10.0.0.1")
                                            .Say(L"Cert Error Code:8", 1500)
                                            .Say(L"Send Request failed for a b.example errorCode 12175")
                                            .Say(L"IsDomainReachable was unable to match domain a b.example", 1600)
                                            .Say(L"WinHttp Send Request status code for c.example 404")
                                            .Say(L"IsDomainReachable was unable to match domain c.example", 40)
                                            .End(L"Office", false)
                                            .Alone();
  ASSERT_EQ(explained.adapters[0].kinds.size(), 2u);
  const LocationExplanation::Kind& kind = explained.adapters[0].kinds[1];
  EXPECT_EQ(kind.kind, LCT_DOMAIN_REACHABLE);
  EXPECT_EQ(kind.outcome, Outcome::kFailed);
  ASSERT_EQ(kind.questions.size(), 2u);
  EXPECT_EQ(kind.questions[0].text, L"a b.example");
  EXPECT_EQ(kind.questions[0].took, milliseconds(3100));
  EXPECT_THAT(kind.questions[0].details,
              ElementsAre("error 12175 (the certificate does not pass)",
                          "its certificate was refused: it does not chain to a root that is trusted here (flags 8)"));
  EXPECT_EQ(kind.questions[1].took, milliseconds(40));
  EXPECT_THAT(kind.questions[1].details, ElementsAre("it answered with status 404, where only 200 and 401 count"));
  EXPECT_THAT(ToText(explained), HasSubstr("      web host a b.example: no, 3.1 s: error 12175"));
}

TEST(QelaExplanation, OnlyThreeAttemptsThatAllLeftALineAreNamed) {
  Log log;
  log.Begin().Location(L"Office").Say(L"Send Request failed for h errorCode 12007");
  Log two = log;
  two.Say(L"Send Request failed for h errorCode 12029").Say(L"IsDomainReachable was unable to match domain h");
  EXPECT_THAT(two.End(L"Office", false).Alone().adapters[0].kinds[0].questions[0].details,
              ElementsAre("error 12007 (DNS does not know the name)", "error 12029 (no connection to port 443)"));
  log.Say(L"Send Request failed for h errorCode 12044").Say(L"Send Request failed for h errorCode 12029");
  Log three = log;
  three.Say(L"IsDomainReachable was unable to match domain h");  // two: the second was repeated with a certificate
  EXPECT_THAT(three.End(L"Office", false).Alone().adapters[0].kinds[0].questions[0].details,
              ElementsAre(testing::StartsWith("error 12007"), testing::StartsWith("error 12044"), testing::_));
  Log all;
  all.Begin().Location(L"Office").Say(L"Send Request failed for h errorCode 12007");
  all.Say(L"Send Request failed for h errorCode 12029").Say(L"WinHttp Send Request status code for h 401");
  all.Say(L"IsDomainReachable was able to match domain h");
  all.Say(L"Location: Domain reachable test passed for adapter with index 2 and description eth0.");
  EXPECT_THAT(all.End(L"Office", true).Alone().adapters[0].kinds[0].questions[0].details,
              ElementsAre("directly: error 12007 (DNS does not know the name)",
                          "by a proxy found automatically: error 12029 (no connection to port 443)",
                          "by the user's proxy: it answered with status 401, which counts"));
}

TEST(QelaExplanation, TheTwoLinesThatNameAnotherServerAreNotTakenForTheCriterion) {
  Log log;
  log.Begin()
      .Location(L"Office")
      .Held(L"DHCP server : 10.0.0.67")
      .Held(L"Secondary WINS : 10.0.0.41")
      .End(L"Office", true);
  const LocationExplanation alone = log.Alone();
  EXPECT_EQ(alone.adapters[0].kinds[0].held, std::nullopt);  // either server
  EXPECT_THAT(alone.adapters[0].kinds[0].seen, ElementsAre(L"10.0.0.67", L"fe80::67"));
  EXPECT_EQ(alone.adapters[0].kinds[1].held, L"10.0.0.42");
  const LocationExplanation with =
      log.With(Location(L"Office", {{LCT_DHCP_SERVER, {L"fe80::67"}}, {LCT_SECONDARY_WINS, {L"10.0.0.42"}}}));
  EXPECT_FALSE(with.contradictsCriteria);
  EXPECT_EQ(with.adapters[0].kinds[0].held, L"fe80::67");
  EXPECT_EQ(with.adapters[0].kinds[1].held, L"10.0.0.42");
}

TEST(QelaExplanation, ASetThatCannotHaveLedToTheLogIsToldAndNotUsed) {
  Log log;
  log.Begin().Location(L"Office").Held(L"Default gateway : 10.0.0.1").End(L"Office", false);
  const auto contradicts = [&](const std::map<LOCATION_CRITERIA_TYPE, std::vector<std::wstring>>& criteria) {
    const LocationExplanation explained = log.With(Location(L"Office", criteria));
    EXPECT_EQ(explained.verdict, Verdict::kNotCurrent);
    EXPECT_EQ(explained.contradictsCriteria, !explained.caveats.empty());
    EXPECT_EQ(explained.contradictsCriteria, explained.adapters[0].kinds[0].asked.empty());
    return explained.contradictsCriteria;
  };
  EXPECT_FALSE(contradicts({{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}, {LCT_DNS_SERVER, {L"10.0.0.53"}}}));
  EXPECT_TRUE(contradicts({{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}}));  // would be current
  EXPECT_TRUE(contradicts({{LCT_DEFAULT_GATEWAY, {L"10.0.0.2"}}}));  // would not hold
  EXPECT_TRUE(contradicts({{LCT_DNS_SERVER, {L"10.0.0.53"}}}));      // would not be asked
  EXPECT_TRUE(contradicts({{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}, {LCT_DOMAIN_REACHABLE, {L"h"}}}));  // would be asked
  log = {};
  log.Begin()
      .Location(L"Office")
      .Held(L"Default gateway : 10.0.0.9")
      .End(L"Office", false);  // the adapter has none such
  EXPECT_TRUE(contradicts({{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}, {LCT_DNS_SERVER, {L"10.0.0.53"}}}));
}

TEST(QelaExplanation, TheValuesThatTheRegistryHeldAreToldOfTheirCriteria) {
  Log log;
  log.Begin().Location(L"Office");
  log.Say(L"The registry key Software\\Gone specified for the location does not exist.");
  log.Say(L"The registry key Software\\Gone specified for the location does not exist in KEY_WOW64_64KEY.");
  log.Say(L"The registry key Software\\Site specified for the location does not exist.");  // but in the other view
  log.Say(L"The registry value Name does NOT match the specified location awareness group value of Berlin.");
  log.Say(L"Unable to find the string value in the registry for Level.");
  log.Say(L"The registry value Level does NOT match the specified location awareness group value of 3.");
  log.End(L"Office", false);
  const std::vector<std::wstring> criteria = {L"HKEY_LOCAL_MACHINE\\Software\\Gone\\", L"HKLM\\Software\\Site\\",
                                              L"HKEY_LOCAL_MACHINE\\Software\\Site\\Name=Bonn",
                                              L"HKEY_LOCAL_MACHINE\\Software\\Site\\Level=4"};
  const LocationExplanation explained = log.With(Location(L"Office", {{LCT_REGISTRY_KEY, criteria}}));
  ASSERT_FALSE(explained.contradictsCriteria);
  const LocationExplanation::Kind& kind = explained.adapters[0].kinds[0];
  ASSERT_EQ(kind.questions.size(), 4u);
  EXPECT_THAT(kind.questions[0].details, ElementsAre("the key does not exist"));
  EXPECT_THAT(kind.questions[1].details, ElementsAre("it is not of the form of a registry criterion, and never holds"));
  EXPECT_THAT(kind.questions[2].details, ElementsAre("the value Name is \"Berlin\""));
  EXPECT_THAT(kind.questions[3].details, ElementsAre("the value Level is \"3\""));
  EXPECT_THAT(log.Alone().sentence, HasSubstr("the value Name is \"Berlin\", and another is asked for"));
}

TEST(QelaExplanation, WhichOfSeveralRegistryCriteriaHeldIsNotToldWhereTheirLinesAreMissing) {
  Log log;
  log.Begin().Location(L"Office");
  log.Say(L"The registry value Floor matches the specified location awareness group value of 2.");
  log.Say(L"Location: Registry key matched for adapter with index 2 and description eth0.").End(L"Office", true);
  const std::wstring site = L"HKEY_LOCAL_MACHINE\\Software\\Site\\Name=Bonn";
  const LocationExplanation several =
      log.With(Location(L"Office", {{LCT_REGISTRY_KEY, {site, L"HKEY_LOCAL_MACHINE\\Software\\Site\\Floor=2"}}}));
  ASSERT_FALSE(several.contradictsCriteria);  // the line about Name is missing
  const LocationExplanation::Kind& kind = several.adapters[0].kinds[0];
  EXPECT_EQ(kind.held, std::nullopt);
  ASSERT_EQ(kind.questions.size(), 1u);
  EXPECT_EQ(kind.questions[0].text, L"Floor");
  EXPECT_THAT(kind.questions[0].details, ElementsAre("the value Floor is \"2\""));
  const LocationExplanation one = log.With(Location(L"Office", {{LCT_REGISTRY_KEY, {site}}}));
  EXPECT_EQ(one.adapters[0].kinds[0].held, site);
}

TEST(QelaExplanation, AdaptersThatTheLogDoesNotShowReadablyAreTold) {
  LoggedCalculation calculation =
      Log().Begin().Location(L"Office").Held(L"Default gateway : 10.0.0.1").End(L"Office", true).Calculation();
  EXPECT_THAT(Explain(calculation, calculation.locations[0]).caveats, testing::IsEmpty());
  calculation.unreadableAdapters = 2;
  EXPECT_THAT(Explain(calculation, calculation.locations[0]).caveats,
              ElementsAre("What 2 adapters showed cannot be read from the log."));
}

TEST(QelaExplanation, ALogThatCannotBeReadToTheEndOfACalculationIsExplainedUpToThere) {
  Log log;
  log.Begin().Location(L"Office").Held(L"Default gateway : 10.0.0.1").End(L"Office", true);
  EXPECT_THAT(log.Told(), AllOf(HasSubstr("Office was current"), Not(HasSubstr("cannot be read"))));
  log.Location(L"Home").End(L"Home", true);  // of criteria that held, no line
  EXPECT_THAT(log.Told(), AllOf(HasSubstr("Office was current"),
                                HasSubstr("\nThe calculation cannot be read to its end: "
                                          "an adapter's verdict is not what its lines lead to.\n")));
}

TEST(QelaExplanation, ACalculationThatBreaksOffBeforeItDecidesIsPassedOver) {
  Log log;
  log.Begin().Location(L"Office").Held(L"Default gateway : 10.0.0.1").End(L"Office", true);
  constexpr const char* kPassedOver = "A later calculation breaks off in the log before it has decided";
  EXPECT_THAT(log.Told(), Not(HasSubstr(kPassedOver)));
  log.Begin().Location(L"Office");
  EXPECT_THAT(log.Told(), AllOf(HasSubstr("Office was current"), HasSubstr(kPassedOver)));
}

TEST(QelaExplanation, ACalculationWithoutAdaptersSaysWhyNothingWasTested) {
  Log log;
  log.Say(L"Calculating current locations...").Say(L"GetAdaptersAddresses succeeds, the return value is : 0");
  log.Say(L"Adapters List :").Say(L"CalculateCurrentAdapterProps failed.");
  EXPECT_THAT(log.Told(), AllOf(HasSubstr("The library found no adapter that is up, and so no location was tested"),
                                HasSubstr("The calculation tests no location."), Not(HasSubstr("is stored"))));
}

TEST(QelaExplanation, OfAnotherSetTheOneLocationOfThatNameIsTakenAndOfSeveralTheOneWithTheId) {
  Log log;
  log.Begin().Location(L"Office").Held(L"Default gateway : 10.0.0.1").End(L"Office", true);
  constexpr const char* kNoneOrSeveral = "The set has no location that could be this one, or several";
  const CQeLocation home = Location(L"Home");
  const CQeLocation office = Location(L"Office", {{LCT_DEFAULT_GATEWAY, {L"10.0.0.3", L"10.0.0.1"}}});
  CQeLocation second = Location(L"Office", {{LCT_DEFAULT_GATEWAY, {L"10.0.0.2"}}});
  second.SetId(L"another");
  EXPECT_THAT(log.Told({home}), HasSubstr(kNoneOrSeveral));
  EXPECT_THAT(log.Told({home, office}), AllOf(HasSubstr("10.0.0.3"), Not(HasSubstr(kNoneOrSeveral))));
  EXPECT_THAT(log.Told({home, office, second}), AllOf(HasSubstr(kNoneOrSeveral), Not(HasSubstr("10.0.0.3"))));
  log.Say(L"Adding current location ID id-Office");
  EXPECT_THAT(log.Told({home, office, second}), AllOf(HasSubstr("10.0.0.3"), Not(HasSubstr(kNoneOrSeveral))));
}

}  // namespace

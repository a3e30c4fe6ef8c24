#include "Tools/qela/MachineSnapshot.h"

#include <gmock/gmock.h>

#include <nlohmann/json.hpp>
#include <random>

#include "Tests/Unit/QelaMachines.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

MachineSnapshot Full() {
  MachineSnapshot machine;
  machine.machine = L"Büro \u65e5";
  machine.recorded = "2025-11-21T02:44:06.736+01:00";
  AdapterProps& adapter = machine.adapters.emplace_back();
  adapter.ifIndex = 4'000'000'000;
  adapter.mediaType = Wireless;
  adapter.description = L"Adapter \u65e5 #2\n\t\"";
  adapter.gateways = {L"10.0.0.1", L"fe80::1"};
  adapter.dhcpEnabled = true;
  adapter.dhcpServer = L"10.0.0.2";
  adapter.dhcpV6Server = L"fe80::2";
  adapter.ipAddresses = {L"10.0.0.15"};
  adapter.macAddresses = {L"00-1A-2B-3C-4D-5E"};
  adapter.dnsSuffix = L"corp.example";
  adapter.dnsServers = {L"10.0.0.3", L"10.0.0.4"};
  adapter.winsPrimary = L"10.0.0.5";
  adapter.winsSecondary = L"10.0.0.6";
  machine.adapters.emplace_back().mediaType = Other;
  machine.registry = {{L"HKEY_LOCAL_MACHINE\\A\\B=\u00fc", true}, {L"", false}};
  machine.httpsHosts = {{L"host.example", false}};
  machine.managementServer = true;
  return machine;
}

void ExpectSame(const MachineSnapshot& read, const MachineSnapshot& written) {
  EXPECT_EQ(read.machine, written.machine);
  EXPECT_EQ(read.recorded, written.recorded);
  ASSERT_EQ(read.adapters.size(), written.adapters.size());
  for (std::size_t i = 0; i < read.adapters.size(); ++i) {
    const AdapterProps& adapter = read.adapters[i];
    const AdapterProps& expected = written.adapters[i];
    EXPECT_EQ(RenderAdapterProps(adapter), RenderAdapterProps(expected));
    EXPECT_EQ(adapter.mediaType, expected.mediaType);
    EXPECT_EQ(adapter.macAddresses, expected.macAddresses);
  }
  EXPECT_EQ(read.registry, written.registry);
  EXPECT_EQ(read.httpsHosts, written.httpsHosts);
  EXPECT_EQ(read.managementServer, written.managementServer);
}

TEST(QelaMachineSnapshot, WhatIsWrittenIsReadBack) {
  for (const bool onOneLine : {false, true}) {
    const std::string json = MachineAsJson(Full(), onOneLine);
    EXPECT_EQ(std::count(json.begin(), json.end(), '\n') == 1, onOneLine);
    ExpectSame(ParseMachine(json, L"x.json"), Full());
  }
}

TEST(QelaMachineSnapshot, TextsOfAnyKindAreReadBack) {
  std::mt19937 random(1);
  const wchar_t units[] = {1, L'\n', L'"', L'\\', L'/', 0x7f, 0x85, L'ü', 0x2028, 0xd83d, 0xfeff, 0xfffd, 0xffff};
  for (int run = 0; run < 300; ++run) {
    MachineSnapshot machine = Full();
    const auto text = [&] {
      std::wstring made;
      for (std::size_t i = random() % 8; i-- > 0;) {
        made += units[random() % std::size(units)];
        if (made.back() == 0xd83d) made += wchar_t{0xde00};
      }
      return made;
    };
    machine.adapters[0].description = text();
    machine.adapters[0].dnsSuffix = text();
    machine.registry = {{text(), true}};
    ExpectSame(ParseMachine(MachineAsJson(machine, false), L"x.json"), machine);
  }
}

TEST(QelaMachineSnapshot, AMachineWithoutALabelIsNamedAfterItsFile) {
  MachineSnapshot machine;
  const std::string json = MachineAsJson(machine, false);
  EXPECT_EQ(ParseMachine(json, L"C:\\machines\\pc.7.JSON").machine, L"pc.7");
  EXPECT_EQ(ParseMachine(json, L"machines/pc.7").machine, L"pc.7");
  machine.machine = L"Office";
  EXPECT_EQ(ParseMachine(MachineAsJson(machine, false), L"pc.json").machine, L"Office");
}

TEST(QelaMachineSnapshot, WhatWasNotAskedHasNoAnswer) {
  const MachineSnapshot machine = ParseMachine(MachineAsJson({}, false), L"x.json");
  EXPECT_EQ(machine.AnswerTo(LCT_REGISTRY_KEY, L"a"), std::nullopt);
  EXPECT_EQ(machine.AnswerTo(LCT_ZELT_REACHABLE, {}), std::nullopt);
  const MachineSnapshot full = Full();
  EXPECT_EQ(full.AnswerTo(LCT_DOMAIN_REACHABLE, L"host.example"), false);
  EXPECT_EQ(full.AnswerTo(LCT_REGISTRY_KEY, L"host.example"), std::nullopt);
  EXPECT_EQ(full.AnswerTo(LCT_ZELT_REACHABLE, {}), true);
}

TEST(QelaMachineSnapshot, TextsThatJsonCannotHoldAreRefused) {
  const std::wstring bad[] = {L"a\xd83d", std::wstring(L"a\0b", 3)};
  for (const std::wstring& text : bad) {
    MachineSnapshot machine = Full();
    machine.adapters[0].dnsSuffix = text;
    EXPECT_THAT(FailureOf([&] { MachineAsJson(machine, false); }),
                HasSubstr("the DNS suffix of adapter 4000000000 is not valid Unicode"));
    machine = Full();
    machine.adapters[1].description = text;
    EXPECT_THAT(FailureOf([&] { MachineAsJson(machine, false); }), HasSubstr("the description of adapter 0 is not"));
    machine = Full();
    machine.httpsHosts[text] = true;
    EXPECT_THAT(FailureOf([&] { MachineAsJson(machine, false); }), HasSubstr("a criterion is not valid Unicode"));
    machine = Full();
    machine.machine = text;
    EXPECT_THAT(FailureOf([&] { MachineAsJson(machine, false); }), HasSubstr("the label is not valid Unicode"));
  }
}

// What is left out is not the same as what is empty: it was not seen.
TEST(QelaMachineSnapshot, EveryMemberOfAnAdapterMustBeThere) {
  const nlohmann::json whole = nlohmann::json::parse(MachineAsJson(Full(), false));
  for (const auto& [name, value] : whole["adapters"][0].items()) {
    nlohmann::json json = whole;
    json["adapters"][0].erase(name);
    EXPECT_EQ(FailureOf([&] { ParseMachine(json.dump(), L"x.json"); }),
              "x.json: at /adapters/0: the member \"" + name + "\" is missing; add it");
    json["adapters"][0][name] = nlohmann::json::object();
    EXPECT_THAT(FailureOf([&] { ParseMachine(json.dump(), L"x.json"); }), HasSubstr("at /adapters/0/" + name + ": "));
  }
  for (const char* name : {"schema", "recorded", "adapters"}) {
    nlohmann::json json = whole;
    json.erase(name);
    EXPECT_THAT(FailureOf([&] { ParseMachine(json.dump(), L"x.json"); }),
                HasSubstr(std::string(name) + "\" is missing"));
  }
}

TEST(QelaMachineSnapshot, WhatIsNotOfTheFormIsToldWithItsPlace) {
  const auto refusal = [](const char* pointer, const nlohmann::json& value) {
    nlohmann::json json = nlohmann::json::parse(MachineAsJson(Full(), false));
    json[nlohmann::json::json_pointer(pointer)] = value;
    return FailureOf([&] { ParseMachine(json.dump(), L"x.json"); });
  };
  EXPECT_EQ(refusal("/schema", 2),
            "x.json: at /schema: 2 stands here; write 1, or read it with the qela that has written it");
  EXPECT_THAT(refusal("/adapters/0/media", "wire"),
              HasSubstr("at /adapters/0/media: the text \"wire\" stands here; write \"wired\", \"wireless\""));
  EXPECT_THAT(refusal("/adapters/0/gateway", "x"), HasSubstr("write \"gateways\""));
  EXPECT_THAT(refusal("/labels", "x"), HasSubstr("at the root: the member \"labels\" is unknown"));
  EXPECT_THAT(refusal("/probes/https", {}), HasSubstr("at /probes: the member \"https\" is unknown"));
  EXPECT_THAT(refusal("/probes/httpsHosts/0/answer", "yes"), HasSubstr("/httpsHosts/0/answer: "));
  EXPECT_THAT(refusal("/probes/httpsHosts/0/asks", true), HasSubstr("write \"asked\""));
  EXPECT_THAT(refusal("/probes/managementServer", nullptr), HasSubstr("write true or false"));
  EXPECT_THAT(refusal("/probes/registry/1/asked", ""),
              HasSubstr("at /probes/registry/1/asked: it is answered twice; write one answer for each"));
}

TEST(QelaMachineSnapshot, EveryTruncationIsRefused) {
  const std::string json = MachineAsJson(Full(), true);
  for (std::size_t length = 0; length + 2 < json.size(); ++length)
    ASSERT_THROW(ParseMachine(json.substr(0, length), L"x.json"), CommandError) << length;
}

TEST(QelaMachineSnapshot, EachProbeIsAskedOnceForAllThatTheSetNames) {
  std::vector<std::string> asked;
  const LocationProbes probes{[&](const std::wstring& text) {
                                asked.push_back("registry");
                                return text == L"a";
                              },
                              [&](const std::wstring& host) {
                                asked.push_back("host");
                                return host == L"c";
                              },
                              [&] {
                                asked.push_back("server");
                                return true;
                              }};
  CQeLocation disabled = Location(L"Later", {{LCT_REGISTRY_KEY, {L"b"}}, {LCT_ZELT_REACHABLE, {L""}}});
  const bool enabled = false;
  disabled.SetEnabled(&enabled);
  const LocationSet set = {Location(L"One", {{LCT_REGISTRY_KEY, {L"a"}}, {LCT_DOMAIN_REACHABLE, {L"c", L"d"}}}),
                           Location(L"Two", {{LCT_REGISTRY_KEY, {L"a"}}, {LCT_ZELT_REACHABLE, {L""}}}), disabled};
  MachineSnapshot machine;
  std::size_t announced = 0;
  RecordAnswers(machine, set, probes, [&](LOCATION_CRITERIA_TYPE, const std::wstring&) {
    EXPECT_EQ(asked.size(), announced) << "told before it is asked";
    ++announced;
  });
  EXPECT_THAT(asked, ElementsAre("registry", "host", "host", "server", "registry"));
  EXPECT_EQ(announced, 5u);
  EXPECT_EQ(machine.registry, (MachineSnapshot::Answers{{L"a", true}, {L"b", false}}));
  EXPECT_EQ(machine.httpsHosts, (MachineSnapshot::Answers{{L"c", true}, {L"d", false}}));
  EXPECT_EQ(machine.managementServer, true);
}

TEST(QelaMachineSnapshot, ProbesThatNoLocationNamesAreNotAsked) {
  const auto never = [](const auto&...) -> bool {
    ADD_FAILURE();
    return false;
  };
  MachineSnapshot machine;
  RecordAnswers(machine, {Location(L"Office", {{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}})}, {never, never, never},
                [](LOCATION_CRITERIA_TYPE, const std::wstring&) {});
  EXPECT_EQ(machine.managementServer, std::nullopt);
}

}  // namespace

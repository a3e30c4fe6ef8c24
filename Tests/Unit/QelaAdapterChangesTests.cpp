#include <gtest/gtest.h>

#include "Tools/qela/AdapterChanges.h"
#include "Tools/qela/AdapterView.h"

namespace {

AdapterProps Adapter(std::uint32_t index, const wchar_t* description) {
  AdapterProps adapter;
  adapter.ifIndex = index;
  adapter.description = description;
  adapter.ipAddresses = {L"10.20.0.15"};
  adapter.gateways = {L"10.20.0.1"};
  adapter.dnsSuffix = L"corp.example";
  return adapter;
}

std::string Words(const std::vector<AdapterProps>& before, const std::vector<AdapterProps>& after) {
  std::string words;
  for (const AdapterChange& change : ChangesBetween(before, after))
    words += (words.empty() ? "" : "\n") + InWords(change);
  return words;
}

TEST(QelaAdapterChanges, AMachineThatStaysAsItIsHasNone) {
  const std::vector<AdapterProps> adapters = {Adapter(2, L"eth0"), Adapter(5, L"wlan0")};
  EXPECT_EQ(Words(adapters, adapters), "");
  EXPECT_EQ(Words({}, {}), "");
}

TEST(QelaAdapterChanges, EveryFieldThatTheLibraryReadsIsCompared) {
  const struct {
    void (*edit)(AdapterProps& adapter);
    const char* words;
  } kCases[] = {
      {[](AdapterProps& a) { a.ipAddresses.emplace_back(L"fe80::7"); }, "address 10.20.0.15 -> 10.20.0.15 and fe80::7"},
      {[](AdapterProps& a) { a.gateways = {L"10.20.0.2"}; }, "default gateway 10.20.0.1 -> 10.20.0.2"},
      {[](AdapterProps& a) { a.dhcpEnabled = true; }, "DHCP off -> on"},
      {[](AdapterProps& a) { a.dhcpServer = L"10.20.0.3"; }, "DHCP server none -> 10.20.0.3"},
      {[](AdapterProps& a) { a.dhcpV6Server = L"fe80::3"; }, "DHCPv6 server none -> fe80::3"},
      {[](AdapterProps& a) { a.dnsSuffix.clear(); }, "DNS suffix corp.example -> none"},
      {[](AdapterProps& a) { a.dnsServers = {L"10.20.0.4"}; }, "DNS server none -> 10.20.0.4"},
      {[](AdapterProps& a) { a.winsPrimary = L"10.20.0.5"; }, "primary WINS server none -> 10.20.0.5"},
      {[](AdapterProps& a) { a.winsSecondary = L"10.20.0.6"; }, "secondary WINS server none -> 10.20.0.6"},
  };
  for (const auto& [edit, words] : kCases) {
    const AdapterProps before = Adapter(2, L"eth0");
    AdapterProps after = before;
    edit(after);
    EXPECT_EQ(Words({before}, {after}), std::string("adapter 2 (eth0): ") + words);
  }
}

TEST(QelaAdapterChanges, WhatTheLogDoesNotTellIsNotCompared) {
  const AdapterProps before = Adapter(2, L"eth0");
  AdapterProps after = before;
  after.mediaType = Wireless;
  after.macAddresses = {L"0A-1B-2C-3D-4E-5F"};
  EXPECT_EQ(Words({before}, {after}), "");
}

TEST(QelaAdapterChanges, AdaptersThatComeAndGoTellWhatTheyHaveAndHad) {
  AdapterProps wireless = Adapter(5, L"wlan0");
  wireless.dhcpEnabled = true;
  EXPECT_EQ(Words({Adapter(2, L"eth0")}, {wireless}),
            "adapter 2 (eth0) is gone: address 10.20.0.15, default gateway 10.20.0.1, DNS suffix corp.example\n"
            "adapter 5 (wlan0) appeared: address 10.20.0.15, default gateway 10.20.0.1, DHCP on, DNS suffix "
            "corp.example");
  AdapterProps bare;
  bare.ifIndex = 7;
  EXPECT_EQ(Words({}, {bare}), "adapter 7 () appeared");
}

TEST(QelaAdapterChanges, AnAdapterIsKnownByIndexAndDescription) {
  EXPECT_EQ(ChangesBetween({Adapter(2, L"eth0")}, {Adapter(3, L"eth0")}).size(), 2U);
  EXPECT_EQ(ChangesBetween({Adapter(2, L"eth0")}, {Adapter(2, L"eth1")}).size(), 2U);
  EXPECT_EQ(Words({Adapter(2, L"eth0"), Adapter(5, L"wlan0")}, {Adapter(5, L"wlan0"), Adapter(2, L"eth0")}), "");
}

TEST(QelaAdapterChanges, OfAdaptersCalledTheSameTheOneThatDiffersIsTold) {
  AdapterProps first = Adapter(0, L"tunnel");
  first.ipAddresses = {L"fe80::1"};
  AdapterProps second = Adapter(0, L"tunnel");
  second.ipAddresses = {L"fe80::2"};
  AdapterProps changed = second;
  changed.dnsSuffix = L"home.example";
  EXPECT_EQ(Words({first, second}, {changed, first}), "adapter 0 (tunnel): DNS suffix corp.example -> home.example");
  EXPECT_EQ(Words({first, second}, {second}),
            "adapter 0 (tunnel) is gone: address fe80::1, default gateway 10.20.0.1, DNS suffix corp.example");
}

TEST(QelaAdapterChanges, TextsFromOutsideKeepToTheirLine) {
  AdapterProps after = Adapter(2, L"eth\n0");
  after.dnsSuffix = L"a\x1b[31m";
  EXPECT_EQ(Words({Adapter(2, L"eth\n0")}, {after}),
            "adapter 2 (eth\\u000A0): DNS suffix corp.example -> a\\u001B[31m");
}

TEST(QelaAdapterChanges, JsonHasTheMembersAndTheirKindsAsAdaptersHaveThem) {
  const AdapterProps before = Adapter(2, L"eth0");
  AdapterProps after;
  after.ifIndex = 2;
  after.description = L"eth0";
  after.dhcpEnabled = true;
  after.dhcpServer = after.dhcpV6Server = after.winsPrimary = after.winsSecondary = L"x";
  after.dnsServers = {L"x", L"y"};
  const Json changes = ToJson(ChangesBetween({before}, {after}));
  ASSERT_EQ(changes.size(), 1U);
  EXPECT_EQ(changes[0]["what"], "changed");
  EXPECT_EQ(changes[0]["index"], 2);
  EXPECT_EQ(changes[0]["description"], "eth0");
  const Json wasShown = AdapterDetails(before);
  const Json isShown = AdapterDetails(after);
  std::size_t fields = 0;
  for (const auto& [member, value] : isShown.items()) {
    if (value == wasShown[member]) continue;
    ++fields;
    EXPECT_EQ(changes[0]["fields"][member], (Json{{"before", wasShown[member]}, {"after", value}})) << member;
  }
  EXPECT_EQ(fields, 9U);
  EXPECT_EQ(changes[0]["fields"].size(), fields);
}

TEST(QelaAdapterChanges, JsonOfWhatCameAndWentHasBothSides) {
  const Json changes = ToJson(ChangesBetween({Adapter(2, L"eth0")}, {Adapter(5, L"wlan0")}));
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(changes[0]["what"], "gone");
  EXPECT_EQ(changes[0]["fields"]["gateways"], (Json{{"before", {"10.20.0.1"}}, {"after", Json::array()}}));
  EXPECT_EQ(changes[1]["what"], "appeared");
  EXPECT_EQ(changes[1]["fields"]["dnsSuffix"], (Json{{"before", ""}, {"after", "corp.example"}}));
  EXPECT_FALSE(changes[1]["fields"].contains("dnsServers"));
}

}  // namespace

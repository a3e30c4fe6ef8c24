// What qela reads from the library's log must be exactly what the library saw.
#include "Tools/qela/AdapterReport.h"

#include <LogLibHost.h>
#include <gtest/gtest.h>

#include "FwClient/Service/QeLaLib/AdapterProps.h"
#include "Tools/qela/AdapterView.h"

namespace {

AdapterProps FullAdapter() {
  AdapterProps adapter;
  adapter.ifIndex = 4'000'000'000;
  adapter.description = L"Adapter \u65e5 #2";
  adapter.gateways = {L"10.0.0.1", L"fe80::1"};
  adapter.dhcpEnabled = true;
  adapter.dhcpServer = L"10.0.0.2";
  adapter.dhcpV6Server = L"fe80::2";
  adapter.ipAddresses = {L"10.0.0.15"};
  adapter.dnsSuffix = L"corp.example";
  adapter.dnsServers = {L"10.0.0.3", L"10.0.0.4", L"fe80::3"};
  adapter.winsPrimary = L"10.0.0.5";
  adapter.winsSecondary = L"10.0.0.6";
  return adapter;
}

void ExpectReadBack(const AdapterProps& adapter) {
  const auto read = ParseAdapterProperties(RenderAdapterProps(adapter));
  ASSERT_TRUE(read.has_value());
  EXPECT_EQ(read->ifIndex, adapter.ifIndex);
  EXPECT_EQ(read->description, adapter.description);
  EXPECT_EQ(read->gateways, adapter.gateways);
  EXPECT_EQ(read->dhcpEnabled, adapter.dhcpEnabled);
  EXPECT_EQ(read->dhcpServer, adapter.dhcpServer);
  EXPECT_EQ(read->dhcpV6Server, adapter.dhcpV6Server);
  EXPECT_EQ(read->ipAddresses, adapter.ipAddresses);
  EXPECT_EQ(read->dnsSuffix, adapter.dnsSuffix);
  EXPECT_EQ(read->dnsServers, adapter.dnsServers);
  EXPECT_EQ(read->winsPrimary, adapter.winsPrimary);
  EXPECT_EQ(read->winsSecondary, adapter.winsSecondary);
}

TEST(QelaAdapterReport, ReadsEveryField) { ExpectReadBack(FullAdapter()); }

TEST(QelaAdapterReport, ReadsAnAdapterWithoutAnything) { ExpectReadBack({}); }

TEST(QelaAdapterReport, TextsFromOutsideMayHoldLabelsAndLineBreaks) {
  const std::wstring hostile[] = {
      L"\n",
      L"a\n\tDefault Gateways:\n\t\tCount (1)\n\t\t\t6.6.6.6",
      L"a\n\tDefault Gateways:\n\t\tCount (0)\n\tDHCP Enabled status:0",
      L"a\n\tDNS Servers:\n\t\tCount (1)\n\t\t\t6.6.6.6",
      L"a\n\tDNS Servers:\n\t\tCount (0)\n\tWINS Primary Server:\n\tWINS Secondary Server:",
      L"\n\tDNS Domain:b",
      L"\n\tInterface Index:7\n\tDescription :x",
  };
  for (const std::wstring& text : hostile) {
    AdapterProps adapter = FullAdapter();
    adapter.description = text;
    ExpectReadBack(adapter);
    adapter = FullAdapter();
    adapter.dnsSuffix = text;
    ExpectReadBack(adapter);
  }
}

TEST(QelaAdapterReport, ASuffixThatImitatesAWholeAdapterStaysASuffix) {
  AdapterProps adapter = FullAdapter();
  adapter.dnsSuffix = RenderAdapterProps(FullAdapter());
  ExpectReadBack(adapter);
}

TEST(QelaAdapterReport, OtherTextIsNoAdapter) {
  const std::wstring whole = RenderAdapterProps(FullAdapter());
  EXPECT_FALSE(ParseAdapterProperties(L"").has_value());
  EXPECT_FALSE(ParseAdapterProperties(L"text").has_value());
  EXPECT_FALSE(ParseAdapterProperties(L"\n\tInterface Index:x\n\tDescription :").has_value());
  EXPECT_FALSE(
      ParseAdapterProperties(L"\n\tInterface Index:4294967296" + whole.substr(whole.find(L"\n\tDesc"))).has_value());
  EXPECT_FALSE(ParseAdapterProperties(whole + L"\n").has_value());
  // Cut anywhere before the last value it is not whole.
  for (std::size_t length = 0; length <= whole.rfind(L"\n\tWINS Secondary Server"); ++length)
    EXPECT_FALSE(ParseAdapterProperties(whole.substr(0, length)).has_value()) << length;
}

TEST(QelaAdapterReport, ACountThatDoesNotFitIsNoAdapter) {
  std::wstring text = RenderAdapterProps(FullAdapter());
  for (const wchar_t* count : {L"Count (4294967295)", L"Count (99999999999999999999)", L"Count ()", L"Count (-1)"}) {
    std::wstring changed = text;
    changed.replace(changed.find(L"Count (2)"), 9, count);
    EXPECT_FALSE(ParseAdapterProperties(changed).has_value());
  }
}

// Keeps the events off the console.
class QelaAdapterLog : public testing::Test {
 protected:
  void SetUp() override { LogUtils::setConsoleLogging(false); }
  void TearDown() override { LogUtils::setConsoleLogging(true); }
};

void Log(const std::wstring& text) {
  LogUtils::LogEvent("", 0, 8, "FirewallBL", getLogManager(), 2, 0)("FIREWALL", L"%s", text.c_str());
}

void LogAdapter(const std::wstring& properties) { Log(L"Adapter properties:\n" + properties); }

TEST_F(QelaAdapterLog, HoldsTheAdaptersOfTheLastCalculation) {
  const AdapterReport report;
  AdapterProps adapter;
  Log(L"Adapters List :");
  for (const std::uint32_t index : {1u, 2u}) {
    adapter.ifIndex = index;
    LogAdapter(RenderAdapterProps(adapter));
    Log(L"//---------------------------------------------\n");
  }
  ASSERT_EQ(report.Adapters().size(), 2u);
  EXPECT_EQ(report.Adapters()[0].ifIndex, 1u);
  EXPECT_EQ(report.Adapters()[1].ifIndex, 2u);
  Log(L"Adapters List :");
  EXPECT_TRUE(report.Adapters().empty());
}

TEST_F(QelaAdapterLog, CountsWhatItCannotRead) {
  const AdapterReport report;
  Log(L"Adapters List :");
  LogAdapter(L"something else");
  LogAdapter(RenderAdapterProps({}));
  EXPECT_EQ(report.Unreadable(), 1u);
  EXPECT_EQ(report.Adapters().size(), 1u);
  Log(L"Adapters List :");
  EXPECT_EQ(report.Unreadable(), 0u);
}

TEST_F(QelaAdapterLog, TellsWhenTheHostIsNotCalled) {
  int skipped = 0;
  const AdapterReport report([&] { ++skipped; });
  Log(L"Raising a location changed event...");
  EXPECT_EQ(skipped, 0);
  Log(L"Skipped raising a location changed event...");
  EXPECT_EQ(skipped, 1);
}

TEST(QelaAdapterReport, NamesAnAdapterByItsIndex) {
  AdapterProps adapter;
  adapter.ifIndex = 3;
  adapter.description = L"eth0";
  EXPECT_EQ(DescriptionOf({adapter}, 3), L"eth0");
  EXPECT_EQ(DescriptionOf({adapter}, 4), L"");
}

}  // namespace

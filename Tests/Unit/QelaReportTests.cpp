#include "Tools/qela/ReportFile.h"

#include <winsock2.h>
#include <windows.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Support/CommandFailure.h"
#include "Tests/Support/RunQela.h"
#include "Tests/Support/StoredSet.h"
#include "Tests/Unit/QelaMachines.h"
#include "Tools/qela/LocationSetFile.h"
#include "Tools/qela/Text.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

std::string BytesOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

void Write(const std::filesystem::path& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

// What the page says, in lower case, with the escapes of HTML and JSON resolved.
std::string Plainly(const std::string& page) {
  const std::pair<std::string, std::string> escapes[] = {
      {"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""}, {"&#39;", "'"}, {"&amp;", "&"}, {"\\\\", "\\"}, {"\\u003c", "<"}};
  std::string text = page;
  for (const auto& [escape, meant] : escapes)
    for (std::size_t at = text.find(escape); at != std::string::npos; at = text.find(escape, at + meant.size()))
      text.replace(at, escape.size(), meant);
  std::wstring lower = ToWide(text);
  for (wchar_t& unit : lower) unit = unit == 0xdc ? wchar_t{0xfc} : static_cast<wchar_t>(std::towlower(unit));
  return ToUtf8(lower);
}

// Where a text stands on a page, for messages that do not show all of it; empty where it does not.
std::string Around(const std::string& page, const std::string& text) {
  constexpr std::size_t kReach = 60;
  const std::size_t at = page.find(text);
  if (at == std::string::npos) return {};
  return page.substr(at - std::min(at, kReach), text.size() + 2 * kReach);
}

class QelaReport : public testing::Test {
 protected:
  QelaReport() {
    std::filesystem::create_directories(m_folder);
    AdapterList list;
    list.Add(L"Zugspitze Gigabit")
        .Index(2)
        .Mac({0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f})
        .Ip("10.77.0.15")
        .Ip("2001:db8:77::15")
        .Gateway("10.77.0.1")
        .DnsSuffix(L"eu.zugspitze.example")
        .DnsServer("10.77.0.53")
        .Dhcp("10.77.0.2")
        .Wins("10.77.0.3")
        .Wins("10.77.0.4");
    m_adapters.emplace(ThisProgram(), list);
  }
  ~QelaReport() override { std::filesystem::remove_all(m_folder); }
  QelaReport(const QelaReport&) = delete;
  QelaReport& operator=(const QelaReport&) = delete;

  std::wstring Path(const wchar_t* name) const { return (m_folder / name).wstring(); }
  std::string Page() const { return BytesOf(m_folder / L"case.html"); }

  QelaAnswer Report(std::vector<std::wstring> options = {}) const {
    options.insert(options.begin(), {L"report", Path(L"case.html"), L"--no-probes"});
    return RunQela(options);
  }

  static void StoreOffice() {
    const QelaAnswer answer = RunQela({L"location",
                                       L"add",
                                       L"Bergb\xfcro",
                                       L"--id",
                                       L"1f0c7f31-0000-4000-8000-00000000abcd",
                                       L"--note",
                                       L"Herr Huber, Raum 7",
                                       L"--dns-suffix",
                                       L"*.zugspitze.example",
                                       L"--gateway",
                                       L"10.77.0.1",
                                       L"--dhcp-server",
                                       L"10.77.0.2",
                                       L"--dns-server",
                                       L"203.0.113.53",
                                       L"--dns-server",
                                       L"10.77.0.53",
                                       L"--primary-wins",
                                       L"10.77.0.3",
                                       L"--secondary-wins",
                                       L"10.77.0.4",
                                       L"--registry",
                                       L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Watzmann\\Site=Hamburg",
                                       L"--https-host",
                                       L"vpn.zugspitze.example"});
    ASSERT_EQ(answer.code, kDone) << answer.err;
    ASSERT_EQ(RunQela({L"location", L"add", L"Watzmannhaus", L"--dns-suffix", L"e*.zugspitze.example"}).code, kDone);
    ASSERT_EQ(RunQela({L"location", L"add", L"Elsewhere", L"--gateway", L"192.0.2.1"}).code, kDone);
  }

  static std::vector<std::string> Verdicts(std::vector<std::wstring> arguments) {
    arguments.insert(arguments.begin(), L"explain");
    arguments.insert(arguments.end(), {L"--all", L"--json"});
    const QelaAnswer answer = RunQela(arguments);
    std::vector<std::string> verdicts;
    const Json json = Json::parse(answer.out, nullptr, false);
    if (json.is_discarded()) {
      ADD_FAILURE() << answer.out << answer.err;
      return {};
    }
    for (const Json& location : json["locations"]) verdicts.push_back(location["verdict"].dump());
    return verdicts;
  }

  const std::filesystem::path m_folder =
      std::filesystem::temp_directory_path() / (L"qela-report-" + std::to_wstring(::GetCurrentProcessId()));
  WithStoredSet<RedirectedMachineHive> m_registry;
  std::optional<FakeAdapters> m_adapters;
};

BOOL WINAPI NameOfTheComputer(COMPUTER_NAME_FORMAT format, LPWSTR name, LPDWORD size) {
  const std::wstring text = format == ComputerNamePhysicalDnsDomain ? L"corp.zugspitze.example" : L"PC-Kaiser";
  if (*size <= text.size()) {
    *size = static_cast<DWORD>(text.size()) + 1;
    return FALSE;
  }
  std::copy_n(text.c_str(), text.size() + 1, name);
  *size = static_cast<DWORD>(text.size());
  return TRUE;
}

BOOL WINAPI NameOfTheAccount(LPCWSTR, PSID, LPWSTR name, LPDWORD, LPWSTR domain, LPDWORD, PSID_NAME_USE) {
  std::copy_n(L"hhuber", 7, name);
  std::copy_n(L"ALPEN", 6, domain);
  return TRUE;
}

TEST_F(QelaReport, HoldsNoneOfThePlantedSecrets) {
  const ImportPatch computer(ThisProgram(), "GetComputerNameExW", &NameOfTheComputer);
  const ImportPatch account(ThisProgram(), "LookupAccountSidW", &NameOfTheAccount);
  StoreOffice();
  const std::wstring log =
      L"IsCurrentLocation checking location Bergb\xfcro\r\nuser ALPEN\\hhuber on pc-kaiser, 0A:1B:2C:3D:4E:5F, "
      L"10.77.0.99\r\n"
      L"Herr Huber, Raum 7 <huber@zugspitze.example> BERGB\xdcRO C:\\Users\\Hans Huber\\x.txt 2001:0db8:77::15\r\n"
      L"The registry value Site does NOT match the specified location awareness group value of Luebeck.\r\n"
      L"IsDomainReachable was unable to match domain vpn.zugspitze.example\r\n";
  Write(m_folder / L"utf8.log", ToUtf8(log));
  std::string wide = "\xff\xfe";
  for (const wchar_t unit : log) wide += {static_cast<char>(unit & 0xff), static_cast<char>(unit >> 8)};
  Write(m_folder / L"utf16.log", wide);
  std::string narrow;
  for (const wchar_t unit : log) narrow += static_cast<char>(unit);
  Write(m_folder / L"ansi.log", narrow);

  constexpr const char* kSecrets[] = {"bergb",  "watzmann", "zugspitze", "hhuber",    "huber",     "raum 7",
                                      "kaiser", "alpen",    "2001:db8",  "2001:0db8", "203.0.113", "192.0.2",
                                      "0a-1b",  "0a:1b",    "1f0c7f31",  "luebeck",   "hamburg",   "gigabit",
                                      "vpn.",   "s-1-5-",   "elsewhere"};
  for (const wchar_t* const level : {L"full", L"names"}) {
    const QelaAnswer answer = Report(
        {L"--redact", level, L"--log", Path(L"utf8.log"), L"--log", Path(L"utf16.log"), L"--log", Path(L"ansi.log")});
    ASSERT_EQ(answer.code, kDone) << answer.err;
    const std::string page = Plainly(Page());
    for (const char* const secret : kSecrets) {
      EXPECT_EQ(Around(page, secret), "") << ToUtf8(level);
      EXPECT_THAT(Plainly(answer.out), Not(HasSubstr(secret)));
    }
    const bool isFull = std::wstring_view(level) == L"full";
    EXPECT_EQ(page.find("10.77.0.") == std::string::npos, isFull);
    EXPECT_THAT(answer.out, AllOf(HasSubstr("3 location names"), HasSubstr("1 note"), HasSubstr("1 physical address")));
  }
}

TEST_F(QelaReport, ExplainsTheSameFromThePageAsOnTheMachine) {
  StoreOffice();
  const std::vector<std::string> here = Verdicts({L"--no-probes"});
  ASSERT_EQ(here.size(), 3U);
  for (const wchar_t* const level : {L"full", L"names", L"none"}) {
    ASSERT_EQ(Report({L"--redact", level}).code, kDone);
    EXPECT_EQ(Verdicts({L"--machine", Path(L"case.html")}), here) << ToUtf8(level);
  }
}

TEST_F(QelaReport, ShowsForEachLocationWhatExplainTellsFromThePage) {
  StoreOffice();
  ASSERT_EQ(Report().code, kDone);
  const std::string page = Page();
  const MachineSnapshot machine = MachineInReport(page, L"case.html");
  const LocationSet set = SetInReport(page, L"case.html");
  ASSERT_EQ(set.size(), 3U);
  for (const CQeLocation& location : set)
    EXPECT_THAT(Plainly(page), HasSubstr(Plainly(ToText(Explain(location, machine)))));
  EXPECT_EQ(set[2].Name(), L"LOCATION-3");
  EXPECT_THAT(page, HasSubstr("not current"));
}

TEST_F(QelaReport, WithoutRedactionHoldsWhatTheMachineShows) {
  StoreOffice();
  const QelaAnswer answer = Report({L"--redact", L"none"});
  EXPECT_THAT(answer.out, HasSubstr("Replaced: nothing."));
  const std::string page = Page();
  EXPECT_EQ(SetInReport(page, L"x")[0].Name(), L"Bergb\xfcro");
  EXPECT_EQ(MachineInReport(page, L"x").adapters[0].gateways[0], L"10.77.0.1");
  EXPECT_THAT(page, HasSubstr("Nothing was replaced: the page names this machine"));
}

TEST_F(QelaReport, NoTextEndsAnElementOfThePage) {
  const wchar_t* const kHostile = L"</script></pre><script>alert(1)</script><img src=x onerror=alert(1)>\"'&";
  ASSERT_EQ(RunQela({L"location", L"add", kHostile, L"--note", kHostile, L"--dns-suffix", L"<b>.example"}).code, kDone);
  Write(m_folder / L"x.log", ToUtf8(kHostile));
  ASSERT_EQ(Report({L"--redact", L"none", L"--log", Path(L"x.log")}).code, kDone);
  const std::string page = Page();
  for (const char* const tag : {"<script>", "<img", "<b>"}) EXPECT_EQ(Around(page, tag), "");
  std::size_t scripts = 0;
  for (std::size_t at = page.find("<script"); at != std::string::npos; at = page.find("<script", at + 1)) ++scripts;
  EXPECT_EQ(scripts, 2U);
  EXPECT_EQ(SetInReport(page, L"x")[0].Name(), kHostile);
}

TEST_F(QelaReport, HasTheLastLinesOfEachLog) {
  std::string log;
  for (int i = 1; i <= 700; ++i) log += "line number " + std::to_string(i) + "\r\n";
  Write(m_folder / L"long.log", log);
  Write(m_folder / L"wide.log", std::string(400'000, 'x') + "\nthe end");
  ASSERT_EQ(Report({L"--log", Path(L"long.log"), L"--log", Path(L"wide.log")}).code, kDone);
  const std::string page = Page();
  EXPECT_THAT(
      page, AllOf(HasSubstr("line number 201\n"), HasSubstr("line number 700\n"), Not(HasSubstr("line number 200\n"))));
  EXPECT_THAT(page, AllOf(HasSubstr("the end"), Not(HasSubstr("xxx"))));
}

TEST_F(QelaReport, WhatOneLogNamesIsReplacedBeforeItAndInTheOthers) {
  Write(m_folder / L"first.log", "Altstadt is what they call it\n");
  Write(m_folder / L"second.log", "to Altstadt\nIsCurrentLocation checking location Altstadt\n");
  ASSERT_EQ(Report({L"--log", Path(L"first.log"), L"--log", Path(L"second.log")}).code, kDone);
  EXPECT_EQ(Around(Page(), "Altstadt"), "");
  EXPECT_NE(Around(Page(), "LOCATION-1 is what they call it"), "");
}

TEST_F(QelaReport, AHostMayBeWritingItsLog) {
  Write(m_folder / L"open.log", "hello there\n");
  const UniqueKernelHandle writer(
      ::CreateFileW(Path(L"open.log").c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr));
  ASSERT_EQ(Report({L"--log", Path(L"open.log")}).code, kDone);
  EXPECT_THAT(Page(), HasSubstr("hello there"));
}

TEST_F(QelaReport, ALogThatIsNotThereIsToldAndNothingIsWritten) {
  const QelaAnswer answer = Report({L"--log", Path(L"none.log")});
  EXPECT_EQ(answer.code, kFailed);
  EXPECT_THAT(answer.err, HasSubstr("none.log"));
  EXPECT_FALSE(std::filesystem::exists(Path(L"case.html")));
}

TEST_F(QelaReport, IsNeverWrittenOverALog) {
  Write(m_folder / L"case.html", "the log\n");
  const QelaAnswer answer = Report({L"--log", Path(L"case.html")});
  EXPECT_EQ(answer.code, kFailed);
  EXPECT_THAT(answer.err, HasSubstr("this is the log itself"));
  EXPECT_EQ(Page(), "the log\n");
}

TEST_F(QelaReport, ASetThatCannotBeReadIsReported) {
  m_registry.Put({1, 2, 3});
  const QelaAnswer answer = Report();
  EXPECT_EQ(answer.code, kDone);
  EXPECT_THAT(answer.out, HasSubstr("0 locations, 1 error"));
  EXPECT_THAT(Page(), HasSubstr("a location set is stored but cannot be read"));
}

// Two locations with one ID, and one without: a file could not tell them apart.
TEST_F(QelaReport, LocationsWithoutAnIdOfTheirOwnGetOne) {
  LocationSet set = {Location(L"a"), Location(L"b"), Location(L"c")};
  set[1].SetId(set[0].Id());
  set[2].SetId(L"");
  m_registry.Put(EncodeSet(set));
  ASSERT_EQ(Report({L"--redact", L"none"}).code, kDone);
  EXPECT_EQ(SetInReport(Page(), L"x").size(), 3U);
  EXPECT_THAT(Page(), HasSubstr("2 locations had no ID or that of another"));
}

TEST_F(QelaReport, JsonTellsWhatWasReplaced) {
  StoreOffice();
  const Json json = Json::parse(Report({L"--json"}).out);
  EXPECT_EQ(json["locations"], 3);
  EXPECT_EQ(json["redaction"], "full");
  EXPECT_EQ(json["replaced"][0].dump(), R"({"placeholder":"LOCATION","values":3})");
}

// The library takes no expression of so many alternatives.
TEST_F(QelaReport, TellsWhereAPatternMatchesMoreLabelsThanCanBeWritten) {
  constexpr const char* kNotTheSame = "some location is decided in another way than on the machine";
  ASSERT_EQ(RunQela({L"location", L"add", L"Everywhere", L"--dns-suffix", L"e*"}).code, kDone);
  ASSERT_EQ(Report().code, kDone);
  EXPECT_THAT(Page(), Not(HasSubstr(kNotTheSame)));
  std::wstring suffix = L"e0";
  for (int i = 1; i < 500; ++i) suffix += L".e" + std::to_wstring(i);
  AdapterList list;
  list.Add(L"eth0").Index(2).DnsSuffix(suffix.c_str());
  m_adapters.reset();  // two at once would each call the other
  m_adapters.emplace(ThisProgram(), list);
  ASSERT_EQ(Report().code, kDone);
  EXPECT_THAT(Page(), HasSubstr(kNotTheSame));
}

TEST_F(QelaReport, NoPageIsTakenForAReportUnlessItIsWhole) {
  StoreOffice();
  ASSERT_EQ(Report().code, kDone);
  const std::string page = Page();
  ASSERT_TRUE(IsReport(page));
  const auto read = [](const std::string& bytes) {
    MachineInReport(bytes, L"x.html");
    SetInReport(bytes, L"x.html");
  };
  const auto isRefused = [&](const std::string& bytes) {
    try {
      read(bytes);
      return false;
    } catch (const CommandError&) {
      return true;
    }
  };
  read(page);
  const std::size_t end = page.rfind("</script>");
  for (std::size_t size = 0; size < end + 9; size += size + 200 < end ? 199 : 1)
    EXPECT_TRUE(isRefused(page.substr(0, size))) << size;
  EXPECT_TRUE(isRefused(page + page));
  EXPECT_TRUE(isRefused("{}"));
  EXPECT_FALSE(IsReport("{}"));
  std::mt19937 random(1);
  for (int run = 0; run < 300; ++run) {
    std::string broken = page;
    const std::size_t data = page.find("<script");
    for (int i = 0; i < 3; ++i) broken[data + random() % (page.size() - data)] = static_cast<char>(random());
    isRefused(broken);  // or read; but never more than that
  }
  EXPECT_THAT(FailureOf([&] { read("nothing"); }), HasSubstr("x.html: it is no whole report of qela's"));
}

}  // namespace

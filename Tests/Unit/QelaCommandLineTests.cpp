#include "Tools/qela/CommandLine.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <sstream>
#include <string_view>

#include "Tests/Support/RunQela.h"
#include "Tools/qela/CommandError.h"
#include "Tools/qela/Commands.h"
#include "Tools/qela/Text.h"

namespace {

using testing::HasSubstr;

Options Parse(const std::vector<std::wstring>& arguments) { return ParseCommandLine(arguments).value(); }

// The message of a command line that must be refused.
std::string Refusal(const std::vector<std::wstring>& arguments) {
  try {
    ParseCommandLine(arguments);
  } catch (const CommandError& error) {
    EXPECT_EQ(error.Code(), kWrongUsage);
    return error.what();
  }
  ADD_FAILURE() << "not refused";
  return {};
}

// What `location add` makes of one criterion option.
std::wstring Stored(const std::wstring& option, const std::wstring& value) {
  return Parse({L"location", L"add", L"Name", option, value}).edit.criteria.at(0).value;
}

std::string RefusedValue(const std::wstring& option, const std::wstring& value) {
  return Refusal({L"location", L"add", L"Name", option, value});
}

using Words = std::vector<std::wstring>;

// The words of every command, as the help lists them, groups included.
std::vector<Words> Pages(const Words& parent = {}) {
  std::vector<Words> pages = {parent};
  Words help = parent;
  help.emplace_back(L"--help");
  const std::string text = RunQela(help).out;
  std::istringstream lines(text.substr(std::min(text.find("\nSubcommands:\n"), text.size())));
  std::string line;
  for (std::getline(lines, line), std::getline(lines, line); std::getline(lines, line) && line.starts_with("  ");) {
    if (line[2] == ' ') continue;  // a description goes on
    Words page = parent;
    page.push_back(ToWide(line.substr(2, line.find(' ', 2) - 2)));
    for (Words& below : Pages(page)) pages.push_back(std::move(below));
  }
  return pages;
}

TEST(QelaCommandLine, EveryCommandIsKnown) {
  EXPECT_EQ(Parse({L"adapters"}).run, &ShowAdapters);
  EXPECT_EQ(Parse({L"locations"}).run, &ShowLocations);
  EXPECT_EQ(Parse({L"current"}).run, &ShowCurrent);
  EXPECT_EQ(Parse({L"watch"}).run, &Watch);
  EXPECT_EQ(Parse({L"location", L"add", L"x"}).run, &AddLocation);
  EXPECT_EQ(Parse({L"location", L"remove", L"x"}).run, &RemoveLocation);
  EXPECT_EQ(Parse({L"location", L"enable", L"x"}).run, &EnableLocation);
  EXPECT_EQ(Parse({L"location", L"disable", L"x"}).run, &DisableLocation);
}

TEST(QelaCommandLine, JsonAndVerboseBelongToEveryCommand) {
  const std::vector<std::vector<std::wstring>> commands = {{L"adapters"},
                                                           {L"locations"},
                                                           {L"current"},
                                                           {L"watch"},
                                                           {L"location", L"add", L"x"},
                                                           {L"location", L"remove", L"x"},
                                                           {L"location", L"enable", L"x"},
                                                           {L"location", L"disable", L"x"}};
  for (std::vector<std::wstring> arguments : commands) {
    EXPECT_FALSE(Parse(arguments).json);
    EXPECT_FALSE(Parse(arguments).verbose);
    arguments.insert(arguments.end(), {L"--json", L"--verbose"});
    EXPECT_TRUE(Parse(arguments).json);
    EXPECT_TRUE(Parse(arguments).verbose);
  }
}

TEST(QelaCommandLine, ALocationTakesAllItsOptions) {
  const Options options = Parse({L"location",        L"add",
                                 L"--dns-suffix",    L"*.corp.example",
                                 L"--gateway",       L"10.0.0.1",
                                 L"Office",          L"--gateway",
                                 L"10.0.0.2",        L"--dhcp-server",
                                 L"10.0.0.3",        L"--dns-server",
                                 L"fe80::1",         L"--primary-wins",
                                 L"10.0.0.4",        L"--secondary-wins",
                                 L"10.0.0.5",        L"--registry",
                                 L"HKEY_USERS\\a\\", L"--https-host",
                                 L"host.example",    L"--management-server",
                                 L"--note",          L"a note",
                                 L"--disabled",      L"--force"});
  EXPECT_EQ(options.location, L"Office");
  EXPECT_EQ(options.edit.note, L"a note");
  EXPECT_EQ(options.edit.enabled, false);
  EXPECT_TRUE(options.edit.force);
  const std::vector<std::pair<LOCATION_CRITERIA_TYPE, std::wstring>> expected = {
      {LCT_DNS_SUFFIX, L"*.corp.example"},    {LCT_DEFAULT_GATEWAY, L"10.0.0.1"},
      {LCT_DEFAULT_GATEWAY, L"10.0.0.2"},     {LCT_DHCP_SERVER, L"10.0.0.3"},
      {LCT_DNS_SERVER, L"fe80::1"},           {LCT_PRIMARY_WINS, L"10.0.0.4"},
      {LCT_SECONDARY_WINS, L"10.0.0.5"},      {LCT_REGISTRY_KEY, L"HKEY_USERS\\a\\"},
      {LCT_DOMAIN_REACHABLE, L"host.example"}};
  EXPECT_EQ(options.edit.managementServer, true);
  ASSERT_EQ(options.edit.criteria.size(), expected.size());
  for (std::size_t index = 0; index < expected.size(); ++index) {
    EXPECT_EQ(options.edit.criteria[index].change, CriterionEdit::Change::kAdd) << index;
    EXPECT_EQ(options.edit.criteria[index].kind, expected[index].first) << index;
    EXPECT_EQ(options.edit.criteria[index].value, expected[index].second) << index;
  }
}

TEST(QelaCommandLine, AnyTextMayBeAName) {
  for (const wchar_t* name :
       {L"B\u00fcro \u65e5 \U0001f600", L"watch", L"location", L"/home", L"a \"b\"", L"[a,b]", L" "})
    EXPECT_EQ(Parse({L"location", L"add", name}).location, name);
  EXPECT_EQ(Parse({L"location", L"add", L"--", L"--json"}).location, L"--json");
  EXPECT_EQ(Parse({L"location", L"add", L"--", L"--a="}).location, L"--a=");
}

TEST(QelaCommandLine, ANameIsNeededAndMustNotBeEmpty) {
  EXPECT_THAT(Refusal({L"location", L"add"}), HasSubstr("NAME is required"));
  EXPECT_THAT(Refusal({L"location", L"remove"}), HasSubstr("NAME-OR-ID is required"));
  EXPECT_THAT(Refusal({L"location", L"add", L""}), HasSubstr("must not be empty"));
  EXPECT_THAT(Refusal({L"location", L"remove", L""}), HasSubstr("must not be empty"));
}

TEST(QelaCommandLine, UnknownWordsAreNamed) {
  EXPECT_THAT(Refusal({L"bogus"}), HasSubstr("unknown command: bogus"));
  EXPECT_THAT(Refusal({L"location", L"bogus"}), HasSubstr("unknown command: bogus"));
  EXPECT_THAT(Refusal({L"current", L"bogus"}), HasSubstr("bogus"));
  EXPECT_THAT(Refusal({L"current", L"--bogus"}), HasSubstr("--bogus"));
  EXPECT_THAT(Refusal({L"location", L"add", L"a", L"b"}), HasSubstr("b"));
}

TEST(QelaCommandLine, WordsThatAreCloseToAKnownOneAreAnsweredWithIt) {
  EXPECT_THAT(Refusal({L"locatoins"}), HasSubstr("Did you mean \"locations\"?"));
  EXPECT_THAT(Refusal({L"location", L"remvoe", L"x"}), HasSubstr("Did you mean \"remove\"?"));
  EXPECT_THAT(Refusal({L"location", L"add", L"x", L"--gatewya", L"1"}), HasSubstr("Did you mean \"--gateway\"?"));
  EXPECT_THAT(Refusal({L"bogus"}), Not(HasSubstr("Did you mean")));
}

TEST(QelaCommandLine, EveryPageOfHelpEndsWithExamples) {
  for (const Words& page : Pages()) {
    Words help = page;
    help.insert(help.begin(), L"help");
    const std::string text = RunQela(help).out;
    EXPECT_THAT(text, HasSubstr("Usage: qela"));
    const bool isOfACommand = text.find("SUBCOMMAND") == std::string::npos;
    EXPECT_EQ(text.find("\nExamples:\n  qela ") != std::string::npos, isOfACommand) << text;
    for (std::string_view rest = text; !rest.empty(); rest.remove_prefix(std::min(rest.find('\n') + 1, rest.size())))
      EXPECT_LE(rest.substr(0, rest.find('\n')).size(), 100u) << rest.substr(0, rest.find('\n'));
  }
}

TEST(QelaCommandLine, ACommandIsNeeded) {
  EXPECT_THAT(Refusal({}), HasSubstr("subcommand is required"));
  EXPECT_THAT(Refusal({L"location"}), HasSubstr("subcommand is required"));
}

TEST(QelaCommandLine, ArgumentsMustBeUnicode) {
  EXPECT_THAT(Refusal({L"location", L"add", {L'a', 0xd800}}), HasSubstr("not valid Unicode"));
}

TEST(QelaCommandLine, WatchEndsAfterWholeSeconds) {
  EXPECT_EQ(Parse({L"watch"}).seconds, std::nullopt);
  EXPECT_EQ(Parse({L"watch", L"--for", L"0"}).seconds, 0u);
  EXPECT_EQ(Parse({L"watch", L"--for", L"1000000"}).seconds, 1'000'000u);
  for (const wchar_t* seconds : {L"1000001", L"-1", L"x", L"1.5", L"4294967297", L""})
    EXPECT_THAT(Refusal({L"watch", L"--for", seconds}), HasSubstr("--for")) << seconds;
}

TEST(QelaCommandLine, CriteriaMustNotBeEmpty) {
  for (const wchar_t* option : {L"--dns-suffix", L"--gateway", L"--dhcp-server", L"--dns-server", L"--primary-wins",
                                L"--secondary-wins", L"--registry", L"--https-host"}) {
    EXPECT_THAT(RefusedValue(option, L""), HasSubstr("must not be empty")) << option;
    EXPECT_THAT(Refusal({L"location", L"add", std::wstring(option) + L"=", L"Name"}), HasSubstr("must not be empty"));
    EXPECT_NE(Refusal({L"location", L"add", L"Name", option}), "");
  }
}

TEST(QelaCommandLine, AddressesArePutIntoTheSpellingThatTheLibraryCompares) {
  EXPECT_EQ(Stored(L"--gateway", L"10.0.0.1"), L"10.0.0.1");
  EXPECT_EQ(Stored(L"--gateway", L"FE80:0:0::1"), L"fe80::1");
  // The library stores this one as 10.0.0.1 itself.
  EXPECT_EQ(Stored(L"--gateway", L"0000:0000:0000:0000:0000:ffff:0a00:0001"),
            L"0000:0000:0000:0000:0000:ffff:0a00:0001");
}

TEST(QelaCommandLine, WhatIsNoAddressIsRefused) {
  for (const wchar_t* option :
       {L"--gateway", L"--dhcp-server", L"--dns-server", L"--primary-wins", L"--secondary-wins"})
    for (const wchar_t* value : {L"10.1", L"10.0.0.256", L"10.0.0.1/24", L"host", L"fe80::1%3", L" 10.0.0.1", L"::g"})
      EXPECT_THAT(RefusedValue(option, value), HasSubstr("is not an IPv4 or IPv6 address")) << value;
}

TEST(QelaCommandLine, RegistryTextsThatCanNeverHoldAreRefused) {
  for (const wchar_t* value : {L"HKEY_LOCAL_MACHINE\\SOFTWARE\\", L"HKEY_CLASSES_ROOT\\a\\b=c",
                               L"HKEY_CURRENT_USER\\a\\b=", L"HKEY_USERS\\a b\\=c\\d"})
    EXPECT_EQ(Stored(L"--registry", value), value);
  EXPECT_THAT(RefusedValue(L"--registry", L"HKLM\\a\\"), HasSubstr("not abbreviated"));
  EXPECT_THAT(RefusedValue(L"--registry", L"hkey_users\\a\\"), HasSubstr("in capitals"));
  EXPECT_THAT(RefusedValue(L"--registry", L"HKEY_USERS\\a"), HasSubstr("is not of the form"));
  EXPECT_THAT(RefusedValue(L"--registry", L"HKEY_USERS=a\\b\\"), HasSubstr("is not of the form"));
  EXPECT_THAT(RefusedValue(L"--registry", L"HKEY_USERS\\a\\b=c=d"), HasSubstr("more than one \"=\""));
}

TEST(QelaCommandLine, HostsAndSuffixesAreNames) {
  EXPECT_EQ(Stored(L"--https-host", L"host.example"), L"host.example");
  EXPECT_EQ(Stored(L"--dns-suffix", L"*-eu.corp.example"), L"*-eu.corp.example");
  for (const wchar_t* value : {L"https://host.example", L"host/path", L"a b", L"a\tb"}) {
    EXPECT_THAT(RefusedValue(L"--https-host", value), HasSubstr("is not a host name"));
    EXPECT_THAT(RefusedValue(L"--dns-suffix", value), HasSubstr("is not a DNS suffix"));
  }
}

}  // namespace

#include "Tools/qela/Redaction.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <utility>

#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Unit/QelaMachines.h"
#include "Tools/qela/Explanation.h"
#include "Tools/qela/LibraryMessages.h"
#include "Tools/qela/LocationSetFile.h"
#include "Tools/qela/TestSet.h"
#include "Tools/qela/Text.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using Level = Redaction::Level;

constexpr wchar_t kGateway[] = L"10.77.0.1";
constexpr wchar_t kMac[] = L"0A-1B-2C-3D-4E-5F";

MachineSnapshot Office() {
  MachineSnapshot machine;
  machine.machine = L"PC-Zugspitze";
  AdapterProps adapter = Adapter(2, L"Zugspitze Gigabit #2", {kGateway, L"fe80::1"}, L"eu.zugspitze.example");
  adapter.macAddresses = {kMac};
  adapter.ipAddresses = {L"10.77.0.15", L"2001:db8:77::15"};
  adapter.dnsServers = {L"10.77.0.53", L"203.0.113.53"};
  adapter.dhcpEnabled = true;
  adapter.dhcpServer = L"10.77.0.2";
  adapter.dhcpV6Server = L"fd77::2";
  adapter.winsPrimary = L"10.77.0.3";
  adapter.winsSecondary = L"10.77.0.4";
  machine.adapters = {adapter, Adapter(5, L"Watzmann", {}, L"")};
  machine.registry = {{L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Watzmann\\Site=Zugspitze", true}};
  machine.httpsHosts = {{L"vpn.zugspitze.example", false}};
  return machine;
}

LocationSet Places() {
  CQeLocation office =
      Location(L"Bergbüro", {{LCT_DNS_SUFFIX, {L"*.Zugspitze.example", L"eu-*.zugspitze.example"}},
                             {LCT_DEFAULT_GATEWAY, {kGateway, L"FE80::1", L"router"}},
                             {LCT_REGISTRY_KEY, {L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Watzmann\\Site=Zugspitze"}},
                             {LCT_DOMAIN_REACHABLE, {L"vpn.zugspitze.example"}}});
  office.SetNote(L"Herr Huber, Raum 7");
  return {office, Location(L"Watzmannhaus", {{LCT_DNS_SUFFIX, {L"e*.zugspitze.example"}}})};
}

Identity Somebody() {
  return {L"PC-Zugspitze", L"hhuber", L"ZUGSPITZE", L"corp.zugspitze.example", L"S-1-5-21-111-222-333-1001"};
}

std::string Everything(Redaction& redaction, std::wstring_view log) {
  return SetAsJson(redaction.Set()) + MachineAsJson(redaction.Machine(), false) + ToUtf8(redaction.FreeText(log));
}

TEST(QelaRedaction, EqualValuesGetEqualPlaceholdersWhereverTheyStand) {
  Redaction redaction(Level::kFull, Places(), Office(), Somebody());
  const AdapterProps& adapter = redaction.Machine().adapters[0];
  const CQeLocationCriterias& criteria = redaction.Set()[0].Criterias();
  EXPECT_EQ(criteria.Texts(LCT_DEFAULT_GATEWAY)[0], adapter.gateways[0]);
  EXPECT_EQ(adapter.gateways[0], L"ADDRESS-1");
  EXPECT_EQ(criteria.Texts(LCT_REGISTRY_KEY)[0], redaction.Machine().registry.begin()->first);
  EXPECT_EQ(criteria.Texts(LCT_DOMAIN_REACHABLE)[0], redaction.Machine().httpsHosts.begin()->first);
  EXPECT_EQ(redaction.FreeText(L"gateway 10.77.0.1!"), L"gateway ADDRESS-1!");
}

TEST(QelaRedaction, SuffixesAreReplacedLabelByLabelSoThatWhatMatchedStillDoes) {
  Redaction redaction(Level::kFull, Places(), Office(), Somebody());
  EXPECT_EQ(redaction.Machine().adapters[0].dnsSuffix, L"LABEL-1.LABEL-2.LABEL-3");
  EXPECT_EQ(redaction.Machine().adapters[1].dnsSuffix, L"");
  const auto suffixes = redaction.Set()[0].Criterias().Texts(LCT_DNS_SUFFIX);
  EXPECT_EQ(suffixes[0], L"*.LABEL-2.LABEL-3");
  EXPECT_EQ(suffixes[1], L"PATTERN-1-*.LABEL-2.LABEL-3");  // no adapter has such a label
  EXPECT_EQ(redaction.Set()[1].Criterias().Texts(LCT_DNS_SUFFIX)[0], L"(PATTERN-2-*|LABEL-1|LABEL-3).LABEL-2.LABEL-3");
}

TEST(QelaRedaction, APatternThatHoldsWithoutASuffixStillDoes) {
  const Redaction redaction(Level::kFull, {Location(L"a", {{LCT_DNS_SUFFIX, {L"*a*", L"*b"}}})}, Office(), {});
  const auto suffixes = redaction.Set()[0].Criterias().Texts(LCT_DNS_SUFFIX);
  EXPECT_EQ(suffixes[0], L"(PATTERN-1-*|LABEL-1|LABEL-2|LABEL-3)?");
  EXPECT_TRUE(DnsSuffixMatches(suffixes[0], L""));
  EXPECT_FALSE(DnsSuffixMatches(suffixes[1], L""));
}

// It is why a location is not current.
TEST(QelaRedaction, AnAddressInAnotherSpellingIsToldFromTheOneThatAdaptersShow) {
  Redaction redaction(Level::kFull, Places(), Office(), Somebody());
  const auto gateways = redaction.Set()[0].Criterias().Texts(LCT_DEFAULT_GATEWAY);
  EXPECT_EQ(gateways[1], redaction.Machine().adapters[0].gateways[1] + L"-SPELLING-2");
  EXPECT_EQ(gateways[2], L"TEXT-1");
}

TEST(QelaRedaction, RegistryCriteriaKeepTheirForm) {
  Redaction redaction(Level::kFull, {}, {}, {});
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"HKEY_LOCAL_MACHINE\\A\\B\\", L"HKEY_LOCAL_MACHINE\\KEY-1\\KEY-2\\"},
      {L"HKEY_LOCAL_MACHINE\\A\\B=C", L"HKEY_LOCAL_MACHINE\\KEY-1\\VALUE-1=DATA-1"},
      {L"HKEY_LOCAL_MACHINE\\a\\=", L"HKEY_LOCAL_MACHINE\\KEY-1-SPELLING-2\\="},
      {L"HKLM\\A\\B=c=D", L"HKLM\\KEY-1\\VALUE-1=DATA-1-SPELLING-2=DATA-2"},
      {L"hkey_users\\A", L"hkey_users\\VALUE-2"},
      {L"Secret\\A\\B", L"KEY-3\\KEY-1\\VALUE-1"},
      {L"Secret", L"KEY-3"},
      {L"\\\\A\\\\", L"\\\\KEY-1\\\\"},
      {L"", L""},
  };
  for (const auto& [text, replaced] : cases) EXPECT_EQ(redaction.Registry(text), replaced) << ToUtf8(text);
}

TEST(QelaRedaction, TextsThatDifferStayDifferent) {
  Redaction redaction(Level::kFull, {}, {}, {});
  const wchar_t* const texts[] = {L"a",     L"A",     L"a\\b", L"A\\b", L"a=b", L"a=B",
                                  L"a\\=b", L"KEY-1", L"ä",    L"Ä",    L"a ",  L""};
  std::set<std::wstring> replaced;
  for (const wchar_t* const text : texts) replaced.insert(redaction.Registry(text));
  EXPECT_EQ(replaced.size(), std::size(texts));
  replaced.clear();
  for (const wchar_t* const text : texts) replaced.insert(redaction.Host(text));
  EXPECT_EQ(replaced.size(), std::size(texts));
}

TEST(QelaRedaction, WhereWindowsLowersNoTextTheLettersOfEnglishAreLowered) {
  const ImportPatch patch(
      ThisProgram(), "LCMapStringEx",
      +[](LPCWSTR, DWORD, LPCWSTR, int, LPWSTR, int, LPNLSVERSIONINFO, LPVOID, LPARAM) -> int { return 0; });
  Redaction redaction(Level::kFull, Places(), Office(), Somebody());
  const std::wstring text = redaction.FreeText(L"HHUBER at pc-zugspitze");
  EXPECT_EQ(text, redaction.FreeText(L"hhuber at PC-Zugspitze"));
  EXPECT_THAT(ToUtf8(text), AllOf(Not(HasSubstr("HHUBER")), Not(HasSubstr("zugspitze"))));
}

TEST(QelaRedaction, PrivateAddressesStayReadableWhereOnlyNamesAreReplaced) {
  Redaction redaction(Level::kNames, Places(), Office(), Somebody());
  const AdapterProps& adapter = redaction.Machine().adapters[0];
  EXPECT_THAT(adapter.gateways, ElementsAre(kGateway, L"fe80::1"));
  EXPECT_THAT(adapter.ipAddresses, ElementsAre(L"10.77.0.15", L"ADDRESS-1"));
  EXPECT_THAT(adapter.dnsServers, ElementsAre(L"10.77.0.53", L"ADDRESS-2"));
  EXPECT_EQ(adapter.dhcpV6Server, L"fd77::2");
  EXPECT_EQ(adapter.macAddresses[0], L"MAC-1");
  for (const wchar_t* const address : {L"10.0.0.1", L"172.16.0.1", L"172.31.255.255", L"192.168.1.1", L"169.254.1.1",
                                       L"fe80::1", L"febf::1", L"fd00::1"})
    EXPECT_EQ(redaction.Address(address), address);
  for (const wchar_t* const address :
       {L"11.0.0.1", L"172.15.0.1", L"172.32.0.1", L"192.169.1.1", L"8.8.8.8", L"fec0::1", L"2001:db8::1"})
    EXPECT_THAT(ToUtf8(redaction.Address(address)), testing::StartsWith("ADDRESS-"));
  EXPECT_EQ(redaction.FreeText(L"from 10.77.0.15 to 8.8.8.8"), L"from 10.77.0.15 to " + redaction.Address(L"8.8.8.8"));
}

// Its second half is the physical address.
TEST(QelaRedaction, AnAddressThatTellsThePhysicalOneIsReplacedEvenWhereItIsPrivate) {
  Redaction redaction(Level::kNames, {}, {}, {});
  EXPECT_EQ(redaction.Address(L"fe80::81b:2cff:fe3d:4e5f"), L"ADDRESS-1");
}

TEST(QelaRedaction, NothingIsReplacedWhereThatIsAskedFor) {
  Redaction redaction(Level::kNone, Places(), Office(), Somebody());
  EXPECT_EQ(SetAsJson(redaction.Set()), SetAsJson(Places()));
  EXPECT_EQ(MachineAsJson(redaction.Machine(), false), MachineAsJson(Office(), false));
  EXPECT_EQ(redaction.FreeText(L"hhuber at 10.77.0.1"), L"hhuber at 10.77.0.1");
  EXPECT_THAT(redaction.Counts(), IsEmpty());
  EXPECT_EQ(InWords(redaction.Counts()), "nothing");
}

TEST(QelaRedaction, WhatWasReplacedIsCountedByKind) {
  Redaction redaction(Level::kFull, {Location(L"A"), Location(L"a"), Location(L"B")}, {}, {});
  EXPECT_EQ(InWords(redaction.Counts()), "2 location names, 2 IDs");
  redaction.Address(L"10.0.0.1");
  EXPECT_EQ(InWords(redaction.Counts()), "2 location names, 2 IDs, 1 address");
}

TEST(QelaRedaction, WhatTheLibrarysMessagesNameIsReplacedAlthoughNothingElseTellsIt) {
  Redaction redaction(Level::kFull, Places(), Office(), Somebody());
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"IsCurrentLocation checking location Bergbüro", L"IsCurrentLocation checking location LOCATION-1"},
      {L"IsCurrentLocation checking location Bergbüro [thread 7]",
       L"IsCurrentLocation checking location LOCATION-1 [thread 7]"},
      {L"IsCurrentLocation checking location Old Place", L"IsCurrentLocation checking location LOCATION-3"},
      {L"IsCurrentLocation returning matched criterias 0 for location Bergbüro...",
       L"IsCurrentLocation returning matched criterias 0 for location LOCATION-1..."},
      {L"Adding current location ID 1f0c7f31-0000-4000-8000-00000000abcd", L"Adding current location ID ID-3"},
      {L"All the criteria's given in location matches adapter index 7 with description X.Y #2. Hence this adapter will "
       L"be matching.",
       L"All the criteria's given in location matches adapter index 7 with description ADAPTER-3. Hence this adapter "
       L"will "
       L"be matching."},
      {L"Location: Registry key matched for adapter with index 7 and description X.Y #2.",
       L"Location: Registry key matched for adapter with index 7 and description ADAPTER-3."},
      {L"Location: DNS suffix : home matched for adapter with index 7 and description Watzmann.",
       L"Location: DNS suffix : LABEL-5 matched for adapter with index 7 and description ADAPTER-2."},
      {L"IsDomainReachable was unable to match domain intranet",
       L"IsDomainReachable was unable to match domain HOST-2"},
      {L"CheckZeltReachability found ZeltServerList value srv1|10.1.2.3|443;srv2|intranet|444",
       L"CheckZeltReachability found ZeltServerList value HOST-3|ADDRESS-11|443;HOST-4|HOST-2|444"},
      {L"IsZELTReachable calling DnsQuery on srv1", L"IsZELTReachable calling DnsQuery on HOST-3"},
      {L"The registry key SOFTWARE\\Unknown Thing specified for the location does not exist.",
       L"The registry key KEY-1\\KEY-3 specified for the location does not exist."},
      {L"The registry value Site does NOT match the specified location awareness group value of Hamburg.",
       L"The registry value VALUE-1 does NOT match the specified location awareness group value of DATA-2."},
      {L"Unable to find the DWORD value in the registry for Level.",
       L"Unable to find the DWORD value in the registry for VALUE-2."},
      {L"Send Request failed for intranet errorCode 12029", L"Send Request failed for HOST-2 errorCode 12029"},
      {L"WinHttp Send Request status code for intranet 200", L"WinHttp Send Request status code for HOST-2 200"},
      {L"Issuer id of required certifcate :CN=Huber AG", L"Issuer id of required certifcate :ISSUER-1"},
  };
  for (const auto& [text, replaced] : cases) EXPECT_EQ(ToUtf8(redaction.FreeText(text)), ToUtf8(replaced));
}

TEST(QelaRedaction, NoMessageOfTheLibraryKeepsATextThatItNames) {
  for (const LibraryMessage& message : LibraryMessages()) {
    if (message.format.starts_with("Adapter properties:")) continue;  // has labels of its own, and a test below
    std::string text(message.format);
    for (const char* const conversion : {"%s", "%S"})
      for (std::size_t at = text.find(conversion); at != std::string::npos; at = text.find(conversion))
        text.replace(at, 2, "Zqx zqv.Zqj... zqk");
    for (const char* const conversion : {"%d", "%ld", "%lu", "%x"})
      for (std::size_t at = text.find(conversion); at != std::string::npos; at = text.find(conversion))
        text.replace(at, std::string_view(conversion).size(), "7");
    // The host's name has no blanks.
    if (text.find("status code for") != std::string::npos) text.replace(text.find("Zqx zqv.Zqj... zqk"), 18, "Zqx");
    for (const std::wstring& line : {ToWide(text), L"12:00 " + ToWide(text) + L"\r\n"}) {
      Redaction redaction(Level::kFull, {}, {}, {});
      const std::string redacted = ToUtf8(redaction.FreeText(line));
      EXPECT_THAT(redacted, AllOf(Not(HasSubstr("zq")), Not(HasSubstr("Zq")))) << text;
      EXPECT_THAT(redacted, HasSubstr(std::string(message.format).substr(0, message.beginning)));
    }
  }
}

TEST(QelaRedaction, WhatLooksLikeANameOrAnAddressIsReplacedInFreeText) {
  Redaction redaction(Level::kFull, {}, {}, {});
  const std::pair<const wchar_t*, const wchar_t*> cases[] = {
      {L"to 203.0.113.9:443, again", L"to ADDRESS-1:443, again"},
      {L"(203.0.113.9-203.0.113.10)/24", L"(ADDRESS-1-ADDRESS-2)/24"},
      {L"x2001:db8::1", L"x2001:db8::1"},
      {L"[2001:db8::1]:443 and 2001:DB8::1%4", L"[ADDRESS-3]:443 and ADDRESS-3-SPELLING-2%4"},
      {L"::ffff:203.0.113.99", L"ADDRESS-4-SPELLING-2"},
      {L"at 12:34:56 in QeLaUtils::IpCompareIPv4", L"at 12:34:56 in QeLaUtils::IpCompareIPv4"},
      {L"00-1A-2B-3C-4D-5E 00:1a:2b:3c:4d:5e 001a.2b3c.4d5e 001A2B3C4D5E", L"MAC-1 MAC-1 MAC-1 001A2B3C4D5E"},
      {L"{1f0c7f31-0000-4000-8000-00000000ABCD}", L"{ID-1}"},
      {L"S-1-5-21-1-2-3-1001: S-1-5", L"SID-1: SID-2"},
      {L"https://user:pw@portal.example/login?x=1.", L"URL-1."},
      {L"mail hans.huber@berg.example, now", L"mail MAIL-1, now"},
      {L"C:\\Users\\Hans Huber\\AppData\\x.log: denied", L"PATH-1: denied"},
      {L"\"\\\\server\\share\\x.txt\" BERG\\huber", L"\"PATH-2\" PATH-3"},
      {L"HKLM\\SOFTWARE\\Berg Werk\\Site", L"HKLM\\KEY-1\\KEY-2\\VALUE-1"},
      {L"asking vpn.berg.example.", L"asking HOST-1."},
      {L"QeLaLib.cpp(12) e.g. version 1.5 of 21.11.2025", L"QeLaLib.cpp(12) e.g. version 1.5 of 21.11.2025"},
  };
  for (const auto& [text, replaced] : cases) EXPECT_EQ(ToUtf8(redaction.FreeText(text)), ToUtf8(replaced));
}

TEST(QelaRedaction, AnAdapterReportKeepsItsFormWhetherItsLineBreaksAreEscapedOrNot) {
  Redaction redaction(Level::kFull, {}, {}, {});
  const std::wstring text =
      L"Adapter properties:\n\n\tInterface Index:2\n\tDescription :eth\\ü\n\tDefault Gateways:\n\t\t"
      L"Count (1)\n\t\t\t10.0.0.1\n\tDNS Domain:a.example\n\tDNS Servers:\n\t\tCount (0)";
  const std::wstring expected =
      L"Adapter properties:\n\n\tInterface Index:2\n\tDescription :ADAPTER-1\n\tDefault Gateways:"
      L"\n\t\tCount (1)\n\t\t\tADDRESS-1\n\tDNS Domain:LABEL-1.LABEL-2\n\tDNS Servers:\n\t\tCount (0)";
  EXPECT_EQ(redaction.FreeText(text), expected);
  const auto escaped = [](const std::wstring& plain, const wchar_t* u) {
    std::wstring result;
    for (const wchar_t unit : plain)
      result += unit == L'\n'   ? L"\\n"
                : unit == L'\t' ? L"\\t"
                : unit == L'\\' ? L"\\\\"
                : unit == 0xfc  ? u
                                : std::wstring(1, unit);
    return result;
  };
  EXPECT_EQ(redaction.FreeText(escaped(text, L"\xfc")), escaped(expected, L""));
  EXPECT_EQ(redaction.FreeText(escaped(text, L"\\u00FC")), escaped(expected, L""));
}

TEST(QelaRedaction, KnownTextsAreFoundInEscapedLogs) {
  Redaction redaction(Level::kFull, Places(), Office(), Somebody());
  EXPECT_EQ(ToUtf8(redaction.FreeText(L"of:\\n\\tBergb\\u00fcro\\n\\tBERGB\\u00DCRO and hhuber\\n")),
            "of:\\n\\tLOCATION-1\\n\\tLOCATION-1 and USER-1\\n");
}

// All that a place, a machine and a person are known by, in every field and in a log.
TEST(QelaRedaction, NoneOfThePlantedSecretsIsLeftInAnyLetterCaseOrEscape) {
  const wchar_t* const secrets[] = {L"zugspitze", L"watzmann", L"bergbüro",  L"huber",    L"raum 7",
                                    L"10.77.0",   L"2001:db8", L"203.0.113", L"fe80",     L"fd77",
                                    L"0a-1b",     L"0a:1b",    L"0a1b2c",    L"1f0c7f31", L"S-1-5-21-111",
                                    L"gigabit",   L"site",     L"vpn.",      L"router",   L"secretpath"};
  const std::wstring log =
      L"IsCurrentLocation checking location Bergbüro\r\nBERGBÜRO Bergb\\u00fcro Bergb\\u00FCRO\r\n"
      L"user HHUBER of Zugspitze\\hhuber, ZUGSPITZE\\\\hhuber S-1-5-21-111-222-333-1001 on pc-zugspitze\r\n"
      L"note: herr huber, raum 7; mail huber@zugspitze.example https://vpn.zugspitze.example/huber\r\n"
      L"0a-1b-2c-3d-4e-5f 0A:1B:2C:3D:4E:5F 0a1b2c3d4e5f 0a1b.2c3d.4e5f 2001:DB8:77::15 2001:0db8:0077::0015\r\n"
      L"10.77.0.15,10.77.0.15/24 [203.0.113.53]:53 fe80::1%4 FD77::2 VPN.Zugspitze.Example "
      L"1f0c7f31-0000-4000-8000-00000000abcd\r\n"
      L"c:\\users\\hhuber\\SecretPath\\x C:\\\\Users\\\\Hans Huber\\\\SecretPath\\\\x \\\\zugspitze\\secretpath\r\n"
      L"The registry value Site matches the specified location awareness group value of Zugspitze.\r\n"
      L"HKLM\\SOFTWARE\\Watzmann\\Site Zugspitze Gigabit #2 WATZMANNHAUS router eu.zugspitze.example "
      L"corp.zugspitze.example\r\n";
  MachineSnapshot machine = Office();
  LocationSet places = Places();
  places[1].SetId(L"1f0c7f31-0000-4000-8000-00000000abcd");
  for (const Level level : {Level::kFull, Level::kNames}) {
    Redaction redaction(level, places, machine, Somebody());
    std::wstring output = ToWide(Everything(redaction, log));
    const std::wstring found = [&] {
      std::wstring lower;
      for (const wchar_t unit : output) lower += static_cast<wchar_t>(unit == 0xdc ? 0xfc : std::towlower(unit));
      return lower;
    }();
    for (const std::wstring secret : secrets) {
      const bool isPrivateAddress = secret == L"10.77.0" || secret == L"fe80" || secret == L"fd77";
      if (level == Level::kNames && isPrivateAddress)
        EXPECT_THAT(ToUtf8(found), HasSubstr(ToUtf8(secret)));
      else
        EXPECT_EQ(ToUtf8(found.substr(std::min(found.size(), found.find(secret)), 80)), "") << ToUtf8(secret);
    }
  }
}

TEST(QelaRedaction, AnyTextIsTaken) {
  Redaction redaction(Level::kFull, Places(), Office(), Somebody());
  std::mt19937 random(1);
  const std::wstring_view parts[] = {L"\\",  L"\\u",    L"\\n\\t",  L":",         L"::",        L".",
                                     L"@",   L"://",    L"10.0.0.", L"1f0c",      L"-",         L"S-1-",
                                     L"\x0", L"\xd800", L"\r",      L"a",         L" ",         L"and description ",
                                     L"=",   L"|",      L"C:",      L"zugspitze", L"value of ", L"\xff"};
  for (int run = 0; run < 3000; ++run) {
    std::wstring text;
    for (std::size_t i = random() % 30; i-- > 0;) text += parts[random() % std::size(parts)];
    EXPECT_THAT(ToUtf8(redaction.FreeText(text)), Not(HasSubstr("zugspitze"))) << ToUtf8(text);
  }
  for (const std::wstring_view part : parts) {
    std::wstring text;
    while (text.size() < 200'000) text += part.empty() ? std::wstring_view(L"\0", 1) : part;
    redaction.FreeText(text);
  }
}

// Sets and machines in which much meets: labels that hold "*", other spellings, texts that are no addresses.
class World {
 public:
  explicit World(unsigned seed) : m_random(seed) {}

  std::size_t Below(std::size_t end) { return m_random() % end; }
  template <std::size_t count>
  std::wstring OneOf(const wchar_t* const (&texts)[count]) {
    return texts[Below(count)];
  }

  std::wstring Value(LOCATION_CRITERIA_TYPE kind) {
    static constexpr const wchar_t* kSuffixes[] = {L"corp.example",
                                                   L"Corp.Example",
                                                   L"*.example",
                                                   L"c*.example",
                                                   L"*p.example",
                                                   L"(a|corp)*.example",
                                                   L"eu.*",
                                                   L"",
                                                   L"*",
                                                   L"**",
                                                   L"eu*.corp.*",
                                                   L"lab",
                                                   L"*a*.example",
                                                   L"x.corp.example",
                                                   L"corp.example.",
                                                   L"[*",
                                                   L"*e*u*.c*.e*e",
                                                   L"*a*",
                                                   L"corp.(a*)?",
                                                   L"LABEL-1.LABEL-2"};
    static constexpr const wchar_t* kAddresses[] = {L"10.0.0.1",  L"10.0.0.2", L"010.0.0.1",   L"FE80::1",
                                                    L"fe80::1",   L"",         L"2001:db8::1", L"router",
                                                    L"ADDRESS-1", L"fe80::1%4"};
    static constexpr const wchar_t* kKeys[] = {L"HKEY_LOCAL_MACHINE\\A\\",
                                               L"HKEY_LOCAL_MACHINE\\A\\B=C",
                                               L"hklm\\A\\B=c",
                                               L"HKEY_LOCAL_MACHINE\\a\\B=C",
                                               L"A=B=C",
                                               L""};
    static constexpr const wchar_t* kHosts[] = {L"a.example", L"A.example", L"10.0.0.1", L"https://a.example", L""};
    return kind == LCT_DNS_SUFFIX         ? OneOf(kSuffixes)
           : kind == LCT_REGISTRY_KEY     ? OneOf(kKeys)
           : kind == LCT_DOMAIN_REACHABLE ? OneOf(kHosts)
                                          : OneOf(kAddresses);
  }

  CQeLocation Place() {
    CQeLocation location = Location(L"Place " + std::to_wstring(Below(5)));
    CQeLocationCriterias criteria;
    for (std::uint32_t kind = 0; kind < kTextCriteriaKinds; ++kind) {
      std::vector<std::wstring> texts;
      if (Below(5) == 0 || (kind == LCT_DNS_SUFFIX && Below(2) == 0))
        for (std::size_t i = 1 + Below(3); i-- > 0;) texts.push_back(Value(static_cast<LOCATION_CRITERIA_TYPE>(kind)));
      criteria.SetTexts(kind, std::move(texts));
    }
    if (Below(4) == 0) criteria.Add(LCT_ZELT_REACHABLE, {});
    location.SetCriterias(std::move(criteria));
    const bool enabled = Below(10) != 0;
    location.SetEnabled(&enabled);
    return location;
  }

  MachineSnapshot Machine() {
    static constexpr const wchar_t* kSuffixes[] = {
        L"corp.example", L"eu.corp.example", L"CORP.EXAMPLE",  L"",
        L"lab.example",  L"eu1.corp.test",   L"corp.example.", L"a.b\nc.example"};
    MachineSnapshot machine;
    for (std::size_t i = Below(4); i-- > 0;) {
      const auto address = [this] { return Value(LCT_DEFAULT_GATEWAY); };
      AdapterProps adapter =
          Adapter(static_cast<std::uint32_t>(Below(3)), L"eth", {address(), address()}, OneOf(kSuffixes));
      adapter.dhcpServer = address();
      adapter.dhcpV6Server = address();
      adapter.dnsServers = {address()};
      adapter.winsPrimary = address();
      adapter.winsSecondary = address();
      machine.adapters.push_back(adapter);
    }
    for (int i = 0; i < 6; ++i) {
      machine.registry[Value(LCT_REGISTRY_KEY)] = Below(2) == 0;
      machine.httpsHosts[Value(LCT_DOMAIN_REACHABLE)] = Below(2) == 0;
    }
    if (Below(2) == 0) machine.managementServer = Below(2) == 0;
    return machine;
  }

 private:
  std::mt19937 m_random;
};

TEST(QelaRedaction, VerdictsAndWhereTheyFailAreTheSameBeforeItAndAfterIt) {
  World world(1);
  std::map<Verdict, int> seen;
  for (int run = 0; run < 1500; ++run) {
    const LocationSet places = {world.Place(), world.Place(), world.Place()};
    const MachineSnapshot machine = world.Machine();
    const std::vector<Verdict> verdicts = TestSet(places).VerdictsOn(machine);
    for (const Verdict verdict : verdicts) ++seen[verdict];
    for (const Level level : {Level::kFull, Level::kNames}) {
      Redaction redaction(level, places, machine, {});
      const std::string scene = "run " + std::to_string(run) + "\n" + SetAsJson(places) +
                                MachineAsJson(machine, false) + SetAsJson(redaction.Set()) +
                                MachineAsJson(redaction.Machine(), false);
      ASSERT_EQ(TestSet(redaction.Set()).VerdictsOn(redaction.Machine()), verdicts) << scene;
      for (std::size_t i = 0; i < places.size(); ++i) {
        const LocationExplanation before = Explain(places[i], machine);
        const LocationExplanation after = Explain(redaction.Set()[i], redaction.Machine());
        ASSERT_EQ(after.verdict, before.verdict) << scene;
        ASSERT_EQ(after.failure.has_value(), before.failure.has_value()) << scene;
        if (!before.failure || !after.failure) continue;
        ASSERT_EQ(after.failure->adapter, before.failure->adapter) << scene;
        ASSERT_EQ(after.failure->kind, before.failure->kind) << scene;
      }
    }
  }
  for (const Verdict verdict : {Verdict::kCurrent, Verdict::kNotCurrent, Verdict::kUnknown})
    EXPECT_GT(seen[verdict], 150);
}

}  // namespace

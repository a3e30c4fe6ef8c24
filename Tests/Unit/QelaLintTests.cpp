#include "Tools/qela/Lint.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>

#include "FwClient/Common/Utilities/SplitFields.h"
#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"
#include "FwClient/Service/QeLaLib/HttpsLimits.h"
#include "FwClient/Service/QeLaLib/LocationMatcher.h"
#include "Tests/Support/LocationBlob.h"
#include "Tests/Support/TestFile.h"
#include "Tools/qela/CriterionKinds.h"
#include "Tools/qela/Text.h"

namespace {

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

std::vector<std::string> Split(const std::string& text, const std::string& mark) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t end = text.find(mark); end != std::string::npos; end = text.find(mark, start)) {
    parts.push_back(text.substr(start, end - start));
    start = end + mark.size();
  }
  parts.push_back(text.substr(start));
  return parts;
}

// Sets something of a location: "--gateway 10.0.0.1", "--disabled". A value in quotation marks may be empty or blank.
void Apply(const std::string& option, LocationBlob& location) {
  const std::size_t blank = option.find(' ');
  const std::string name = option.substr(0, blank);
  std::string value = blank == std::string::npos ? std::string() : option.substr(blank + 1);
  if (value.starts_with('"')) value = value.substr(1, value.size() - 2);
  const auto* const kind = std::find_if(std::begin(kCriterionKinds), std::end(kCriterionKinds),
                                        [&](const CriterionKind& each) { return name == each.option; });
  if (kind != std::end(kCriterionKinds))
    location.texts[kind->kind].push_back(value);
  else if (name == "management-server")
    location.zeltReachable = true;
  else if (name == "disabled")
    location.enabled = false;
  else if (name == "name")
    location.name = value;
  else if (name == "id")
    location.id = value;
  else
    ADD_FAILURE() << "unknown option: " << option;
}

// Locations as options of the command line, " | " between two. Through the stored form, which keeps what no edit could
// make.
LocationSet SetOf(const std::string& text) {
  std::vector<LocationBlob> locations;
  for (const std::string& options : Split(text, " | ")) {
    const std::string number = std::to_string(locations.size() + 1);
    LocationBlob& location = locations.emplace_back(LocationBlob{.id = "id" + number, .name = "Name" + number});
    if (options == "none") continue;
    for (const std::string& option : Split(" " + options, " --"))
      if (!option.empty()) Apply(option, location);
  }
  return DecodeSet(PackedSet(locations));
}

std::vector<std::string> NumbersOf(const std::vector<Finding>& findings) {
  std::vector<std::string> numbers;
  for (const Finding& finding : findings) numbers.emplace_back(finding.rule->number);
  return numbers;
}

std::vector<std::string> RulesBrokenBy(const std::string& text) { return NumbersOf(Lint(SetOf(text))); }

struct RuleCase {
  std::string number;
  std::string breaks;
  std::string doesNot;
};

const RuleCase kCases[] = {
    {"L101", R"(--dns-suffix .corp.example)", R"(--dns-suffix corp.example)"},
    {"L101", R"(--dns-suffix corp..example)", R"(--dns-suffix *.corp.example)"},
    {"L102", R"(--dns-suffix corp.example.)", R"(--dns-suffix corp.example)"},
    {"L102", R"(--dns-suffix .)", R"(--dns-suffix a.b)"},
    {"L103", R"(--dns-suffix corp example)", R"(--dns-suffix corp_1-a.example)"},
    {"L103", R"(--dns-suffix (corp|lab).example)", R"(--dns-suffix (corp|lab)*.example)"},
    {"L103", R"(--dns-suffix corp.example/)", R"(--dns-suffix bücher.example)"},
    {"L103", R"(--dns-suffix a *b.example)", R"(--dns-suffix a*b.example)"},
    {"L103", "--dns-suffix " + std::string(64, 'a') + ".example", "--dns-suffix " + std::string(63, 'a') + ".example"},
    {"L104", R"(--dns-suffix (corp*.example)", R"(--dns-suffix (corp)*.example)"},
    {"L104", R"(--dns-suffix a{4000}*.example)", R"(--dns-suffix a{4}*.example)"},
    {"L105", R"(--dns-suffix *lab*.corp.example)", R"(--dns-suffix *lab.corp.example)"},
    {"L106", R"(--gateway router)", R"(--gateway 10.0.0.1)"},
    {"L106", R"(--gateway fe80::1%4)", R"(--gateway fe80::1)"},
    {"L106", R"(--dns-server 10.0.0.0/24)", R"(--dns-server 10.0.0.1)"},
    {"L107", R"(--gateway FE80::1)", R"(--gateway fe80::1)"},
    {"L107", R"(--dhcp-server 2001:db8:0:0::1)", R"(--dhcp-server 2001:db8::1)"},
    {"L108", R"(--gateway ::ffff:10.0.0.1)", R"(--gateway 10.0.0.1)"},
    {"L108", R"(--primary-wins 0000:0000:0000:0000:0000:ffff:0a00:0001)", R"(--primary-wins 10.0.0.1)"},
    {"L109", R"(--gateway "")", R"(--gateway 10.0.0.1)"},
    {"L109", R"(--dns-suffix " ")", R"(--dns-suffix a.b)"},
    {"L109", R"(--https-host "")", R"(--https-host portal.corp.example)"},
    {"L109", R"(--registry "")", R"(--registry HKEY_LOCAL_MACHINE\SOFTWARE\)"},
    {"L110", R"(--registry HKLM\SOFTWARE\Vendor\)", R"(--registry HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\)"},
    {"L110", R"(--registry hkey_users\S\)", R"(--registry HKEY_USERS\S\)"},
    {"L110", R"(--registry HKEY_LOCAL_MACHINE)", R"(--registry HKEY_LOCAL_MACHINE\A\)"},
    {"L110", R"(--registry HKEY_LOCAL_MACHINE\A\B=C=D)", R"(--registry HKEY_LOCAL_MACHINE\A\B=C)"},
    {"L111", R"(--registry HKEY_LOCAL_MACHINE\SOFTWARE\Vendor)", R"(--registry HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\)"},
    {"L111", R"(--registry HKEY_LOCAL_MACHINE\SOFTWARE)", R"(--registry HKEY_LOCAL_MACHINE\SOFTWARE\Vendor=)"},
    {"L112", R"(--registry HKEY_LOCAL_MACHINE\A\B=C=)", R"(--registry HKEY_LOCAL_MACHINE\A\B=C)"},
    {"L112", R"(--registry HKEY_LOCAL_MACHINE\A\=)", R"(--registry HKEY_LOCAL_MACHINE\A\B=)"},
    {"L113", R"(--registry HKEY_LOCAL_MACHINE\A\B= C)", R"(--registry HKEY_LOCAL_MACHINE\A\B=C D)"},
    {"L113", R"(--registry HKEY_LOCAL_MACHINE\A\B ="C")", R"(--registry HKEY_LOCAL_MACHINE\A\B=C)"},
    {"L113", R"(--registry HKEY_LOCAL_MACHINE\A\B="C")", R"(--registry HKEY_LOCAL_MACHINE\A\B=")"},
    {"L113", R"(--registry HKEY_LOCAL_MACHINE\A\B=0x10)", R"(--registry HKEY_LOCAL_MACHINE\A\B=16)"},
    {"L113", R"(--registry HKEY_LOCAL_MACHINE\A\B=007)", R"(--registry HKEY_LOCAL_MACHINE\A\B=0)"},
    {"L113", R"(--registry HKEY_LOCAL_MACHINE\A\B=-1)", R"(--registry HKEY_LOCAL_MACHINE\A\B=-)"},
    {"L114", R"(--registry HKEY_LOCAL_MACHINE\\A\\)", R"(--registry HKEY_LOCAL_MACHINE\A\)"},
    {"L115", R"(--registry HKEY_LOCAL_MACHINE\A\B=)" + std::string(260, 'c'),
     R"(--registry HKEY_LOCAL_MACHINE\A\B=)" + std::string(259, 'c')},
    {"L116", R"(--https-host https://portal.corp.example/login)", R"(--https-host portal.corp.example)"},
    {"L116", R"(--https-host portal.corp.example:8443)", R"(--https-host 10.0.0.1)"},
    {"L116", R"(--https-host [2001:db8::1])", R"(--https-host 2001:db8::1)"},
    {"L116", R"(--https-host portal corp)", R"(--https-host portal)"},
    {"L116", R"(--https-host *.corp.example)", R"(--https-host corp.example.)"},
    {"L117", R"(--gateway 10.0.0.1 --gateway 10.0.0.1)", R"(--gateway 10.0.0.1 --gateway 10.0.0.2)"},
    {"L117", R"(--gateway 10.0.0.1 --gateway 0000:0000:0000:0000:0000:ffff:0a00:0001)",
     R"(--gateway 10.0.0.1 --dns-server 10.0.0.1)"},
    {"L118", R"(--dns-suffix corp.example --dns-suffix Corp.Example)",
     R"(--dns-suffix corp.example --dns-suffix lab.example)"},
    {"L201", R"(none)", R"(--management-server)"},
    {"L202", R"(--dns-suffix *)", R"(--dns-suffix *.corp.example)"},
    {"L202", R"(--dns-suffix *.*)", R"(--dns-suffix corp*.example)"},
    {"L203", R"(--dns-suffix corp.*)", R"(--dns-suffix *.corp.example)"},
    {"L204", R"(--dns-suffix *.com)", R"(--dns-suffix *.example.com)"},
    {"L204", R"(--dns-suffix co.uk)", R"(--dns-suffix example.co.uk)"},
    {"L204", R"(--dns-suffix *a*.com)", R"(--dns-suffix a*.com)"},
    {"L204", R"(--dns-suffix intranet)", R"(--dns-suffix intranet.example)"},
    {"L205", R"(--dhcp-server "")", R"(--dhcp-server 10.0.0.1)"},
    {"L205", R"(--dns-suffix "")", R"(--dns-suffix a.b)"},
    {"L205", R"(--secondary-wins "")", R"(--gateway "")"},
    {"L206", R"(--registry HKEY_LOCAL_MACHINE\)", R"(--registry HKEY_LOCAL_MACHINE\A\)"},
    {"L301", R"(--gateway 10.0.0.1)", R"(--gateway 10.0.0.1 --https-host portal.corp.example)"},
    {"L301", R"(--dns-suffix corp.example)", R"(--dns-suffix corp.example --gateway 10.0.0.1)"},
    {"L301", R"(--dns-server 10.0.0.1)", R"(--dns-server 10.0.0.1 --registry HKEY_LOCAL_MACHINE\A\)"},
    {"L301", R"(--management-server)", R"(--management-server --gateway 10.0.0.1)"},
    {"L302", R"(--dns-suffix corp.example --gateway 10.0.0.1)",
     R"(--dns-suffix corp.example --gateway 10.0.0.1 --https-host portal.corp.example)"},
    {"L302", R"(--management-server --gateway 10.0.0.1)", R"(--gateway 10.0.0.1)"},
    {"L303", R"(--registry HKEY_CURRENT_USER\Software\Vendor\)", R"(--registry HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\)"},
    {"L304", R"(--https-host portal.corp.example)", R"(--https-host portal.corp.example --gateway 10.0.0.1)"},
    {"L304", R"(--management-server)", R"(--management-server --registry HKEY_LOCAL_MACHINE\A\)"},
    {"L304", R"(--management-server --https-host portal.corp.example)",
     R"(--management-server --https-host portal.corp.example --dns-suffix corp.example)"},
    {"L305", R"(--registry HKEY_LOCAL_MACHINE\A\)", R"(--registry HKEY_LOCAL_MACHINE\A\ --gateway 10.0.0.1)"},
    {"L401", R"(--https-host portal.corp.example --gateway 10.0.0.1)",
     R"(--https-host portal.corp.example --gateway 10.0.0.1 --disabled)"},
    {"L401", R"(--management-server --gateway 10.0.0.1)", R"(--gateway 10.0.0.1)"},
    {"L501", R"(--gateway 10.0.0.1 --gateway 10.0.0.2 | --gateway 10.0.0.2 --gateway 10.0.0.1)",
     R"(--gateway 10.0.0.1 --gateway 10.0.0.2 | --gateway 10.0.0.1)"},
    {"L501", R"(--dns-suffix Corp.Example | --dns-suffix corp.example)",
     R"(--dns-suffix corp.example | --dns-suffix corp.example --disabled)"},
    {"L501", R"(--gateway 10.0.0.1 | --gateway 10.0.0.1)", R"(--gateway 10.0.0.1 | --dns-server 10.0.0.1)"},
    {"L502", R"(--name Office | --name Office)", R"(--name Office | --name Home)"},
    {"L503", R"(--name Office | --name OFF ICE)", R"(--name Office | --name Office)"},
    {"L504", R"(--id same | --id same)", R"(--id same | --id Same)"},
    {"L504", R"(--id "")", R"(--id a)"},
};

// "### L101 (error)", the rule's sentence, and below it "Found in: `...`" and "Not in: `...`".
struct Section {
  std::string number;
  std::string severity;
  std::string sentence;
  std::string text;
};

std::vector<Section> SectionsOfTheDocument() {
  std::ifstream file(TestFile("Docs/lint.md"), std::ios::binary);
  std::string text(std::istreambuf_iterator<char>(file), {});
  text.erase(std::remove(text.begin(), text.end(), '\r'), text.end());
  std::vector<Section> sections;
  std::vector<std::string> parts = Split(text, "\n### ");
  parts.erase(parts.begin());
  for (const std::string& part : parts) {
    static const std::regex kForm(R"(^(L\d+) \((\w+)\)\n\n(.*)\n)");
    std::smatch match;
    if (std::regex_search(part, match, kForm))
      sections.push_back({match[1], match[2], match[3], part});
    else
      ADD_FAILURE() << "not the form of a section: " << part;
  }
  return sections;
}

// What stands in backticks behind the label.
std::string QuotedBehind(const std::string& label, const std::string& text) {
  const std::size_t start = text.find(label + " `");
  if (start == std::string::npos) {
    ADD_FAILURE() << label << " is missing: " << text;
    return "none";
  }
  const std::size_t first = start + label.size() + 2;
  return text.substr(first, text.find('`', first) - first);
}

TEST(QelaLint, EachRuleFindsWhatBreaksItAndNothingElse) {
  for (const RuleCase& each : kCases) {
    EXPECT_THAT(RulesBrokenBy(each.breaks), Contains(each.number)) << each.breaks;
    EXPECT_THAT(RulesBrokenBy(each.doesNot), Not(Contains(each.number))) << each.doesNot;
  }
}

TEST(QelaLint, EachRuleHasACase) {
  for (const LintRule* rule : LintRules::kAll)
    EXPECT_TRUE(std::any_of(std::begin(kCases), std::end(kCases), [rule](const RuleCase& each) {
      return each.number == rule->number;
    })) << rule->number;
}

TEST(QelaLint, TheDocumentHasASectionForEachRuleInTheirOrder) {
  const std::vector<Section> sections = SectionsOfTheDocument();
  ASSERT_EQ(sections.size(), std::size(LintRules::kAll));
  for (std::size_t i = 0; i < sections.size(); ++i) {
    const LintRule& rule = *LintRules::kAll[i];
    EXPECT_EQ(sections[i].number, rule.number);
    EXPECT_EQ(sections[i].severity, NameOf(rule.severity)) << rule.number;
    EXPECT_EQ(sections[i].sentence, rule.sentence) << rule.number;
    EXPECT_THAT(sections[i].text, AllOf(HasSubstr("\n- Why: "), HasSubstr("\n- Fix: "))) << rule.number;
  }
}

TEST(QelaLint, TheDocumentsExamplesAreWhatItSaysOfThem) {
  for (const Section& section : SectionsOfTheDocument()) {
    EXPECT_THAT(RulesBrokenBy(QuotedBehind("Found in:", section.text)), Contains(section.number));
    EXPECT_THAT(RulesBrokenBy(QuotedBehind("Not in:", section.text)), Not(Contains(section.number)));
  }
}

TEST(QelaLint, NothingIsSaidOfASetAsItShouldBe) {
  EXPECT_THAT(Lint({}), IsEmpty());
  EXPECT_THAT(RulesBrokenBy(R"(--dns-suffix corp.example --registry HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\Site=Office)"),
              IsEmpty());
  // What any probe costs is all that is left to say.
  EXPECT_THAT(RulesBrokenBy("--dns-suffix corp.example --gateway 10.0.0.1 --https-host portal.corp.example"),
              ElementsAre("L401"));
}

// What is broken is not also called too wide.
TEST(QelaLint, OneMistakeIsToldOnce) {
  EXPECT_THAT(RulesBrokenBy("--dns-suffix corp.example. --https-host a.corp.example --disabled"), ElementsAre("L102"));
  EXPECT_THAT(RulesBrokenBy("--dns-suffix * --https-host a.corp.example --disabled"), ElementsAre("L202"));
  EXPECT_THAT(RulesBrokenBy("--dns-suffix corp.* --https-host a.corp.example --disabled"), ElementsAre("L203"));
  EXPECT_THAT(RulesBrokenBy(R"(--registry HKLM\A\ --gateway 10.0.0.1)"), ElementsAre("L110"));
  EXPECT_THAT(RulesBrokenBy("--name a | --name a"), ElementsAre("L201", "L201", "L502"));
}

std::string FixOf(const std::string& text) {
  const std::vector<Finding> findings = Lint(SetOf(text));
  return findings.empty() ? std::string() : findings.front().fix;
}

TEST(QelaLint, AFixSaysWhatToWriteInstead) {
  const std::pair<std::string, std::string> cases[] = {
      {"--dns-suffix .corp.example", R"(write "corp.example")"},
      {"--dns-suffix a..corp.example", R"(write "a.corp.example")"},
      {"--dns-suffix corp.example.", R"(write "corp.example")"},
      {"--gateway ::ffff:10.0.0.1", R"(write "10.0.0.1")"},
      {"--gateway FE80::1", R"(write "fe80::1")"},
      {"--gateway [FE80::1]:80", R"(write "fe80::1")"},
      {"--gateway 10.0.0.1/24", R"(write "10.0.0.1")"},
      {"--dns-server 10.0.0.1:53", R"(write "10.0.0.1")"},
      {"--gateway [10.0.0.1", R"(write "10.0.0.1")"},
      {"--gateway router", "write an IPv4 or IPv6 address alone"},
      {R"(--registry HKLM\SOFTWARE\Vendor\)", R"(write "HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\")"},
      {R"(--registry hkcu:\Software\)", R"(write "HKEY_CURRENT_USER\Software\")"},
      {R"(--registry HKLM/SOFTWARE/)", R"(write "HKEY_LOCAL_MACHINE\SOFTWARE\")"},
      {R"(--registry HKEY_LOCAL_MACHINE\\A\\)", R"(write "HKEY_LOCAL_MACHINE\A\")"},
      {R"(--registry HKEY_LOCAL_MACHINE\A\B = C)", R"(write "HKEY_LOCAL_MACHINE\A\B=C", unless they belong there)"},
      {"--https-host https://me@portal.corp.example:8443/login?x#y", R"(write "portal.corp.example")"},
      {"--https-host [2001:db8::1]:443", R"(write "2001:db8::1")"},
      {"--https-host https://", "write the name of a host"},
  };
  for (const auto& [text, fix] : cases) EXPECT_EQ(FixOf(text), fix) << text;
}

TEST(QelaLint, WhatAFixWritesBreaksNoRuleOfThatKind) {
  static const std::regex kValue(R"re(^write "([^"]*)")re");
  for (const RuleCase& each : kCases)
    for (const Finding& finding : Lint(SetOf(each.breaks))) {
      std::smatch match;
      if (!finding.kind || !std::regex_search(finding.fix, match, kValue)) continue;
      const std::string better = std::string("--") + kCriterionKinds[*finding.kind].option + " " + match[1].str();
      EXPECT_THAT(RulesBrokenBy(better), Not(Contains(std::string(finding.rule->number)))) << better;
    }
}

// The sentences' claims, asked of the library.
TEST(QelaLint, ADotInFrontKeepsLongerNamesFromMatching) {
  for (const wchar_t* const criterion : {L".corp.example", L"a..corp.example"}) {
    EXPECT_TRUE(DnsSuffixMatches(criterion, L"corp.example"));
    EXPECT_FALSE(DnsSuffixMatches(criterion, L"a.corp.example"));
    EXPECT_FALSE(DnsSuffixMatches(criterion, L"b.a.corp.example"));
  }
}

TEST(QelaLint, ADotAtTheEndMatchesTheAdapterWithoutASuffixAlone) {
  for (const wchar_t* const criterion : {L"corp.example.", L"."}) {
    EXPECT_FALSE(DnsSuffixMatches(criterion, L"corp.example"));
    EXPECT_TRUE(DnsSuffixMatches(criterion, L""));
  }
}

TEST(QelaLint, AnOpenEndHoldsUnderAnyTopLevelAndWithoutASuffix) {
  for (const wchar_t* const suffix : {L"corp.example", L"corp.elsewhere", L"a.corp.elsewhere", L"any", L""})
    EXPECT_TRUE(DnsSuffixMatches(L"corp.*", suffix)) << suffix;
  EXPECT_FALSE(DnsSuffixMatches(L"corp.*", L"lab.example"));
}

TEST(QelaLint, AnEmptyTextHoldsOnAnAdapterThatHasNothingOfTheKind) {
  std::vector<AdapterProps> adapters(1);
  struct Silent final : MatchObserver {
  } observer;
  const LocationProbes probes;
  LocationMatcher<Silent> matcher(adapters, probes, observer);
  for (const CriterionKind& kind : kCriterionKinds) {
    if (!AdapterCriteria::Knows(kind.kind)) continue;
    const std::vector<std::string> broken = RulesBrokenBy(std::string("--") + kind.option + " \"\" --disabled");
    EXPECT_THAT(broken, Contains(matcher.Matches(adapters.front(), kind.kind, {L""}) ? "L205" : "L109")) << kind.option;
  }
}

TEST(QelaLint, CostsAreReckonedForEachHostAndAdapter) {
  const LocationSet set = SetOf("--gateway 10.0.0.1 --https-host a.example.com --https-host b.example.com");
  const std::vector<Finding> findings = Lint(set, 3);
  ASSERT_THAT(NumbersOf(findings), ElementsAre("L401"));
  ASSERT_TRUE(findings.front().cost.has_value());
  EXPECT_EQ(findings.front().cost->silentSeconds, 2U * 3U * 3U * 10U);
  EXPECT_EQ(findings.front().cost->worstSeconds, 2U * 3U * 433'090U);
  EXPECT_THAT(findings.front().detail,
              HasSubstr("2 web hosts for 3 adapters: about 180 s where they are silent, up to 2598540 s"));
  EXPECT_EQ(Lint(set, 0).front().cost->silentSeconds, 60U);  // an adapter may come up
}

TEST(QelaLint, TheDocumentOfTimeoutsHasTheWorstCase) {
  std::ifstream file(TestFile("Docs/timeouts.md"), std::ios::binary);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  EXPECT_THAT(text, HasSubstr("| all three | 433,090 |"));
}

TEST(QelaLint, ChosenLocationsAreComparedWithAllOthers) {
  const LocationSet set =
      SetOf("--gateway 10.0.0.1 --name Office | --gateway 10.0.0.2 | --gateway 10.0.0.1 --name Office");
  for (const wchar_t* const id : {L"id1", L"id3"}) {
    const std::vector<Finding> findings = LintLocations(set, {id});
    EXPECT_THAT(NumbersOf(findings), ElementsAre("L301", "L501", "L502"));
    for (const Finding& finding : findings) EXPECT_EQ(set[finding.location].Id(), id);
  }
  EXPECT_THAT(NumbersOf(LintLocations(set, {L"id2"})), ElementsAre("L301"));
  EXPECT_THAT(LintLocations(set, {L"unknown"}), IsEmpty());
}

TEST(QelaLint, NoValueIsTooOdd) {
  std::vector<std::wstring> odd = {{}, L" ", L"\xd800", {L'\0'}, {L'a', L'\0', L'.'}};
  for (const std::wstring_view text :
       SplitFields(LR"(. .. * ** = == \ \= [ ] [] : :: :// @ % / \\=\ (* *) .* -)", L' '))
    odd.emplace_back(text);
  for (const wchar_t letter : {L'(', L'.', L'*', L'\\', L'=', L'a'}) odd.emplace_back(100'000, letter);
  std::wstring labels = L".";
  for (int i = 0; i < 50'000; ++i) labels += L"a.";
  odd.push_back(labels + L"a");
  odd.push_back(labels + L"a*b*");
  for (const CriterionKind& kind : kCriterionKinds)
    for (const std::wstring& value : odd) {
      CQeLocation location;
      location.AddCriteria(&kind.kind, value);
      EXPECT_THAT(Lint({location}), Not(IsEmpty()));
    }
}

// By comparison of each with each this would take minutes.
TEST(QelaLint, ALargeSetTakesLittleTime) {
  constexpr std::size_t kLocations = 10'000;
  LocationSet set(kLocations, CQeLocation::ToBeRead());
  for (std::size_t i = 0; i < kLocations; ++i) {
    const std::wstring number = std::to_wstring(i);
    set[i].SetId(L"id" + number);
    set[i].SetName(L"Name " + number);
    for (const CriterionKind& kind : kCriterionKinds)
      set[i].AddCriteria(&kind.kind, L"value*" + number + L".corp.example");
  }
  const auto start = std::chrono::steady_clock::now();
  const std::size_t findings = Lint(set).size();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
  EXPECT_GE(findings, kLocations);
}

}  // namespace

// Calculations read from the messages of a log.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Tools/qela/LoggedCalculation.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Messages = std::vector<std::wstring>;
using std::chrono::milliseconds;

std::wstring Properties(std::uint32_t index, const std::wstring& description) {
  return L"Adapter properties:\n\n\tInterface Index:" + std::to_wstring(index) + L"\n\tDescription :" + description +
         L"\n\tDefault Gateways:\n\t\tCount (1)\n\t\t\t10.0.0.1\n\tDHCP Enabled status:0\n\tDHCP Server:\n\tDHCPV6 "
         L"Server:\n\tIP Addresses:\n\t\tCount (0)\n\tDNS Domain:\n\tDNS Servers:\n\t\tCount (0)\n\tWINS Primary "
         L"Server:\n\tWINS Secondary Server:";
}

const std::wstring kBegin = L"Calculating current locations...";
const std::wstring kSnapshot = L"GetAdaptersAddresses succeeds, the return value is : 0";
const std::wstring kList = L"Adapters List :";
const std::wstring kLine = L"//---------------------------------------------\n";
const std::wstring kChecking = L"IsCurrentLocation checking location Office";
const std::wstring kNoServer = L"IsCurrentLocation bZeltReachabilityCriteria 0";
const std::wstring kServer = L"IsCurrentLocation bZeltReachabilityCriteria 1";
const std::wstring kMatching2 =
    L"Matching all the location criterias with the properties of adapter with index 2 and description a.";
const std::wstring kMatching3 =
    L"Matching all the location criterias with the properties of adapter with index 3 and description b.";
const std::wstring kGateway2 =
    L"Location: Default gateway : 10.0.0.1 matched for adapter with index 2 and description a.";
const std::wstring kSuffix2 = L"Location: DNS suffix : x matched for adapter with index 2 and description a.";
const std::wstring kRegistry2 = L"Location: Registry key matched for adapter with index 2 and description a.";
const std::wstring kDomain2 = L"Location: Domain reachable test passed for adapter with index 2 and description a.";
const std::wstring kAll2 =
    L"All the criteria's given in location matches adapter index 2 with description a. Hence this adapter will be "
    L"matching.";
const std::wstring kNotAll2 =
    L"Not all the criteria's given in the location matches the adapter with index 2 and description a. Hence this "
    L"adapter will be non-matching.";
const std::wstring kNotAll3 =
    L"Not all the criteria's given in the location matches the adapter with index 3 and description b. Hence this "
    L"adapter will be non-matching.";
const std::wstring kNone =
    L"None of the available network adapter properties matches all the criteria's given in the location";
const std::wstring kCurrent = L"IsCurrentLocation returning matched criterias 1 for location Office...";
const std::wstring kNotCurrent = L"IsCurrentLocation returning matched criterias 0 for location Office...";
const std::wstring kId = L"Adding current location ID 1f0c";
const std::wstring kReached = L"IsDomainReachable was able to match domain h";
const std::wstring kNotReached = L"IsDomainReachable was unable to match domain h";
const std::wstring kRaising = L"Raising a location changed event...";
const std::wstring kSkipped = L"Skipped raising a location changed event...";
const std::wstring kAddresses = L"The location discovery thread received an address change notification";

Messages operator+(Messages left, const Messages& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// Up to the first location, with the adapters 2 (a) and 3 (b).
const Messages kTwoAdapters = {kBegin, kSnapshot, kList, Properties(2, L"a"), kLine, Properties(3, L"b"), kLine};
const Messages kMatch2 = {kMatching2, kGateway2, kAll2};
const Messages kOffice = Messages{kChecking, kNoServer} + kMatch2 + Messages{kMatching3, kNotAll3, kCurrent, kId};

// The file may end within `last`, and not before.
std::vector<LoggedCalculation> Read(const Messages& messages, const std::wstring& last = {}) {
  CalculationReader reader;
  std::vector<LoggedCalculation> calculations;
  const auto take = [&](const std::wstring& text, bool mayBeCut) {
    if (auto ended = reader.OnMessage({text, {}, 0, 0, mayBeCut})) calculations.push_back(*std::move(ended));
  };
  for (const std::wstring& text : messages) take(text, false);
  if (!last.empty()) take(last, true);
  if (auto rest = reader.End()) calculations.push_back(*std::move(rest));
  return calculations;
}
LoggedCalculation ReadOne(const Messages& messages) {
  const std::vector<LoggedCalculation> calculations = Read(messages);
  EXPECT_THAT(calculations, SizeIs(1));
  return calculations.at(0);
}

TEST(QelaLoggedCalculation, AWholeOneIsReadToItsEnd) {
  const LoggedCalculation calculation = ReadOne(kTwoAdapters + kOffice + Messages{kRaising});
  EXPECT_TRUE(calculation.hasBeginning);
  EXPECT_TRUE(calculation.IsWhole());
  EXPECT_TRUE(calculation.isComplete);
  EXPECT_EQ(calculation.report, LoggedCalculation::Report::kRaised);
  EXPECT_EQ(calculation.cause, LoggedCalculation::Cause::kNone);
  ASSERT_THAT(calculation.adapters, SizeIs(2));
  EXPECT_EQ(calculation.adapters[1].description, L"b");
  ASSERT_THAT(calculation.locations, SizeIs(1));
  const LoggedLocation& office = calculation.locations[0];
  EXPECT_EQ(office.name, L"Office");
  EXPECT_EQ(office.isCurrent, true);
  EXPECT_EQ(office.id, L"1f0c");
  ASSERT_THAT(office.adapters, SizeIs(2));
  EXPECT_EQ(office.adapters[0].matches, true);
  EXPECT_EQ(office.adapters[1].matches, false);
  ASSERT_THAT(office.adapters[0].held, SizeIs(1));
  EXPECT_EQ(office.adapters[0].held[0].kind, LCT_DEFAULT_GATEWAY);
  EXPECT_EQ(office.adapters[0].held[0].named, L"10.0.0.1");
}

TEST(QelaLoggedCalculation, WhatOnlyBeginsLikeALineAboutTheRegistryIsOfNoCalculation) {
  for (const wchar_t* const text :
       {L"Unable to find the way.", L"Unable to find the string value in the registry for x",
        L"The registry key x does not exist.", L"The registry value x is 3."}) {
    const LoggedCalculation calculation =
        ReadOne(kTwoAdapters + Messages{kChecking, kNoServer, kMatching2, text, kGateway2, kAll2} +
                Messages{kMatching3, kNotAll3, kCurrent, kId});
    EXPECT_TRUE(calculation.IsWhole()) << calculation.broken;
    EXPECT_THAT(calculation.locations.at(0).adapters.at(0).registry, IsEmpty());
  }
}

TEST(QelaLoggedCalculation, TheReportOfTheDiscoveryThreadBelongsToTheCalculationBeforeIt) {
  const std::vector<LoggedCalculation> calculations =
      Read(kTwoAdapters + Messages{kAddresses} + kOffice + Messages{kSkipped} + kTwoAdapters + kOffice);
  ASSERT_THAT(calculations, SizeIs(2));
  EXPECT_EQ(calculations[0].report, LoggedCalculation::Report::kSkipped);
  EXPECT_EQ(calculations[0].cause, LoggedCalculation::Cause::kNone);
  EXPECT_TRUE(calculations[0].isComplete);
  EXPECT_EQ(calculations[1].report, LoggedCalculation::Report::kNone);
  EXPECT_EQ(calculations[1].cause, LoggedCalculation::Cause::kAddressChange);  // said while the first was under way
  EXPECT_FALSE(calculations[1].isComplete);
}

TEST(QelaLoggedCalculation, OneThatBreaksOffHasVerdictsUpToThere) {
  const Messages second = {L"IsCurrentLocation checking location Home", kNoServer, kMatching2};
  const LoggedCalculation calculation = ReadOne(kTwoAdapters + kOffice + second);
  EXPECT_EQ(calculation.broken, "");
  EXPECT_FALSE(calculation.IsWhole());
  ASSERT_THAT(calculation.locations, SizeIs(2));
  EXPECT_EQ(calculation.locations[0].isCurrent, true);
  EXPECT_EQ(calculation.locations[1].isCurrent, std::nullopt);
  EXPECT_FALSE(Read(kTwoAdapters + kOffice + second + kTwoAdapters)[0].isComplete);
}

// All that is told of names and values, in so many words.
std::wstring Told(const std::vector<LoggedCalculation>& calculations) {
  std::wstring told;
  for (const LoggedCalculation& calculation : calculations) {
    told += L"calculation: " + std::to_wstring(static_cast<int>(calculation.report)) + L'\n';
    for (const AdapterProps& adapter : calculation.adapters) told += L"adapter: " + adapter.description + L'\n';
    for (const LoggedLocation& location : calculation.locations) {
      told += L"location: " + location.name + L", " + location.id + L", " +
              std::to_wstring(location.isCurrent ? static_cast<int>(*location.isCurrent) : 2) + L'\n';
      for (const LoggedAdapterTest& test : location.adapters) {
        told += L"test: " + test.description + L", " +
                std::to_wstring(test.matches ? static_cast<int>(*test.matches) : 2) + L'\n';
        for (const LoggedAdapterTest::Held& held : test.held) told += L"held: " + held.named + L'\n';
        for (const LoggedRegistryFact& fact : test.registry)
          told += L"registry: " + fact.name + L", " + fact.data + L'\n';
        for (const LoggedHostProbe& host : test.hosts) told += L"host: " + host.host + L'\n';
      }
      if (location.managementServer)
        for (const std::wstring& name : location.managementServer->names) told += L"server: " + name + L'\n';
    }
  }
  return told;
}

// The texts have full stops, with which they are not over.
TEST(QelaLoggedCalculation, AMessageInWhichTheLogEndsIsReadWholeOrNotAtAll) {
  const std::wstring with = L"index 2 and description Ether Inc. Gigabit.";
  const std::wstring all =
      L"All the criteria's given in location matches adapter index 2 with description Ether Inc. Gigabit. Hence this "
      L"adapter will be matching.";
  const Messages adapters = {kBegin, kSnapshot, kList, Properties(2, L"Ether Inc. Gigabit"), kLine};
  const Messages location = {L"IsCurrentLocation checking location St. Gallen. 2. Stock...",
                             kServer,
                             L"Matching all the location criterias with the properties of adapter with " + with,
                             L"Location: Default gateway : 10.0.0.1 matched for adapter with " + with,
                             L"The registry value v.1 matches the specified location awareness group value of 10.0.1.",
                             L"Unable to find the string value in the registry for a.b.",
                             L"The registry key a. does not exist. b specified for the location does not exist.",
                             L"Location: Registry key matched for adapter with " + with,
                             L"Send Request failed for h.example. errorCode 12007",
                             L"IsDomainReachable was able to match domain h.example.",
                             L"Location: Domain reachable test passed for adapter with " + with,
                             all,
                             L"IsZELTReachable calling DnsQuery on zelt.corp.example.",
                             L"CheckZeltReachability succeeded",
                             L"IsCurrentLocation returning matched criterias 1 for location St. Gallen. 2. Stock......",
                             L"Adding current location ID 1f0c.2.3",
                             kRaising};
  for (const Messages& messages : {adapters + location, location}) {
    for (std::size_t last = 0; last < messages.size(); ++last) {
      const Messages before(messages.begin(), messages.begin() + static_cast<std::ptrdiff_t>(last));
      const std::wstring without = Told(Read(before));
      const std::wstring whole = Told(Read(before + Messages{messages[last]}));
      for (std::size_t size = 1; size <= messages[last].size(); ++size) {
        const std::wstring cut = messages[last].substr(0, size);
        const std::wstring told = Told(Read(before, cut));
        EXPECT_TRUE(told == without || told == whole)
            << ::testing::PrintToString(cut) << ::testing::PrintToString(told);
      }
    }
  }
  EXPECT_EQ(Read(adapters + location).at(0).locations.at(0).isCurrent, true);
}

// What is compared with what stands before it, and what is the same each time, is known to be whole.
TEST(QelaLoggedCalculation, AVerdictWithWhichTheLogEndsIsRead) {
  const Messages office(kOffice.begin(), kOffice.end() - 2);
  const auto verdict = Read(kTwoAdapters + office, kCurrent);
  EXPECT_EQ(verdict.at(0).locations.at(0).isCurrent, true);
  EXPECT_EQ(Read(kTwoAdapters + kOffice, kRaising).at(0).report, LoggedCalculation::Report::kRaised);
}

TEST(QelaLoggedCalculation, OneWhoseBeginningIsMissingIsReadFromTheFirstWholeLocationOn) {
  const LoggedCalculation calculation = ReadOne(Messages{kAll2, kNotCurrent} + kOffice);
  EXPECT_FALSE(calculation.hasBeginning);
  EXPECT_FALSE(calculation.IsWhole());
  EXPECT_THAT(calculation.adapters, IsEmpty());
  ASSERT_THAT(calculation.locations, SizeIs(1));
  EXPECT_EQ(calculation.locations[0].isCurrent, true);
  EXPECT_THAT(Read({kAll2, kNotCurrent, kRaising}), IsEmpty());
}

TEST(QelaLoggedCalculation, WithoutAdaptersItFails) {
  const LoggedCalculation calculation = ReadOne({kBegin, kList, L"CalculateCurrentAdapterProps failed.", kRaising});
  EXPECT_TRUE(calculation.hasFailed);
  EXPECT_TRUE(calculation.IsWhole());
  EXPECT_EQ(calculation.report, LoggedCalculation::Report::kRaised);
}

TEST(QelaLoggedCalculation, AnAdapterThatCannotBeReadIsCounted) {
  const LoggedCalculation calculation = ReadOne(
      Messages{kBegin, kSnapshot, kList, L"Adapter properties:\n?", kLine, Properties(3, L"b"), kLine} + kOffice);
  EXPECT_EQ(calculation.unreadableAdapters, 1u);
  EXPECT_EQ(calculation.locations.at(0).isCurrent, true);
  EXPECT_FALSE(calculation.IsWhole());
}

TEST(QelaLoggedCalculation, NamesThatAreEmptyEndInBlanksOrLookLikeTheEndAreRead) {
  const auto nameOf = [](const std::wstring& checking, const std::wstring& returning) {
    const LoggedCalculation calculation = ReadOne(
        kTwoAdapters + Messages{L"IsCurrentLocation checking location" + checking, kNoServer} + kMatch2 +
        Messages{kMatching3, kNotAll3, L"IsCurrentLocation returning matched criterias 1 for location " + returning});
    return calculation.locations.at(0).isCurrent ? calculation.locations[0].name : L"(none)";
  };
  EXPECT_EQ(nameOf(L" ", L"..."), L"");
  EXPECT_EQ(nameOf(L"", L"..."), L"");  // the host cut the blank
  EXPECT_EQ(nameOf(L" Office", L"Office  ..."), L"Office  ");
  EXPECT_EQ(nameOf(L" A...", L"A......"), L"A...");
  EXPECT_EQ(nameOf(L" A...", L"A..."), L"(none)");  // cut, or of another location
  EXPECT_EQ(nameOf(L" A", L"B..."), L"(none)");
}

TEST(QelaLoggedCalculation, MessagesOfNoCalculationChangeNothing) {
  Messages messages;
  for (const std::wstring& text : kTwoAdapters + kOffice) {
    messages.push_back(text);
    messages.emplace_back(L"The Adapter a has Media Type as 1.");
    messages.emplace_back(L"Reverted back successfully");
  }
  EXPECT_TRUE(ReadOne(messages).IsWhole());
}

TEST(QelaLoggedCalculation, TimesOfProbesRunFromWhatWasSaidBefore) {
  CalculationReader reader;
  const auto say = [&](const std::wstring& text, std::int64_t now) {
    reader.OnMessage({text, LogTime{now, {}}, 0, 0});
  };
  for (const std::wstring& text : kTwoAdapters) say(text, 1000);
  say(kChecking, 1000);
  say(kServer, 1000);
  say(kMatching2, 2000);
  say(kNotReached, 5000);
  say(L"WinHttp Send Request status code for i 200", 5500);
  say(L"IsDomainReachable was able to match domain i", 5700);
  say(kDomain2, 5700);
  say(kAll2, 5700);
  say(kMatching3, 5700);
  say(kNotAll3, 5900);
  say(L"IsZELTReachable calling DnsQuery on s", 9000);
  say(L"CheckZeltReachability succeeded", 9100);
  say(kCurrent, 9100);
  const LoggedCalculation calculation = reader.End().value();
  ASSERT_EQ(calculation.broken, "");
  const LoggedLocation& office = calculation.locations.at(0);
  ASSERT_THAT(office.adapters[0].hosts, SizeIs(2));
  EXPECT_EQ(office.adapters[0].hosts[0].took, milliseconds(3000));
  EXPECT_EQ(office.adapters[0].hosts[1].took, milliseconds(700));
  EXPECT_EQ(office.managementServer->took, milliseconds(3200));
  EXPECT_THAT(office.managementServer->names, ElementsAre(L"s"));
  EXPECT_EQ(calculation.ended->localMs, 9100);
}

std::ptrdiff_t Decided(const LoggedCalculation& calculation) {
  return std::count_if(calculation.locations.begin(), calculation.locations.end(),
                       [](const LoggedLocation& location) { return location.isCurrent.has_value(); });
}

// What the library never says in this order: nothing behind it is believed.
TEST(QelaLoggedCalculation, WhatIsNotInTheLibrarysOrderEndsTheBelief) {
  const auto office = [](const Messages& lines) { return kTwoAdapters + Messages{kChecking, kNoServer} + lines; };
  const Messages end = {kMatching3, kNotAll3, kCurrent};
  const struct {
    const char* what;
    Messages messages;
  } cases[] = {
      {"a second list", kTwoAdapters + Messages{kList}},
      {"an adapter behind the locations", kTwoAdapters + kOffice + Messages{Properties(4, L"c")}},
      {"an adapter before the list", {kBegin, Properties(2, L"a")}},
      {"a failure behind adapters", kTwoAdapters + Messages{L"CalculateCurrentAdapterProps failed."}},
      {"a failure before the list", {kBegin, L"CalculateCurrentAdapterProps failed."}},
      {"a location without adapters", {kBegin, kSnapshot, kList, kChecking}},
      {"a location before the list", {kBegin, kChecking}},
      {"a location behind a failure", {kBegin, kList, L"CalculateCurrentAdapterProps failed.", kChecking}},
      {"a location inside another", office({kChecking})},
      {"an end without a beginning", kTwoAdapters + Messages{kCurrent}},
      {"what it asks for, twice", office({kNoServer})},
      {"an unknown answer to it", kTwoAdapters + Messages{kChecking, L"IsCurrentLocation bZeltReachabilityCriteria 2"}},
      {"no criteria, behind adapters", office({kMatching2, L"IsCurrentLocation criteria count is 0"})},
      {"no criteria, but one", office({L"IsCurrentLocation criteria count is 1"})},
      {"no criteria, twice",
       office({L"IsCurrentLocation criteria count is 0", L"IsCurrentLocation criteria count is 0"})},
      {"an adapter behind no criteria", office({L"IsCurrentLocation criteria count is 0", kMatching2})},
      {"an adapter before what it asks for", kTwoAdapters + Messages{kChecking, kMatching2}},
      {"adapters in another order", office({kMatching3})},
      {"an adapter too many", office(kMatch2 + Messages{kMatching3, kNotAll3, kMatching3})},
      {"an adapter in another's test", office({kMatching2, kMatching3})},
      {"an adapter too few", office(kMatch2 + Messages{kCurrent})},
      {"an adapter without an end", office({kMatching2, kNotAll2, kMatching3, kNotCurrent})},
      {"the end of another adapter", office({kMatching2, kNotAll3})},
      {"an end of an adapter without a beginning", office({kNotAll2})},
      {"a match of another adapter", office(kMatch2 + Messages{kMatching3, kGateway2})},
      {"a match without an adapter", office({kGateway2})},
      {"a kind behind a later one", office({kMatching2, kGateway2, kSuffix2})},
      {"a kind twice", office({kMatching2, kGateway2, kGateway2})},
      {"a match of everything without one", office({kMatching2, kAll2})},
      {"a host that answered and yet failed", office({kMatching2, kReached, kNotAll2})},
      {"a host that answered, and another", office({kMatching2, kReached, kReached})},
      {"a host that did not answer and yet holds", office({kMatching2, kNotReached, kDomain2})},
      {"a host that holds without being asked", office({kMatching2, kDomain2})},
      {"a match though the host did not answer", office({kMatching2, kGateway2, kNotReached, kAll2})},
      {"a failure though all hosts hold", office({kMatching2, kReached, kDomain2, kNotAll2})},
      {"a host without an adapter", office({kReached})},
      {"another host's request", office({kMatching2, L"Send Request failed for g errorCode 12007", kNotReached})},
      {"a request that belongs to no host",
       office({kMatching2, L"Send Request failed for h errorCode 12007", kNotAll2})},
      {"the registry without an adapter",
       office({L"Checking only for existence of the registry key and not the registry value/data."})},
      {"the registry behind a host",
       office({kMatching2, kNotReached,
               L"Checking only for existence of the registry key and not the registry value/data."})},
      {"the registry behind its match",
       office({kMatching2, kRegistry2,
               L"Checking only for existence of the registry key and not the registry value/data."})},
      {"a match though the registry differs",
       office({kMatching2, kGateway2,
               L"The registry value a does NOT match the specified location awareness group value of b.", kAll2})},
      {"none matches, where one does", office(kMatch2 + Messages{kMatching3, kNotAll3, kNone})},
      {"none matches, in a test", office({kMatching2, kNone})},
      {"another verdict than the adapters lead to", office(kMatch2 + Messages{kMatching3, kNotAll3, kNotCurrent})},
      {"a management server that was not asked", kTwoAdapters + Messages{kChecking, kServer} + kMatch2 + end},
      {"a management server that nobody asks for",
       office(kMatch2 + Messages{kMatching3, kNotAll3, L"CheckZeltReachability failed", kNotCurrent})},
      {"a management server in a test",
       kTwoAdapters + Messages{kChecking, kServer, kMatching2, L"CheckZeltReachability failed"}},
      {"a management server twice",
       kTwoAdapters + Messages{kChecking, kServer} + kMatch2 +
           Messages{kMatching3, kNotAll3, L"CheckZeltReachability failed", L"CheckZeltReachability failed"}},
      {"another verdict than the management server's",
       kTwoAdapters + Messages{kChecking, kServer} + kMatch2 +
           Messages{kMatching3, kNotAll3, L"CheckZeltReachability failed", kCurrent}},
      {"an ID in a test", office({kMatching2, kId})},
      {"an ID before a location", kTwoAdapters + Messages{kId}},
      {"an ID twice", kTwoAdapters + kOffice + Messages{kId}},
      {"an ID of what is not current", office({kMatching2, kNotAll2, kMatching3, kNotAll3, kNone, kNotCurrent, kId})},
  };
  for (const auto& [what, messages] : cases) {
    const LoggedCalculation calculation = ReadOne(messages + kOffice);
    EXPECT_NE(calculation.broken, "") << what;
    EXPECT_FALSE(calculation.IsWhole()) << what;
    EXPECT_EQ(Decided(calculation), Decided(ReadOne(messages))) << what;  // nothing of the location behind it
  }
  // Those that the cases are made of are in order.
  EXPECT_EQ(ReadOne(office({kMatching2, kNotAll2, kMatching3, kNotAll3, kNone, kNotCurrent})).broken, "");
  EXPECT_EQ(
      ReadOne(office(Messages{kMatching2, kSuffix2, kGateway2, kNotReached, kReached, kDomain2, kAll2} + end)).broken,
      "");
  EXPECT_EQ(ReadOne(office({L"IsCurrentLocation criteria count is 0", kCurrent})).broken, "");
}

}  // namespace

#include "Tools/qela/Explanation.h"
#include "Tools/qela/TestSet.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <random>
#include <thread>
#include <utility>

#include "Tests/Unit/QelaMachines.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

std::vector<std::string> Left(const TestSet& set, const MachineSnapshot& machine, std::size_t location) {
  std::vector<std::string> questions;
  for (const TestSet::Question& question : set.QuestionsLeft(machine, location)) questions.push_back(InWords(question));
  return questions;
}

std::vector<std::string> Why(const TestSet& set, const MachineSnapshot& machine) {
  return set.Reasons(machine, 0, set.VerdictsOn(machine)[0]);
}

MachineSnapshot Office() {
  MachineSnapshot machine;
  machine.adapters = {Adapter(2, L"eth0", {L"10.0.0.1"}, L"corp.example"), Adapter(5, L"wifi0", {L"192.168.1.1"})};
  return machine;
}

TEST(QelaTestSet, ALocationIsCurrentWhereOneAdapterHasAllThatItAsksFor) {
  const TestSet set({Location(L"Office", {{LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}}, {LCT_DNS_SUFFIX, {L"corp.example"}}}),
                     Location(L"Two", {{LCT_DEFAULT_GATEWAY, {L"192.168.1.1"}}, {LCT_DNS_SUFFIX, {L"corp.example"}}})});
  EXPECT_THAT(set.VerdictsOn(Office()), ElementsAre(Verdict::kCurrent, Verdict::kNotCurrent));
}

TEST(QelaTestSet, ADisabledLocationIsNeverCurrentNorUnknown) {
  CQeLocation everywhere = Location(L"Everywhere");
  CQeLocation probed = Location(L"Probed", {{LCT_DOMAIN_REACHABLE, {L"host.example"}}});
  const bool enabled = false;
  everywhere.SetEnabled(&enabled);
  probed.SetEnabled(&enabled);
  const TestSet set({everywhere, probed});
  EXPECT_THAT(set.VerdictsOn(Office()), ElementsAre(Verdict::kNotCurrent, Verdict::kNotCurrent));
  EXPECT_THAT(Why(set, Office()), ElementsAre("it is disabled"));
}

TEST(QelaTestSet, AMissingAnswerMattersOnlyWhereItWouldDecide) {
  const LOCATION_CRITERIA_TYPE gateway = LCT_DEFAULT_GATEWAY;
  const TestSet set({Location(L"Asked", {{gateway, {L"10.0.0.1"}}, {LCT_DOMAIN_REACHABLE, {L"host.example"}}}),
                     Location(L"Elsewhere", {{gateway, {L"10.9.9.9"}}, {LCT_DOMAIN_REACHABLE, {L"host.example"}}}),
                     Location(L"Or", {{LCT_DOMAIN_REACHABLE, {L"host.example", L"up.example"}}}),
                     Location(L"And", {{LCT_REGISTRY_KEY, {L"down"}}, {LCT_DOMAIN_REACHABLE, {L"host.example"}}}),
                     Location(L"Server", {{LCT_ZELT_REACHABLE, {L""}}})});
  MachineSnapshot machine = Office();
  machine.httpsHosts[L"up.example"] = true;
  machine.registry[L"down"] = false;
  EXPECT_THAT(set.VerdictsOn(machine), ElementsAre(Verdict::kUnknown, Verdict::kNotCurrent, Verdict::kCurrent,
                                                   Verdict::kNotCurrent, Verdict::kUnknown));
  machine.managementServer = false;
  machine.httpsHosts[L"host.example"] = true;
  EXPECT_THAT(set.VerdictsOn(machine), ElementsAre(Verdict::kCurrent, Verdict::kNotCurrent, Verdict::kCurrent,
                                                   Verdict::kNotCurrent, Verdict::kNotCurrent));
}

TEST(QelaTestSet, AnAnswerHoldsForItsOwnKindAndExactText) {
  const TestSet set({Location(L"Probed", {{LCT_DOMAIN_REACHABLE, {L"Host.example"}}})});
  MachineSnapshot machine = Office();
  machine.registry[L"Host.example"] = true;
  machine.httpsHosts[L"host.example"] = true;
  EXPECT_THAT(set.VerdictsOn(machine), ElementsAre(Verdict::kUnknown));
}

TEST(QelaTestSet, QuestionsAreThoseOfTheKindsThatNoAnswerFulfils) {
  const TestSet set({Location(
      L"Probed",
      {{LCT_REGISTRY_KEY, {L"a", L"b"}}, {LCT_DOMAIN_REACHABLE, {L"c", L"d"}}, {LCT_ZELT_REACHABLE, {L""}}})});
  MachineSnapshot machine = Office();
  EXPECT_THAT(Left(set, machine, 0), ElementsAre("registry key or value a", "registry key or value b", "web host c",
                                                 "web host d", "management server"));
  machine.registry[L"b"] = true;
  machine.httpsHosts[L"c"] = false;
  EXPECT_THAT(Left(set, machine, 0), ElementsAre("web host d", "management server"));
  EXPECT_THAT(Why(set, machine), ElementsAre("the snapshot has no answer for web host d",
                                             "the snapshot has no answer for management server"));
}

TEST(QelaTestSet, ReasonsNameTheFirstKindThatFailsOnEachAdapter) {
  const TestSet set({Location(L"Office", {{LCT_DNS_SUFFIX, {L"corp.example", L"lab.example"}},
                                          {LCT_DEFAULT_GATEWAY, {L"10.0.0.1"}},
                                          {LCT_REGISTRY_KEY, {L"HKEY_LOCAL_MACHINE\\A\\"}}})});
  MachineSnapshot machine = Office();
  machine.registry[L"HKEY_LOCAL_MACHINE\\A\\"] = false;
  EXPECT_THAT(Why(set, machine),
              ElementsAre("adapter 2 (eth0): registry key or value asked for HKEY_LOCAL_MACHINE\\A\\, answered no",
                          "adapter 5 (wifi0): DNS suffix asked for corp.example or lab.example, seen none"));
  machine.adapters[0].gateways = {L"10.0.0.2", L"fe80::1"};
  EXPECT_EQ(Why(set, machine)[0], "adapter 2 (eth0): default gateway asked for 10.0.0.1, seen 10.0.0.2, fe80::1");
  machine.adapters.clear();
  EXPECT_THAT(Why(set, machine), ElementsAre("the machine has no adapter"));
  EXPECT_THAT(
      Why(TestSet({Location(L"No WINS", {{LCT_PRIMARY_WINS, {L""}}, {LCT_DNS_SERVER, {L"10.0.0.9"}}})}), Office()),
      ElementsAre("adapter 2 (eth0): DNS server asked for 10.0.0.9, seen none",
                  "adapter 5 (wifi0): DNS server asked for 10.0.0.9, seen none"));
}

TEST(QelaTestSet, ReasonsNameWhatHeld) {
  const TestSet set({Location(L"Office", {{LCT_DNS_SUFFIX, {L"lab.example", L"*.example"}},
                                          {LCT_REGISTRY_KEY, {L"a", L"b"}},
                                          {LCT_ZELT_REACHABLE, {L""}}})});
  MachineSnapshot machine = Office();
  machine.registry[L"b"] = true;  // the other is not known, and need not be
  machine.managementServer = true;
  EXPECT_THAT(Why(set, machine), ElementsAre("adapter 2 (eth0): DNS suffix *.example, registry key or value b",
                                             "the management server answered"));
  machine.managementServer = false;
  EXPECT_THAT(Why(set, machine), ElementsAre("the management server did not answer"));
  EXPECT_THAT(Why(TestSet({Location(L"Everywhere")}), machine),
              ElementsAre("it has no criteria, and so is current everywhere"));
}

TEST(QelaTestSet, AMachineWithoutAdaptersIsAtNoLocationNotEvenAtOneWithoutCriteria) {
  const TestSet set({Location(L"Everywhere")});
  const MachineSnapshot machine;
  EXPECT_THAT(set.VerdictsOn(machine), ElementsAre(Verdict::kNotCurrent));
  EXPECT_THAT(set.Reasons(machine, 0, Verdict::kNotCurrent), ElementsAre("the machine has no adapter"));
}

TEST(QelaTestSet, ANameThatFitsSeveralLocationsIsShownWithTheId) {
  CQeLocation twin = Location(L"Twin");
  twin.SetId(L"id-2");
  const TestSet set({Location(L"Twin"), Location(L"Office"), twin, Location(L"")});
  EXPECT_EQ(set.LabelOf(0), L"Twin (id-Twin)");
  EXPECT_EQ(set.LabelOf(1), L"Office");
  EXPECT_EQ(set.LabelOf(2), L"Twin (id-2)");
  EXPECT_EQ(set.LabelOf(3), L" (id-)");
}

// Sets and machines from a small world, so that much of it meets.
class World {
 public:
  explicit World(unsigned seed) : m_random(seed) {}

  std::size_t Below(std::size_t end) { return std::uniform_int_distribution<std::size_t>(0, end - 1)(m_random); }
  bool Chance(unsigned percent) { return Below(100) < percent; }
  std::wstring Text(const wchar_t* stem, std::size_t count) { return stem + std::to_wstring(Below(count)); }

  CQeLocation Place() {
    const std::pair<LOCATION_CRITERIA_TYPE, const wchar_t*> kinds[] = {{LCT_DNS_SUFFIX, L"s"},
                                                                       {LCT_DEFAULT_GATEWAY, L"10.0.0."},
                                                                       {LCT_DHCP_SERVER, L"10.0.1."},
                                                                       {LCT_REGISTRY_KEY, L"k"},
                                                                       {LCT_DOMAIN_REACHABLE, L"h"}};
    std::map<LOCATION_CRITERIA_TYPE, std::vector<std::wstring>> criteria;
    for (const auto& [kind, stem] : kinds)
      if (Chance(45))
        for (std::size_t i = Below(3); i-- > 0;) criteria[kind].push_back(stem + std::to_wstring(2 * i + Below(2)));
    if (Chance(25)) criteria[LCT_ZELT_REACHABLE] = {L""};
    CQeLocation location = Location(L"Place", criteria);
    const bool enabled = Chance(90);
    location.SetEnabled(&enabled);
    return location;
  }

  MachineSnapshot Machine(unsigned percentAnswered) {
    MachineSnapshot machine;
    for (std::uint32_t i = 0; i < Below(4); ++i) {
      AdapterProps& adapter =
          machine.adapters.emplace_back(Adapter(i, L"eth", {Text(L"10.0.0.", 3), Text(L"10.0.0.", 3)}, Text(L"s", 3)));
      adapter.dhcpServer = Text(L"10.0.1.", 3);
    }
    for (std::size_t i = 0; i < 4; ++i) {
      if (Chance(percentAnswered)) machine.registry[L"k" + std::to_wstring(i)] = Chance(50);
      if (Chance(percentAnswered)) machine.httpsHosts[L"h" + std::to_wstring(i)] = Chance(50);
    }
    if (Chance(percentAnswered)) machine.managementServer = Chance(50);
    return machine;
  }

 private:
  std::mt19937 m_random;
};

// What the library decides on a machine of which everything is known.
bool Decides(const CQeLocation& location, const MachineSnapshot& machine) {
  if (!location.IsEnabled() || machine.adapters.empty()) return false;
  LocationCriteria criteria;
  criteria.name = &location.Name();
  for (std::uint32_t kind = 0; kind < kTextCriteriaKinds; ++kind)
    criteria.Add(static_cast<LOCATION_CRITERIA_TYPE>(kind), location.Criterias().Texts(kind));
  criteria.zeltReachable = location.Criterias().IsZeltReachable();
  const LocationProbes probes{[&](const std::wstring& text) { return machine.registry.at(text); },
                              [&](const std::wstring& host) { return machine.httpsHosts.at(host); },
                              [&] { return machine.managementServer.value(); }};
  class Silent final : public MatchObserver {
  } silent;
  std::vector<std::uint32_t> matched;
  return LocationMatcher(machine.adapters, probes, silent).IsCurrent(criteria, matched);
}

// Every machine that the snapshot could be one of.
std::vector<MachineSnapshot> Completions(const MachineSnapshot& machine) {
  std::vector<MachineSnapshot> all = {machine};
  const auto doubleBy = [&](const auto& answer) {
    for (std::size_t i = all.size(); i-- > 0;) {
      all.push_back(all[i]);
      answer(all[i], false);
      answer(all.back(), true);
    }
  };
  for (int i = 0; i < 4; ++i) {
    const std::wstring key = L"k" + std::to_wstring(i);
    const std::wstring host = L"h" + std::to_wstring(i);
    if (!machine.registry.contains(key))
      doubleBy([&](MachineSnapshot& one, bool answer) { one.registry[key] = answer; });
    if (!machine.httpsHosts.contains(host))
      doubleBy([&](MachineSnapshot& one, bool answer) { one.httpsHosts[host] = answer; });
  }
  if (!machine.managementServer) doubleBy([](MachineSnapshot& one, bool answer) { one.managementServer = answer; });
  return all;
}

TEST(QelaTestSet, WhereAllIsKnownTheVerdictIsTheLibrarysDecision) {
  World world(1);
  std::map<Verdict, int> seen;
  for (int run = 0; run < 2000; ++run) {
    const TestSet set({world.Place(), world.Place(), world.Place()});
    const MachineSnapshot machine = world.Machine(100);
    const std::vector<Verdict> verdicts = set.VerdictsOn(machine);
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
      ++seen[verdicts[i]];
      ASSERT_EQ(verdicts[i], Decides(set.Locations()[i], machine) ? Verdict::kCurrent : Verdict::kNotCurrent)
          << "run " << run << ", location " << i;
      ASSERT_THAT(set.Reasons(machine, i, verdicts[i]), testing::Not(IsEmpty()));
    }
  }
  EXPECT_GT(seen[Verdict::kCurrent], 500);
  EXPECT_GT(seen[Verdict::kNotCurrent], 500);
}

TEST(QelaTestSet, UnknownIsExactlyWhatTheMissingAnswersDecide) {
  World world(2);
  std::map<Verdict, int> seen;
  for (int run = 0; run < 1000; ++run) {
    const TestSet set({world.Place(), world.Place()});
    const MachineSnapshot machine = world.Machine(50);
    const std::vector<MachineSnapshot> completions = Completions(machine);
    const std::vector<Verdict> verdicts = set.VerdictsOn(machine);
    for (std::size_t i = 0; i < verdicts.size(); ++i) {
      const auto current = std::count_if(completions.begin(), completions.end(), [&](const MachineSnapshot& complete) {
        return Decides(set.Locations()[i], complete);
      });
      const auto all = static_cast<std::ptrdiff_t>(completions.size());
      ++seen[verdicts[i]];
      ASSERT_EQ(verdicts[i], current == all ? Verdict::kCurrent
                             : current == 0 ? Verdict::kNotCurrent
                                            : Verdict::kUnknown)
          << "run " << run << ", location " << i;
      ASSERT_EQ(Explain(set.Locations()[i], machine).verdict, verdicts[i]) << "run " << run;
      // Answers to the questions decide, whatever else stays unknown.
      for (const bool answer : {true, false}) {
        if (verdicts[i] != Verdict::kUnknown) break;
        MachineSnapshot asked = machine;
        for (const auto& [kind, text] : set.QuestionsLeft(machine, i)) {
          if (kind == LCT_ZELT_REACHABLE)
            asked.managementServer = answer;
          else
            (kind == LCT_REGISTRY_KEY ? asked.registry : asked.httpsHosts)[text] = answer;
        }
        ASSERT_EQ(set.VerdictsOn(asked)[i], answer ? Verdict::kCurrent : Verdict::kNotCurrent) << "run " << run;
      }
      ASSERT_THAT(set.Reasons(machine, i, verdicts[i]), testing::Not(IsEmpty()));
    }
  }
  for (const Verdict verdict : {Verdict::kCurrent, Verdict::kNotCurrent, Verdict::kUnknown})
    EXPECT_GT(seen[verdict], 100);
}

TEST(QelaTestSet, OneSetServesSeveralThreads) {
  World world(3);
  std::vector<MachineSnapshot> machines;
  for (int i = 0; i < 200; ++i) machines.push_back(world.Machine(50));
  LocationSet places = {Location(L"Expression", {{LCT_DNS_SUFFIX, {L"(s|t)*0", L"s*1"}}})};
  for (int i = 0; i < 20; ++i) places.push_back(world.Place());
  const TestSet set(places);
  std::vector<std::vector<Verdict>> expected;
  for (const MachineSnapshot& machine : machines) expected.push_back(set.VerdictsOn(machine));
  std::vector<std::vector<Verdict>> found(machines.size());
  {
    std::vector<std::jthread> threads;
    for (std::size_t t = 0; t < 4; ++t)
      threads.emplace_back([&, t] {
        for (std::size_t i = t; i < machines.size(); i += 4) found[i] = set.VerdictsOn(machines[i]);
      });
  }
  EXPECT_EQ(found, expected);
}

}  // namespace

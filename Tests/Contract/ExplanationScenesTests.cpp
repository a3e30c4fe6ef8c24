// What qela explains of a machine, of its log and of a snapshot, held against what the shipped library decides there:
// over many generated sets, machines and answers, all of them must agree.
#include <winsock2.h>
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/LenientUtf.h"
#include "Tests/Contract/ScriptedSite.h"
#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/HostLogs.h"
#include "Tools/qela/CriterionWords.h"
#include "Tools/qela/Explanation.h"
#include "Tools/qela/LocationSet.h"
#include "Tools/qela/LogFile.h"
#include "Tools/qela/MachineSnapshot.h"
#include "Tools/qela/TestSet.h"

namespace {

using LenientUtf::ToWide;
using Outcome = LocationExplanation::Outcome;

// Sometimes what an adapter shows, sometimes what none does, so that every kind holds and fails often. An empty text
// holds where an adapter shows none.
const std::map<LOCATION_CRITERIA_TYPE, std::vector<std::string>> kPools = {
    {LCT_DNS_SUFFIX, {"CORP.example", "*.example", "office.example", "corp.test", "*corp*.example", "(x*", ""}},
    {LCT_DEFAULT_GATEWAY, {"10.0.0.1", "192.168.1.1", "172.16.0.1", "10.9.9.9", "fe80::1"}},
    {LCT_DHCP_SERVER, {"10.0.0.67", "192.168.1.67", "fe80::67", "10.9.9.9", ""}},
    {LCT_DNS_SERVER, {"10.0.0.53", "192.168.1.53", "2001:db8::53", "10.9.9.9"}},
    {LCT_PRIMARY_WINS, {"10.0.0.41", "192.168.1.41", "10.9.9.9", ""}},
    {LCT_SECONDARY_WINS, {"10.0.0.42", "10.0.0.41", "10.9.9.9", ""}},
    {LCT_REGISTRY_KEY,
     {"HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\", "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Name=Office",
      "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Name=Home", "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Level=3",
      "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Level=4", "HKEY_LOCAL_MACHINE\\SOFTWARE\\Gone\\",
      "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Absent=1", "HKLM\\SOFTWARE\\Site\\",
      "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\=default"}},
    {LCT_DOMAIN_REACHABLE, {"up.example", "too.example", "forbidden.example", "cut.example", "down.example"}},
};
// What the registry of the scenes holds, where the key is there at all.
const std::set<std::string> kHeldInRegistry = {
    "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\", "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Name=Office",
    "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\Level=3", "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\=default"};

struct Scene {
  AdapterList adapters;
  std::vector<LocationBlob> set;
  SiteAnswers site;
};

class SceneMaker {
 public:
  explicit SceneMaker(unsigned seed) : m_random(seed) {}

  Scene Make() {
    Scene scene;
    scene.site.hasSite = !OneIn(4);
    scene.site.hasSite64 = OneIn(2);
    if (OneIn(4)) scene.site.servers.clear();
    if (OneIn(2)) scene.site.knownToDns = {L"srv2.example"};
    if (!OneIn(3)) scene.site.httpsHosts.insert(L"up.example");
    if (!OneIn(3)) scene.site.httpsHosts.insert(L"too.example");
    scene.site.httpsStatus[L"forbidden.example"] = OneIn(3) ? 401 : 403;
    scene.site.httpsErrors[L"cut.example"] = 12029;
    const unsigned adapters = OneIn(12) ? 0 : 1 + Below(4);
    for (unsigned i = 0; i < adapters; ++i) AddAdapter(scene.adapters, i);
    if (OneIn(3)) scene.adapters.AddLoopback();
    const unsigned locations = 1 + Below(4);
    for (unsigned i = 0; i < locations; ++i) scene.set.push_back(MakeLocation(i));
    return scene;
  }

 private:
  unsigned Below(unsigned end) { return m_random() % end; }
  bool OneIn(unsigned count) { return Below(count) == 0; }

  void AddAdapter(AdapterList& list, unsigned number) {
    constexpr const wchar_t* kNames[] = {L"Ethernet 0", L"Ethernet 1", L"Ethernet 2", L"Ethernet 3"};
    // An adapter without IPv4 has the index 0, as others of its kind have; descriptions may hold anything.
    auto& added = list.Add(OneIn(3) ? L"Wi-Fi adapter with index 2 and description X." : kNames[number])
                      .Index(OneIn(6) ? 0 : 2 + number);
    if (!OneIn(3)) added.Gateway(OneIn(2) ? "10.0.0.1" : "192.168.1.1");
    if (OneIn(4)) added.Gateway("fe80::1");
    if (!OneIn(3)) added.DnsSuffix(OneIn(2) ? L"corp.example" : L"eu.office.example");
    if (!OneIn(3)) added.DnsServer(OneIn(2) ? "10.0.0.53" : "2001:db8::53");
    if (!OneIn(3)) added.Dhcp(OneIn(2) ? "10.0.0.67" : "192.168.1.67");
    if (OneIn(3)) added.DhcpV6("fe80::67");
    if (OneIn(2)) {
      added.Wins("10.0.0.41");
      if (OneIn(2)) added.Wins("10.0.0.42");
    }
  }

  LocationBlob MakeLocation(unsigned number) {
    LocationBlob location{.id = "id-" + std::to_string(number),
                          .name = OneIn(6) ? "Office..." : "Place " + std::to_string(number)};
    location.enabled = !OneIn(6);
    location.zeltReachable = OneIn(4);
    const unsigned kinds = Below(4);
    for (unsigned i = 0; i < kinds; ++i) {
      const auto pool = std::next(kPools.begin(), Below(static_cast<unsigned>(kPools.size())));
      std::vector<std::string>& texts = location.texts[pool->first];
      if (!texts.empty()) continue;
      const unsigned values = 1 + Below(3);
      for (unsigned value = 0; value < values; ++value) {
        const std::string& text = pool->second[Below(static_cast<unsigned>(pool->second.size()))];
        if (std::find(texts.begin(), texts.end(), text) == texts.end()) texts.push_back(text);
      }
    }
    return location;
  }

  std::mt19937 m_random;
};

class ExplanationScenes : public ServiceTest {
 protected:
  ~ExplanationScenes() override { m_registry.OnCall(nullptr); }

  // The library calculates, and tells the log.
  void Play(_IQeLaApiSmart& service, const Scene& scene) {
    m_site.Set(scene.site);
    m_adapters.Set(scene.adapters);
    service.RemoveAllLocations();
    const std::vector<std::uint8_t> stored = PackedSet(scene.set);
    m_registry.Put(stored);
    m_set = DecodeSet(stored);
    m_log.Clear();
    m_registry.OnCall([this](const ScriptedRegistry::Call& call) {
      if (call.function == "RegOpenKeyExW") m_site.OnOpenKey(call);
    });
    ASSERT_TRUE(service.Load());
    m_registry.OnCall(nullptr);
    m_current = CurrentIds(service);
    CalculationReader reader;
    std::optional<LoggedCalculation> calculation;
    for (const std::wstring& text : m_log.Texts()) ASSERT_FALSE(reader.OnMessage({text, {}, 0, 0}).has_value());
    calculation = reader.End();
    ASSERT_TRUE(calculation.has_value());
    m_calculation = *std::move(calculation);
    ASSERT_TRUE(m_calculation.IsWhole()) << m_calculation.broken;
  }

  // The same machine as a snapshot, with every answer: what `test` decides by.
  MachineSnapshot Snapshot(const SiteAnswers& site) const {
    MachineSnapshot machine;
    machine.adapters = m_calculation.adapters;
    for (const std::string& text : kPools.at(LCT_REGISTRY_KEY))
      machine.registry[ToWide(text)] = (site.hasSite || site.hasSite64) && kHeldInRegistry.contains(text);
    for (const std::string& host : kPools.at(LCT_DOMAIN_REACHABLE)) {
      const auto status = site.httpsStatus.find(ToWide(host));
      machine.httpsHosts[ToWide(host)] =
          site.httpsHosts.contains(ToWide(host)) || (status != site.httpsStatus.end() && status->second == 401);
    }
    machine.managementServer = !site.servers.empty() && !site.knownToDns.empty();
    return machine;
  }

  bool IsCurrent(const CQeLocation& location) const {
    return std::find(m_current.begin(), m_current.end(), location.Id()) != m_current.end();
  }

  std::vector<std::size_t> Enabled() const {
    std::vector<std::size_t> enabled;
    for (std::size_t i = 0; i < m_set.size(); ++i)
      if (m_set[i].IsEnabled()) enabled.push_back(i);
    return enabled;
  }

  ScriptedSite m_site{Module(), m_registry};
  LocationSet m_set;
  std::vector<std::wstring> m_current;
  LoggedCalculation m_calculation;
};

constexpr unsigned kScenes = 1200;

// The failing kind of `explained`'s nearest adapter, as `test` says it of this adapter.
void ExpectSameReason(const LocationExplanation& explained, const std::vector<std::string>& reasons) {
  if (!explained.failure) return;
  ASSERT_EQ(reasons.size(), explained.adapters.size());
  const LocationExplanation::Adapter& adapter = explained.adapters[explained.failure->adapter];
  EXPECT_THAT(reasons[explained.failure->adapter],
              testing::StartsWith(AdapterInWords(adapter.ifIndex, adapter.description) + ": " +
                                  TitleOf(explained.failure->kind) + " asked for"));
}

// What the log tells of each probe is told of the criterion that it was asked for.
void ExpectTrueAnswers(const LocationExplanation& explained, const MachineSnapshot& machine) {
  for (const LocationExplanation::Adapter& adapter : explained.adapters)
    for (const LocationExplanation::Kind& kind : adapter.kinds) {
      if (kind.outcome == Outcome::kNotReached || AdapterCriteria::Knows(kind.kind)) continue;
      ASSERT_FALSE(kind.questions.empty()) << ToText(explained);
      for (const LocationExplanation::Question& question : kind.questions) {
        ASSERT_TRUE(question.answer.has_value()) << ToText(explained);
        ASSERT_EQ(question.answer, machine.AnswerTo(kind.kind, question.text)) << ToText(explained);
      }
    }
}

// The calculation as it is found in a log that a host has written.
LoggedCalculation FoundIn(const std::vector<std::wstring>& files) {
  CalculationReader reader;
  const std::optional<FoundCalculation> found = FindCalculation(files, {});
  if (!found) return {};
  for (const auto& [text, time, file, line, mayBeCut] : found->messages)
    if (const auto ended = reader.OnMessage({text, time, file, line, mayBeCut})) return *ended;
  return reader.End().value_or(LoggedCalculation());
}

// A host's log tells times, which the calculation of the test has none of.
Json WithoutTimes(Json json) {
  if (json.is_object()) json.erase("milliseconds");
  for (Json& element : json)
    if (element.is_structured()) element = WithoutTimes(std::move(element));
  return json;
}

TEST_F(ExplanationScenes, TheLogWithTheSetTheSnapshotAndTheLibraryAgree) {
  const LogFolder folder;
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  SceneMaker maker(1);
  std::map<LOCATION_CRITERIA_TYPE, int> failures;
  int current = 0;
  int serverDecided = 0;
  for (unsigned number = 0; number < kScenes; ++number) {
    SCOPED_TRACE("scene " + std::to_string(number));
    const Scene scene = maker.Make();
    ASSERT_NO_FATAL_FAILURE(Play(*service, scene));
    const MachineSnapshot machine = Snapshot(scene.site);
    const TestSet tested(m_set);
    const std::vector<Verdict> verdicts = tested.VerdictsOn(machine);
    const std::vector<std::size_t> enabled = Enabled();
    ASSERT_EQ(m_calculation.locations.size(), m_calculation.hasFailed ? 0 : enabled.size());
    const HostFormat& host = HostFormats()[number % HostFormats().size()];
    const std::wstring path = folder.Write(L"service.log", LenientUtf::ToUtf8(LogOf(host, m_log.Texts())));
    const LoggedCalculation written = FoundIn({path});
    ASSERT_TRUE(written.IsWhole()) << host.name << ": " << written.broken;
    ASSERT_EQ(written.locations.size(), m_calculation.locations.size()) << host.name;
    for (std::size_t i = 0; i < m_set.size(); ++i) {
      const Verdict decided = IsCurrent(m_set[i]) ? Verdict::kCurrent : Verdict::kNotCurrent;
      ASSERT_EQ(verdicts[i], decided);
      const LocationExplanation ofMachine = Explain(m_set[i], machine);
      ASSERT_EQ(ofMachine.verdict, decided) << ToText(ofMachine);
      const auto position = std::find(enabled.begin(), enabled.end(), i);
      if (position == enabled.end() || m_calculation.hasFailed) continue;
      const LoggedLocation& logged = m_calculation.locations[static_cast<std::size_t>(position - enabled.begin())];
      const LocationExplanation ofLog = Explain(m_set[i], m_calculation, logged);
      ASSERT_EQ(ofLog.verdict, decided);
      const auto place = static_cast<std::size_t>(position - enabled.begin());
      ASSERT_EQ(WithoutTimes(ToJson(Explain(m_set[i], written, written.locations[place]))), ToJson(ofLog)) << host.name;
      ASSERT_EQ(WithoutTimes(ToJson(Explain(written, written.locations[place]))),
                ToJson(Explain(m_calculation, logged)))
          << host.name;
      for (const std::string& caveat : ofLog.caveats) ASSERT_EQ(caveat, "An adapter without IPv4 has the index 0.");
      ASSERT_EQ(ofLog.failure.has_value(), ofMachine.failure.has_value()) << ToText(ofLog);
      if (ofLog.failure) {
        ASSERT_EQ(ofLog.failure->adapter, ofMachine.failure->adapter);
        ASSERT_EQ(ofLog.failure->kind, ofMachine.failure->kind);
        ++failures[ofLog.failure->kind];
      }
      if (decided == Verdict::kNotCurrent) {
        ASSERT_NO_FATAL_FAILURE(ExpectSameReason(ofLog, tested.Reasons(machine, i, verdicts[i])));
        serverDecided += ofLog.managementServer ? 1 : 0;
      }
      ASSERT_NO_FATAL_FAILURE(ExpectTrueAnswers(ofLog, machine));
      current += decided == Verdict::kCurrent ? 1 : 0;
    }
  }
  // The scenes are worth something: every kind decides, and so does the management server.
  for (const auto& [kind, pool] : kPools) EXPECT_GT(failures[kind], 20) << TitleOf(kind);
  EXPECT_GT(current, 200);
  EXPECT_GT(serverDecided, 20);
}

// The kind that fails an adapter first, by the criteria; none when it matches.
std::optional<LOCATION_CRITERIA_TYPE> FailedKind(const LocationExplanation::Adapter& adapter) {
  for (const LocationExplanation::Kind& kind : adapter.kinds)
    if (kind.outcome == Outcome::kFailed) return kind.kind;
  return std::nullopt;
}

TEST_F(ExplanationScenes, WithoutTheSetTheLogIsNeverTakenForMoreThanItProves) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  SceneMaker maker(2);
  int certain = 0;
  int oneOf = 0;
  for (unsigned number = 0; number < kScenes; ++number) {
    SCOPED_TRACE("scene " + std::to_string(number));
    const Scene scene = maker.Make();
    ASSERT_NO_FATAL_FAILURE(Play(*service, scene));
    const std::vector<std::size_t> enabled = Enabled();
    for (std::size_t i = 0; i < m_calculation.locations.size(); ++i) {
      const CQeLocation& location = m_set[enabled[i]];
      const LocationExplanation known = Explain(location, m_calculation, m_calculation.locations[i]);
      const LocationExplanation proved = Explain(m_calculation, m_calculation.locations[i]);
      ASSERT_EQ(proved.verdict, known.verdict);
      ASSERT_EQ(proved.adapters.size(), known.adapters.size());
      for (std::size_t a = 0; a < proved.adapters.size(); ++a) {
        const LocationExplanation::Adapter& claimed = proved.adapters[a];
        const LocationExplanation::Adapter& truth = known.adapters[a];
        ASSERT_EQ(claimed.matches, truth.matches);
        for (const LocationExplanation::Kind& kind : claimed.kinds) {
          const auto actual = std::find_if(truth.kinds.begin(), truth.kinds.end(),
                                           [&](const LocationExplanation::Kind& k) { return k.kind == kind.kind; });
          ASSERT_NE(actual, truth.kinds.end()) << TitleOf(kind.kind) << " is not asked for\n" << ToText(proved);
          ASSERT_EQ(kind.outcome, actual->outcome) << TitleOf(kind.kind) << "\n" << ToText(proved) << ToText(known);
          if (kind.held) {
            ASSERT_EQ(kind.held, actual->held) << TitleOf(kind.kind);
          }
          ASSERT_EQ(kind.seen, actual->seen) << TitleOf(kind.kind);
          certain += kind.outcome == Outcome::kFailed ? 1 : 0;
        }
        const std::optional<LOCATION_CRITERIA_TYPE> failed = FailedKind(truth);
        if (claimed.oneOfFailed.empty()) {
          ASSERT_EQ(FailedKind(claimed), failed);
        } else {
          ASSERT_TRUE(failed.has_value());
          ASSERT_THAT(claimed.oneOfFailed, testing::Contains(*failed));
          for (const LocationExplanation::Kind& kind : claimed.kinds)
            ASSERT_THAT(claimed.oneOfFailed, testing::Not(testing::Contains(kind.kind)));
          ++oneOf;
        }
      }
    }
  }
  EXPECT_GT(certain, 100);
  EXPECT_GT(oneOf, 100);
}

// The verdict of each location, by its name.
using Verdicts = std::map<std::wstring, bool>;

// Every verdict that is read from these messages must be the true one; the answer is how many were read.
int ExpectTrueVerdicts(const std::vector<std::wstring>& messages, const Verdicts& truth) {
  int verdicts = 0;
  const auto look = [&](const LoggedCalculation& calculation) {
    for (const LoggedLocation& location : calculation.locations) {
      const LocationExplanation explanation = Explain(calculation, location);
      if (explanation.verdict == Verdict::kUnknown) continue;
      ++verdicts;
      const auto expected = truth.find(explanation.name);
      ASSERT_NE(expected, truth.end()) << LenientUtf::ToUtf8(explanation.name);
      EXPECT_EQ(explanation.verdict == Verdict::kCurrent, expected->second) << ToText(explanation);
    }
  };
  CalculationReader reader;
  for (const std::wstring& text : messages)
    if (const auto ended = reader.OnMessage({text, {}, 0, 0})) look(*ended);
  if (const auto last = reader.End()) look(*last);
  return verdicts;
}

TEST_F(ExplanationScenes, ALogWithLinesMissingTwiceOrElsewhereTellsNoFalseVerdict) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  SceneMaker maker(3);
  std::mt19937 random(3);
  int read = 0;
  constexpr int kLogs = 150;
  for (int number = 0; number < kLogs; ++number) {
    SCOPED_TRACE("scene " + std::to_string(number));
    Scene scene = maker.Make();
    for (std::size_t i = 0; i < scene.set.size(); ++i) scene.set[i].name = "Place " + std::to_string(i);
    ASSERT_NO_FATAL_FAILURE(Play(*service, scene));
    const std::vector<std::wstring> whole = m_log.Texts();
    Verdicts truth;
    for (const CQeLocation& location : m_set) truth[location.Name()] = IsCurrent(location);
    for (std::size_t i = 0; i < whole.size(); ++i) {
      std::vector<std::wstring> messages = whole;
      messages.erase(messages.begin() + static_cast<std::ptrdiff_t>(i));
      read += ExpectTrueVerdicts(messages, truth);
      messages = whole;
      messages.insert(messages.begin() + static_cast<std::ptrdiff_t>(i), whole[i]);
      read += ExpectTrueVerdicts(messages, truth);
      messages = whole;
      std::swap(messages[i], messages[random() % messages.size()]);
      read += ExpectTrueVerdicts(messages, truth);
      read += ExpectTrueVerdicts({whole.begin() + static_cast<std::ptrdiff_t>(i), whole.end()}, truth);
      read += ExpectTrueVerdicts({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(i)}, truth);
    }
  }
  EXPECT_GT(read, 1000);
}

// Every verdict in what is found in this log must be the true one.
int ExpectTrueVerdictsIn(const LogFolder& folder, const std::string& bytes, const Verdicts& truth) {
  int verdicts = 0;
  for (const LoggedLocation& location : FoundIn({folder.Write(L"service.log", bytes)}).locations) {
    if (!location.isCurrent) continue;
    const auto expected = truth.find(location.name);
    if (expected == truth.end() || expected->second != *location.isCurrent)
      ADD_FAILURE() << LenientUtf::ToUtf8(location.name) << " is said to be " << *location.isCurrent;
    ++verdicts;
  }
  return verdicts;
}

TEST_F(ExplanationScenes, ALogThatIsCutOrDamagedAnywhereTellsNoFalseVerdict) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  const LogFolder folder;
  SceneMaker maker(5);
  std::mt19937 random(5);
  constexpr std::size_t kCuts = 20;
  int read = 0;
  for (const HostFormat& host : HostFormats()) {
    SCOPED_TRACE(host.name);
    Scene scene = maker.Make();
    for (std::size_t i = 0; i < scene.set.size(); ++i) scene.set[i].name = "Place " + std::to_string(i);
    ASSERT_NO_FATAL_FAILURE(Play(*service, scene));
    Verdicts truth;
    for (const CQeLocation& location : m_set) truth[location.Name()] = IsCurrent(location);
    const std::string whole = LenientUtf::ToUtf8(LogOf(host, m_log.Texts()));
    read += ExpectTrueVerdictsIn(folder, whole, truth);
    for (std::size_t cut = 0; cut < kCuts; ++cut) {
      const std::size_t at = random() % whole.size();
      read += ExpectTrueVerdictsIn(folder, whole.substr(0, at), truth);
      read += ExpectTrueVerdictsIn(folder, whole.substr(at), truth);
      read += ExpectTrueVerdictsIn(folder, whole.substr(0, at) + whole.substr(random() % whole.size()), truth);
      std::string damaged = whole;
      for (int i = 0; i < 3; ++i) damaged[random() % damaged.size()] = static_cast<char>(random() % 256);
      read += ExpectTrueVerdictsIn(folder, damaged, truth);
      damaged.insert(at, std::string(random() % 300, static_cast<char>(random() % 256)));
      read += ExpectTrueVerdictsIn(folder, damaged, truth);
    }
  }
  EXPECT_GT(read, 300);
}

TEST_F(ExplanationScenes, TwoCalculationsAtOnceTellNoFalseVerdict) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  SceneMaker maker(4);
  std::mt19937 random(4);
  int read = 0;
  constexpr int kPairs = 300;
  for (int number = 0; number < kPairs; ++number) {
    SCOPED_TRACE("scene " + std::to_string(number));
    std::vector<std::wstring> messages[2];
    Verdicts truth;
    Scene scene = maker.Make();
    for (const int half : {0, 1}) {
      // Two services on one machine, with sets of their own.
      Scene own = maker.Make();
      own.adapters = scene.adapters;
      for (std::size_t i = 0; i < own.set.size(); ++i)
        own.set[i].name = (half == 0 ? "Place " : "Other ") + std::to_string(i);
      ASSERT_NO_FATAL_FAILURE(Play(*service, own));
      messages[half] = m_log.Texts();
      for (const CQeLocation& location : m_set) truth[location.Name()] = IsCurrent(location);
    }
    // Mixed in runs, as threads are.
    std::vector<std::wstring> mixed;
    std::size_t taken[2] = {};
    while (taken[0] < messages[0].size() || taken[1] < messages[1].size()) {
      const std::size_t half = random() % 2;
      for (std::size_t run = random() % 6; run > 0 && taken[half] < messages[half].size(); --run)
        mixed.push_back(messages[half][taken[half]++]);
    }
    read += ExpectTrueVerdicts(mixed, truth);
  }
  EXPECT_GT(read, 30);
}

}  // namespace

// What calculations log, ask and store, kept line by line for many sets on many machines: code that decides may be
// rebuilt, what it does may not change. The record is Tests/Data/calculation-scenes.txt.
#include <winsock2.h>
#include <windows.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/LenientUtf.h"
#include "Tests/Contract/ScriptedSite.h"
#include "Tests/Contract/ServiceTest.h"
#include "Tests/Support/StoredSet.h"
#include "Tests/Support/TestFile.h"

namespace {

// The calls and log lines of a scene, in their order.
std::vector<std::string> g_journal;

void Asked(const std::string& question) { g_journal.push_back("  ? " + question); }

AdapterList OneAdapter() {
  AdapterList list;
  list.Add(L"Intel Ethernet")
      .Index(5)
      .Gateway("10.0.0.1")
      .DnsSuffix(L"corp.example")
      .Ip("10.0.0.7")
      .DnsServer("10.0.0.53")
      .Dhcp("10.0.0.67")
      .Wins("10.0.0.41")
      .Wins("10.0.0.42");
  return list;
}
AdapterList ThreeAdapters() {
  AdapterList list = OneAdapter();
  list.Add(L"Wireless")
      .Index(9)
      .Type(IF_TYPE_IEEE80211)
      .Gateway("192.168.1.1")
      .Gateway("10.0.0.1")
      .DnsSuffix(L"EU.Office.example")
      .Ip("192.168.1.30")
      .Ip("fe80::30")
      .DnsServer("192.168.1.53")
      .DnsServer("2001:db8::53")
      .DhcpV6("fe80::67");
  list.Add(L"Hyper-V Virtual Ethernet").Index(2).Gateway("172.16.0.1").Mac({1, 2, 3, 4, 5, 6});
  list.AddLoopback();
  return list;
}

struct Scene {
  std::string name;
  AdapterList adapters;
  std::vector<LocationBlob> set;
  SiteAnswers site = {};
};

LocationBlob With(const char* id, LOCATION_CRITERIA_TYPE kind, std::vector<std::string> texts) {
  LocationBlob blob{.id = id, .name = std::string("Place ") + id};
  blob.texts[kind] = std::move(texts);
  return blob;
}

std::vector<Scene> Scenes() {
  struct Values {
    LOCATION_CRITERIA_TYPE kind;
    const char* name;
    const char* hit;
    const char* hitOfTheSecond;  // adapter, where there is one
    const char* miss;
  };
  constexpr char kSite[] = "HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\";
  const std::string site = kSite;
  const std::string name = site + "Name=Office";
  const std::string level = site + "Level=3";
  const std::string wrong = site + "Name=Home";
  const Values kinds[] = {{LCT_DNS_SUFFIX, "suffix", "CORP.example", "*.example", "corp.test"},
                          {LCT_DEFAULT_GATEWAY, "gateway", "10.0.0.1", "192.168.1.1", "10.9.9.9"},
                          {LCT_DHCP_SERVER, "dhcp", "10.0.0.67", "fe80::67", "10.9.9.9"},
                          {LCT_DNS_SERVER, "dns server", "10.0.0.53", "2001:db8::53", "10.9.9.9"},
                          {LCT_PRIMARY_WINS, "primary wins", "10.0.0.41", "", "10.9.9.9"},
                          {LCT_SECONDARY_WINS, "secondary wins", "10.0.0.42", "", "10.9.9.9"},
                          {LCT_REGISTRY_KEY, "registry", name.c_str(), level.c_str(), wrong.c_str()},
                          {LCT_DOMAIN_REACHABLE, "domain", "up.example", "too.example", "down.example"}};
  SiteAnswers up;
  up.httpsHosts = {L"up.example", L"too.example"};
  up.knownToDns = {L"srv2.example"};

  std::vector<Scene> scenes;
  const auto add = [&](std::string sceneName, std::vector<LocationBlob> set, const SiteAnswers& of = {}) {
    scenes.push_back({sceneName + ", one adapter", OneAdapter(), set, of});
    scenes.push_back({sceneName + ", three adapters", ThreeAdapters(), std::move(set), of});
  };
  for (const Values& kind : kinds) {
    const std::string of = kind.name;
    add(of + " met", {With("A", kind.kind, {kind.hit})}, up);
    add(of + " met by the second value", {With("A", kind.kind, {kind.miss, kind.hit, kind.hitOfTheSecond})}, up);
    add(of + " met by the second adapter", {With("A", kind.kind, {kind.hitOfTheSecond})}, up);
    add(of + " missed", {With("A", kind.kind, {kind.miss, kind.miss})}, up);
  }

  // Two kinds: the later one is asked only where the earlier one is met.
  for (const Values& second : kinds) {
    LocationBlob both = With("A", LCT_DNS_SUFFIX, {"corp.example", "office.example"});
    both.texts[second.kind].emplace_back(second.hit);
    add("suffix and " + std::string(second.name), {both}, up);
    LocationBlob neither = both;
    neither.texts[LCT_DNS_SUFFIX] = {"nowhere.test"};
    add("no suffix, so no " + std::string(second.name), {neither}, up);
  }

  LocationBlob all{.id = "all"};
  for (const Values& kind : kinds) all.texts[kind.kind] = {kind.miss, kind.hit};
  all.zeltReachable = true;
  add("every kind", {all}, up);

  LocationBlob zelt{.id = "zelt", .name = "Zelt"};
  zelt.zeltReachable = true;
  LocationBlob zeltAndGateway = With("zg", LCT_DEFAULT_GATEWAY, {"10.0.0.1"});
  zeltAndGateway.zeltReachable = true;
  LocationBlob zeltElsewhere = With("ze", LCT_DEFAULT_GATEWAY, {"10.9.9.9"});
  zeltElsewhere.zeltReachable = true;
  const std::vector<LocationBlob> zelts{zelt, zeltAndGateway, zeltElsewhere};
  add("management server known", zelts, up);
  add("management server unknown", zelts);
  SiteAnswers noServers = up;
  noServers.servers.clear();
  add("no management server", zelts, noServers);

  add("no location", {});
  add("no criteria", {{.id = "A"}, {.id = "B", .name = ""}});
  LocationBlob disabled = With("off", LCT_DEFAULT_GATEWAY, {"10.0.0.1"});
  disabled.enabled = false;
  disabled.adapterIndexes = {77};
  add("disabled among current ones",
      {With("first", LCT_DEFAULT_GATEWAY, {"10.0.0.1"}), disabled, With("last", LCT_DNS_SUFFIX, {"c*p.example"})});

  // Sets that only bytes can make.
  LocationBlob other = With("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1"});
  other.name = "Second of the ID";
  add("an ID twice", {With("A", LCT_DNS_SUFFIX, {"corp.example"}), other});
  add("a value twice", {With("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1", "10.0.0.1"}), {.id = "B"}});
  constexpr char kMapped[] = "0000:0000:0000:0000:0000:ffff:0a00:0001";
  add("a raw value", {With("A", LCT_DEFAULT_GATEWAY, {kMapped, "10.0.0.1"}), With("B", LCT_DEFAULT_GATEWAY, {kMapped}),
                      With("C", LCT_DEFAULT_GATEWAY, {"192.168.1.1", kMapped})});
  LocationBlob old = With("A", LCT_DEFAULT_GATEWAY, {"10.9.9.9"});
  old.adapterIndexes = {1, 2, 3};
  add("indexes of an earlier match", {old});

  add("suffixes of all shapes",
      {With("A", LCT_DNS_SUFFIX, {"*"}), With("B", LCT_DNS_SUFFIX, {"*orp.*"}),
       With("C", LCT_DNS_SUFFIX, {"(corp|eu)*.example"}), With("D", LCT_DNS_SUFFIX, {"[*"}),
       With("E", LCT_DNS_SUFFIX, {""}), With("F", LCT_DNS_SUFFIX, {"example"}),
       With("G", LCT_DNS_SUFFIX, {"a.b.corp.example"}), With("H", LCT_DNS_SUFFIX, {"*a*.com", "*of*e.example"}),
       With("I", LCT_DNS_SUFFIX, {"corp.example."})});
  add("empty values", {With("A", LCT_PRIMARY_WINS, {""}), With("B", LCT_SECONDARY_WINS, {""}),
                       With("C", LCT_DHCP_SERVER, {""}), With("D", LCT_DEFAULT_GATEWAY, {""})});

  const std::vector<LocationBlob> registry{
      With("A", LCT_REGISTRY_KEY, {site}), With("B", LCT_REGISTRY_KEY, {site + "=default"}),
      With("C", LCT_REGISTRY_KEY, {"HKEY_LOCAL_MACHINE\\SOFTWARE\\Gone\\"}),
      With("D", LCT_REGISTRY_KEY, {"hkey_local_machine\\SOFTWARE\\Site\\", "", site + "Name=A=B"}),
      With("E", LCT_REGISTRY_KEY, {site + "Level=4", site + "Absent=1", site + "Name=office"})};
  add("registry criteria of all shapes", registry);
  SiteAnswers only64;
  only64.hasSite = false;
  only64.hasSite64 = true;
  add("registry criteria in the 64-bit view", registry, only64);

  const std::vector<LocationBlob> some{With("A", LCT_DEFAULT_GATEWAY, {"10.0.0.1"}), {.id = "B"}, zelt};
  scenes.push_back({"no adapter at all", AdapterList(), some, up});
  AdapterList loopback;
  loopback.AddLoopback();
  scenes.push_back({"the loopback adapter alone", loopback, some, up});
  return scenes;
}

class CalculationScenes : public ServiceTest {
 protected:
  ~CalculationScenes() override {
    m_log.OnEvent(nullptr);
    m_registry.OnCall(nullptr);
  }

  // Notes what is asked of the registry, but for the stored set.
  void OnRegistryCall(const ScriptedRegistry::Call& call) {
    if (call.function == "RegOpenKeyExW") {
      m_isSetOpen = call.name == kLaKeyPath;
      m_site.OnOpenKey(call);
    }
    if (m_isSetOpen) return;
    if (call.function == "RegOpenKeyExW")
      Asked("open " + LenientUtf::ToUtf8(call.name) + " " + WindowsScript::Hex(call.access));
    if (call.function == "RegQueryValueExW") Asked("query " + LenientUtf::ToUtf8(call.name));
    if (call.function == "RegCloseKey") Asked("close");
  }

  // Adapters are the same in most scenes: their properties are written out once.
  std::string Shortened(const std::string& line) {
    if (line.find(" Adapter properties:") == std::string::npos) return line;
    const auto [known, isNew] = m_properties.emplace(line, m_properties.size() + 1);
    const std::string number = std::to_string(known->second);
    return isNew ? line + " [" + number + "]" : "  AdapterSnapshot.cpp 8 Adapter properties: [" + number + "]";
  }

  // The scene's part of the record: the load's and the save's calculation, the current locations, the stored bytes.
  std::string Play(_IQeLaApiSmart& service, const Scene& scene) {
    m_site.Set(scene.site);
    m_site.OnQuestion(&Asked);
    m_adapters.Set(scene.adapters);
    service.RemoveAllLocations();
    m_registry.Put(PackedSet(scene.set));
    g_journal.clear();
    m_adapters.OnCall([] { Asked("adapters"); });
    m_registry.OnCall([this](const ScriptedRegistry::Call& call) { OnRegistryCall(call); });
    m_log.OnEvent([](const LoggedEvent& event) {
      constexpr std::string_view kFolder = "FwClient/Service/QeLaLib/";
      const std::string file = event.file.starts_with(kFolder) ? event.file.substr(kFolder.size()) : event.file;
      g_journal.push_back("  " + file + " " + std::to_string(event.severity) + " " + LenientUtf::ToUtf8(event.text));
    });
    const bool loaded = service.Load();
    m_log.OnEvent(nullptr);
    m_adapters.OnCall(nullptr);
    m_registry.OnCall(nullptr);

    std::ostringstream text;
    text << "== " << scene.name << "\n";
    for (std::string line : g_journal) {
      for (std::size_t at = 0; (at = line.find('\n', at)) != std::string::npos; at += 2) line.replace(at, 1, "\\n");
      text << Shortened(line) << "\n";
    }
    text << "  loaded " << loaded << ", current:";
    for (const std::wstring& id : CurrentIds(service)) text << " " << LenientUtf::ToUtf8(id);
    text << "\n  stored:";
    EXPECT_TRUE(service.Save());
    const std::vector<std::uint8_t> stored = m_registry.Value().value();
    for (const std::uint8_t byte : stored) {
      char digits[3];
      std::snprintf(digits, sizeof digits, "%02x", byte);
      text << digits;
    }
    text << "\n";
    return text.str();
  }

  std::map<std::string, std::size_t> m_properties;
  bool m_isSetOpen = false;
  ScriptedSite m_site{Module(), m_registry};
};

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

TEST_F(CalculationScenes, LogAskAndStoreWhatIsOnRecord) {
  const std::shared_ptr<_IQeLaApiSmart> service = m_library.SmartApi();
  std::string found;
  const std::vector<Scene> scenes = Scenes();
  EXPECT_GE(scenes.size(), 50u);
  for (const Scene& scene : scenes) found += Play(*service, scene);

  std::ifstream file(TestFile("Tests/Data/calculation-scenes.txt"), std::ios::binary);
  const std::string recorded{std::istreambuf_iterator<char>(file), {}};
  if (found == recorded) return;

  // Where a difference is meant, what was found becomes the record.
  std::ofstream("calculation-scenes.found.txt", std::ios::binary) << found;
  const std::vector<std::string> expected = Lines(recorded);
  const std::vector<std::string> lines = Lines(found);
  std::string scene = "none";
  for (std::size_t i = 0; i < std::max(expected.size(), lines.size()); ++i) {
    const std::string line = i < lines.size() ? lines[i] : "(end)";
    const std::string wanted = i < expected.size() ? expected[i] : "(end)";
    if (line.starts_with("== ")) scene = line;
    ASSERT_EQ(line, wanted) << "in " << scene << ", line " << i + 1
                            << "; all that was found is in calculation-scenes.found.txt in the working folder";
  }
}

}  // namespace

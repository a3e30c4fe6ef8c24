#include "MachineSnapshot.h"

#include <cstdint>
#include <filesystem>
#include <iterator>
#include <utility>

#include "AdapterView.h"
#include "CommandError.h"
#include "CriterionKinds.h"
#include "Json.h"
#include "JsonFile.h"
#include "Text.h"

namespace {

constexpr std::uint32_t kSchema = 1;
constexpr AdapterMediaType kMediaTypes[] = {Wired, Wireless, Virtual, Other};

void RequireJsonText(const std::wstring& text, const std::string& whose) {
  if (ToWide(ToUtf8(text)) == text && text.find(L'\0') == std::wstring::npos) return;
  throw CommandError(kFailed, whose + " is not valid Unicode, or holds a NUL: \"" + Printable(text) +
                                  "\". The machine cannot be recorded with it; nothing was written.");
}

Json AnswersAsJson(const MachineSnapshot::Answers& answers) {
  Json list = Json::array();
  for (const auto& [text, answer] : answers) {
    RequireJsonText(text, "a criterion");
    list.push_back({{"asked", ToUtf8(text)}, {"answer", answer}});
  }
  return list;
}

std::vector<std::wstring> TextsOf(const JsonNode& list) {
  std::vector<std::wstring> texts;
  for (const JsonNode& element : list.Elements()) texts.push_back(element.Text());
  return texts;
}

AdapterMediaType MediaOf(const JsonNode& node) {
  const std::wstring name = node.Text();
  for (const AdapterMediaType media : kMediaTypes) {
    AdapterProps adapter;
    adapter.mediaType = media;
    if (ToWide(MediaName(adapter)) == name) return media;
  }
  node.Fail("\"wired\", \"wireless\", \"virtual\" or \"other\"");
}

// As AdapterDetails writes it.
AdapterProps AdapterOf(const JsonNode& node) {
  node.RequireOnly({"index", "description", "media", "macAddresses", "ipAddresses", "gateways", "dhcpEnabled",
                    "dhcpServer", "dhcpV6Server", "dnsSuffix", "dnsServers", "winsPrimary", "winsSecondary"});
  AdapterProps adapter;
  adapter.ifIndex = node.Member("index").UInt32();
  adapter.description = node.Member("description").Text();
  adapter.mediaType = MediaOf(node.Member("media"));
  adapter.macAddresses = TextsOf(node.Member("macAddresses"));
  adapter.ipAddresses = TextsOf(node.Member("ipAddresses"));
  adapter.gateways = TextsOf(node.Member("gateways"));
  adapter.dhcpEnabled = node.Member("dhcpEnabled").Bool();
  adapter.dhcpServer = node.Member("dhcpServer").Text();
  adapter.dhcpV6Server = node.Member("dhcpV6Server").Text();
  adapter.dnsSuffix = node.Member("dnsSuffix").Text();
  adapter.dnsServers = TextsOf(node.Member("dnsServers"));
  adapter.winsPrimary = node.Member("winsPrimary").Text();
  adapter.winsSecondary = node.Member("winsSecondary").Text();
  return adapter;
}

MachineSnapshot::Answers AnswersOf(const JsonNode& probes, const std::string& member) {
  MachineSnapshot::Answers answers;
  const std::optional<JsonNode> list = probes.FindMember(member);
  if (!list) return answers;
  for (const JsonNode& element : list->Elements()) {
    element.RequireOnly({"asked", "answer"});
    const JsonNode asked = element.Member("asked");
    if (!answers.emplace(asked.Text(), element.Member("answer").Bool()).second)
      asked.Fail("it is answered twice", "write one answer for each");
  }
  return answers;
}

std::wstring NameWithoutJson(const std::wstring& path) {
  const std::filesystem::path file(path);
  return (MachineSnapshot::IsSnapshotFile(path) ? file.stem() : file.filename()).wstring();
}

}  // namespace

bool MachineSnapshot::IsSnapshotFile(const std::wstring& path) {
  return ::_wcsicmp(std::filesystem::path(path).extension().c_str(), L".json") == 0;
}

std::optional<bool> MachineSnapshot::AnswerTo(LOCATION_CRITERIA_TYPE kind, const std::wstring& text) const {
  if (kind == LCT_ZELT_REACHABLE) return managementServer;
  const Answers& answers = kind == LCT_REGISTRY_KEY ? registry : httpsHosts;
  const auto found = answers.find(text);
  return found == answers.end() ? std::nullopt : std::optional(found->second);
}

void RecordAnswers(MachineSnapshot& machine, const LocationSet& set, const LocationProbes& probes,
                   const std::function<void(LOCATION_CRITERIA_TYPE kind, const std::wstring& text)>& onProbe) {
  for (const CQeLocation& location : set) {
    for (const std::wstring& text : location.Criterias().Texts(LCT_REGISTRY_KEY)) {
      if (machine.registry.contains(text)) continue;
      onProbe(LCT_REGISTRY_KEY, text);
      machine.registry[text] = probes.isRegistryKeyCriterionMet(text);
    }
    for (const std::wstring& host : location.Criterias().Texts(LCT_DOMAIN_REACHABLE)) {
      if (machine.httpsHosts.contains(host)) continue;
      onProbe(LCT_DOMAIN_REACHABLE, host);
      machine.httpsHosts[host] = probes.isDomainReachable(host);
    }
    if (location.Criterias().IsZeltReachable() && !machine.managementServer) {
      onProbe(LCT_ZELT_REACHABLE, {});
      machine.managementServer = probes.isManagementServerReachable();
    }
  }
}

std::string MachineAsJson(const MachineSnapshot& machine, bool onOneLine) {
  Json json = {{"schema", kSchema}};
  if (!machine.machine.empty()) {
    RequireJsonText(machine.machine, "the label");
    json["machine"] = ToUtf8(machine.machine);
  }
  json["recorded"] = machine.recorded;
  Json& adapters = json["adapters"] = Json::array();
  for (const AdapterProps& adapter : machine.adapters) {
    // What the system passes on as it got it; all other texts are made of addresses.
    const std::string whose = " of adapter " + std::to_string(adapter.ifIndex);
    RequireJsonText(adapter.description, "the description" + whose);
    RequireJsonText(adapter.dnsSuffix, "the DNS suffix" + whose);
    adapters.push_back(AdapterDetails(adapter));
  }
  Json probes = Json::object();
  if (!machine.registry.empty()) probes["registry"] = AnswersAsJson(machine.registry);
  if (!machine.httpsHosts.empty()) probes["httpsHosts"] = AnswersAsJson(machine.httpsHosts);
  if (machine.managementServer) probes["managementServer"] = *machine.managementServer;
  if (!probes.empty()) json["probes"] = std::move(probes);
  constexpr int kIndent = 2;
  return onOneLine ? ToLine(json) : json.dump(kIndent) + "\n";
}

MachineSnapshot ReadMachine(const std::wstring& path) { return ParseMachine(ReadFileBytes(path), path); }

MachineSnapshot ParseMachine(const std::string& json, const std::wstring& path) {
  const JsonNode root = ParseJson(json, ShownFileName(path)).Root();
  root.RequireOnly({"schema", "machine", "recorded", "adapters", "probes"});
  MachineSnapshot machine;
  if (const JsonNode schema = root.Member("schema"); schema.UInt32() != kSchema)
    schema.Fail(std::to_string(kSchema) + ", or read it with the qela that has written it");
  const std::optional<JsonNode> label = root.FindMember("machine");
  machine.machine = label ? label->Text() : NameWithoutJson(path);
  machine.recorded = ToUtf8(root.Member("recorded").Text());
  for (const JsonNode& adapter : root.Member("adapters").Elements()) machine.adapters.push_back(AdapterOf(adapter));
  if (const std::optional<JsonNode> probes = root.FindMember("probes")) {
    probes->RequireOnly({"registry", "httpsHosts", "managementServer"});
    machine.registry = AnswersOf(*probes, "registry");
    machine.httpsHosts = AnswersOf(*probes, "httpsHosts");
    if (const std::optional<JsonNode> answer = probes->FindMember("managementServer"))
      machine.managementServer = answer->Bool();
  }
  return machine;
}

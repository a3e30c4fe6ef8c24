// Recorded machines: what is accepted is the same machine after it has been written and read, and gets the same
// verdicts.
#include <string>
#include <vector>

#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/Explanation.h"
#include "Tools/qela/Json.h"
#include "Tools/qela/MachineSnapshot.h"
#include "Tools/qela/TestSet.h"

namespace {

constexpr const wchar_t* kFile = L"pc.json";

// Asks for everything that a machine may show.
const TestSet& Set() {
  static const TestSet set = [] {
    const std::pair<LOCATION_CRITERIA_TYPE, const wchar_t*> criteria[] = {{LCT_DNS_SUFFIX, L"*.example"},
                                                                          {LCT_DEFAULT_GATEWAY, L"10.0.0.1"},
                                                                          {LCT_DNS_SERVER, L"10.0.0.53"},
                                                                          {LCT_DHCP_SERVER, L"10.0.0.2"},
                                                                          {LCT_PRIMARY_WINS, L"10.0.0.3"},
                                                                          {LCT_SECONDARY_WINS, L"10.0.0.4"},
                                                                          {LCT_REGISTRY_KEY, L"HKEY_USERS\\a\\b=c"},
                                                                          {LCT_DOMAIN_REACHABLE, L"vpn.example"},
                                                                          {LCT_ZELT_REACHABLE, L""}};
    LocationSet locations;
    CQeLocation all = CQeLocation::ToBeRead();
    for (const auto& [kind, text] : criteria) {
      CQeLocation one = CQeLocation::ToBeRead();
      one.SetId(L"id-" + std::to_wstring(locations.size()));
      one.SetName(one.GetId());
      one.AddCriteria(&kind, text);
      all.AddCriteria(&kind, text);
      locations.push_back(one);
    }
    all.SetId(L"all");
    all.SetName(L"all");
    locations.push_back(all);
    return TestSet(locations);
  }();
  return set;
}

void RequireSame(const MachineSnapshot& machine, const std::string& written) {
  const MachineSnapshot again = ParseMachine(written, kFile);
  if (again.machine != machine.machine || again.recorded != machine.recorded || again.registry != machine.registry ||
      again.httpsHosts != machine.httpsHosts || again.managementServer != machine.managementServer ||
      again.adapters.size() != machine.adapters.size())
    FuzzFail("another machine after it was written and read");
  for (std::size_t i = 0; i < again.adapters.size(); ++i)
    if (RenderAdapterProps(again.adapters[i]) != RenderAdapterProps(machine.adapters[i]) ||
        again.adapters[i].mediaType != machine.adapters[i].mediaType ||
        again.adapters[i].macAddresses != machine.adapters[i].macAddresses)
      FuzzFail("another adapter after it was written and read");
  if (Set().VerdictsOn(again) != Set().VerdictsOn(machine)) FuzzFail("other verdicts after it was written and read");
}

void Run(FuzzInput input) {
  MachineSnapshot machine;
  try {
    machine = ParseMachine(FuzzBytes(input), kFile);
  } catch (const CommandError& error) {
    RequireRefusal(error, kFailed, "pc.json: ");
    return FuzzKind(0);
  }
  for (const bool onOneLine : {false, true}) RequireSame(machine, MachineAsJson(machine, onOneLine));
  // Every member stands for itself.
  if (nlohmann::json::parse(MachineAsJson(machine, false))["adapters"] !=
      nlohmann::json::parse(input.begin(), input.end())["adapters"])
    FuzzFail("other adapters than the file has");
  const std::vector<Verdict> verdicts = Set().VerdictsOn(machine);
  std::uint32_t kind = 1;
  for (std::size_t i = 0; i < verdicts.size(); ++i) {
    kind = kind * 3 + static_cast<std::uint32_t>(verdicts[i]);
    const LocationExplanation explanation = Explain(Set().Locations()[i], machine);
    if (explanation.verdict != verdicts[i]) FuzzFail("an explanation of another verdict");
    RequireShowable(ToText(explanation), "an explanation");
    ToJson(explanation).dump();
    for (const std::string& reason : Set().Reasons(machine, i, verdicts[i])) RequireShowable(reason, "a reason");
    if (verdicts[i] == Verdict::kUnknown && Set().QuestionsLeft(machine, i).empty())
      FuzzFail("nothing is left to ask of what is not known");
  }
  FuzzKind(kind);
}

const FuzzTarget g_target(
    "machine", Run,
    {R"({"schema":1,"recorded":"t","adapters":[)",
     R"({"index":2,"description":"eth0","media":"wired","macAddresses":[],"ipAddresses":[],"gateways":["10.0.0.1"],)",
     R"("dhcpEnabled":true,"dhcpServer":"10.0.0.2","dhcpV6Server":"","dnsSuffix":"a.example","dnsServers":["10.0.0.53"],)",
     R"("winsPrimary":"10.0.0.3","winsSecondary":"10.0.0.4"})", R"(],"probes":{)", R"("registry":[)",
     R"("httpsHosts":[)", R"({"asked":"HKEY_USERS\\a\\b=c","answer":true})",
     R"({"asked":"vpn.example","answer":false})", R"("managementServer":true)", R"("machine":"pc")", "\"wireless\"",
     "\"virtual\"", "\"other\"", "}", "]", "null", "\\u0000", "\xc3\xbc"});

}  // namespace

#include "Checks.h"

#include <windows.h>

#include <algorithm>
#include <set>
#include <utility>

#include "Explanation.h"
#include "Text.h"

namespace {

using Result = Check::Result;

constexpr int kEarliestYear = 2025;  // of a clock that can be right

Check OfSet(const MachineFacts& facts) {
  if (!facts.setError.empty())
    return {"set", Result::kError, facts.setError, "put it back with \"qela restore\", or apply an exported set"};
  if (facts.set.empty())
    return {"set", Result::kWarn, "no location is stored, so that none is ever current",
            "add one with \"qela location add\", or apply a file with \"qela apply\""};
  Check check{"set", Result::kOk,
              Counted(facts.set.size(), "location") + " stored; lint finds " + Counted(facts.lintErrors, "error") +
                  (facts.lintRules.empty() ? "" : " (" + facts.lintRules + ")") + ", " +
                  Counted(facts.lintWarnings, "warning") + " and " + Counted(facts.lintNotes, "note"),
              ""};
  if (facts.lintErrors != 0 || facts.lintWarnings != 0) check.advice = "\"qela lint\" tells each and how to mend it";
  if (facts.lintErrors != 0)
    check.result = Result::kError;
  else if (facts.lintWarnings != 0)
    check.result = Result::kWarn;
  return check;
}

Check OfVersions(const MachineFacts& facts) {
  const std::string program = "qela " + facts.programVersion;
  const char* const kInstall = "put qela.exe and QeLaLib.dll of one package into the same folder";
  if (facts.libraryError == ERROR_MOD_NOT_FOUND || facts.libraryError == ERROR_FILE_NOT_FOUND)
    return {"versions", Result::kError, program + "; there is no QeLaLib.dll beside it", kInstall};
  if (facts.libraryError != ERROR_SUCCESS)
    return {"versions", Result::kError,
            program + "; QeLaLib.dll beside it cannot be loaded (error " + std::to_string(facts.libraryError) + ")",
            kInstall};
  const std::string found =
      program + ", QeLaLib.dll " + (facts.libraryVersion.empty() ? "without a version" : facts.libraryVersion);
  if (facts.libraryVersion != facts.programVersion)
    return {"versions", Result::kWarn, found + ": they differ, and what qela says of the library may not hold",
            kInstall};
  return {"versions", Result::kOk, found, ""};
}

Check OfHostLibraries(const MachineFacts& facts) {
  constexpr const char* kName = "hostLibraries";
  if (facts.libraryError != ERROR_SUCCESS)
    return {kName, Result::kWarn, "QeLaLib.dll cannot be loaded, so that nothing is known of what it needs",
            "mend that first"};
  std::string found;
  std::string wrong;
  for (const HostLibrary& library : facts.hostLibraries) {
    found += (found.empty() ? "" : ", ") + library.name + (library.version.empty() ? "" : " " + library.version);
    std::string what;
    if (library.error == ERROR_MOD_NOT_FOUND || library.error == ERROR_FILE_NOT_FOUND)
      what = " is missing";
    else if (library.error != ERROR_SUCCESS)
      what = " cannot be loaded (error " + std::to_string(library.error) + ")";
    else if (library.missing != 0)
      what =
          " lacks " + Counted(library.missing, "function") + " that QeLaLib.dll calls, such as " + library.firstMissing;
    if (!what.empty()) wrong += (wrong.empty() ? "" : "; ") + library.name + what;
  }
  if (!wrong.empty())
    return {kName, Result::kError, wrong, "put the libraries of the host, or those of the package, beside QeLaLib.dll"};
  return {kName, Result::kOk, "beside QeLaLib.dll: " + (found.empty() ? "none, and it needs none" : found), ""};
}

Check OfAccount(const MachineFacts& facts) {
  const Identity& who = facts.identity;
  const std::string account = who.user.empty()
                                  ? "an account without a name"
                                  : Printable(who.domain) + (who.domain.empty() ? "" : "\\") + Printable(who.user);
  std::string found = "qela runs as " + account + (facts.isElevated ? ", elevated" : ", not elevated");
  const char* const kService =
      "a service runs as another account, with another HKEY_CURRENT_USER and proxy: compare with its log";
  const char* const kRun = "run it as an administrator, elevated";
  if (facts.readError != ERROR_SUCCESS)
    return {"account", Result::kError,
            found + "; it may not read the locations (error " + std::to_string(facts.readError) + ")", kRun};
  if (facts.writeError != ERROR_SUCCESS)
    return {"account", Result::kWarn,
            found + "; it may read the locations, but not change them (error " + std::to_string(facts.writeError) + ")",
            std::string(kRun) + ", for changes; " + kService};
  return {"account", Result::kOk, found + "; it may read and change the locations", kService};
}

Check OfWaiting(const MachineFacts& facts) {
  constexpr std::uint64_t kMostSeconds = 60;
  if (facts.webHosts == 0)
    return {"waiting", Result::kOk, "no enabled location asks a web host, so that a change of network waits for none",
            ""};
  const std::string found = "with " + Counted(facts.webHosts, "web host") + " and " +
                            Counted(facts.adapters.size(), "adapter") + " a change of network takes up to " +
                            std::to_string(facts.cost.silentSeconds) + " s where hosts are silent, and up to " +
                            std::to_string(facts.cost.worstSeconds) + " s where they are made to be slow";
  if (facts.cost.silentSeconds <= kMostSeconds) return {"waiting", Result::kOk, found, ""};
  return {"waiting", Result::kWarn, found,
          "name fewer hosts, and put kinds in front that hold only where the hosts answer (\"qela lint\", L401)"};
}

Check OfAdapters(const MachineFacts& facts) {
  const std::vector<AdapterProps>& adapters = facts.adapters;
  if (adapters.empty())
    return {"adapters", Result::kError, "no adapter is up, so that no location that asks anything of one is current",
            "connect the machine, and look at \"qela adapters\""};
  std::vector<std::string> odd;
  if (std::all_of(adapters.begin(), adapters.end(), [](const AdapterProps& each) { return each.gateways.empty(); }))
    odd.emplace_back("no adapter has a default gateway");
  std::set<std::wstring> seen;
  std::set<std::wstring> twice;
  for (const AdapterProps& adapter : adapters)
    if (!seen.insert(adapter.description).second && twice.insert(adapter.description).second)
      odd.push_back("several adapters have the description " + Printable(adapter.description));
  for (const AdapterProps& adapter : adapters)
    if (adapter.ifIndex == 0)
      odd.push_back("adapter " + Printable(adapter.description) + " has no IPv4, and so the index 0, as others may");
  const std::string count = Counted(adapters.size(), "adapter") + " up";
  if (odd.empty()) return {"adapters", Result::kOk, count, ""};
  std::string found = count;
  for (const std::string& each : odd) found += "; " + each;
  return {"adapters", Result::kWarn, found,
          "compare with \"qela adapters\"; criteria cannot tell apart what looks the same, and the log cannot either"};
}

// The set keeps of each location on which adapters it was when it was last found current, however long ago; what a
// service has found since, it does not hold.
Check OfLastCalculation(const MachineFacts& facts) {
  constexpr const char* kName = "lastCalculation";
  MachineSnapshot machine;
  machine.adapters = facts.adapters;
  std::string changed;
  std::size_t known = 0;
  for (const CQeLocation& location : facts.set) {
    if (!location.IsEnabled() || location.AdapterIndexes().empty()) continue;
    ++known;
    const LocationExplanation now = Explain(location, machine);
    const std::set<std::uint32_t> stored(location.AdapterIndexes().begin(), location.AdapterIndexes().end());
    const bool areThere = std::all_of(stored.begin(), stored.end(), [&](std::uint32_t index) {
      return std::any_of(facts.adapters.begin(), facts.adapters.end(),
                         [index](const AdapterProps& adapter) { return adapter.ifIndex == index; });
    });
    const char* const what = now.verdict == Verdict::kNotCurrent ? "is not current now"
                             : !areThere                         ? "was on an adapter that is not there now"
                                                                 : nullptr;
    if (what != nullptr) changed += (changed.empty() ? "" : "; ") + Printable(location.Name()) + " " + what;
  }
  if (!changed.empty())
    return {kName, Result::kWarn, "since the locations were last stored as current: " + changed,
            "where that is not meant, \"qela explain\" tells why; the log of the service tells what it decided"};
  if (known == 0)
    return {kName, Result::kOk, "no enabled location was stored as current, so that nothing can be compared", ""};
  return {kName, Result::kOk,
          "nothing speaks against what " + Counted(known, "location") + " was stored with, as far as adapters tell",
          ""};
}

Check OfDnsDomain(const MachineFacts& facts) {
  constexpr const char* kName = "dnsDomain";
  if (!facts.identity.dnsDomain.empty())
    return {kName, Result::kOk, "the machine's DNS domain is " + Printable(facts.identity.dnsDomain), ""};
  if (facts.webHosts == 0)
    return {kName, Result::kOk,
            "the machine has no DNS domain; no enabled location asks a web host, which would need it", ""};
  return {kName, Result::kWarn,
          "the machine has no DNS domain: web hosts behind a proxy that is only announced by DNS are not reached",
          "set the primary DNS suffix of the machine, or announce the proxy by DHCP"};
}

Check OfClock(const MachineFacts& facts) {
  constexpr std::uint64_t kSettledSeconds = 300;
  constexpr std::uint64_t kDayInMinutes = 1440;
  const std::uint64_t minutes = facts.upSeconds / 60;
  const std::string found = "the machine started " + std::to_string(minutes / kDayInMinutes) + " d " +
                            std::to_string(minutes / 60 % 24) + " h " + std::to_string(minutes % 60) +
                            " min ago; its clock shows " + facts.time;
  if (facts.year < kEarliestYear)
    return {"clock", Result::kError, found + ", when no certificate of a web host was valid yet", "set the clock"};
  if (facts.upSeconds < kSettledSeconds)
    return {"clock", Result::kWarn, found + ": adapters, services and proxies may still be coming up",
            "check again in some minutes"};
  return {"clock", Result::kOk, found, ""};
}

Check OfService(const MachineFacts& /*facts*/) {
  return {"service", Result::kOk,
          "qela cannot see inside a running service: its locations, its lists and its last decision are its own",
          "\"qela explain --from-log FILE\" and \"qela timeline\" read the log of the service"};
}

}  // namespace

std::vector<Check> Judge(const MachineFacts& facts) {
  return {OfSet(facts),      OfVersions(facts),        OfHostLibraries(facts), OfAccount(facts), OfWaiting(facts),
          OfAdapters(facts), OfLastCalculation(facts), OfDnsDomain(facts),     OfClock(facts),   OfService(facts)};
}

const char* NameOf(Check::Result result) {
  return result == Result::kError ? "error" : result == Result::kWarn ? "warn" : "ok";
}

std::size_t CountOf(const std::vector<Check>& checks, Check::Result result) {
  return static_cast<std::size_t>(
      std::count_if(checks.begin(), checks.end(), [result](const Check& check) { return check.result == result; }));
}

Json ToJson(const std::vector<Check>& checks) {
  Json list = Json::array();
  for (const Check& check : checks)
    list.push_back(
        {{"name", check.name}, {"result", NameOf(check.result)}, {"found", check.found}, {"advice", check.advice}});
  return {{"checks", std::move(list)},
          {"errors", CountOf(checks, Result::kError)},
          {"warnings", CountOf(checks, Result::kWarn)}};
}

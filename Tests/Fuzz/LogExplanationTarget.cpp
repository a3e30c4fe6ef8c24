// Logs from which lines are missing, in which they stand twice, in another order or cut: whatever is left, no location
// is said to be current that was not, nor the other way round.
#include <algorithm>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/ExplainMachine.h"
#include "Tools/qela/Explanation.h"
#include "Tools/qela/LogMessages.h"
#include "Tools/qela/LoggedCalculation.h"

namespace {

struct Place {
  const wchar_t* name;
  const wchar_t* gateway;
  bool asksForManagementServer;
  bool asksForHost;
  int adapter;  // the index of the one that has the gateway; 0 for none
  bool isCurrent;
};
// What is so in every calculation.
constexpr Place kPlaces[] = {{L"Office", L"10.0.0.1", false, false, 2, true},
                             {L"Home", L"192.168.1.1", false, false, 0, false},
                             {L"Branch for location Office...", L"10.0.0.1", false, true, 2, false},
                             {L"Managed", L"10.0.0.9", true, false, 3, true},
                             {L"Lost", L"10.0.0.9", true, true, 3, false}};
struct Adapter {
  int index;
  const wchar_t* description;
  const wchar_t* gateway;
};
constexpr Adapter kAdapters[] = {{2, L"eth0", L"10.0.0.1"}, {3, L"wlan0: Adapters List", L"10.0.0.9"}};

using Texts = std::vector<std::wstring>;

void AppendLocation(Texts& texts, const Place& place) {
  const std::wstring name = place.name;
  texts.push_back(L"IsCurrentLocation checking location " + name);
  texts.push_back(std::wstring(L"IsCurrentLocation bZeltReachabilityCriteria ") +
                  (place.asksForManagementServer ? L"1" : L"0"));
  bool any = false;
  for (const Adapter& adapter : kAdapters) {
    const std::wstring with =
        L"index " + std::to_wstring(adapter.index) + L" and description " + adapter.description + L".";
    texts.push_back(L"Matching all the location criterias with the properties of adapter with " + with);
    bool matches = adapter.index == place.adapter;
    if (matches)
      texts.push_back(std::wstring(L"Location: Default gateway : ") + place.gateway + L" matched for adapter with " +
                      with);
    if (matches && place.asksForHost) {
      texts.emplace_back(L"Send Request failed for h errorCode 12029");
      texts.emplace_back(L"IsDomainReachable was unable to match domain h");
      matches = false;
    }
    texts.push_back(matches ? L"All the criteria's given in location matches adapter index " +
                                  std::to_wstring(adapter.index) + L" with description " + adapter.description +
                                  L". Hence this adapter will be matching."
                            : L"Not all the criteria's given in the location matches the adapter with index " +
                                  std::to_wstring(adapter.index) + L" and description " + adapter.description +
                                  L". Hence this adapter will be non-matching.");
    any = any || matches;
  }
  if (!any)
    texts.emplace_back(
        L"None of the available network adapter properties matches all the criteria's given in the location");
  if (any && place.asksForManagementServer) {
    texts.emplace_back(L"IsZELTReachable calling DnsQuery on zelt.example");
    texts.emplace_back(L"CheckZeltReachability succeeded");
  }
  texts.push_back(std::wstring(L"IsCurrentLocation returning matched criterias ") + (place.isCurrent ? L"1" : L"0") +
                  L" for location " + name + L"...");
  if (place.isCurrent) texts.push_back(L"Adding current location ID id-" + name);
}

Texts Calculation() {
  Texts texts = {L"The location discovery thread received an address change notification",
                 L"Calculating current locations...", L"GetAdaptersAddresses succeeds, the return value is : 0",
                 L"Adapters List :"};
  for (const Adapter& adapter : kAdapters) {
    AdapterProps props;
    props.ifIndex = static_cast<std::uint32_t>(adapter.index);
    props.description = adapter.description;
    props.gateways = {adapter.gateway};
    texts.push_back(L"Adapter properties:\n" + RenderAdapterProps(props));
    texts.emplace_back(L"//---------------------------------------------\n");
  }
  for (const Place& place : kPlaces) AppendLocation(texts, place);
  texts.emplace_back(L"Skipped raising a location changed event...");
  return texts;
}

std::string InOneLine(std::wstring text) {
  std::wstring escaped;
  for (const wchar_t unit : text)
    escaped += unit == L'\n' ? L"\\n" : unit == L'\t' ? L"\\t" : unit == L'\\' ? L"\\\\" : std::wstring(1, unit);
  return ToUtf8(escaped);
}

// As lines of a log: of our own, of a host that writes line breaks as they are, of one that writes JSON.
std::vector<std::string> Lines(std::size_t host) {
  std::vector<std::string> lines;
  int number = 0;
  for (int calculation = 0; calculation < 2; ++calculation)
    for (const std::wstring& text : Calculation()) {
      const std::string time = "2025-11-21T02:44:00." + std::to_string(100 + ++number);
      switch (host) {
        case 0:
          lines.push_back(time + "+01:00\t8\tFirewallBL\tFIREWALL\tQeLaLib.cpp:1\t" + InOneLine(text));
          break;
        case 1: {
          std::string rest = ToUtf8(text);
          if (rest.ends_with('\n')) rest.pop_back();
          lines.push_back(time + " [7] INFO - " + rest.substr(0, rest.find('\n')));
          while (rest.find('\n') != std::string::npos) {
            rest.erase(0, rest.find('\n') + 1);
            lines.push_back(rest.substr(0, rest.find('\n')));
          }
          break;
        }
        default:
          lines.push_back("{\"time\":\"" + time + "\",\"msg\":\"" + InOneLine(text) + "\",\"n\":1}");
      }
    }
  return lines;
}

// Nothing that turns one message into another.
void Damage(std::vector<std::string>& lines, FuzzChoices& choices) {
  while (!choices.Empty() && lines.size() > 1) {
    const std::size_t what = choices.Below(5);
    const std::size_t at = choices.Below(lines.size());
    const std::size_t count = std::min(1 + choices.Below(16), lines.size() - at);
    const auto begin = lines.begin() + static_cast<std::ptrdiff_t>(at);
    const auto end = begin + static_cast<std::ptrdiff_t>(count);
    switch (what) {
      case 0:
        lines.erase(begin, end);
        break;
      case 1: {
        const std::vector<std::string> again(begin, end);
        if (lines.size() < 500) lines.insert(begin, again.begin(), again.end());
        break;
      }
      case 2:
        std::reverse(begin, end);
        break;
      case 3:
        lines.erase(end, lines.end());  // the log ends there
        break;
      default:
        lines.insert(begin, "2025-11-21T02:44:00.500 [9] INFO - something else, of another component");
    }
  }
}

const LocationSet& Set() {
  static const LocationSet set = [] {
    LocationSet locations;
    for (const Place& place : kPlaces) {
      CQeLocation location = CQeLocation::ToBeRead();
      location.SetId(std::wstring(L"id-") + place.name);
      location.SetName(place.name);
      const auto add = [&](LOCATION_CRITERIA_TYPE kind, const wchar_t* text) { location.AddCriteria(&kind, text); };
      add(LCT_DEFAULT_GATEWAY, place.gateway);
      if (place.asksForHost) add(LCT_DOMAIN_REACHABLE, L"h");
      if (place.asksForManagementServer) add(LCT_ZELT_REACHABLE, L"");
      locations.push_back(location);
    }
    return locations;
  }();
  return set;
}

void RequireTrue(const LocationExplanation& explanation, const LoggedLocation& logged) {
  RequireShowable(ToText(explanation), "an explanation");
  const auto place =
      std::find_if(std::begin(kPlaces), std::end(kPlaces), [&](const Place& each) { return each.name == logged.name; });
  if (place == std::end(kPlaces)) FuzzFail("a location that is none: " + ToUtf8(logged.name));
  if (logged.isCurrent && *logged.isCurrent != place->isCurrent) FuzzFail("a false verdict was read");
  if (explanation.verdict != Verdict::kUnknown && (explanation.verdict == Verdict::kCurrent) != place->isCurrent)
    FuzzFail("a false verdict: " + explanation.sentence);
}

void Run(FuzzInput input) {
  static const std::vector<std::string> kHosts[] = {Lines(0), Lines(1), Lines(2)};
  FuzzChoices choices(input);
  std::vector<std::string> lines = choices.Pick(kHosts);
  const bool isCut = choices.Flip();
  const std::size_t cut = choices.Byte();
  Damage(lines, choices);
  std::string log;
  for (const std::string& line : lines) log += line + "\n";
  if (isCut) log.resize(log.size() - std::min(cut, log.size()));

  std::uint32_t verdicts = 0;
  CalculationReader reader;
  const auto take = [&](const LoggedCalculation& calculation) {
    const std::vector<const CQeLocation*> records = RecordsOf(calculation, Set());
    for (std::size_t i = 0; i < calculation.locations.size(); ++i) {
      const LoggedLocation& logged = calculation.locations[i];
      verdicts += logged.isCurrent ? 1U : 0U;
      RequireTrue(Explain(calculation, logged), logged);
      if (records[i] != nullptr) RequireTrue(Explain(*records[i], calculation, logged), logged);
    }
  };
  LogMessages ahead([](const LoggedMessage&) {});
  ahead.Take(log);
  LogMessages messages([&](const LoggedMessage& message) {
    if (const auto calculation = reader.OnMessage(message)) take(*calculation);
  });
  messages.LearnFrom(ahead);
  messages.Take(log);
  messages.End();
  if (const auto calculation = reader.End()) take(*calculation);
  if (input.empty() && verdicts != 2 * std::size(kPlaces)) FuzzFail("the whole log has other verdicts");
  FuzzKind(verdicts);
}

const FuzzTarget g_target("log-explanation", Run);

}  // namespace

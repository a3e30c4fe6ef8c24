#include "LoggedCalculation.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "AdapterReport.h"
#include "LibraryMessages.h"

namespace {

// Takes the beginning off a text that has it.
bool Skip(std::wstring_view& text, std::wstring_view beginning) {
  if (!text.starts_with(beginning)) return false;
  text.remove_prefix(beginning.size());
  return true;
}

bool SkipEnd(std::wstring_view& text, std::wstring_view end) {
  if (!text.ends_with(end)) return false;
  text.remove_suffix(end.size());
  return true;
}

// A whole number as %d and %ld write it, up to `end`, of the text that begins with it.
bool SkipNumber(std::wstring_view& text, std::uint32_t& number) {
  const bool isNegative = Skip(text, L"-");
  std::uint64_t value = 0;
  std::size_t digits = 0;
  for (; digits < text.size() && text[digits] >= L'0' && text[digits] <= L'9'; ++digits) {
    value = value * 10 + static_cast<std::uint64_t>(text[digits] - L'0');
    if (value > std::numeric_limits<std::uint32_t>::max()) return false;
  }
  text.remove_prefix(digits);
  number = static_cast<std::uint32_t>(isNegative ? 0 - value : value);
  return digits != 0;
}

bool IsNumber(std::wstring_view text, std::uint32_t& number) { return SkipNumber(text, number) && text.empty(); }

// "NAME CODE", where the name may hold blanks.
bool SplitNumber(std::wstring_view text, std::wstring_view separator, std::wstring& name, std::uint32_t& number) {
  const std::size_t at = text.rfind(separator);
  if (at == std::wstring_view::npos || !IsNumber(text.substr(at + separator.size()), number)) return false;
  name = text.substr(0, at);
  return true;
}

// As the messages about an adapter name it; the index is written as a signed number.
std::wstring NameOf(const LoggedAdapterTest& test) {
  return L" adapter with index " + std::to_wstring(static_cast<std::int32_t>(test.ifIndex)) + L" and description " +
         test.description + L".";
}

// Whether a message in which its file ends is there to its end: one that is compared with what was said before, or
// whose words are fixed, and that ends in a full stop. Names, hosts and values may hold full stops themselves, so that
// others may go on behind theirs.
bool IsThereToItsEnd(std::wstring_view text) {
  constexpr std::wstring_view kCompared[] = {L"IsCurrentLocation returning ", L"All the criteria's ",
                                             L"Not all the criteria's ", L"Location: "};
  return text.ends_with(L'.') && (FixedBeginningOfMessage(text) == text.size() ||
                                  std::any_of(std::begin(kCompared), std::end(kCompared),
                                              [&](std::wstring_view known) { return text.starts_with(known); }));
}

std::wstring_view WithoutBlanksAtEnd(std::wstring_view text) {
  while (text.ends_with(L' ')) text.remove_suffix(1);
  return text;
}

struct HeldMessage {
  std::wstring_view beginning;
  LOCATION_CRITERIA_TYPE kind;
};
constexpr HeldMessage kHeldMessages[] = {
    {L"Location: DNS suffix : ", LCT_DNS_SUFFIX},
    {L"Location: Default gateway : ", LCT_DEFAULT_GATEWAY},
    {L"Location: DHCP server : ", LCT_DHCP_SERVER},
    {L"Location: DNS server : ", LCT_DNS_SERVER},
    {L"Location: Primary WINS : ", LCT_PRIMARY_WINS},
    {L"Location: Secondary WINS : ", LCT_SECONDARY_WINS},
    {L"Location: Registry key", LCT_REGISTRY_KEY},
    {L"Location: Domain reachable test passed for", LCT_DOMAIN_REACHABLE},
};

}  // namespace

bool LoggedCalculation::IsWhole() const {
  return hasBeginning && broken.empty() && unreadableAdapters == 0 &&
         std::all_of(locations.begin(), locations.end(),
                     [](const LoggedLocation& location) { return location.isCurrent.has_value(); });
}

void CalculationReader::Begin(const LoggedMessage& message, bool hasBeginning) {
  m_calculation = {};
  m_calculation.hasBeginning = hasBeginning;
  m_calculation.began = message.time;
  m_calculation.file = message.file;
  m_calculation.line = message.line;
  if (std::exchange(m_addressesChanged, false)) m_calculation.cause = LoggedCalculation::Cause::kAddressChange;
  m_phase = hasBeginning ? Phase::kSnapshot : Phase::kLocations;
  m_isLocationOpen = false;
}

std::optional<LoggedCalculation> CalculationReader::OnMessage(const LoggedMessage& message) {
  constexpr std::wstring_view kChecking = L"IsCurrentLocation checking location";
  std::optional<LoggedCalculation> ended;
  const std::wstring_view text = message.text;
  if (message.mayBeCut && !IsThereToItsEnd(text)) return ended;
  m_now = message.time;
  if (text == L"Calculating current locations...") {
    if (m_phase != Phase::kNone && !m_isLocationOpen) m_calculation.isComplete = true;
    ended = End();
    Begin(message, true);
  } else if (!TakeOfDiscovery(text)) {
    if (m_phase == Phase::kNone && text.starts_with(kChecking)) Begin(message, false);
    if (m_phase == Phase::kNone || !m_calculation.broken.empty()) return ended;
    if (!TakeOfSnapshot(text) && !TakeOfLocation(text, message) && !TakeOfAdapterTest(text) && !TakeOfRegistry(text) &&
        !TakeOfHost(text) && !TakeOfManagementServer(text))
      return ended;  // of no calculation
    if (m_calculation.broken.empty()) m_calculation.ended = message.time;
  }
  return ended;
}

std::optional<LoggedCalculation> CalculationReader::End() {
  if (std::exchange(m_phase, Phase::kNone) == Phase::kNone) return std::nullopt;
  return std::exchange(m_calculation, {});
}

void CalculationReader::Break(const char* reason) {
  if (m_calculation.broken.empty()) m_calculation.broken = reason;
}

// Said by another thread than that of a calculation which a host's call has begun: it stands for itself.
bool CalculationReader::TakeOfDiscovery(std::wstring_view text) {
  using Report = LoggedCalculation::Report;
  if (text == L"The location discovery thread received an address change notification") {
    m_addressesChanged = true;
    return true;
  }
  const bool raised = text == L"Raising a location changed event...";
  if (!raised && text != L"Skipped raising a location changed event...") return false;
  // Where a location is under way, it speaks of an earlier calculation, or of another service's.
  if (m_phase == Phase::kNone || m_isLocationOpen || m_phase == Phase::kSnapshot) return true;
  m_calculation.isComplete = true;
  if (m_calculation.report == Report::kNone) m_calculation.report = raised ? Report::kRaised : Report::kSkipped;
  return true;
}

bool CalculationReader::TakeOfSnapshot(std::wstring_view text) {
  // Where none is awaited, somebody has only looked, as qela watch does; a second calculation also reports what it saw.
  if (text.starts_with(L"GetAdaptersAddresses succeeds, the return value is : ")) return m_phase == Phase::kSnapshot;
  if (text == L"Adapters List :") {
    if (m_phase != Phase::kSnapshot) Break("the adapters are reported twice");
    m_phase = Phase::kAdapters;
    return true;
  }
  if (Skip(text, L"Adapter properties:\n")) {
    if (m_phase != Phase::kAdapters) {
      Break("an adapter is reported where none is expected");
    } else if (std::optional<AdapterProps> adapter = ParseAdapterProperties(text)) {
      m_calculation.adapters.push_back(std::move(*adapter));
    } else {
      ++m_calculation.unreadableAdapters;
    }
    return true;
  }
  if (text != L"CalculateCurrentAdapterProps failed.") return false;
  if (m_phase != Phase::kAdapters || !m_calculation.adapters.empty())
    Break("the library says that it found no adapters, behind some");
  m_calculation.hasFailed = m_calculation.broken.empty();
  m_phase = Phase::kOver;
  return true;
}

bool CalculationReader::TakeOfLocation(std::wstring_view text, const LoggedMessage& message) {
  if (!Skip(text, L"IsCurrentLocation ")) {
    if (text == L"IsCurrentLocation checking location") text = {};  // of an empty name, without the blank at its end
    if (Skip(text, L"Adding current location ID ")) {
      if (m_isLocationOpen || m_calculation.locations.empty() || !m_calculation.locations.back().id.empty() ||
          !m_calculation.locations.back().isCurrent.value_or(false))
        Break("a location is said to be current that was not");
      else
        m_calculation.locations.back().id = text;
      return true;
    }
    if (text != L"None of the available network adapter properties matches all the criteria's given in the location")
      return false;
    if (!m_isLocationOpen || OpenTest() != nullptr ||
        std::any_of(m_calculation.locations.back().adapters.begin(), m_calculation.locations.back().adapters.end(),
                    [](const LoggedAdapterTest& test) { return test.matches.value_or(false); }))
      Break("no adapter is said to match where one does");
    return true;
  }
  if (Skip(text, L"checking location")) {
    Skip(text, L" ");
    const bool isExpected =
        !m_isLocationOpen &&
        (m_phase == Phase::kLocations ||
         (m_phase == Phase::kAdapters && m_calculation.adapters.size() + m_calculation.unreadableAdapters != 0));
    if (!isExpected) {
      Break("a location is tested where none is expected");
      return true;
    }
    m_phase = Phase::kLocations;
    m_isLocationOpen = true;
    LoggedLocation& location = m_calculation.locations.emplace_back();
    location.name = text;
    location.began = message.time;
    m_server = {};
    m_probeBegan = message.time;
    return true;
  }
  if (!m_isLocationOpen) {
    Break("a location's test goes on that has not begun");
    return true;
  }
  LoggedLocation& location = m_calculation.locations.back();
  std::uint32_t number = 0;
  if (Skip(text, L"bZeltReachabilityCriteria ")) {
    if (!IsNumber(text, number) || number > 1 || location.asksForManagementServer)
      Break("what a location asks for is told twice");
    else
      location.asksForManagementServer = number == 1;
  } else if (Skip(text, L"criteria count is ")) {
    if (!IsNumber(text, number) || number > 1 || !location.adapters.empty() || location.hasNoTextCriteria ||
        location.asksForManagementServer != (number == 1))
      Break("a location without criteria is tested like one with some");
    location.hasNoTextCriteria = true;
    m_probeBegan = message.time;
  } else if (Skip(text, L"returning matched criterias ")) {
    EndLocation(text);
    if (m_calculation.broken.empty()) location.ended = message.time;
  }
  return true;
}

void CalculationReader::EndLocation(std::wstring_view text) {
  LoggedLocation& location = m_calculation.locations.back();
  std::uint32_t verdict = 0;
  if (!SkipNumber(text, verdict) || verdict > 1 || !Skip(text, L" for location ") || !SkipEnd(text, L"...") ||
      // Some hosts cut blanks at the end of a line.
      (text != location.name && WithoutBlanksAtEnd(text) != location.name))
    return Break("a location ends that is not the one which began");
  const std::vector<LoggedAdapterTest>& tests = location.adapters;
  const bool areAllTested = location.hasNoTextCriteria || !m_calculation.hasBeginning ||
                            tests.size() == m_calculation.adapters.size() + m_calculation.unreadableAdapters;
  bool isCurrent = location.hasNoTextCriteria;
  for (const LoggedAdapterTest& test : tests) {
    if (!test.matches) return Break("an adapter's test has no end");
    isCurrent |= *test.matches;
  }
  const bool asksServer = location.asksForManagementServer.value_or(false);
  if (!location.asksForManagementServer || !areAllTested ||
      location.managementServer.has_value() != (asksServer && isCurrent))
    return Break("a location's test is not whole");
  if (location.managementServer) isCurrent = location.managementServer->answer;
  if (isCurrent != (verdict == 1)) return Break("a location's verdict is not what its lines lead to");
  location.name = text;
  location.isCurrent = isCurrent;
  m_isLocationOpen = false;
}

LoggedAdapterTest* CalculationReader::OpenTest() {
  if (!m_isLocationOpen || m_calculation.locations.back().adapters.empty()) return nullptr;
  LoggedAdapterTest& last = m_calculation.locations.back().adapters.back();
  return last.matches ? nullptr : &last;
}

bool CalculationReader::TakeOfAdapterTest(std::wstring_view text) {
  if (Skip(text, L"Matching all the location criterias with the properties of adapter with index ")) {
    BeginAdapterTest(text);
    return true;
  }
  LoggedAdapterTest* const test = OpenTest();
  const bool all = Skip(text, L"All the criteria's given in location matches adapter index ");
  if (all || Skip(text, L"Not all the criteria's given in the location matches the adapter with index ")) {
    const std::wstring expected =
        test == nullptr
            ? std::wstring()
            : std::to_wstring(static_cast<std::int32_t>(test->ifIndex)) +
                  (all ? L" with description " : L" and description ") + test->description +
                  (all ? L". Hence this adapter will be matching." : L". Hence this adapter will be non-matching.");
    if (test == nullptr || text != expected)
      Break("an adapter's test ends that is not the one which began");
    else
      EndAdapterTest(all);
    return true;
  }
  const auto* const held = std::find_if(std::begin(kHeldMessages), std::end(kHeldMessages),
                                        [&](const HeldMessage& known) { return text.starts_with(known.beginning); });
  if (held == std::end(kHeldMessages)) return false;
  text.remove_prefix(held->beginning.size());
  const bool isDomain = held->kind == LCT_DOMAIN_REACHABLE;
  if (test == nullptr || !SkipEnd(text, (isDomain ? L"" : L" matched for") + NameOf(*test)) ||
      (!test->held.empty() && test->held.back().kind >= held->kind) ||
      isDomain != (!test->hosts.empty() && test->hosts.back().answer)) {
    Break("a criterion holds for an adapter that is not tested");
    return true;
  }
  test->held.push_back({held->kind, std::wstring(text)});
  m_probeBegan = m_now;
  return true;
}

void CalculationReader::BeginAdapterTest(std::wstring_view text) {
  constexpr const char* kUnexpected = "an adapter is tested where none is expected";
  std::uint32_t index = 0;
  if (!SkipNumber(text, index) || !Skip(text, L" and description ") || !SkipEnd(text, L".") || !m_isLocationOpen ||
      OpenTest() != nullptr)
    return Break(kUnexpected);
  LoggedLocation& location = m_calculation.locations.back();
  const std::size_t position = location.adapters.size();
  const std::vector<AdapterProps>& adapters = m_calculation.adapters;
  const bool areKnown = m_calculation.hasBeginning && m_calculation.unreadableAdapters == 0;
  if (location.hasNoTextCriteria || !location.asksForManagementServer || location.managementServer ||
      (areKnown &&
       (position >= adapters.size() || adapters[position].ifIndex != index || adapters[position].description != text)))
    return Break(kUnexpected);
  LoggedAdapterTest& test = location.adapters.emplace_back();
  test.ifIndex = index;
  test.description = text;
  m_host = {};
  m_probeBegan = m_now;
}

void CalculationReader::EndAdapterTest(bool matches) {
  LoggedAdapterTest& test = *OpenTest();
  const auto holds = [&](LOCATION_CRITERIA_TYPE kind) {
    return std::any_of(test.held.begin(), test.held.end(),
                       [&](const LoggedAdapterTest::Held& held) { return held.kind == kind; });
  };
  // A criterion fails without a line, and so does the adapter; but what was asked elsewhere has left lines.
  if (!m_host.requests.empty() ||
      (matches && ((!test.hosts.empty() && !holds(LCT_DOMAIN_REACHABLE)) ||
                   (!test.registry.empty() && !holds(LCT_REGISTRY_KEY)) || test.held.empty())) ||
      (!matches && holds(LCT_DOMAIN_REACHABLE)))
    return Break("an adapter's verdict is not what its lines lead to");
  test.matches = matches;
  m_probeBegan = m_now;
}

bool CalculationReader::TakeOfRegistry(std::wstring_view text) {
  using What = LoggedRegistryFact::What;
  LoggedRegistryFact fact;
  constexpr std::wstring_view kCompared = L" the specified location awareness group value of ";
  if (Skip(text, L"The registry key ")) {
    if (SkipEnd(text, L" specified for the location does not exist."))
      fact.what = What::kKeyMissing;
    else if (SkipEnd(text, L" specified for the location does not exist in KEY_WOW64_64KEY."))
      fact.what = What::kKeyMissing64;
    else
      return false;
    fact.name = text;
  } else if (text == L"Checking only for existence of the registry key and not the registry value/data.") {
    fact.what = What::kKeyExists;
  } else if (Skip(text, L"Unable to find the ")) {
    if (Skip(text, L"string value in the registry for "))
      fact.what = What::kNoText;
    else if (Skip(text, L"DWORD value in the registry for "))
      fact.what = What::kNoNumber;
    else
      return false;
    if (!SkipEnd(text, L".")) return false;
    fact.name = text;
  } else if (Skip(text, L"The registry value ") && SkipEnd(text, L".")) {
    std::size_t at = text.find(kCompared);
    if (at == std::wstring_view::npos) return false;
    fact.data = text.substr(at + kCompared.size());
    text = text.substr(0, at);
    if (SkipEnd(text, L" does NOT match"))
      fact.what = What::kValueDiffers;
    else if (SkipEnd(text, L" matches"))
      fact.what = What::kValueAgrees;
    else
      return false;
    fact.name = text;
  } else {
    return false;
  }
  LoggedAdapterTest* const test = OpenTest();
  if (test == nullptr || !test->hosts.empty() || (!test->held.empty() && test->held.back().kind >= LCT_REGISTRY_KEY))
    Break("the registry is asked where it is not expected");
  else
    test->registry.push_back(std::move(fact));
  return true;
}

bool CalculationReader::TakeOfHost(std::wstring_view text) {
  constexpr const char* kUnexpected = "a web host is asked where none is expected";
  const bool failed = Skip(text, L"Send Request failed for ");
  LoggedAdapterTest* const test = OpenTest();
  const bool isExpected = test != nullptr && (test->hosts.empty() || !test->hosts.back().answer);
  if (failed || Skip(text, L"WinHttp Send Request status code for ")) {
    LoggedHostProbe::Request request;
    request.wasSent = !failed;
    if (!isExpected || !SplitNumber(text, failed ? L" errorCode " : L" ", m_host.host, request.code))
      Break(kUnexpected);
    else
      m_host.requests.push_back(request);
    return true;
  }
  if (Skip(text, L"Cert Error Code:")) {
    std::uint32_t flags = 0;
    if (isExpected && IsNumber(text, flags)) m_host.certificateErrors.push_back(flags);
    return true;
  }
  const bool answer = Skip(text, L"IsDomainReachable was able to match domain ");
  if (!answer && !Skip(text, L"IsDomainReachable was unable to match domain ")) return false;
  if (!isExpected || (!m_host.requests.empty() && m_host.host != text)) {
    Break(kUnexpected);
    return true;
  }
  m_host.host = text;
  m_host.answer = answer;
  m_host.took = SinceProbeBegan();
  test->hosts.push_back(std::exchange(m_host, {}));
  m_probeBegan = m_now;
  return true;
}

bool CalculationReader::TakeOfManagementServer(std::wstring_view text) {
  if (Skip(text, L"IsZELTReachable calling DnsQuery on ")) {
    m_server.names.emplace_back(text);
    return true;
  }
  const bool answer = text == L"CheckZeltReachability succeeded";
  if (!answer && text != L"CheckZeltReachability failed") return false;
  if (!m_isLocationOpen || OpenTest() != nullptr || m_calculation.locations.back().managementServer) {
    Break("the management server is asked where it is not expected");
    return true;
  }
  m_server.answer = answer;
  m_server.took = SinceProbeBegan();
  m_calculation.locations.back().managementServer = std::exchange(m_server, {});
  return true;
}

std::optional<std::chrono::milliseconds> CalculationReader::SinceProbeBegan() const {
  if (!m_now || !m_probeBegan) return std::nullopt;
  const std::int64_t milliseconds = LogTime::MillisecondsBetween(*m_probeBegan, *m_now);
  if (milliseconds < 0) return std::nullopt;  // the clock was set
  return std::chrono::milliseconds(milliseconds);
}

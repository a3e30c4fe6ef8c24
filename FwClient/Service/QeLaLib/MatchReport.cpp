#include "FwClient/Service/QeLaLib/MatchReport.h"

#include <utility>

std::vector<std::wstring> SeenOf(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind) {
  switch (kind) {
    case LCT_DNS_SUFFIX:
      return {adapter.dnsSuffix};
    case LCT_DEFAULT_GATEWAY:
      return adapter.gateways;
    case LCT_DHCP_SERVER:
      return {adapter.dhcpServer, adapter.dhcpV6Server};
    case LCT_DNS_SERVER:
      return adapter.dnsServers;
    case LCT_PRIMARY_WINS:
      return {adapter.winsPrimary};
    case LCT_SECONDARY_WINS:
      return {adapter.winsSecondary};
    case LCT_REGISTRY_KEY:
    case LCT_DOMAIN_REACHABLE:
    case LCT_ZELT_REACHABLE:
      break;
  }
  return {};
}

void MatchReporter::OnLocation(const LocationCriteria& location) {
  m_report.locations.emplace_back().name = *location.name;
  m_probes.clear();
}

void MatchReporter::OnNoTextCriteria(std::size_t, const std::vector<AdapterProps>& adapters) {
  for (const AdapterProps& adapter : adapters)
    m_report.locations.back().adapters.push_back({adapter.ifIndex, adapter.description, true, {}});
}

void MatchReporter::OnAdapter(const AdapterProps& adapter) {
  m_report.locations.back().adapters.push_back({adapter.ifIndex, adapter.description, false, {}});
}

void MatchReporter::OnKindHeld(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                               const std::vector<std::wstring>& values, const std::wstring& value) {
  Add(adapter, kind, values, MatchReport::Outcome::kHeld).held = value;
}

void MatchReporter::OnKindFailed(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                                 const std::vector<std::wstring>& values) {
  Add(adapter, kind, values, MatchReport::Outcome::kFailed);
}

void MatchReporter::OnKindNotReached(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                                     const std::vector<std::wstring>& values) {
  Add(adapter, kind, values, MatchReport::Outcome::kNotReached);
}

MatchReport::Kind& MatchReporter::Add(const AdapterProps& adapter, LOCATION_CRITERIA_TYPE kind,
                                      const std::vector<std::wstring>& values, MatchReport::Outcome outcome) {
  MatchReport::Kind& added = m_report.locations.back().adapters.back().kinds.emplace_back();
  added.kind = kind;
  added.outcome = outcome;
  added.asked = values;
  added.seen = SeenOf(adapter, kind);
  added.probes = std::exchange(m_probes, {});
  return added;
}

void MatchReporter::OnAdapterDone(const AdapterProps&, bool matches) {
  m_report.locations.back().adapters.back().matches = matches;
}

void MatchReporter::OnProbe(LOCATION_CRITERIA_TYPE, const std::wstring&) { m_asked = std::chrono::steady_clock::now(); }

void MatchReporter::OnProbeDone(LOCATION_CRITERIA_TYPE kind, const std::wstring& text, bool answer) {
  MatchReport::Probe probe{text, answer, std::chrono::steady_clock::now() - m_asked};
  if (kind == LCT_ZELT_REACHABLE)
    m_report.locations.back().managementServer = std::move(probe);
  else
    m_probes.push_back(std::move(probe));
}

void MatchReporter::OnLocationDone(const LocationCriteria&, bool isCurrent) {
  m_report.locations.back().isCurrent = isCurrent;
}

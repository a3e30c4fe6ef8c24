#include "Lint.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "CriterionKinds.h"
#include "FwClient/Common/Utilities/AsciiCase.h"
#include "FwClient/Service/QeLaLib/CriteriaValue.h"
#include "FwClient/Service/QeLaLib/HttpsLimits.h"
#include "LintCriterion.h"
#include "Text.h"

using namespace LintRules;

namespace {

// Of one host and one adapter: three attempts, each of which a host that is merely silent costs the limit to connect;
// and what a host and a proxy that are made to be slow can do. Docs/timeouts.md derives both.
constexpr std::uint64_t kSilentSeconds = std::uint64_t{3} * HttpsLimits::kConnectMs / 1000;
constexpr std::uint64_t kWorstSeconds = 433'090;

// The text of a criterion as the library compares it.
std::wstring Canonical(LOCATION_CRITERIA_TYPE kind, const std::wstring& value) {
  std::wstring text = NormalizeCriteriaValue(value);
  if (kind == LCT_DNS_SUFFIX) LowerAscii(text);
  return text;
}

// One text for all locations that ask for the same: in their kinds the order does not count. Values are written with
// their lengths, so that no value can look like two.
std::wstring KeyOf(const CQeLocationCriterias& criteria) {
  std::wstring key = criteria.IsZeltReachable() ? L"1" : L"0";
  for (const CriterionKind& kind : kCriterionKinds) {
    std::vector<std::wstring> values;
    for (const std::wstring& value : criteria.Texts(kind.kind)) values.push_back(Canonical(kind.kind, value));
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
    key += L"|" + std::to_wstring(values.size());
    for (const std::wstring& value : values) key += L":" + std::to_wstring(value.size()) + L":" + value;
  }
  return key;
}

class SetLint {
 public:
  SetLint(const LocationSet& set, std::size_t adapters) : m_set(set), m_adapters(std::max<std::size_t>(adapters, 1)) {}

  // Those that are not chosen are compared with, and not told about.
  std::vector<Finding> Run(const std::vector<std::size_t>& chosen, const std::vector<std::size_t>& others) {
    for (const std::size_t i : others) Compare(i, false);
    for (const std::size_t i : chosen) {
      CheckLocation(i);
      Compare(i, true);
    }
    return std::move(m_findings);
  }

 private:
  Finding& Add(const LintRule& rule, std::size_t location, const std::string& detail, const std::string& fix) {
    return m_findings.emplace_back(Finding{&rule, location, std::nullopt, {}, detail, fix, std::nullopt});
  }

  void CheckLocation(std::size_t location) {
    const CQeLocationCriterias& criteria = m_set[location].Criterias();
    for (const CriterionKind& kind : kCriterionKinds) CheckValues(location, kind.kind, criteria.Texts(kind.kind));
    if (criteria.GetCount() == 0)
      Add(kNoCriteria, location, {}, "give it criteria, or disable it");
    else
      CheckProof(location, criteria);
    if (m_set[location].IsEnabled()) CheckCost(location, criteria);
  }

  void CheckValues(std::size_t location, LOCATION_CRITERIA_TYPE kind, const std::vector<std::wstring>& values) {
    std::unordered_set<std::wstring> stored;
    std::unordered_set<std::wstring> compared;
    for (const std::wstring& value : values) {
      const auto report = [&](const LintRule& rule, const std::string& detail, const std::string& fix) {
        Finding& finding = Add(rule, location, detail, fix);
        finding.kind = kind;
        finding.value = value;
      };
      m_criteria.Check(kind, value, report);
      if (!stored.insert(NormalizeCriteriaValue(value)).second)
        report(kTwice, {}, "remove one of them");
      else if (!compared.insert(Canonical(kind, value)).second)
        report(kOtherCase, {}, "remove one of them");
    }
  }

  // Who runs a network chooses all that its adapters show, and what its DNS server says of the management server. Only
  // the certificate of a web host, and what the registry holds, are not the network's to give.
  void CheckProof(std::size_t location, const CQeLocationCriterias& criteria) {
    const bool isRegistryAsked = !criteria.Texts(LCT_REGISTRY_KEY).empty();
    const bool isHostAsked = !criteria.Texts(LCT_DOMAIN_REACHABLE).empty();
    std::size_t announced = criteria.IsZeltReachable() ? 1 : 0;
    std::size_t shown = 0;  // by adapters, at no cost
    std::string only = "the management server, which any DNS server can claim to know";
    for (const CriterionKind& kind : kCriterionKinds) {
      if (kind.kind >= LCT_REGISTRY_KEY || criteria.Texts(kind.kind).empty()) continue;
      ++shown;
      if (++announced == 1) only = std::string("the ") + kind.title;
    }
    if (!isRegistryAsked && !isHostAsked && announced == 1)
      Add(kOneAnnouncement, location, only,
          "add a web host that only the organisation's network reaches, or more kinds");
    else if (!isRegistryAsked && !isHostAsked && announced > 1)
      Add(kAnnouncements, location, {},
          "add a web host that only the organisation's network reaches, where it matters");
    else if (isRegistryAsked && !isHostAsked && announced == 0)
      Add(kRegistryAlone, location, {}, "add what the network shows, such as a gateway, if a network is meant");
    if (shown == 0 && !isRegistryAsked && (isHostAsked || criteria.IsZeltReachable()))
      Add(kProbeWithoutFilter, location,
          isHostAsked ? "the web host is asked for each adapter that is up" : "the management server is asked for once",
          "add what the network shows, such as a DNS suffix or a gateway, so that it is asked for there only");
  }

  void CheckCost(std::size_t location, const CQeLocationCriterias& criteria) {
    const std::size_t hosts = criteria.Texts(LCT_DOMAIN_REACHABLE).size();
    const char* const kWhen = "; at every change of an address, load and save";
    if (hosts != 0) {
      const std::uint64_t times = std::uint64_t{hosts} * m_adapters;
      const ProbeCost cost = {times * kSilentSeconds, times * kWorstSeconds};
      Add(kCost, location,
          std::to_string(hosts) + (hosts == 1 ? " web host" : " web hosts") + " for " + std::to_string(m_adapters) +
              (m_adapters == 1 ? " adapter" : " adapters") + ": about " + std::to_string(cost.silentSeconds) +
              " s where they are silent, up to " + std::to_string(cost.worstSeconds) +
              " s where they are made to be slow" + kWhen,
          "put cheap kinds in front that hold only where the hosts answer, and name few hosts")
          .cost = cost;
    } else if (criteria.IsZeltReachable()) {
      Add(kCost, location,
          std::string("one DNS query for each server in the agent's list, as long as Windows tries") + kWhen,
          "put cheap kinds in front that hold only where the server is known");
    }
  }

  void Compare(std::size_t location, bool isToldOf) {
    const CQeLocation& each = m_set[location];
    const auto compare = [&](auto& seen, const std::wstring& key, const LintRule& rule, const char* fix) {
      const auto [first, isNew] = seen.try_emplace(key, location);
      if (!isNew && isToldOf) Add(rule, location, "the other is " + Quoted(m_set[first->second]), fix);
      return isNew;
    };
    if (each.Id().empty()) {
      if (isToldOf) Add(kId, location, "it has none", "remove it and add it again");
    } else {
      compare(m_ids, each.Id(), kId, "remove one of them and add it again");
    }
    if (each.IsEnabled() && each.Criterias().GetCount() != 0)
      compare(m_keys, KeyOf(each.Criterias()), kSameCriteria, "remove or disable one, or tell them apart");
    if (compare(m_names, each.Name(), kSameName, "rename one of them"))
      compare(m_blurredNames, WithoutCaseAndBlanks(each.Name()), kSimilarName, "rename one of them");
  }

  const LocationSet& m_set;
  const std::size_t m_adapters;
  CriterionLint m_criteria;
  std::vector<Finding> m_findings;
  // The first location with each.
  using Places = std::unordered_map<std::wstring, std::size_t>;
  Places m_ids;
  Places m_keys;
  Places m_names;
  Places m_blurredNames;
};

}  // namespace

std::vector<Finding> Lint(const LocationSet& set, std::size_t adapters) {
  std::vector<std::size_t> all(set.size());
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
  return SetLint(set, adapters).Run(all, {});
}

std::vector<Finding> LintLocations(const LocationSet& set, const std::vector<std::wstring>& ids, std::size_t adapters) {
  const std::unordered_set<std::wstring_view> wanted(ids.begin(), ids.end());
  std::vector<std::size_t> chosen;
  std::vector<std::size_t> others;
  for (std::size_t i = 0; i < set.size(); ++i) (wanted.contains(set[i].Id()) ? chosen : others).push_back(i);
  return SetLint(set, adapters).Run(chosen, others);
}

const char* NameOf(Severity severity) {
  return severity == Severity::kError ? "error" : severity == Severity::kWarning ? "warning" : "note";
}

// The rules of Lint.h that look at one criterion.
#pragma once

#include <QeLaCriteria.h>

#include <functional>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"
#include "LintRules.h"

// Can be used for a whole set: what takes an expression is compiled once.
class CriterionLint {
 public:
  using Report = std::function<void(const LintRule& rule, const std::string& detail, const std::string& fix)>;

  CriterionLint();

  void Check(LOCATION_CRITERIA_TYPE kind, const std::wstring& value, const Report& report);

 private:
  void CheckSuffix(const std::wstring& value, const Report& report);
  bool CheckLabels(const std::wstring& value, const Report& report);

  DnsSuffixMatcher m_matcher;
  DnsSuffixCriterion m_criterion;
  DnsLabels m_labels;  // of the criterion
  std::vector<DnsLabels> m_strangers;
  struct Below {
    const wchar_t* suffix;
    std::vector<DnsLabels> names;
  };
  std::vector<Below> m_belowPublic;
};

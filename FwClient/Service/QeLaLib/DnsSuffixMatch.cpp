#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"

#include <algorithm>

#include "FwClient/Common/Utilities/AsciiCase.h"

namespace {

constexpr std::size_t kUsualCharacters = 64;
constexpr std::size_t kUsualLabels = 8;

}  // namespace

bool DnsSuffixMatches(std::wstring_view criterion, std::wstring_view suffix) {
  DnsSuffixCriterion wanted;
  wanted.Assign(criterion);
  DnsLabels found;
  found.Assign(suffix);
  return DnsSuffixMatcher().Matches(wanted, found);
}

DnsLabels::DnsLabels() {
  m_text.reserve(kUsualCharacters);
  m_labels.reserve(kUsualLabels);
}

void DnsLabels::Assign(std::wstring_view text) {
  m_text = text;
  LowerAscii(m_text);
  m_labels.clear();
  std::size_t end = m_text.size();
  for (std::size_t i = m_text.size(); i-- > 0;) {
    if (m_text[i] != L'.') continue;
    m_labels.push_back({i + 1, end - i - 1});
    end = i;
  }
  m_labels.push_back({0, end});
}

DnsSuffixCriterion::DnsSuffixCriterion() { m_rules.reserve(kUsualLabels); }

void DnsSuffixCriterion::Assign(std::wstring_view text) {
  m_labels.Assign(text);
  m_rules.clear();
  for (std::size_t i = 0; i < m_labels.Count(); ++i) {
    const std::wstring_view label = m_labels.FromRight(i);
    const std::size_t plainStar = FindPlainStar(label);
    if (label == L"*")
      m_rules.push_back({Kind::kAny});  // also the end of a line, for which a star in a label does not stand
    else if (plainStar != std::wstring_view::npos)
      m_rules.push_back({Kind::kPlainWildcard, plainStar});
    else
      m_rules.push_back({label.find(L'*') == std::wstring_view::npos ? Kind::kEqual : Kind::kExpression});
  }
}

bool DnsSuffixMatcher::Matches(const DnsSuffixCriterion& criterion, const DnsLabels& suffix) {
  const std::size_t common = std::min(criterion.m_labels.Count(), suffix.Count());
  for (std::size_t i = 0; i < common; ++i) {
    const std::wstring_view label = criterion.m_labels.FromRight(i);
    const std::wstring_view text = suffix.FromRight(i);
    bool agrees = true;
    switch (criterion.m_rules[i].kind) {
      case DnsSuffixCriterion::Kind::kEqual:
        agrees = label == text;
        break;
      case DnsSuffixCriterion::Kind::kAny:
        break;
      case DnsSuffixCriterion::Kind::kPlainWildcard:
        agrees = PlainWildcardMatches(label, criterion.m_rules[i].star, text);
        break;
      case DnsSuffixCriterion::Kind::kExpression:
        agrees = MatchesExpression(label, text);
        break;
    }
    if (!agrees) return false;
  }
  return true;
}

bool DnsSuffixMatcher::MatchesExpression(std::wstring_view label, std::wstring_view text) {
  m_label = label;
  m_text = text;
  return m_expressions.try_emplace(m_label, m_label).first->second.Matches(m_text);
}

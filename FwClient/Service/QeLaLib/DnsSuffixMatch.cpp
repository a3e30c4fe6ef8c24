#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"

#include <cstddef>
#include <utility>

bool DnsSuffixMatches(std::wstring_view criterion, std::wstring_view suffix) {
  return DnsSuffixMatcher().Matches(criterion, suffix);
}

bool DnsSuffixMatcher::Matches(std::wstring_view criterion, std::wstring_view suffix) {
  for (;;) {
    const std::size_t criterionDot = criterion.rfind(L'.');
    const std::size_t suffixDot = suffix.rfind(L'.');
    // Without a dot the label is the whole rest: npos + 1 is 0.
    if (!LabelMatches(criterion.substr(criterionDot + 1), suffix.substr(suffixDot + 1))) return false;
    if (criterionDot == std::wstring_view::npos || suffixDot == std::wstring_view::npos) return true;
    criterion = criterion.substr(0, criterionDot);
    suffix = suffix.substr(0, suffixDot);
  }
}

bool DnsSuffixMatcher::LabelMatches(std::wstring_view criterionLabel, std::wstring_view suffixLabel) {
  if (criterionLabel.find(L'*') == std::wstring_view::npos) return EqualsIgnoringAsciiCase(criterionLabel, suffixLabel);
  if (criterionLabel == L"*") return true;  // also with the end of a line, for which a star in a label does not stand
  if (IsPlainWildcard(criterionLabel)) return PlainWildcardMatches(criterionLabel, suffixLabel);
  m_text = suffixLabel;
  LowerAscii(m_text);
  return Compiled(criterionLabel).Matches(m_text);
}

const WildcardLabel& DnsSuffixMatcher::Compiled(std::wstring_view label) {
  if (const auto known = m_expressions.find(label); known != m_expressions.end()) return known->second;
  std::wstring lower(label);
  LowerAscii(lower);
  WildcardLabel compiled(lower);
  return m_expressions.emplace(std::move(lower), std::move(compiled)).first->second;
}

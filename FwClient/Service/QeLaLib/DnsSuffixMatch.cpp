#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "FwClient/Common/Utilities/AsciiCase.h"

void SplitLabels(const std::wstring& text, LabelList& labels, wchar_t delimiter) {
  for (std::size_t start = 0;;) {
    const std::size_t end = text.find(delimiter, start);
    std::wstring& label = labels.emplace_back(text, start, end == std::wstring::npos ? end : end - start);
    LowerAscii(label);
    if (end == std::wstring::npos) return;
    start = end + 1;
  }
}

bool DnsSuffixMatches(const std::wstring& criterion, const std::wstring& suffix) {
  return DnsSuffixMatcher().Matches(criterion, suffix);
}

bool DnsSuffixMatcher::Matches(const std::wstring& criterion, const std::wstring& suffix) {
  return CompareLabelLists(LabelsOf(criterion), LabelsOf(suffix));
}

void DnsSuffixMatcher::Clear() noexcept {
  m_labels.clear();
  m_wildcards.clear();
}

const LabelList& DnsSuffixMatcher::LabelsOf(const std::wstring& text) {
  if (const auto known = m_labels.find(text); known != m_labels.end()) return known->second;
  LabelList labels;
  SplitLabels(text, labels, L'.');
  return m_labels.emplace(text, std::move(labels)).first->second;
}

bool DnsSuffixMatcher::CompareLabelLists(const LabelList& criterionLabels, const LabelList& suffixLabels) {
  const std::size_t common = std::min(criterionLabels.size(), suffixLabels.size());
  return std::equal(criterionLabels.rbegin(), criterionLabels.rbegin() + static_cast<std::ptrdiff_t>(common),
                    suffixLabels.rbegin(),
                    [this](const std::wstring& a, const std::wstring& b) { return LabelMatches(a, b); });
}

bool DnsSuffixMatcher::LabelMatches(const std::wstring& criterionLabel, const std::wstring& suffixLabel) {
  if (criterionLabel == L"*") return true;
  if (criterionLabel.find(L'*') == std::wstring::npos) return criterionLabel == suffixLabel;
  return m_wildcards.try_emplace(criterionLabel, criterionLabel).first->second.Matches(suffixLabel);
}

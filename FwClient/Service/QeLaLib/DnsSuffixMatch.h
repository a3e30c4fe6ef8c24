// Comparison of DNS suffixes, label by label from the right.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "FwClient/Service/QeLaLib/WildcardLabel.h"

using LabelList = std::vector<std::wstring>;

// Appends the pieces of `text` between the delimiters, in lower case and in order. Empty pieces are kept: an empty text
// is one empty label, and a trailing delimiter adds one.
void SplitLabels(const std::wstring& text, LabelList& labels, wchar_t delimiter);

// Whether a criterion agrees with an adapter's suffix. Letter case does not count, and the comparison ends as soon as
// either list of labels runs out, in both directions: "example.com" agrees with "corp.example.com", and the other way
// round. A label "*" agrees with any label; a label that holds "*" is a WildcardLabel; others must be equal.
bool DnsSuffixMatches(const std::wstring& criterion, const std::wstring& suffix);

// The same for many pairs: every text is split once and every wildcard label compiled at most once in the object's
// life, which is one calculation. Not for use by two threads at once.
class DnsSuffixMatcher {
 public:
  bool Matches(const std::wstring& criterion, const std::wstring& suffix);

  // Forgets everything.
  void Clear() noexcept;

 private:
  const LabelList& LabelsOf(const std::wstring& text);
  bool CompareLabelLists(const LabelList& criterionLabels, const LabelList& suffixLabels);
  bool LabelMatches(const std::wstring& criterionLabel, const std::wstring& suffixLabel);

  std::unordered_map<std::wstring, LabelList> m_labels;         // by text
  std::unordered_map<std::wstring, WildcardLabel> m_wildcards;  // by label
};

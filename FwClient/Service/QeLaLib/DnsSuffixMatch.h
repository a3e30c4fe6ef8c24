// Comparison of DNS suffixes, label by label from the right.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>

#include "FwClient/Common/Utilities/AsciiCase.h"
#include "FwClient/Service/QeLaLib/WildcardLabel.h"

// Whether a criterion agrees with an adapter's suffix. Letter case does not count, and the comparison ends as soon as
// either text has no further label, in both directions: "example.com" agrees with "corp.example.com", and the other way
// round. A label "*" agrees with any label; a label that holds "*" is a WildcardLabel; others must be equal. Labels may
// be empty: a text that is empty, or ends in a dot, has an empty last one.
bool DnsSuffixMatches(std::wstring_view criterion, std::wstring_view suffix);

// The same for many pairs: every label that takes an expression is compiled at most once in the object's life, which is
// one calculation. Other labels need no memory. Not for use by two threads at once.
class DnsSuffixMatcher {
 public:
  bool Matches(std::wstring_view criterion, std::wstring_view suffix);

 private:
  bool LabelMatches(std::wstring_view criterionLabel, std::wstring_view suffixLabel);
  const WildcardLabel& Compiled(std::wstring_view label);

  std::unordered_map<std::wstring, WildcardLabel, AsciiCaseHash, AsciiCaseEqual> m_expressions;  // by label
  std::wstring m_text;  // of the label that an expression is matched against
};

// Comparison of DNS suffixes, label by label from the right.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "FwClient/Service/QeLaLib/WildcardLabel.h"

// Whether a criterion agrees with an adapter's suffix. Letter case does not count, and the comparison ends as soon as
// either text has no further label, in both directions: "example.com" agrees with "corp.example.com", and the other way
// round. A label "*" agrees with any label; a label that holds "*" is a WildcardLabel; others must be equal. Labels may
// be empty: a text that is empty, or ends in a dot, has an empty last one.
bool DnsSuffixMatches(std::wstring_view criterion, std::wstring_view suffix);

// A text cut into its labels, in lower case. Can be used again for another text, for which it has the memory as long as
// that is a usual name.
class DnsLabels {
 public:
  DnsLabels();
  void Assign(std::wstring_view text);

  std::size_t Count() const noexcept { return m_labels.size(); }
  std::wstring_view FromRight(std::size_t i) const noexcept {
    return {m_text.data() + m_labels[i].start, m_labels[i].length};
  }

 private:
  struct Label {
    std::size_t start;
    std::size_t length;
  };
  std::wstring m_text;
  std::vector<Label> m_labels;  // from the right
};

// A criterion's labels, and what each of them agrees with.
class DnsSuffixCriterion {
 public:
  DnsSuffixCriterion();
  void Assign(std::wstring_view text);

 private:
  friend class DnsSuffixMatcher;
  enum class Kind { kEqual, kAny, kPlainWildcard, kExpression };
  struct Rule {
    Kind kind;
    std::size_t star = 0;  // of a plain wildcard
  };

  DnsLabels m_labels;
  std::vector<Rule> m_rules;  // of each label
};

// Compares many pairs: every label that takes an expression is compiled at most once in the object's life, which is one
// calculation. Not for use by two threads at once.
class DnsSuffixMatcher {
 public:
  bool Matches(const DnsSuffixCriterion& criterion, const DnsLabels& suffix);

 private:
  bool MatchesExpression(std::wstring_view label, std::wstring_view text);

  std::unordered_map<std::wstring, WildcardLabel> m_expressions;  // by label
  std::wstring m_label;
  std::wstring m_text;
};

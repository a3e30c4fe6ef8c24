// One label of a DNS-suffix criterion that holds a "*".
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

// The regular-expression text of a label: the first "*" becomes ".*" and the whole is anchored. Nothing else is
// escaped, so a further "*" repeats the character before it, and "?", "+", "(" or "[" keep their meaning.
// Administrators' stored criteria rely on it.
std::wstring WildcardToRegex(const std::wstring& label);

// Where the star is in a label like "corp*": the only one, among characters that stand for themselves. Such a label
// needs no expression, and has no limit of length. npos for any other.
std::size_t FindPlainStar(std::wstring_view label) noexcept;

// Whether the whole of `text` matches such a label, both in lower case. The star stands for anything but the ends of
// lines, as in the expression that the label would be.
bool PlainWildcardMatches(std::wstring_view label, std::size_t star, std::wstring_view text) noexcept;

// A compiled label. Immutable, so that one object serves a whole calculation.
class WildcardLabel {
 public:
  // `label` is in lower case and holds a "*". A label that is no valid expression, or is too large to be matched
  // safely, makes an object that matches nothing: a broken criterion must not end the calculation of the others.
  explicit WildcardLabel(const std::wstring& label);
  ~WildcardLabel();
  WildcardLabel(const WildcardLabel&) = delete;
  WildcardLabel& operator=(const WildcardLabel&) = delete;

  // Whether the whole of `text`, in lower case, matches.
  bool Matches(const std::wstring& text) const;

  // For what tells administrators of broken labels.
  bool MatchesNothing() const noexcept { return m_matcher == nullptr; }

 private:
  struct Matcher;
  struct Plain;
  struct Expression;
  struct Backtracking;
  static std::unique_ptr<const Matcher> Compile(const std::wstring& label);

  std::unique_ptr<const Matcher> m_matcher;  // null: matches nothing
};

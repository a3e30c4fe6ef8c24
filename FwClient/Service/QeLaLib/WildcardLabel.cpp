#include "FwClient/Service/QeLaLib/WildcardLabel.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <regex>
#include <string_view>
#include <utility>

namespace {

// The characters that a regular expression does not take literally; a "." cannot occur in a label.
constexpr std::wstring_view kExpressionCharacters = L"^$\\+?()[]{}|";

// The expression library recurses once a term while it compiles and once a state while it matches. Labels beyond these
// sizes are no DNS names, and would cost stack that a host's thread may not have. Measured stack use: Docs/quirks.md.
constexpr std::size_t kMaxExpressionCharacters = 255;
constexpr std::size_t kMaxExpandedCharacters = 2000;  // with every {n} written out
constexpr std::size_t kMaxTextCharacters = 255;

// Steps that matching with back-references may take: enough for every label of usual length, and milliseconds.
constexpr std::size_t kMaxSteps = 2000;

bool IsDigit(wchar_t character) { return character >= L'0' && character <= L'9'; }

// An upper bound of the expression's size once the library has written out its counted repetitions, which may nest.
std::size_t ExpandedSize(std::wstring_view expression) {
  std::size_t size = expression.size();
  for (std::size_t i = 0; i < expression.size(); ++i) {
    if (expression[i] != L'{') continue;
    std::size_t most = 1;
    std::size_t number = 0;
    for (std::size_t j = i + 1; j < expression.size() && (IsDigit(expression[j]) || expression[j] == L','); ++j) {
      number = IsDigit(expression[j])
                   ? std::min(number * 10 + static_cast<std::size_t>(expression[j] - L'0'), kMaxExpandedCharacters)
                   : 0;
      most = std::max(most, number);
    }
    size = std::min(size * most, 2 * kMaxExpandedCharacters);
  }
  return size;
}

// What "." does not match.
bool IsLineEnd(wchar_t character) { return character == L'\n' || character == L'\r'; }

struct OutOfSteps {};

// Walks a text and counts: the backtracking matcher can take exponential time and has no limit of its own.
class CountingIterator {
 public:
  using iterator_category = std::bidirectional_iterator_tag;
  using value_type = wchar_t;
  using difference_type = std::ptrdiff_t;
  using pointer = const wchar_t*;
  using reference = const wchar_t&;

  CountingIterator() = default;
  CountingIterator(const wchar_t* position, std::size_t* steps) : m_position(position), m_steps(steps) {}

  reference operator*() const {
    if (m_steps != nullptr && ++*m_steps > kMaxSteps) throw OutOfSteps();
    return *m_position;
  }
  CountingIterator& operator++() {
    ++m_position;
    return *this;
  }
  CountingIterator operator++(int) {
    CountingIterator before = *this;
    ++m_position;
    return before;
  }
  CountingIterator& operator--() {
    --m_position;
    return *this;
  }
  CountingIterator operator--(int) {
    CountingIterator before = *this;
    --m_position;
    return before;
  }
  bool operator==(const CountingIterator& other) const {
    if (m_steps != nullptr && ++*m_steps > kMaxSteps) throw OutOfSteps();
    return m_position == other.m_position;
  }

 private:
  const wchar_t* m_position = nullptr;
  std::size_t* m_steps = nullptr;
};

}  // namespace

struct WildcardLabel::Matcher {
  virtual ~Matcher() = default;
  virtual bool Matches(const std::wstring& text) const = 0;
};

// "corp*": the usual label needs no expression at all, and has no limit of length.
struct WildcardLabel::Affixes final : Matcher {
  Affixes(std::wstring_view start, std::wstring_view end) : prefix(start), suffix(end) {}
  bool Matches(const std::wstring& text) const override {
    if (text.size() < prefix.size() + suffix.size() || !text.starts_with(prefix) || !text.ends_with(suffix))
      return false;
    const auto wild = std::wstring_view(text).substr(prefix.size(), text.size() - prefix.size() - suffix.size());
    return std::none_of(wild.begin(), wild.end(), IsLineEnd);
  }
  std::wstring prefix;
  std::wstring suffix;
};

// Any other label. The library's breadth-first matcher takes polynomial time, so that "(a*)*b" costs what it looks
// like.
struct WildcardLabel::Expression final : Matcher {
  explicit Expression(const std::wstring& text)
      : expression(text, std::regex_constants::ECMAScript | std::regex_constants::__polynomial) {}
  bool Matches(const std::wstring& text) const override {
    return text.size() <= kMaxTextCharacters && std::regex_match(text, expression);
  }
  std::wregex expression;
};

// That matcher refuses back-references; the default one knows them but may take exponential time, so its steps are
// counted. Giving up counts as no match.
struct WildcardLabel::BackReferences final : Matcher {
  explicit BackReferences(const std::wstring& text) : expression(text, std::regex_constants::ECMAScript) {}
  bool Matches(const std::wstring& text) const override {
    if (text.size() > kMaxTextCharacters) return false;
    std::size_t steps = 0;
    try {
      return std::regex_match(CountingIterator(text.data(), &steps),
                              CountingIterator(text.data() + text.size(), &steps), expression);
    } catch (const OutOfSteps&) {
      return false;
    }
  }
  std::wregex expression;
};

std::wstring WildcardToRegex(const std::wstring& label) {
  std::wstring expression = L"^" + label + L"$";
  if (const std::size_t star = expression.find(L'*'); star != std::wstring::npos) expression.replace(star, 1, L".*");
  return expression;
}

std::unique_ptr<const WildcardLabel::Matcher> WildcardLabel::Compile(const std::wstring& label) {
  const std::size_t star = label.find(L'*');
  const std::wstring_view before = std::wstring_view(label).substr(0, star);
  const std::wstring_view after = std::wstring_view(label).substr(star + 1);
  if (label.find_first_of(kExpressionCharacters) == std::wstring::npos && after.find(L'*') == std::wstring_view::npos)
    return std::make_unique<Affixes>(before, after);

  const std::wstring expression = WildcardToRegex(label);
  if (label.size() > kMaxExpressionCharacters || ExpandedSize(expression) > kMaxExpandedCharacters) return nullptr;
  try {
    return std::make_unique<Expression>(expression);
  } catch (const std::regex_error& error) {
    if (error.code() != std::regex_constants::error_complexity) return nullptr;
  }
  try {
    return std::make_unique<BackReferences>(expression);
  } catch (const std::regex_error&) {
    return nullptr;
  }
}

WildcardLabel::WildcardLabel(const std::wstring& label) : m_matcher(Compile(label)) {}

WildcardLabel::~WildcardLabel() = default;

bool WildcardLabel::Matches(const std::wstring& text) const { return m_matcher != nullptr && m_matcher->Matches(text); }

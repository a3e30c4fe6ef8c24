#include "FwClient/Service/QeLaLib/WildcardLabel.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <regex>
#include <string_view>

#include "FwClient/Service/QeLaLib/ExpressionSurvey.h"
#include "FwClient/Service/QeLaLib/ExpressionTraits.h"

namespace {

using LabelRegex = std::basic_regex<wchar_t, ExpressionTraits>;

// The characters that a regular expression does not take literally; a "." cannot occur in a label.
constexpr auto kIsInExpressions = [] {
  std::array<bool, 128> is{};
  for (const wchar_t character : std::wstring_view(L"^$\\+?()[]{}|")) is[character] = true;
  return is;
}();

// The expression library recurses while it compiles, most of all once a "(", and while it matches. Labels beyond these
// sizes are no DNS names, and would cost stack that a host's thread may not have. With them, compiling and matching
// take less than 128 KiB of stack and 20 to 35 ms at most. Measured: Docs/quirks.md.
constexpr std::size_t kMaxStates = 3000;
constexpr std::size_t kMaxDepth = 540;
constexpr std::size_t kMaxBranches = 1500;
constexpr std::size_t kMaxBranchesLookingAhead = 280;  // counted, a branch takes five times the stack
constexpr std::size_t kMaxTextCharacters = 255;

// Labels that look back, or ahead more than once, can take exponential time and a frame a character whatever their
// size; those that look ahead once, the square of the text's length: the steps and the stack of their matching are
// counted.
constexpr std::size_t kMaxBacktrackingStates = 255;
constexpr std::size_t kMaxBacktrackingSteps = 20000;
constexpr std::ptrdiff_t kMaxBacktrackingStackBytes = std::ptrdiff_t{80} * 1024;
constexpr std::size_t kMaxLookingAheadSteps = 500000;

// What "." does not match.
bool IsLineEnd(wchar_t character) {
  return character == L'\n' || character == L'\r' || character == L'\u2028' || character == L'\u2029';
}

struct OutOfBudget {};

// What one match may cost. The library's matcher has no limit of its own, but cannot go on without looking at its
// iterators.
class Budget {
 public:
  explicit Budget(std::size_t steps, std::ptrdiff_t stackBytes = PTRDIFF_MAX)
      : m_stepsLeft(steps), m_maxStackBytes(stackBytes) {}

  void Spend() {
    if (m_stepsLeft == 0 || StackBytes() > m_maxStackBytes) throw OutOfBudget();
    --m_stepsLeft;
  }

 private:
  static std::uintptr_t StackPosition() { return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)); }
  // Negative where the compiler has put the first iterators into a caller's frame.
  std::ptrdiff_t StackBytes() const { return static_cast<std::ptrdiff_t>(m_stackTop - StackPosition()); }

  std::size_t m_stepsLeft;
  std::ptrdiff_t m_maxStackBytes;
  std::uintptr_t m_stackTop = StackPosition();
};

// Walks a text and spends.
class SpendingIterator {
 public:
  using iterator_category = std::bidirectional_iterator_tag;
  using value_type = wchar_t;
  using difference_type = std::ptrdiff_t;
  using pointer = const wchar_t*;
  using reference = const wchar_t&;

  SpendingIterator() = default;
  SpendingIterator(const wchar_t* position, Budget& budget) : m_position(position), m_budget(&budget) {}

  reference operator*() const {
    m_budget->Spend();
    return *m_position;
  }
  SpendingIterator& operator++() {
    ++m_position;
    return *this;
  }
  SpendingIterator operator++(int) { return {m_position++, *m_budget}; }
  SpendingIterator& operator--() {
    --m_position;
    return *this;
  }
  SpendingIterator operator--(int) { return {m_position--, *m_budget}; }
  bool operator==(const SpendingIterator& other) const {
    if (m_budget != nullptr) m_budget->Spend();
    return m_position == other.m_position;
  }

 private:
  const wchar_t* m_position = nullptr;
  Budget* m_budget = nullptr;  // null in the value-initialised iterator, which stands for no position
};

// What becomes too expensive is no match.
bool MatchesWithin(Budget budget, const std::wstring& text, const LabelRegex& expression) {
  try {
    return std::regex_match(SpendingIterator(text.data(), budget), SpendingIterator(text.data() + text.size(), budget),
                            expression);
  } catch (const OutOfBudget&) {
    return false;
  }
}

}  // namespace

struct WildcardLabel::Matcher {
  virtual ~Matcher() = default;
  virtual bool Matches(const std::wstring& text) const = 0;
};

// The usual label.
struct WildcardLabel::Plain final : Matcher {
  Plain(const std::wstring& itsLabel, std::size_t itsStar) : label(itsLabel), star(itsStar) {}
  bool Matches(const std::wstring& text) const override { return PlainWildcardMatches(label, star, text); }
  std::wstring label;
  std::size_t star;
};

// Any other label. The library's breadth-first matcher has the outcomes of its default one, and takes polynomial time:
// "(a*)*b" costs what it looks like. Without captures it needs little memory and next to no stack.
struct WildcardLabel::Expression final : Matcher {
  Expression(const std::wstring& text, bool looksAhead)
      : expression(
            text, std::regex_constants::ECMAScript | std::regex_constants::nosubs | std::regex_constants::__polynomial),
        isCounted(looksAhead) {}
  bool Matches(const std::wstring& text) const override {
    if (text.size() > kMaxTextCharacters) return false;
    return isCounted ? MatchesWithin(Budget(kMaxLookingAheadSteps), text, expression)
                     : std::regex_match(text, expression);
  }
  LabelRegex expression;
  bool isCounted;
};

// That matcher refuses back-references, and begins anew at each lookahead, so that lookaheads in lookaheads take
// exponential time. The default one is counted.
struct WildcardLabel::Backtracking final : Matcher {
  explicit Backtracking(const std::wstring& text) : expression(text, std::regex_constants::ECMAScript) {}
  bool Matches(const std::wstring& text) const override {
    return text.size() <= kMaxTextCharacters &&
           MatchesWithin(Budget(kMaxBacktrackingSteps, kMaxBacktrackingStackBytes), text, expression);
  }
  LabelRegex expression;
};

std::size_t FindPlainStar(std::wstring_view label) noexcept {
  std::size_t star = std::wstring_view::npos;
  for (std::size_t i = 0; i < label.size(); ++i) {
    if (label[i] < kIsInExpressions.size() && kIsInExpressions[label[i]]) return std::wstring_view::npos;
    if (label[i] != L'*') continue;
    if (star != std::wstring_view::npos) return std::wstring_view::npos;
    star = i;
  }
  return star;
}

bool PlainWildcardMatches(std::wstring_view label, std::size_t star, std::wstring_view text) noexcept {
  if (text.size() + 1 < label.size()) return false;
  const std::wstring_view before = label.substr(0, star);
  const std::wstring_view after = label.substr(star + 1);
  const std::size_t end = text.size() - after.size();
  const std::wstring_view wild = text.substr(before.size(), end - before.size());
  return text.starts_with(before) && text.ends_with(after) && std::none_of(wild.begin(), wild.end(), IsLineEnd);
}

std::wstring WildcardToRegex(const std::wstring& label) {
  std::wstring expression = L"^" + label + L"$";
  if (const std::size_t star = expression.find(L'*'); star != std::wstring::npos) expression.replace(star, 1, L".*");
  return expression;
}

std::unique_ptr<const WildcardLabel::Matcher> WildcardLabel::Compile(const std::wstring& label) {
  if (const std::size_t star = FindPlainStar(label); star != std::wstring::npos)
    return std::make_unique<Plain>(label, star);

  std::wstring expression = WildcardToRegex(label);
  const ExpressionSurvey survey = SurveyExpression(expression);
  if (!survey.isValid || survey.states > kMaxStates || survey.depth > kMaxDepth ||
      survey.branches > (survey.lookaheads > 0 ? kMaxBranchesLookingAhead : kMaxBranches))
    return nullptr;
  for (std::size_t i = survey.misread.size(); i-- > 0;) expression.insert(survey.misread[i], 1, L'\\');
  try {
    if (!survey.hasBackReferences && survey.lookaheads <= 1)
      return std::make_unique<Expression>(expression, survey.lookaheads > 0);
    if (survey.states > kMaxBacktrackingStates) return nullptr;
    return std::make_unique<Backtracking>(expression);
  } catch (const std::regex_error&) {  // where the survey and another library disagree
    return nullptr;
  }
}

WildcardLabel::WildcardLabel(const std::wstring& label) : m_matcher(Compile(label)) {}

WildcardLabel::~WildcardLabel() = default;

bool WildcardLabel::Matches(const std::wstring& text) const { return m_matcher != nullptr && m_matcher->Matches(text); }

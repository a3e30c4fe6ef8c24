#include "FwClient/Service/QeLaLib/WildcardLabel.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <regex>
#include <string_view>
#include <utility>
#include <vector>

namespace {

// The characters that a regular expression does not take literally; a "." cannot occur in a label.
constexpr std::wstring_view kExpressionCharacters = L"^$\\+?()[]{}|";

// The expression library recurses while it compiles, most of all once a "(", and while it matches. Labels beyond these
// sizes are no DNS names, and would cost stack that a host's thread may not have. With them, compiling and matching
// take less than 128 KiB of stack and a few milliseconds. Measured: Docs/quirks.md.
constexpr std::size_t kMaxExpressionCharacters = 255;
constexpr std::size_t kMaxGroups = 127;   // that many can be closed again
constexpr std::size_t kMaxStates = 3000;  // with every {n} written out
constexpr std::size_t kMaxTextCharacters = 255;

// Labels that look back, or ahead more than once, can take exponential time and a frame a character whatever their
// size: the steps and the stack of their matching are counted.
constexpr std::size_t kMaxBacktrackingStates = 255;
constexpr std::size_t kMaxBacktrackingSteps = 20000;
constexpr std::ptrdiff_t kMaxBacktrackingStackBytes = std::ptrdiff_t{80} * 1024;

constexpr std::size_t kCountlessStates = 1 << 20;

// The index of the "]" that ends the bracket expression at `start`; the size of the text when there is none.
std::size_t EndOfBrackets(std::wstring_view expression, std::size_t start) {
  std::size_t i = start + 1;
  for (; i < expression.size() && expression[i] != L']'; ++i) {
    if (expression[i] == L'\\') {
      ++i;
    } else if (expression[i] == L'[' && i + 1 < expression.size() &&
               std::wstring_view(L":.=").find(expression[i + 1]) != std::wstring_view::npos) {  // "[:alpha:]"
      const std::wstring end = {expression[i + 1], L']'};
      i = std::min(expression.find(end, i + 2), expression.size() - 1) + 1;
    }
  }
  return i;
}

// The largest number in "2,10"; the digits are all that counts.
std::size_t LargestNumber(std::wstring_view counts) {
  std::size_t largest = 0;
  std::size_t number = 0;
  for (const wchar_t character : counts) {
    const bool isDigit = character >= L'0' && character <= L'9';
    number = isDigit ? std::min(number * 10 + static_cast<std::size_t>(character - L'0'), kCountlessStates) : 0;
    largest = std::max(largest, number);
  }
  return largest;
}

// About how many states the library will make of an expression: one a term, and the counted repetitions, which may
// nest, written out. What cannot be an expression counts as one without end.
std::size_t CountStates(std::wstring_view expression) {
  std::vector<std::size_t> before;  // for each open group, the states in front of it
  std::size_t states = 0;           // of the innermost open group
  std::size_t last = 0;             // of its last term, which a repetition repeats
  const auto add = [&](std::size_t count) {
    last = count;
    states = std::min(states + count, kCountlessStates);
  };
  for (std::size_t i = 0; i < expression.size(); ++i) {
    switch (expression[i]) {
      case L'(':
        before.push_back(std::exchange(states, 0));
        last = 0;
        break;
      case L'*':
      case L'+':
      case L'?':  // these may be repeated in their turn
        ++last;
        ++states;
        break;
      case L')': {
        if (before.empty()) return kCountlessStates;
        const std::size_t group = states + 2;
        states = before.back();
        before.pop_back();
        add(group);
        break;
      }
      case L'{': {
        const std::size_t end = expression.find(L'}', i);
        if (end == std::wstring_view::npos) return kCountlessStates;
        const std::size_t times = LargestNumber(expression.substr(i, end - i)) + 1;  // "{2,}" is two and a loop
        i = end;
        states -= std::min(last, states);
        add(std::min((last + 1) * times, kCountlessStates));
        break;
      }
      case L'[':
        i = EndOfBrackets(expression, i);
        add(1);
        break;
      case L'\\':
        ++i;
        add(1);
        break;
      default:
        add(1);
    }
  }
  return states;
}

std::size_t CountLookaheads(std::wstring_view expression) {
  std::size_t count = 0;
  for (std::size_t i = 0; (i = expression.find(L"(?", i)) != std::wstring_view::npos; i += 2)
    if (i + 2 < expression.size() && (expression[i + 2] == L'=' || expression[i + 2] == L'!')) ++count;
  return count;
}

// What "." does not match.
bool IsLineEnd(wchar_t character) { return character == L'\n' || character == L'\r'; }

struct OutOfBudget {};

// What one match may cost. The library's matcher has no limit of its own, but cannot go on without looking at its
// iterators.
class Budget {
 public:
  void Spend() {
    if (++m_steps > kMaxBacktrackingSteps || StackBytes() > kMaxBacktrackingStackBytes) throw OutOfBudget();
  }

 private:
  static std::uintptr_t StackPosition() { return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)); }
  // Negative where the compiler has put the first iterators into a caller's frame.
  std::ptrdiff_t StackBytes() const { return static_cast<std::ptrdiff_t>(m_stackTop - StackPosition()); }

  std::size_t m_steps = 0;
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

// Any other label. The library's breadth-first matcher has the outcomes of its default one, and takes polynomial time:
// "(a*)*b" costs what it looks like. Without captures it needs little memory and next to no stack.
struct WildcardLabel::Expression final : Matcher {
  explicit Expression(const std::wstring& text)
      : expression(text, std::regex_constants::ECMAScript | std::regex_constants::nosubs |
                             std::regex_constants::__polynomial) {}
  bool Matches(const std::wstring& text) const override {
    return text.size() <= kMaxTextCharacters && std::regex_match(text, expression);
  }
  std::wregex expression;
};

// That matcher refuses back-references, and begins anew at each lookahead, so that lookaheads in lookaheads take
// exponential time. The default one is counted; when it becomes too expensive, that is no match.
struct WildcardLabel::Backtracking final : Matcher {
  explicit Backtracking(const std::wstring& text) : expression(text, std::regex_constants::ECMAScript) {}
  bool Matches(const std::wstring& text) const override {
    if (text.size() > kMaxTextCharacters) return false;
    Budget budget;
    try {
      return std::regex_match(SpendingIterator(text.data(), budget),
                              SpendingIterator(text.data() + text.size(), budget), expression);
    } catch (const OutOfBudget&) {
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
  if (label.size() > kMaxExpressionCharacters ||
      std::count(label.begin(), label.end(), L'(') > static_cast<std::ptrdiff_t>(kMaxGroups))
    return nullptr;
  const std::size_t states = CountStates(expression);
  if (states > kMaxStates) return nullptr;
  try {
    if (CountLookaheads(expression) <= 1) return std::make_unique<Expression>(expression);
  } catch (const std::regex_error& error) {
    if (error.code() != std::regex_constants::error_complexity) return nullptr;  // else: back-references
  }
  if (states > kMaxBacktrackingStates) return nullptr;
  try {
    return std::make_unique<Backtracking>(expression);
  } catch (const std::regex_error&) {
    return nullptr;
  }
}

WildcardLabel::WildcardLabel(const std::wstring& label) : m_matcher(Compile(label)) {}

WildcardLabel::~WildcardLabel() = default;

bool WildcardLabel::Matches(const std::wstring& text) const { return m_matcher != nullptr && m_matcher->Matches(text); }

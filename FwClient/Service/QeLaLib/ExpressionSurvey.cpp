#include "FwClient/Service/QeLaLib/ExpressionSurvey.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <locale>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/ExpressionTraits.h"

namespace {

constexpr std::size_t kGroupDepth = 4;  // a group's frames of the parser are four times those of a term

// A bracket expression is one state, but is copied for each repetition.
constexpr std::size_t kBracketCharactersAState = 256;

struct Cost {
  std::size_t states = 0;
  std::size_t branches = 0;

  Cost& operator+=(const Cost& other) {
    states = std::min(states + other.states, kCountlessStates);
    branches = std::min(branches + other.branches, kCountlessStates);
    return *this;
  }
  Cost& operator-=(const Cost& other) {
    states -= std::min(states, other.states);
    branches -= std::min(branches, other.branches);
    return *this;
  }
  Cost& operator*=(std::size_t times) {
    states = std::min(states * times, kCountlessStates);
    branches = std::min(branches * times, kCountlessStates);
    return *this;
  }
};

// Follows the grammar of libstdc++ 14, with its oddities: a character is what it is to its scanner, and an expression
// is valid when its parser ends at the end. Every function that answers with false has found the text to be invalid.
class Surveyor {
 public:
  explicit Surveyor(std::wstring_view text) : m_text(text) {}

  ExpressionSurvey Survey() {
    while (!IsAtEnd())
      if (!Next()) return {};
    if (!m_groups.empty()) return {};
    m_survey.isValid = true;
    m_survey.states = m_cost.states;
    m_survey.branches = m_cost.branches;
    return m_survey;
  }

 private:
  // What a quantifier finds before it.
  enum class Before { kNothing, kOneCharacter, kOther };

  struct Group {
    Cost outside;  // of the innermost group around it, in front of it
    std::size_t outsideTerms;
    std::size_t capture;  // its number; 0 for none
    bool isLookahead;
  };

  // An element of a bracket expression.
  struct Element {
    enum Kind { kEnd, kCharacter, kCollatingElement, kClass, kDash } kind;
    wchar_t character = 0;
  };

  bool IsAtEnd() const { return m_at == m_text.size(); }
  bool IsNext(wchar_t character) const { return !IsAtEnd() && m_text[m_at] == character; }
  bool Take(wchar_t character) {
    if (!IsNext(character)) return false;
    ++m_at;
    return true;
  }
  bool IsNextOfClass(std::ctype_base::mask mask) const { return !IsAtEnd() && m_ctype.is(mask, m_text[m_at]); }

  bool Next() {
    switch (m_text[m_at++]) {
      case L'(':
        return Open();
      case L')':
        return Close();
      case L'|':
        m_depth -= std::exchange(m_terms, 0);
        m_before = Before::kNothing;
        m_cost += {1, 1};
        return true;
      case L'^':
      case L'$':
        return Term(Before::kNothing);
      case L'*':
      case L'+':
      case L'?':
        return Quantify();
      case L'{':
        return QuantifyByNumbers();
      case L'[':
        return Brackets();
      case L'\\':
        return Escape();
      default:
        if (IsMisread(m_text[m_at - 1])) m_survey.misread.push_back(m_at - 1);
        return Term(Before::kOneCharacter);
    }
  }

  bool IsMisread(wchar_t character) const {
    return character > 0x7f &&
           std::string_view("^$\\.*+?()[]{}|").find(m_ctype.narrow(character, ' ')) != std::string_view::npos;
  }

  bool Term(Before kind, const Cost& cost = {1, 0}) {
    m_cost += cost;
    m_last = cost;
    m_before = kind;
    ++m_terms;
    m_survey.depth = std::max(m_survey.depth, ++m_depth);
    return true;
  }

  bool Open() {
    bool isLookahead = false;
    bool isCapture = true;
    if (Take(L'?')) {
      isCapture = false;
      isLookahead = IsNext(L'=') || IsNext(L'!');
      if (!isLookahead && !IsNext(L':')) return false;
      ++m_at;
    }
    if (isCapture) ++m_captures;
    if (isLookahead) ++m_survey.lookaheads;
    m_groups.push_back({std::exchange(m_cost, {}), std::exchange(m_terms, 0), isCapture ? m_captures : 0, isLookahead});
    m_depth += kGroupDepth;
    m_survey.depth = std::max(m_survey.depth, m_depth);
    m_before = Before::kNothing;
    return true;
  }

  bool Close() {
    if (m_groups.empty()) return false;
    const Group group = m_groups.back();
    m_groups.pop_back();
    Cost inside = m_cost;
    inside += {2, 0};
    m_depth -= m_terms + kGroupDepth;
    m_cost = group.outside;
    m_terms = group.outsideTerms;
    return Term(group.isLookahead ? Before::kNothing : Before::kOther, inside);
  }

  // The frames of the matcher for one repetition. That of a single character returns from each character.
  std::size_t BranchesOf(bool isLazy) const {
    if (isLazy) return 1;
    return m_before == Before::kOther ? 2 : 0;
  }

  bool Quantify() {
    if (m_before == Before::kNothing) return false;
    const bool isLazy = Take(L'?');
    const Cost cost = {isLazy ? std::size_t{2} : std::size_t{1}, BranchesOf(isLazy)};
    m_cost += cost;
    m_last += cost;
    m_before = Before::kOther;
    return true;
  }

  bool QuantifyByNumbers() {
    if (m_before == Before::kNothing) return false;
    const std::optional<int> least = Number(10);
    if (!least) return false;
    int most = *least;
    bool isFixed = true;
    if (Take(L',')) {
      isFixed = false;
      if (IsNextOfClass(std::ctype_base::digit)) {
        const std::optional<int> second = Number(10);
        if (!second || *second < *least) return false;
        most = *second;
      }
    }
    if (!Take(L'}')) return false;
    const bool isLazy = Take(L'?');
    m_cost -= m_last;
    m_last += {1, isFixed && !isLazy ? 0 : BranchesOf(isLazy)};
    m_last *= static_cast<std::size_t>(std::max(most, 0)) + 1;  // "{2,}" is two and a loop
    if (isLazy) m_last += {1, 0};
    m_cost += m_last;
    m_before = Before::kOther;
    return true;
  }

  // The digits from here on; no number when there is none or it is too large. What the C library takes for a digit of
  // another script has the value -1 to the standard library.
  std::optional<int> Number(int radix, std::size_t digits = SIZE_MAX) {
    const std::ctype_base::mask mask = radix == 16 ? std::ctype_base::xdigit : std::ctype_base::digit;
    if (!IsNextOfClass(mask)) return std::nullopt;
    long long number = 0;
    for (; digits > 0 && IsNextOfClass(mask); --digits) {
      const int digit = ExpressionTraits::value(m_text[m_at++], radix);
      number *= radix;
      if (number > INT_MAX || number < INT_MIN) return std::nullopt;
      number += digit;
      if (number > INT_MAX || number < INT_MIN) return std::nullopt;
    }
    return static_cast<int>(number);
  }

  // "\x41" and "\u0041", behind the letter.
  std::optional<wchar_t> HexCharacter(std::size_t digits) {
    const std::size_t start = m_at;
    const std::optional<int> number = Number(16, digits);
    if (!number || m_at != start + digits) return std::nullopt;
    return static_cast<wchar_t>(*number);
  }

  // The control characters that have a letter behind a backslash. The C library narrows some letters of
  // other scripts to these.
  std::optional<wchar_t> NamedCharacter(wchar_t character) const {
    switch (m_ctype.narrow(character, ' ')) {
      case '0':
        return L'\0';
      case 'b':
        return L'\b';
      case 'f':
        return L'\f';
      case 'n':
        return L'\n';
      case 'r':
        return L'\r';
      case 't':
        return L'\t';
      case 'v':
        return L'\v';
      default:
        return std::nullopt;
    }
  }

  bool Escape() {
    if (IsAtEnd()) return false;
    const wchar_t character = m_text[m_at++];
    if (character != L'b' && NamedCharacter(character)) return Term(Before::kOneCharacter);
    switch (character) {
      case L'b':
      case L'B':
        return Term(Before::kNothing);
      case L'c':
        if (IsAtEnd()) return false;
        ++m_at;
        break;
      case L'x':
      case L'u':
        if (!HexCharacter(character == L'x' ? 2 : 4)) return false;
        break;
      default:
        if (m_ctype.is(std::ctype_base::digit, character)) {
          --m_at;
          return BackReference();
        }
    }
    return Term(Before::kOneCharacter);
  }

  // To a group that has been closed.
  bool BackReference() {
    const std::optional<int> number = Number(10);
    if (!number || *number < 0 || static_cast<std::size_t>(*number) > m_captures) return false;
    const auto capture = static_cast<std::size_t>(*number);
    if (capture == 0 || std::any_of(m_groups.begin(), m_groups.end(),
                                    [capture](const Group& group) { return group.capture == capture; }))
      return false;
    m_survey.hasBackReferences = true;
    return Term(Before::kOther);
  }

  bool Brackets() {
    const std::size_t start = m_at;
    Take(L'^');
    // What a dash finds before it.
    enum { kNothing, kCharacter, kClass } before = kNothing;
    wchar_t last = 0;
    std::optional<Element> element = NextElement();
    for (; element && element->kind != Element::kEnd; element = NextElement()) {
      switch (element->kind) {
        case Element::kDash: {
          if (IsNext(L']')) break;
          if (before == kClass) return false;
          if (before == kNothing) {  // a character like others
            before = kCharacter;
            last = L'-';
            break;
          }
          const std::optional<Element> end = NextElement();
          if (!end || (end->kind != Element::kCharacter && end->kind != Element::kDash) || last > end->character)
            return false;
          before = kNothing;
          break;
        }
        case Element::kCharacter:
        case Element::kCollatingElement:
          before = kCharacter;
          last = element->character;
          break;
        default:
          before = kClass;
      }
    }
    return element && Term(Before::kOneCharacter, {1 + (m_at - start) / kBracketCharactersAState, 0});
  }

  // Nothing when the text is invalid.
  std::optional<Element> NextElement() {
    if (IsAtEnd()) return std::nullopt;
    const wchar_t character = m_text[m_at++];
    switch (character) {
      case L'-':
        return Element{Element::kDash, L'-'};
      case L']':
        return Element{Element::kEnd};
      case L'\\':
        return EscapedElement();
      case L'[':
        if (IsAtEnd()) return std::nullopt;
        if (IsNext(L'.') || IsNext(L':') || IsNext(L'=')) return NamedElement(m_text[m_at++]);
        break;
      default:
        break;
    }
    return Element{Element::kCharacter, character};
  }

  // "[.tilde.]", "[:alpha:]" and "[=a=]", behind the first mark.
  std::optional<Element> NamedElement(wchar_t mark) {
    const std::size_t end = m_text.find(mark, m_at);
    if (end == std::wstring_view::npos) return std::nullopt;
    const std::wstring_view name = m_text.substr(m_at, end - m_at);
    m_at = end + 1;
    if (!Take(L']')) return std::nullopt;
    if (mark == L':') {
      if (m_traits.lookup_classname(name.begin(), name.end()) == ExpressionTraits::char_class_type())
        return std::nullopt;
      return Element{Element::kClass};
    }
    const std::wstring element = m_traits.lookup_collatename(name.begin(), name.end());
    if (element.empty()) return std::nullopt;
    if (mark == L'=' || element.size() > 1) return Element{Element::kClass};
    return Element{Element::kCollatingElement, element.front()};
  }

  std::optional<Element> EscapedElement() {
    if (IsAtEnd()) return std::nullopt;
    const wchar_t character = m_text[m_at++];
    if (const std::optional<wchar_t> named = NamedCharacter(character)) return Element{Element::kCharacter, *named};
    switch (character) {
      case L'B':
        return std::nullopt;
      case L'd':
      case L'D':
      case L's':
      case L'S':
      case L'w':
      case L'W':
        return Element{Element::kClass};
      case L'c':
        if (IsAtEnd()) return std::nullopt;
        return Element{Element::kCharacter, m_text[m_at++]};
      case L'x':
      case L'u':
        if (const std::optional<wchar_t> coded = HexCharacter(character == L'x' ? 2 : 4))
          return Element{Element::kCharacter, *coded};
        return std::nullopt;
      default:
        if (m_ctype.is(std::ctype_base::digit, character)) return std::nullopt;
        return Element{Element::kCharacter, character};
    }
  }

  const ExpressionTraits m_traits;
  const std::locale m_locale = m_traits.getloc();
  const std::ctype<wchar_t>& m_ctype = std::use_facet<std::ctype<wchar_t>>(m_locale);

  const std::wstring_view m_text;
  std::size_t m_at = 0;
  ExpressionSurvey m_survey;
  std::vector<Group> m_groups;  // that are open
  std::size_t m_captures = 0;   // groups with a number so far
  std::size_t m_terms = 0;      // of the innermost open group's current alternative
  std::size_t m_depth = 0;
  Cost m_cost;  // of the innermost open group
  Cost m_last;  // of its last term, which a repetition repeats
  Before m_before = Before::kNothing;
};

}  // namespace

ExpressionSurvey SurveyExpression(std::wstring_view expression) { return Surveyor(expression).Survey(); }

// A DNS-suffix pattern against a suffix: the answer against that of a slow matcher which shares nothing with the
// library, where that knows it, and for every pattern the stack and the time that it may take.
#ifdef _WIN32
#include <windows.h>
#endif

#include <algorithm>
#include <bitset>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/FuzzText.h"

namespace {

// ---- the slow matcher ----

enum class Verdict { kNo, kYes, kUnknown };

constexpr std::size_t kMostText = 255;
constexpr const wchar_t* kLineEnds = L"\n\r\u2028\u2029";  // for which "." does not stand
using Places = std::bitset<kMostText + 1>;                 // in a text

// From a set of places to all those to which a part of an expression leads.
struct Part {
  virtual ~Part() = default;
  virtual Places Leads(const Places& from, std::wstring_view text) const = 0;
  // How many parts there are to follow, up to kHuge.
  virtual std::size_t Size() const { return 1; }
  static constexpr std::size_t kHuge = std::size_t{1} << 20;
};
using PartPtr = std::unique_ptr<Part>;

std::size_t SizeOfAll(const std::vector<PartPtr>& parts) {
  std::size_t size = 1;
  for (const PartPtr& part : parts) size = std::min(size + part->Size(), Part::kHuge);
  return size;
}

struct OneOf final : Part {
  std::wstring characters;
  bool isInverted = false;  // the whole of them, inverted, is "."
  bool Takes(wchar_t character) const { return (characters.find(character) != std::wstring::npos) != isInverted; }
  Places Leads(const Places& from, std::wstring_view text) const override {
    Places to;
    for (std::size_t i = 0; i < text.size(); ++i)
      if (from[i] && Takes(text[i])) to.set(i + 1);
    return to;
  }
};

struct Edge final : Part {
  bool isEnd = false;
  Places Leads(const Places& from, std::wstring_view text) const override {
    Places to;
    const std::size_t place = isEnd ? text.size() : 0;
    to[place] = from[place];
    return to;
  }
};

struct Sequence final : Part {
  std::vector<PartPtr> parts;
  Places Leads(const Places& from, std::wstring_view text) const override {
    Places to = from;
    for (const PartPtr& part : parts) to = part->Leads(to, text);
    return to;
  }
  std::size_t Size() const override { return SizeOfAll(parts); }
};

struct Choice final : Part {
  std::vector<PartPtr> parts;
  Places Leads(const Places& from, std::wstring_view text) const override {
    Places to;
    for (const PartPtr& part : parts) to |= part->Leads(from, text);
    return to;
  }
  std::size_t Size() const override { return SizeOfAll(parts); }
};

struct Repeat final : Part {
  PartPtr part;
  std::size_t least = 0, most = SIZE_MAX;
  Places Leads(const Places& from, std::wstring_view text) const override {
    Places at = from;
    for (std::size_t i = 0; i < least; ++i) at = part->Leads(at, text);
    Places to = at;
    for (std::size_t i = least; i < most && at.any(); ++i) {
      at = part->Leads(at, text) & ~to;  // from the others it has gone on before
      to |= at;
    }
    return to;
  }
  std::size_t Size() const override {
    return std::min(1 + part->Size() * (1 + std::min(most == SIZE_MAX ? least : most, kHuge)), kHuge);
  }
};

// Of the expressions it knows those that have none of "\", "(?=", "(?!" and classes with a name.
class ExpressionParser {
 public:
  explicit ExpressionParser(std::wstring_view text) : m_text(text) {}

  // Unknown: not one of those. No: not valid.
  Verdict Parse(PartPtr& expression) {
    expression = Alternatives();
    if (m_verdict == Verdict::kYes && m_at != m_text.size()) m_verdict = Verdict::kNo;
    return m_verdict;
  }

 private:
  bool IsNext(wchar_t character) const { return m_at < m_text.size() && m_text[m_at] == character; }
  bool Take(wchar_t character) {
    if (!IsNext(character)) return false;
    ++m_at;
    return true;
  }
  bool IsDone() const { return m_verdict != Verdict::kYes || m_at == m_text.size(); }
  // What is not known stays so, whatever else is wrong.
  void Give(Verdict verdict) {
    if (m_verdict == Verdict::kYes) m_verdict = verdict;
  }

  PartPtr Alternatives() {
    auto choice = std::make_unique<Choice>();
    do choice->parts.push_back(Terms());
    while (m_verdict == Verdict::kYes && Take(L'|'));
    return choice;
  }

  PartPtr Terms() {
    auto sequence = std::make_unique<Sequence>();
    while (!IsDone() && !IsNext(L'|') && !IsNext(L')')) {
      bool mayRepeat = true;
      PartPtr term = Term(mayRepeat);
      while (!IsDone() && (IsNext(L'*') || IsNext(L'+') || IsNext(L'?') || IsNext(L'{'))) {
        if (!mayRepeat) Give(Verdict::kNo);
        term = Repeated(std::move(term));
      }
      sequence->parts.push_back(std::move(term));
    }
    return sequence;
  }

  PartPtr Term(bool& mayRepeat) {
    const wchar_t character = m_text[m_at++];
    auto one = std::make_unique<OneOf>();
    switch (character) {
      case L'(': {
        if (Take(L'?') && !Take(L':')) Give(IsNext(L'=') || IsNext(L'!') ? Verdict::kUnknown : Verdict::kNo);
        PartPtr inside = Alternatives();
        if (!Take(L')')) Give(Verdict::kNo);
        return inside;
      }
      case L'^':
      case L'$': {
        mayRepeat = false;
        auto edge = std::make_unique<Edge>();
        edge->isEnd = character == L'$';
        return edge;
      }
      case L'*':
      case L'+':
      case L'?':
      case L'{':
        Give(Verdict::kNo);  // nothing to repeat
        break;
      case L'\\':
        Give(Verdict::kUnknown);
        break;
      case L'[':
        Brackets(*one);
        break;
      case L'.':
        one->characters = kLineEnds;
        one->isInverted = true;
        break;
      default:
        one->characters = character;
    }
    return one;
  }

  void Brackets(OneOf& one) {
    one.isInverted = Take(L'^');
    while (!Take(L']')) {
      if (m_at == m_text.size()) return Give(Verdict::kNo);
      const wchar_t first = m_text[m_at++];
      if (first == L'[' || first == L'\\' || first == L'-' || first > 0x7f) return Give(Verdict::kUnknown);
      if (!Take(L'-')) {
        one.characters += first;
        continue;
      }
      if (m_at == m_text.size()) return Give(Verdict::kNo);
      const wchar_t last = m_text[m_at++];
      if (last == L'[' || last == L'\\' || last == L'-' || last == L']' || last > 0x7f) return Give(Verdict::kUnknown);
      if (last < first) return Give(Verdict::kNo);
      for (wchar_t character = first; character <= last; ++character) one.characters += character;
    }
  }

  PartPtr Repeated(PartPtr part) {
    auto repeat = std::make_unique<Repeat>();
    repeat->part = std::move(part);
    switch (m_text[m_at++]) {
      case L'+':
        repeat->least = 1;
        break;
      case L'?':
        repeat->most = 1;
        break;
      case L'{':
        Counts(*repeat);
        break;
      default:
        break;
    }
    Take(L'?');  // which end it tries first does not count where the whole must match
    return repeat;
  }

  void Counts(Repeat& repeat) {
    repeat.least = repeat.most = Count();
    if (Take(L',')) repeat.most = IsNext(L'}') ? SIZE_MAX : Count();
    if (m_verdict == Verdict::kYes && (!Take(L'}') || repeat.most < repeat.least)) Give(Verdict::kNo);
  }
  std::size_t Count() {
    const std::size_t start = m_at;
    std::size_t count = 0;
    while (m_at < m_text.size() && m_text[m_at] >= L'0' && m_text[m_at] <= L'9')
      count = count * 10 + static_cast<std::size_t>(m_text[m_at++] - L'0');
    if (m_at < m_text.size() && m_text[m_at] > 0x7f) Give(Verdict::kUnknown);
    if (m_at == start) Give(Verdict::kNo);
    if (m_at > start + 3) Give(Verdict::kUnknown);
    return std::min<std::size_t>(count, 999);
  }

  std::wstring_view m_text;
  std::size_t m_at = 0;
  Verdict m_verdict = Verdict::kYes;
};

std::vector<std::wstring> Labels(const std::wstring& text) {
  std::vector<std::wstring> labels(1);
  for (const wchar_t character : text) {
    if (character == L'.')
      labels.emplace_back();
    else
      labels.back() += character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character + 32) : character;
  }
  return labels;
}

// Beyond these the library may give up, since no name has such a label.
constexpr std::size_t kSurelyTakenCharacters = 100;
constexpr std::size_t kSurelyTakenSize = 400;

Verdict MatchesLabel(const std::wstring& label, const std::wstring& text) {
  const std::size_t star = label.find(L'*');
  if (label == L"*") return Verdict::kYes;
  if (star == std::wstring::npos) return label == text ? Verdict::kYes : Verdict::kNo;

  const std::wstring before = label.substr(0, star), after = label.substr(star + 1);
  if (label.find_first_of(L"^$\\+?()[]{}|") == std::wstring::npos && after.find(L'*') == std::wstring::npos) {
    if (text.size() < before.size() + after.size() || text.substr(0, before.size()) != before ||
        text.substr(text.size() - after.size()) != after)
      return Verdict::kNo;
    const std::wstring wild = text.substr(before.size(), text.size() - before.size() - after.size());
    return wild.find_first_of(kLineEnds) == std::wstring::npos ? Verdict::kYes : Verdict::kNo;
  }
  if (text.size() > kMostText) return Verdict::kNo;
  if (label.size() > kSurelyTakenCharacters) return Verdict::kUnknown;

  // As a person would: the first star is anything, and what is not valid agrees with nothing.
  PartPtr expression;
  const std::wstring anchored = L"^" + before + L".*" + after + L"$";
  if (const Verdict verdict = ExpressionParser(anchored).Parse(expression); verdict != Verdict::kYes) return verdict;
  if (expression->Size() > kSurelyTakenSize) return Verdict::kUnknown;
  Places start;
  start.set(0);
  return expression->Leads(start, text)[text.size()] ? Verdict::kYes : Verdict::kNo;
}

Verdict Matches(const std::wstring& criterion, const std::wstring& suffix) {
  std::vector<std::wstring> wanted = Labels(criterion), found = Labels(suffix);
  Verdict all = Verdict::kYes;
  for (; !wanted.empty() && !found.empty(); wanted.pop_back(), found.pop_back()) {
    const Verdict verdict = MatchesLabel(wanted.back(), found.back());
    if (verdict == Verdict::kNo) return Verdict::kNo;
    if (verdict == Verdict::kUnknown) all = Verdict::kUnknown;
  }
  return all;
}

// ---- what it may cost ----

#ifdef _WIN32
// Compiling and matching a label promise to take less stack than this. What is painted lies behind it.
constexpr std::size_t kMostStackBytes = std::size_t{128} * 1024;
constexpr std::size_t kPaintedBytes = std::size_t{8} * 1024;
constexpr std::uint8_t kPaint = 0xA7;
const volatile std::uint8_t* g_painted = nullptr;

[[gnu::noinline]] void PaintStack() {
  auto* const lowest = static_cast<volatile std::uint8_t*>(__builtin_alloca(kMostStackBytes + kPaintedBytes));
  for (std::size_t i = 0; i < kPaintedBytes; ++i) lowest[i] = kPaint;
  g_painted = lowest;
}
[[gnu::noinline]] void CheckStack() {
  // So that nothing else lies there while it is read.
  [[maybe_unused]] volatile auto* const lowest =
      static_cast<volatile std::uint8_t*>(__builtin_alloca(kMostStackBytes + kPaintedBytes));
  for (std::size_t i = 0; i < kPaintedBytes; ++i)
    if (g_painted[i] != kPaint) FuzzFail("a pattern takes more stack than a host's thread may have");
}
#else
void PaintStack() {}
void CheckStack() {}
#endif

// Ten times what a label is said to take, of computing, since the machine has other things to do too.
constexpr std::chrono::milliseconds kMostALabel{200};

#ifdef _WIN32
std::chrono::nanoseconds Computed() {
  FILETIME start{}, end{}, kernel{}, user{};
  ::GetThreadTimes(::GetCurrentThread(), &start, &end, &kernel, &user);
  return 100 * std::chrono::nanoseconds(user.dwLowDateTime + kernel.dwLowDateTime);
}
#else
std::chrono::nanoseconds Computed() {
  return std::chrono::nanoseconds(std::clock() * (1'000'000'000 / CLOCKS_PER_SEC));
}
#endif

bool Measured(const std::wstring& criterion, const std::wstring& suffix) {
  const auto most = (1 + std::count(criterion.begin(), criterion.end(), L'.')) * kMostALabel;
  PaintStack();
  const auto start = std::chrono::steady_clock::now();
  const bool matches = DnsSuffixMatches(criterion, suffix);
  const auto took = std::chrono::steady_clock::now() - start;
  CheckStack();
  if (took <= most || FuzzIsSlow()) return matches;
  const std::chrono::nanoseconds before = Computed();
  DnsSuffixMatches(criterion, suffix);
  if (Computed() - before > most) FuzzFail("a pattern takes too long");
  return matches;
}

void Compare(const std::wstring& criterion, const std::wstring& suffix) {
  const bool matches = Measured(criterion, suffix);
  const Verdict expected = Matches(criterion, suffix);
  if (expected != Verdict::kUnknown && matches != (expected == Verdict::kYes))
    FuzzFail(matches ? "a pattern agrees with a suffix that it is not for"
                     : "a pattern does not agree with a suffix that it is for");

  // As in a calculation, where all is used again.
  DnsSuffixMatcher matcher;
  DnsSuffixCriterion its;
  DnsLabels labels;
  for (int i = 0; i < 2; ++i) {
    its.Assign(criterion);
    labels.Assign(suffix);
    if (matcher.Matches(its, labels) != matches) FuzzFail("used again, a pattern has another answer");
  }
  FuzzKind(static_cast<std::uint32_t>(expected) * 2 + static_cast<std::uint32_t>(matches) +
           8 * static_cast<std::uint32_t>(std::min<std::size_t>(
                   15, static_cast<std::size_t>(std::count(criterion.begin(), criterion.end(), L'*')))) +
           128 * static_cast<std::uint32_t>(criterion.find_first_of(L"([{\\") % 256));
}

// Two texts with a tab between them; each is tried as the pattern.
void Run(FuzzInput input) {
  const FuzzPair pair = FuzzCut(input, '\t');
  const std::wstring first = FuzzText(pair.first), second = FuzzText(pair.second);
  Compare(first, second);
  if (second.find(L'*') != std::wstring::npos) Compare(second, first);
}

const FuzzTarget g_target("dns-suffix", Run,
                          {"*",
                           "*.",
                           ".",
                           "corp",
                           "example",
                           ".com",
                           "\t",
                           "(",
                           ")",
                           "(?:",
                           "(?=",
                           "(?!",
                           "|",
                           "+",
                           "?",
                           "*?",
                           "{2}",
                           "{1,3}",
                           "{0,}",
                           "[a-z]",
                           "[^a]",
                           "[",
                           "]",
                           "\\1",
                           "\\b",
                           "\\w",
                           "\\",
                           "(a*)*",
                           "(a|b)*",
                           "(a*)\\1",
                           "^",
                           "$",
                           "\n",
                           "\r",
                           "[[:alpha:]]",
                           "{999}",
                           "((((((",
                           "))))))",
                           "aaaaaaaaaaaaaaaaaaaaaaaa",
                           "\xc0\xff\x08",
                           "\xc0\xff\x0a",
                           "\xc0\x20\x28",
                           "a*"});

}  // namespace

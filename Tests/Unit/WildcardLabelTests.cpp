#include "FwClient/Service/QeLaLib/WildcardLabel.h"

#include <windows.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <iostream>
#include <iterator>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace {

bool Matches(const std::wstring& label, const std::wstring& text) { return WildcardLabel(label).Matches(text); }

std::wstring Repeat(const wchar_t* piece, std::size_t times) {
  std::wstring text;
  while (times-- > 0) text += piece;
  return text;
}

TEST(WildcardLabel, TurnsTheFirstStarIntoAnyTextAndEscapesNothing) {
  EXPECT_EQ(WildcardToRegex(L"corp*"), L"^corp.*$");
  EXPECT_EQ(WildcardToRegex(L"*"), L"^.*$");
  EXPECT_EQ(WildcardToRegex(L"**"), L"^.**$");
  EXPECT_EQ(WildcardToRegex(L"*a*"), L"^.*a*$");
  EXPECT_EQ(WildcardToRegex(L"a+(b)?[c]*"), L"^a+(b)?[c].*$");
  EXPECT_EQ(WildcardToRegex(L"^a*$"), L"^^a.*$$");
}

struct Case {
  const wchar_t* label;
  const wchar_t* text;
  bool matches;
};

TEST(WildcardLabel, MatchesWholeLabels) {
  const Case cases[] = {
      // One "*" and text: the start and the end must agree, and may not overlap.
      {L"corp*", L"corp", true},
      {L"corp*", L"corp-eu", true},
      {L"corp*", L"eu-corp", false},
      {L"*corp", L"eu-corp", true},
      {L"*corp", L"corp-eu", false},
      {L"co*rp", L"corp", true},
      {L"co*rp", L"co-x-rp", true},
      {L"ab*ba", L"aba", false},
      {L"ab*ba", L"abba", true},
      {L"a-b*", L"a-b-c", true},
      // What "*" stands for has no line break, as "." has none.
      {L"a*", L"a\nb", false},
      {L"a*", L"a\rb", false},
      {L"*", L"", true},
      // A further "*" repeats the character before it.
      {L"*a*", L"xyz", true},
      {L"*a*", L"", true},
      {L"a*b*", L"a", true},
      {L"a*b*", L"axbbb", true},
      {L"a*b*", L"b", false},
      // Expression characters keep their meaning.
      {L"a?*", L"b", true},
      {L"ab+*", L"abbb-x", true},
      {L"ab+*", L"a", false},
      {L"[ab]*", L"b7", true},
      {L"[ab]*", L"c7", false},
      {L"[a*]", L"*", true},  // the star in the brackets became ".*"
      {L"[a*]", L"b", false},
      {L"(corp|lab)-*", L"lab-7", true},
      {L"(corp|lab)-*", L"home-7", false},
      {L"corp|lab*", L"corp", true},  // "^corp" or "lab.*$", each against the whole
      {L"corp|lab*", L"lab7", true},
      {L"corp|lab*", L"xlab7", false},
      {L"[a-z]{2,3}*", L"ab7", true},
      {L"[a-z]{2,3}*", L"a7b", false},
      {L"\\d*", L"7a", true},
      {L"\\d*", L"a7", false},
      {L"\\*", L"\\", false},  // an escaped "." and any number of them
      {L"\\*", L"...", true},
      {L"a^*", L"a", false},
      {L"a$*", L"a", true},
      {L"a$*", L"ab", false},
      {L"(?=a)*", L"ab", true},
      {L"(?!a)*", L"ab", false},
      {L"(?:ab)+*", L"ababx", true},
      {L"\\bab*", L"abc", true},
      {L"*?a", L"bba", true},
      {L"a+*", L"aab", true},
      // Back-references.
      {L"([ab])*\\1", L"axa", true},
      {L"([ab])*\\1", L"axb", false},
      {L"(a+)-*-\\1", L"aa-x-aa", true},
      {L"(a+)-*-\\1", L"aa-x-a", false},
  };
  for (const Case& row : cases)
    EXPECT_EQ(Matches(row.label, row.text), row.matches) << row.label << " against " << row.text;
}

// A label that is no expression matches nothing, not even its own text.
TEST(WildcardLabel, ABrokenLabelMatchesNothing) {
  for (const std::wstring& label :
       std::vector<std::wstring>{L"*[", L"*(", L"*)", L"*[b-a]", L"(*", L"a{*", L"a{2,1}*", L"+*", L"?*", L"(?<a>*)",
                                 L"\\2*", L"*\\", L"*[[:none:]]", L"*{99999999999999}", L"a{100001}*"})
    for (const std::wstring& text : {std::wstring(), std::wstring(L"a"), label})
      EXPECT_FALSE(Matches(label, text)) << label << " against " << text;
}

TEST(WildcardLabel, IsReusable) {
  const WildcardLabel label(L"(a|b)+*");
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(label.Matches(L"abx"));
    EXPECT_FALSE(label.Matches(L"x"));
  }
}

// The reference: the standard library's expressions in their default mode, as stored criteria were written for, with
// an end to those that take exponential time.
struct TooManySteps {};

class CountingIterator {
 public:
  using iterator_category = std::bidirectional_iterator_tag;
  using value_type = wchar_t;
  using difference_type = std::ptrdiff_t;
  using pointer = const wchar_t*;
  using reference = const wchar_t&;

  CountingIterator() = default;
  CountingIterator(const wchar_t* position, int* steps) : m_position(position), m_steps(steps) {}
  reference operator*() const {
    Count();
    return *m_position;
  }
  CountingIterator& operator++() {
    ++m_position;
    return *this;
  }
  CountingIterator operator++(int) { return {m_position++, m_steps}; }
  CountingIterator& operator--() {
    --m_position;
    return *this;
  }
  CountingIterator operator--(int) { return {m_position--, m_steps}; }
  bool operator==(const CountingIterator& other) const {
    Count();
    return m_position == other.m_position;
  }

 private:
  void Count() const {
    if (m_steps != nullptr && ++*m_steps > 20000) throw TooManySteps();
  }
  const wchar_t* m_position = nullptr;
  int* m_steps = nullptr;
};

bool ReferenceMatches(const std::wregex& expression, const std::wstring& text) {
  int steps = 0;
  return std::regex_match(CountingIterator(text.data(), &steps), CountingIterator(text.data() + text.size(), &steps),
                          expression);
}

// Random labels: characters alone make few valid ones, so half are made of pieces.
std::wstring RandomLabel(std::mt19937& random) {
  constexpr const wchar_t* kCharacters[] = {L"a", L"b", L"*", L"?", L"+", L"(",  L")", L"[", L"]",
                                            L"{", L"}", L"|", L"^", L"$", L"\\", L"1", L"-"};
  constexpr const wchar_t* kPieces[] = {L"a",   L"b",    L"*",     L"?",   L"+",   L"(",    L")",    L"|",   L"(a",
                                        L"b)",  L"()",   L"(?:",   L"(?=", L"(?!", L"[ab]", L"[^a]", L"{2}", L"{1,2}",
                                        L"{0}", L"{2,}", L"(a|b)", L"\\1", L"\\b", L"\\w",  L"*?",   L"+?",  L"(a*)*"};
  const bool usePieces = random() % 2 == 0;
  std::wstring label;
  for (std::size_t i = 1 + random() % 9; i > 0; --i)
    label += usePieces ? kPieces[random() % std::size(kPieces)] : kCharacters[random() % std::size(kCharacters)];
  if (label.find(L'*') == std::wstring::npos) label.insert(random() % (label.size() + 1), L"*");
  return label;
}

TEST(WildcardLabel, HasTheOutcomesOfTheStandardLibrary) {
  constexpr int kLabels = 20000;
  constexpr int kTextsALabel = 6;
  constexpr std::wstring_view kTextCharacters = L"aaaabbbb1-*\n";
  std::mt19937 random(20240229);
  int compared = 0;
  int matched = 0;
  int broken = 0;
  int skipped = 0;
  for (int i = 0; i < kLabels; ++i) {
    const std::wstring name = RandomLabel(random);
    const WildcardLabel label(name);
    std::wregex reference;
    bool isValid = true;
    try {
      reference.assign(WildcardToRegex(name));
    } catch (const std::regex_error&) {
      isValid = false;
      ++broken;
    }
    for (int j = 0; j < kTextsALabel; ++j) {
      std::wstring text;
      for (std::size_t k = random() % 8; k > 0; --k) text += kTextCharacters[random() % kTextCharacters.size()];
      try {
        const bool expected = isValid && ReferenceMatches(reference, text);
        EXPECT_EQ(label.Matches(text), expected) << name << " against " << text;
        ++compared;
        if (expected) ++matched;
      } catch (const TooManySteps&) {
        ++skipped;
      }
    }
  }
  std::cout << compared << " pairs compared, " << matched << " matched; " << skipped << " skipped; " << broken << " of "
            << kLabels << " labels are no expressions\n";
  // The generator is worth something only while it makes both kinds.
  EXPECT_GT(compared, 30000);
  EXPECT_GT(matched, 5000);
}

double MillisecondsOf(const std::function<void()>& action) {
  double best = 1e9;  // of three: other processes use the machine too
  for (int i = 0; i < 3; ++i) {
    const auto start = std::chrono::steady_clock::now();
    action();
    best = std::min(best, std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
  }
  return best;
}

// The stack that the action takes on a thread of its own: what it has overwritten of a pattern.
class StackMeter {
 public:
  static std::size_t BytesOf(const std::function<void()>& action) {
    StackMeter meter(action);
    const HANDLE thread =
        ::CreateThread(nullptr, kFilledBytes * 2, &Run, &meter, STACK_SIZE_PARAM_IS_A_RESERVATION, nullptr);
    ::WaitForSingleObject(thread, INFINITE);
    ::CloseHandle(thread);
    return meter.m_used;
  }

 private:
  static constexpr std::size_t kFilledBytes = 2 << 20;
  static constexpr char kPattern = 0x5a;

  explicit StackMeter(const std::function<void()>& action) : m_action(action) {}

  [[gnu::noinline]] void Fill() {
    volatile char bytes[kFilledBytes];
    for (std::size_t i = kFilledBytes; i > 0; --i) bytes[i - 1] = kPattern;  // downwards, as a stack must be touched
    m_low = reinterpret_cast<std::uintptr_t>(&bytes[0]);
  }

  static DWORD WINAPI Run(void* argument) {
    auto& meter = *static_cast<StackMeter*>(argument);
    meter.Fill();
    meter.m_action();
    const auto top = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
    auto* position = reinterpret_cast<const volatile char*>(meter.m_low);
    while (*position == kPattern) ++position;
    meter.m_used = top - reinterpret_cast<std::uintptr_t>(position);
    return 0;
  }

  const std::function<void()>& m_action;
  std::uintptr_t m_low = 0;
  std::size_t m_used = 0;
};

struct Costly {
  const char* name;
  std::wstring label;
  bool matchesLetters;  // against a text of "a" alone
};

std::vector<Costly> CostlyLabels() {
  return {
      // Exponential for a matcher that backtracks.
      {"(a*)*b, any text first", L"*(a*)*b", false},
      {"(a*)*b", L"(a*)*b", false},
      {"(a+)+", L"(a+)+(a+)+*b", false},
      {"(a|a)*", L"*(a|a)*(a|aa)*b", false},
      {"((a*)*)*", L"*(((a*)*)*)*b", false},
      {"lookahead", L"*(?=(a*)*b)(a*)*", false},
      {"denied lookahead", L"*(?!(a*)*b)(a*)*", true},
      {"lookaheads in lookaheads, each with a search", L"*(?=[^b]*(?=[^b]*(?=[^b]*b)))", false},
      {"a?a?...", Repeat(L"a?", 127) + L"*", true},
      // Deep for a compiler that recurses.
      {"groups in groups", Repeat(L"(", 126) + L"a*" + Repeat(L")", 126), true},
      {"repeated groups in groups", Repeat(L"(", 80) + L"a*" + Repeat(L")*", 80), true},
      {"lookaheads in lookaheads", Repeat(L"(?=", 63) + L"*" + Repeat(L")", 63), false},
      {"open groups, too many", Repeat(L"(", 254) + L"*", false},
      {"open groups", Repeat(L"(", 127) + L"*", false},
      {"groups in a row", Repeat(L"()", 127) + L"*", true},
      {"alternatives", Repeat(L"|", 254) + L"*", true},
      {"letters", Repeat(L"b", 253) + L"?*", false},
      // Large for a compiler that writes repetitions out.
      {"(a?){500}", L"(a?){500}*", true},
      {"(a{0,1}?){300}", L"(a{0,1}?){300}*", true},
      {"(|a){400}", L"(|a){400}*", true},
      {"(a|){400}", L"(a|){400}*", true},
      {"(a*?){400}", L"*(a*?){400}", true},
      {"(a*){400}", L"*(a*){400}", true},
      {"((a?){9}){9}", L"(((a?){9}){9}){3}*", true},
      {"a{0,1400}", L"a{0,1400}*", true},
      {"a{1000}{1000}", L"a{1000}{1000}*", false},
      {"a{100000}", L"a{100000}*", false},
      {"(a{60})+{60}+{27}", L"((a{60})+{60})+{27}*", false},
      {"((a{99}){99}){99}", L"*((a{99}){99}){99}", false},
      // Back-references, which only a matcher that backtracks can follow.
      {"back-reference", L"([ab])*b\\1", false},
      {"back-reference, exponential", L"*(a*)*\\1b", false},
      {"back-reference, groups", Repeat(L"(|)", 60) + L"*\\1b", false},
      {"back-reference, groups in groups", Repeat(L"(", 110) + L"a*" + Repeat(L")*", 15) + Repeat(L")", 95) + L"\\1b",
       false},
      {"back-reference, (a?){40}", L"((a?){40})*\\1b", false},
  };
}

TEST(WildcardLabel, CostsMillisecondsAndLittleStack) {
  constexpr std::size_t kMaxStack = 128 * 1024;
  constexpr double kMaxMilliseconds = 50;  // far above what is measured, for slow machines
  for (const Costly& costly : CostlyLabels()) {
    for (const std::size_t letters : {24u, 63u, 200u, 255u}) {
      const std::wstring text(letters, L'a');
      bool matches = false;
      const auto action = [&] { matches = Matches(costly.label, text); };
      const double milliseconds = MillisecondsOf(action);
      const std::size_t stack = StackMeter::BytesOf(action);
      if (letters == 255)
        std::cout << costly.name << ": " << milliseconds << " ms, " << stack / 1024 << " KiB of stack\n";
      EXPECT_EQ(matches, costly.matchesLetters) << costly.name << ", " << letters << " letters";
      EXPECT_LT(stack, kMaxStack) << costly.name << ", " << letters << " letters";
      EXPECT_LT(milliseconds, kMaxMilliseconds) << costly.name << ", " << letters << " letters";
    }
  }
}

TEST(WildcardLabel, ExplosiveLabelsStillMatchWhatTheyShould) {
  const std::wstring letters(200, L'a');
  EXPECT_TRUE(Matches(L"*(a*)*b", letters + L"b"));
  EXPECT_TRUE(Matches(L"(a+)+*b", letters + L"xb"));
  EXPECT_TRUE(Matches(L"*(a|aa)*c", letters + L"c"));
  EXPECT_TRUE(Matches(L"*(?=(a*)*b)a*b", letters + L"b"));
  EXPECT_FALSE(Matches(L"*(?=(a*)*b)a*b", letters));
}

// As long as a label of a DNS name can be.
TEST(WildcardLabel, BackReferencesReachAcrossTheLongestNames) {
  const std::wstring letters(61, L'a');
  EXPECT_TRUE(Matches(L"([bc])*\\1", L"b" + letters + L"b"));
  EXPECT_FALSE(Matches(L"([bc])*\\1", L"b" + letters + L"c"));
  const std::wstring half(30, L'a');
  EXPECT_TRUE(Matches(L"([a-z]+)-*-\\1", half + L"-x-" + half));
  EXPECT_FALSE(Matches(L"([a-z]+)-*-\\1", half + L"-x-" + half + L"b"));
}

TEST(WildcardLabel, UsualRepetitionsAreNotTooLarge) {
  EXPECT_TRUE(Matches(L"[a-z0-9-]{1,63}-[0-9]{1,3}*", L"branch-office-117"));
  EXPECT_FALSE(Matches(L"[a-z0-9-]{1,63}-[0-9]{1,3}*", L"branch-office"));
  EXPECT_TRUE(Matches(L"(ab|cd){1,255}*", L"abcdab"));
  EXPECT_TRUE(Matches(L"[[:alpha:]]{3,200}*", L"abc7"));
  EXPECT_TRUE(Matches(L"\\({2}*", L"((a"));
}

// Names of any length meet the plain form, which has no limit, and only there.
TEST(WildcardLabel, LongTextsDoNotBreakIt) {
  for (const std::size_t length : {256u, 6000u, 100000u}) {
    const std::wstring letters(length, L'a');
    EXPECT_TRUE(Matches(L"a*", letters));
    EXPECT_TRUE(Matches(letters + L"*", letters));
    EXPECT_FALSE(Matches(letters + L"*b", letters));
    EXPECT_FALSE(Matches(L"(a)*", letters));
    EXPECT_FALSE(Matches(L"(a)\\1*", letters));
    EXPECT_FALSE(Matches(L"(" + letters + L")*", letters));
    EXPECT_FALSE(Matches(Repeat(L"(", length) + L"*" + Repeat(L")", length), L""));
    EXPECT_FALSE(Matches(Repeat(L"[[:", length) + L"*", L""));
    EXPECT_LT(StackMeter::BytesOf([&] { Matches(letters + L"(*", letters); }), std::size_t{32 * 1024});
  }
}

TEST(WildcardLabel, TheLongestLabelsAndTextsAreMatchedExactly) {
  EXPECT_TRUE(Matches(L"[a]*", std::wstring(255, L'a')));
  EXPECT_FALSE(Matches(L"[a]*", std::wstring(256, L'a')));
  EXPECT_TRUE(Matches(std::wstring(251, L'a') + L"[b]*", std::wstring(251, L'a') + L"b"));
  EXPECT_FALSE(Matches(std::wstring(252, L'a') + L"[b]*", std::wstring(252, L'a') + L"b"));
}

}  // namespace

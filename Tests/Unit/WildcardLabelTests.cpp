#include "FwClient/Service/QeLaLib/WildcardLabel.h"

#include <windows.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <clocale>
#include <cstddef>
#include <cwchar>
#include <functional>
#include <iostream>
#include <iterator>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/ExpressionSurvey.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"

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

// What an action asks of the heap. The library's breadth-first matcher takes a block for each step.
struct HeapUse {
  std::size_t blocks;
  std::size_t bytes;  // given back meanwhile or not
};

HeapUse HeapUseOf(const std::function<void()>& action) {
  const HeapWatch heap(ThisProgram());
  action();
  return {heap.Allocations(), heap.BytesAskedFor()};
}

// For the reader, never for a verdict: other processes use the machine too.
double MillisecondsOf(const std::function<void()>& action) {
  double best = 1e9;  // of three
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

// Different ones, as brackets keep each once.
std::wstring Letters(std::size_t count) {
  std::wstring letters;
  for (std::size_t i = 0; i < count; ++i) letters += static_cast<wchar_t>(0x4e00 + i);
  return letters;
}

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
      {"back-reference, (|){300}", L"(|){300}*\\1b", false},
      {"back-reference, (a)(){900}", L"(a)(){900}*\\1b", false},
      // Long, but bounded.
      {"1500 alternatives", L"*" + Repeat(L"|", 1500), true},
      {"3000 alternatives", L"*" + Repeat(L"|", 2990), false},
      {"(||||||||||||||||||||){120}", L"(" + Repeat(L"|", 20) + L"){120}*", false},
      {"stars", L"*a" + Repeat(L"*", 700), true},
      {"stars, too many", L"*a" + Repeat(L"*", 1400), false},
      {"pluses", L"*a" + Repeat(L"+", 700), true},
      {"lazy stars", L"*a" + Repeat(L"*?", 1480), true},
      {"question marks", L"*a" + Repeat(L"???", 490), true},
      {"a?? in a row", L"*" + Repeat(L"a??", 500), true},
      {"(a?)? in groups", L"((a?)?){370}*", true},
      {"lazy (a?)? in groups",
       L"((a?)?"
       L"?){320}*",
       true},
      {"{0,1} in a row", L"*a" + Repeat(L"{0,1}", 7), true},
      {"{1,1} in a row", L"*a" + Repeat(L"{1,1}?", 7), true},
      {"(a|a|...){70}", L"(" + Repeat(L"a|", 19) + L"a?){68}*", true},
      {"(|||||||||||){120}", L"(" + Repeat(L"|", 11) + L"){120}*", true},
      {"537 letters", Repeat(L"b", 537) + L"?*", false},
      {"2900 letters", Repeat(L"b", 2900) + L"?*", false},
      {"134 groups in groups", Repeat(L"(", 134) + L"a*" + Repeat(L")", 134), true},
      {"1000 groups in groups", Repeat(L"(", 1000) + L"a*" + Repeat(L")", 1000), false},
      {"groups in groups behind letters", Repeat(L"(bbb", 76) + L"a*" + Repeat(L")", 76), false},
      {"brackets, repeated", L"[a" + Letters(240) + L"]{0,1400}*", true},
      {"long brackets, repeated", L"[a" + Letters(4000) + L"]{0,160}*", true},
      {"longer brackets, repeated", L"[a" + Letters(16000) + L"]{0,1400}*", false},
      {"a lookahead behind alternatives", L"*" + Repeat(L"|", 280) + L"(?!b)", true},
      {"a lookahead behind alternatives, too many", L"*" + Repeat(L"|", 281) + L"(?!b)", false},
      {"a lookahead of alternatives", L"*(?=" + Repeat(L"|", 280) + L")", true},
      {"a lookahead behind stars", Repeat(L"*", 141) + L"(?!b)", true},
      {"a lookahead behind stars, too many", Repeat(L"*", 320) + L"(?!b)", false},
      {"a lookahead of stars", L"*(?=a" + Repeat(L"*", 140) + L")", true},
      {"a lookahead behind lazy stars", L"*(a*?){279}(?!b)", true},
      {"a lookahead behind a?? in a row", L"*" + Repeat(L"a??", 280) + L"(?!b)", true},
      {"a lookahead with many states", L"*(?=(a?){240}b)(a?){240}", false},
  };
}

TEST(WildcardLabel, CostsLittleStackAndFewSteps) {
  constexpr std::size_t kMaxStack = 128 * 1024;
  constexpr std::size_t kMaxBlocks = 400000;
  constexpr std::size_t kMaxBytes = 80 << 20;
  for (const Costly& costly : CostlyLabels()) {
    for (const std::size_t letters : {24u, 63u, 200u, 255u}) {
      const std::wstring text(letters, L'a');
      bool matches = false;
      const auto action = [&] { matches = Matches(costly.label, text); };
      const std::size_t stack = StackMeter::BytesOf(action);
      const HeapUse heap = HeapUseOf(action);
      if (letters == 255)
        std::cout << costly.name << ": " << MillisecondsOf(action) << " ms, " << stack / 1024 << " KiB of stack, "
                  << heap.blocks << " blocks, " << heap.bytes / 1024 << " KiB of heap\n";
      EXPECT_EQ(matches, costly.matchesLetters) << costly.name << ", " << letters << " letters";
      EXPECT_LT(stack, kMaxStack) << costly.name << ", " << letters << " letters";
      EXPECT_LT(heap.blocks, kMaxBlocks) << costly.name << ", " << letters << " letters";
      EXPECT_LT(heap.bytes, kMaxBytes) << costly.name << ", " << letters << " letters";
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

// The C library is shared with the host, and so is its locale.
TEST(WildcardLabel, BackReferencesCompareLettersWhateverTheLocale) {
  ASSERT_NE(std::setlocale(LC_ALL, "en-US"), nullptr);
  EXPECT_EQ(std::wcscoll(L"a\u00adb", L"ab\u00ad"), 0) << "sorting passes over a soft hyphen";
  EXPECT_TRUE(Matches(L"(a\u00adb)*\\1", L"a\u00adb-a\u00adb"));
  EXPECT_FALSE(Matches(L"(a\u00adb)*\\1", L"a\u00adb-ab\u00ad"));
  std::setlocale(LC_ALL, "C");
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

// The largest that is matched, and the next one, which is not.
TEST(WildcardLabel, TheLimitsAreExact) {
  struct Limit {
    const char* name;
    std::wstring inside;
    std::wstring outside;
    std::wstring text;
  };
  const std::wstring deep = Repeat(L"(", 133) + L"a*" + Repeat(L")", 133);
  const Limit limits[] = {
      {"states", L"(a?){598}*", L"(a?){599}*", L"a"},
      {"depth, of letters", L"a*|" + Repeat(L"b", 539), L"a*|" + Repeat(L"b", 540), L"a"},
      {"depth, of groups", L"aa" + deep, L"aaaaa" + deep, L"aaaaa"},
      {"branches", L"*" + Repeat(L"|", 1500), L"*" + Repeat(L"|", 1501), L"a"},
      {"states with a back-reference", L"(a)*|" + Repeat(L"b", 246) + L"\\1", L"(a)*|" + Repeat(L"b", 247) + L"\\1",
       L"a"},
  };
  for (const Limit& limit : limits) {
    EXPECT_TRUE(Matches(limit.inside, limit.text)) << limit.name;
    EXPECT_FALSE(Matches(limit.outside, limit.text)) << limit.name;
  }
}

TEST(WildcardLabel, TheMostStatesAreAllowedAndOneMoreIsNot) {
  std::vector<std::size_t> seen;
  for (std::size_t letters = 0; letters < 20; ++letters) {
    const std::wstring label = L"(a?){598}*|" + Repeat(L"b", letters);
    seen.push_back(SurveyExpression(WildcardToRegex(label)).states);
    EXPECT_EQ(Matches(label, L"a"), seen.back() <= 3000) << seen.back();
  }
  EXPECT_EQ(std::count(seen.begin(), seen.end(), std::size_t{3000}), 1);
}

TEST(WildcardLabel, TheLongestTextsAreMatchedExactly) {
  for (const wchar_t* label : {L"[a]*", L"(?=a)*", L"(a{51})\\1{4}*"}) {
    EXPECT_TRUE(Matches(label, std::wstring(255, L'a'))) << label;
    EXPECT_FALSE(Matches(label, std::wstring(256, L'a'))) << label;
  }
}

// Labels that could match, were the search for it not given up.
TEST(WildcardLabel, ASearchThatTakesTooManyStepsIsNoMatch) {
  const std::wstring backReference = L"((a|a)+b|*c)(x?)\\3";
  EXPECT_TRUE(Matches(backReference, std::wstring(8, L'a') + L"c"));
  EXPECT_FALSE(Matches(backReference, std::wstring(11, L'a') + L"c"));
  const std::wstring lookahead = L"*(?=(a?){240}(a|b))(a?){240}*";
  EXPECT_TRUE(Matches(lookahead, std::wstring(8, L'a')));
  EXPECT_FALSE(Matches(L"*(?!(a?){240}b)(a?){240}", std::wstring(255, L'a')));
}

// Few steps, each a level deeper.
TEST(WildcardLabel, ASearchThatGoesTooDeepIsNoMatch) {
  EXPECT_TRUE(Matches(L"(a|b)+*(x?)\\2", std::wstring(20, L'a')));
  EXPECT_FALSE(Matches(L"(a|b)+*(x?)\\2", std::wstring(255, L'a')));
}

std::wstring Sites(const wchar_t* first, int count) {
  std::wstring label = first;
  for (int i = 0; i < count; ++i) label += (i > 0 ? L"|site0" : L"site0") + std::to_wstring(100 + i).substr(1);
  return label;
}

TEST(WildcardLabel, LongAlternativesMatchAsShortOnesDo) {
  for (const int count : {3, 40, 300}) {
    const WildcardLabel label(Sites(L"(", count) + L")*");
    EXPECT_TRUE(label.Matches(L"site000"));
    EXPECT_TRUE(label.Matches(L"site002-lab"));
    EXPECT_FALSE(label.Matches(L"site"));
    EXPECT_FALSE(label.Matches(L"lab-site002"));
    EXPECT_EQ(label.Matches(L"site039"), count >= 40);
  }
}

// U+FF08 and U+FF09 stand for themselves, as in a label without any expression.
TEST(WildcardLabel, LettersThatOnlyLookLikeExpressionsAreLetters) {
  EXPECT_TRUE(Matches(L"\uff08a\uff09*", L"\uff08a\uff09x"));
  EXPECT_TRUE(Matches(L"\uff08[ab]\uff09*", L"\uff08a\uff09x"));
  EXPECT_FALSE(Matches(L"\uff08[ab]\uff09*", L"ax"));
  EXPECT_TRUE(Matches(L"[ab]\uff0a*", L"a\uff0ax"));
  EXPECT_FALSE(Matches(L"[ab]\uff0a*", L"aax"));
  EXPECT_TRUE(Matches(L"([\uff08])*", L"\uff08x"));
}

// Exceptions come out of the runtime as this call.
class ThrowCount {
 public:
  ThrowCount() {
    s_count = 0;
    s_original = m_patch.Original<decltype(::RaiseException)>();
  }
  int Count() const { return s_count; }

 private:
  static void WINAPI Raise(DWORD code, DWORD flags, DWORD count, const ULONG_PTR* arguments) {
    ++s_count;
    s_original(code, flags, count, arguments);
  }
  static inline int s_count = 0;
  static inline decltype(&::RaiseException) s_original = nullptr;
  const ImportPatch m_patch{ThisProgram(), "RaiseException", &Raise};
};

// Whatever is broken in it, and however deep: it is found without asking the standard library, which throws.
TEST(WildcardLabel, ABrokenLabelIsFoundWithoutAThrow) {
  ThrowCount throws;
  try {
    throw 1;
  } catch (int) {
  }
  ASSERT_EQ(throws.Count(), 1) << "it is seen";
  const std::wstring closed = L"*" + Repeat(L")", 100);
  for (const std::wstring& broken : std::vector<std::wstring>{
           Repeat(L"(", 127) + L"*", Repeat(L"(", 126) + L"*" + Repeat(L")", 127), Repeat(L"(?:", 84) + L"*",
           Repeat(L"(", 100) + L"[" + closed, Repeat(L"(", 100) + L"[b-a]" + closed,
           Repeat(L"(", 100) + L"[[:none:]]" + closed, Repeat(L"(", 100) + L"a{" + closed,
           Repeat(L"(", 100) + L"a{2,1}" + closed, Repeat(L"(", 100) + L"+" + closed,
           Repeat(L"(", 100) + L"\\1" + closed, Repeat(L"(", 100) + L"\\x4" + closed,
           Repeat(L"(", 100) + L"(?<" + closed, Repeat(L"(a", 1000) + L"*", L"a{100001}*"})
    EXPECT_FALSE(Matches(broken, L"a")) << broken;
  // A back-reference is no reason either.
  EXPECT_TRUE(Matches(L"([ab])*\\1", L"axa"));
  EXPECT_EQ(throws.Count(), 1);
}

}  // namespace

#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstddef>
#include <deque>
#include <functional>
#include <initializer_list>
#include <iterator>
#include <map>
#include <new>
#include <optional>
#include <random>
#include <regex>
#include <string>
#include <string_view>

#include "ScriptedWindows/ImportTable/HeapWatch.h"

namespace {

struct Case {
  const wchar_t* criterion;
  const wchar_t* suffix;
  bool matches;
};

// One matcher for many pairs, and one criterion and one suffix that are used again and again.
class PreparingMatcher {
 public:
  bool Matches(std::wstring_view criterion, std::wstring_view suffix) {
    m_criterion.Assign(criterion);
    m_suffix.Assign(suffix);
    return m_matcher.Matches(m_criterion, m_suffix);
  }

 private:
  DnsSuffixCriterion m_criterion;
  DnsLabels m_suffix;
  DnsSuffixMatcher m_matcher;
};

void ExpectAll(std::initializer_list<Case> cases) {
  for (const Case& row : cases)
    EXPECT_EQ(DnsSuffixMatches(row.criterion, row.suffix), row.matches)
        << "criterion \"" << row.criterion << "\" against suffix \"" << row.suffix << "\"";
}

TEST(DnsSuffixMatch, ComparesPlainLabelsFromTheRight) {
  ExpectAll({
      {L"corp.example.com", L"corp.example.com", true},
      {L"CORP.Example.com", L"corp.example.COM", true},
      {L"Corp.Example", L"corp.example", true},
      {L"example.org", L"corp.example.com", false},
      {L"corp.example.com", L"corp.example.org", false},
      {L"lab.example.com", L"corp.example.com", false},
      {L"corp.sample.com", L"corp.example.com", false},
      {L"com", L"example", false},
      {L"exampl.com", L"example.com", false},
      {L"example.com", L"exampl.com", false},
  });
}

// Either name may be the shorter one; it only has to agree with the end of the other.
TEST(DnsSuffixMatch, EndsWhenEitherNameRunsOut) {
  ExpectAll({
      {L"com", L"example.com", true},
      {L"com", L"com", true},
      {L"example.com", L"corp.example.com", true},
      {L"corp.example.com", L"example.com", true},
      {L"corp.example.com", L"com", true},
      {L"a.b.c.d.e.f", L"e.f", true},
      {L"a.b.c.d.e.f", L"d.f", false},
      {L"e.f", L"a.b.c.d.e.f", true},
      {L"mycorp.com", L"corp.com", false},
      {L"corp.com", L"mycorp.com", false},
  });
}

TEST(DnsSuffixMatch, AnEmptyNameIsOneEmptyLabel) {
  ExpectAll({
      {L"", L"", true},
      {L"", L"com", false},
      {L"", L"example.com", false},
      {L"", L"example.com.", true},
      {L"com", L"", false},
      {L"example.com", L"", false},
      {L"example.com.", L"", true},
      {L".", L"", true},
      {L"..", L".", true},
  });
}

TEST(DnsSuffixMatch, ATrailingDotIsALabel) {
  ExpectAll({
      {L"corp.com.", L"corp.com", false},
      {L"corp.com", L"corp.com.", false},
      {L"corp.com.", L"corp.com.", true},
      {L"a..b", L"a..b", true},
      {L"a..b", L"a.b", false},
      {L".com", L"example.com", false},
      {L".com", L"com", true},
  });
}

TEST(DnsSuffixMatch, AStarAloneIsAnyOneLabel) {
  ExpectAll({
      {L"*", L"", true},
      {L"*", L"com", true},
      {L"*", L"corp.example.com", true},
      {L"*", L"example.com.", true},
      {L"*.example.com", L"a.b.example.com", true},
      {L"*.example.com", L"b.example.com", true},
      {L"*.example.com", L"example.com", true},
      {L"*.example.com", L"example.org", false},
      {L"*.example.com", L".example.com", true},
      {L"corp.*.com", L"corp.example.com", true},
      {L"corp.*.com", L"lab.example.com", false},
      {L"corp.*.com", L"corp.eu.example.com", false},
      {L"corp.*", L"corp.example", true},
      {L"*.*", L"com", true},
      {L"*.*.com", L"a.b.com", true},
      {L"*.", L"example.com", false},
      {L"*.", L"", true},
      {L"*", L"a\nb", true},  // no expression: even a line break
  });
}

TEST(DnsSuffixMatch, AStarInALabelIsAnyText) {
  ExpectAll({
      {L"corp*.example.com", L"corp-eu.example.com", true},
      {L"corp*.example.com", L"corp.example.com", true},
      {L"corp*.example.com", L"eu-corp.example.com", false},
      {L"CORP*.example.com", L"Corp-EU.example.com", true},
      {L"*corp.example.com", L"eu-corp.example.com", true},
      {L"corp*.example.com", L"x.corp-eu.example.com", true},
      {L"corp*", L"corp.example", false},      // a star does not reach over a dot
      {L"*example*", L"my-example-2", false},  // the second star repeats the "e"
      {L"*example*", L"my-exampleee", true},
      {L"*a*.com", L"xyz.com", true},
      {L"a*.com", L"", false},
      {L"a*", L"", false},
      {L"e*.com", L"example.com", true},
      {L"e*e.com", L"example.com", true},
      {L"e*e.com", L"e.com", false},
  });
}

// A label that needs no expression has the answers of the expression that it would be.
TEST(DnsSuffixMatch, AStarInALabelStandsForNoEndOfALine) {
  for (const wchar_t* label : {L"a*b", L"(a)*b", L"a*b\\*?"}) {
    for (const wchar_t lineEnd : {L'\n', L'\r', L'\u2028', L'\u2029'}) {
      EXPECT_FALSE(DnsSuffixMatches(label, std::wstring(L"a") + lineEnd + L"b")) << label << " and " << int{lineEnd};
    }
    EXPECT_TRUE(DnsSuffixMatches(label, L"a\u0085\tb")) << label;
  }
}

TEST(DnsSuffixMatch, OtherExpressionCharactersLiveOnlyBesideAStar) {
  ExpectAll({
      {L"ab?", L"ab?", true},
      {L"ab?", L"a", false},
      {L"a?*", L"b", true},
      {L"a+*", L"aaa", true},
      {L"a+*", L"b", false},
      {L"a+", L"aaa", false},
      {L"(a|b)*.com", L"b7.com", true},
      {L"(a|b).com", L"b.com", false},
      {L"[a-c]*", L"B1", true},
      {L"[A-C]*", L"b1", true},
      {L".**", L"", true},
      {L".**", L"com", true},
      {L".**", L"example.com", false},  // the label in front of the dot is empty
      {L"**", L"anything", true},
      {L"*?", L"anything", true},
      {L"[0-9]{1,3}*.com", L"117.com", true},
  });
}

TEST(DnsSuffixMatch, ABrokenLabelDoesNotMatchAndEndsNothing) {
  ExpectAll({
      {L"*[", L"[", false},
      {L"*[", L"a", false},
      {L"*(", L"a", false},
      {L"+*", L"a", false},
      {L"?*", L"a", false},
      {L"*\\", L"a", false},
      {L"*[.com", L"a.com", false},
      {L"*[.com", L"com", true},  // not reached
      {L"*[.com", L"a.org", false},
  });
}

TEST(DnsSuffixMatch, LetterCaseIsThatOfAsciiInEveryLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* locale : {"C", "Turkish_Turkey.1254", "German_Germany.1252"}) {
    std::setlocale(LC_ALL, locale);
    ExpectAll({
        {L"INFO.example", L"info.example", true},
        {L"\u212a.example", L"k.example", false},
        {L"\u0130nfo.example", L"info.example", false},
        {L"\u0131nfo.example", L"INFO.example", false},
        {L"\u00c4.example", L"\u00e4.example", false},
        {L"\u00c4.example", L"\u00c4.example", true},
        {L"\u00c4*.example", L"\u00c4b.example", true},
    });
  }
  std::setlocale(LC_ALL, before.c_str());
}

// Whatever order pairs come in, a matcher that has seen others answers as a new one does.
TEST(DnsSuffixMatch, AMatcherRemembersWithoutMixingUp) {
  PreparingMatcher matcher;
  const wchar_t* const texts[] = {L"",       L"*",     L"com",      L"example.com", L"*.com",
                                  L"e*.com", L"*[",    L"corp*",    L"EXAMPLE.com", L"(a|b)*.com",
                                  L"b.com",  L"*.b.*", L"x.b.test", L"com."};
  for (int round = 0; round < 2; ++round) {
    for (const wchar_t* criterion : texts)
      for (const wchar_t* suffix : texts)
        EXPECT_EQ(matcher.Matches(criterion, suffix), DnsSuffixMatches(criterion, suffix))
            << criterion << " against " << suffix;
  }
}

std::size_t AllocationsOf(const std::function<void()>& action) {
  const HeapWatch heap(ThisProgram());
  action();
  return heap.Allocations();
}

// The rule in so many words: lists of labels in lower case, taken from the back; a label that holds a star is the
// expression that it says.
class SlowMatcher {
 public:
  bool Matches(const std::wstring& criterion, const std::wstring& suffix) {
    std::deque<std::wstring> criterionLabels = Split(criterion);
    std::deque<std::wstring> suffixLabels = Split(suffix);
    for (; !criterionLabels.empty() && !suffixLabels.empty(); criterionLabels.pop_back(), suffixLabels.pop_back()) {
      const std::wstring& label = criterionLabels.back();
      if (label == L"*") continue;
      const bool holdsStar = label.find(L'*') != std::wstring::npos;
      if (!(holdsStar ? MatchesExpression(label, suffixLabels.back()) : label == suffixLabels.back())) return false;
    }
    return true;
  }

 private:
  static std::deque<std::wstring> Split(const std::wstring& text) {
    std::deque<std::wstring> labels(1);
    for (const wchar_t character : text) {
      if (character == L'.')
        labels.emplace_back();
      else
        labels.back() += character >= L'A' && character <= L'Z' ? static_cast<wchar_t>(character + 32) : character;
    }
    return labels;
  }

  bool MatchesExpression(const std::wstring& label, const std::wstring& text) {
    auto [known, isNew] = m_expressions.try_emplace(label);
    if (isNew) {
      try {
        known->second.emplace(WildcardToRegex(label));
      } catch (const std::regex_error&) {
      }
    }
    return known->second.has_value() && std::regex_match(text, *known->second);
  }

  std::map<std::wstring, std::optional<std::wregex>> m_expressions;
};

TEST(DnsSuffixMatch, AgreesWithTheSlowMatcherOnRandomNames) {
  constexpr int kPairs = 200'000;
  constexpr std::wstring_view kPieces[] = {L"a",  L"a",     L"A", L"b",    L"B",    L"-",    L".",    L".",
                                           L".",  L"*",     L"*", L"\n",   L"\xc4", L"\xe4", L"corp", L"a*",
                                           L"a?", L"(b|a)", L"[", L"[ab]", L"+",    L"1"};
  std::mt19937 random(20261122);
  const auto name = [&](std::size_t kinds, std::size_t maxPieces) {
    std::wstring text;
    for (std::size_t i = random() % (maxPieces + 1); i > 0; --i) text += kPieces[random() % kinds];
    return text;
  };
  SlowMatcher slow;
  PreparingMatcher matcher;
  int compared = 0;
  int agreeing = 0;
  for (int i = 0; i < kPairs; ++i) {
    // Most are short, so that many agree. Expressions in one of four; a long label with a star in one of forty, which
    // is not compared with what the expression library makes of many stars: that would take years.
    std::wstring criterion = i % 4 == 0 ? name(std::size(kPieces), 5) : name(15, 7);
    std::wstring suffix = name(15, 7);
    if (i % 40 == 1) {
      const std::wstring start = name(2, 200);
      criterion = start + L'*' + name(6, 40) + criterion.substr(std::min(criterion.size(), criterion.rfind(L'*') + 1));
      suffix = start + name(6, 40) + suffix;
    }
    // A quantifier of a quantifier takes the expression library, as it is used there, exponential time.
    const auto isQuantifier = [](wchar_t character) {
      return character == L'*' || character == L'+' || character == L'?';
    };
    if (std::adjacent_find(criterion.begin(), criterion.end(),
                           [&](wchar_t a, wchar_t b) { return isQuantifier(a) && isQuantifier(b); }) != criterion.end())
      continue;
    const bool matches = slow.Matches(criterion, suffix);
    ++compared;
    agreeing += matches ? 1 : 0;
    ASSERT_EQ(matcher.Matches(criterion, suffix), matches) << "\"" << criterion << "\" against \"" << suffix << '"';
  }
  EXPECT_GT(compared, 100'000);
  EXPECT_GT(agreeing, compared / 20);
}

// An expression cannot be compiled without memory.
TEST(DnsSuffixMatch, AMatcherCompilesOnlyOnceWhateverTheLetterCase) {
  const std::wstring label = L"[a-z]+(corp|lab)*";
  const std::size_t compiling = AllocationsOf([&] { const WildcardLabel compiled(label); });
  const WildcardLabel compiled(label);
  const std::size_t matching = AllocationsOf([&] { EXPECT_TRUE(compiled.Matches(L"xcorp-7")); });
  ASSERT_GT(compiling, 10u);

  PreparingMatcher matcher;
  const auto allocationsOf = [&](const wchar_t* criterion, const wchar_t* suffix) {
    return AllocationsOf([&] { EXPECT_TRUE(matcher.Matches(criterion, suffix)); });
  };
  EXPECT_GE(allocationsOf(L"[a-z]+(corp|lab)*.example", L"xcorp-7.example"), compiling + matching);
  EXPECT_EQ(allocationsOf(L"[a-z]+(corp|lab)*.example", L"xcorp-7.example"), matching) << "the same pair again";
  EXPECT_EQ(allocationsOf(L"[a-z]+(CORP|lab)*.com", L"XCORP-7.com"), matching);
  EXPECT_LT(allocationsOf(L"[a-z]+(corp|lab)*", L"xlab-77"), matching + compiling) << "the same label, another suffix";
}

TEST(DnsSuffixMatch, OnlyExpressionsNeedMemoryOnceTheObjectsHaveSome) {
  const std::wstring name = L"some-longer-name-of-a-domain.example";
  const std::wstring criteria[] = {name, L"*." + name, L"SOME-longer-*.example", L"*"};
  PreparingMatcher matcher;
  EXPECT_TRUE(matcher.Matches(name + L".of.many.labels", name + L".of.many.labels"));
  EXPECT_EQ(AllocationsOf([&] {
              for (const std::wstring& criterion : criteria) EXPECT_TRUE(matcher.Matches(criterion, name));
            }),
            0u);
}

TEST(DnsSuffixMatch, AMatcherKeepsNothingBeyondItsLife) {
  HeapWatch heap(ThisProgram());
  {
    PreparingMatcher matcher;
    EXPECT_TRUE(matcher.Matches(L"(a|b)*.some-longer-name-of-a-domain", L"a.some-longer-name-of-a-domain"));
    EXPECT_GT(heap.BlocksLeft(), 4);
  }
  EXPECT_EQ(heap.BlocksLeft(), 0);
}

// Compiling that fails for want of memory must not leave half a label behind for the next question.
TEST(DnsSuffixMatch, RunningOutOfMemoryLeavesNothingWrongBehind) {
  const std::wstring criterion = L"some-longer-name-of-a-host.corp*.[a-z]+some-longer-name-of-a-domain*.example";
  const std::wstring other = L"another-longer-name-of-host.corp*.[a-z]+some-longer-name-of-a-domain*.example";
  const std::wstring suffix = L"some-longer-name-of-a-host.corp-7.xsome-longer-name-of-a-domain.example";
  FailEveryAllocation(ThisProgram(), [&](auto attempt) {
    PreparingMatcher matcher;
    attempt([&] {
      try {
        matcher.Matches(criterion, suffix);
        matcher.Matches(other, suffix);
      } catch (const std::bad_alloc&) {
      }
    });
    EXPECT_TRUE(matcher.Matches(criterion, suffix));
    EXPECT_FALSE(matcher.Matches(other, suffix));
  });
}

// Twice the length asks twice of the heap, in as many blocks at most. Of steps that are no blocks, the square of a
// million would be hours.
TEST(DnsSuffixMatch, LongNamesCostInProportion) {
  struct Heap {
    std::size_t blocks;
    std::size_t bytes;
  };
  const auto heapOf = [](std::size_t length) {
    const std::wstring label(length, L'A');
    const std::wstring dots(length, L'.');
    std::wstring stars;
    for (std::size_t i = 0; i < length / 4; ++i) stars += L"a*b.";
    const HeapWatch heap(ThisProgram());
    EXPECT_TRUE(DnsSuffixMatches(label, label));
    EXPECT_TRUE(DnsSuffixMatches(label + L"*", label + L"b"));
    EXPECT_FALSE(DnsSuffixMatches(label + L"*(", label));
    EXPECT_FALSE(DnsSuffixMatches(label + L"?*", label));
    EXPECT_TRUE(DnsSuffixMatches(dots, dots));
    EXPECT_TRUE(DnsSuffixMatches(L"", dots));
    EXPECT_TRUE(DnsSuffixMatches(stars, stars));
    return Heap{heap.Allocations(), heap.BytesAskedFor()};
  };
  const Heap half = heapOf(500000);
  const Heap whole = heapOf(1000000);
  EXPECT_LT(whole.blocks, half.blocks * 5 / 2);
  EXPECT_LT(whole.bytes, half.bytes * 5 / 2);
}

}  // namespace

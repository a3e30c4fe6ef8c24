#include "FwClient/Service/QeLaLib/DnsSuffixMatch.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstddef>
#include <functional>
#include <initializer_list>
#include <new>
#include <string>

#include "Tests/Support/HeapWatch.h"

namespace {

struct Case {
  const wchar_t* criterion;
  const wchar_t* suffix;
  bool matches;
};

void ExpectAll(std::initializer_list<Case> cases) {
  for (const Case& row : cases)
    EXPECT_EQ(DnsSuffixMatches(row.criterion, row.suffix), row.matches)
        << "criterion \"" << row.criterion << "\" against suffix \"" << row.suffix << "\"";
}

TEST(DnsSuffixMatch, SplitsAtEveryDelimiterAndKeepsEmptyLabels) {
  const struct {
    const wchar_t* text;
    LabelList labels;
  } cases[] = {
      {L"", {L""}},
      {L".", {L"", L""}},
      {L"a", {L"a"}},
      {L"a.b.c", {L"a", L"b", L"c"}},
      {L"a..b", {L"a", L"", L"b"}},
      {L"a.", {L"a", L""}},
      {L".a", {L"", L"a"}},
      {L"Corp.EXAMPLE", {L"corp", L"example"}},
  };
  for (const auto& row : cases) {
    LabelList labels;
    SplitLabels(row.text, labels, L'.');
    EXPECT_EQ(labels, row.labels) << row.text;
  }
}

TEST(DnsSuffixMatch, SplittingAppendsAndTakesAnyDelimiter) {
  LabelList labels = {L"first"};
  SplitLabels(L"A;B.C", labels, L';');
  EXPECT_EQ(labels, (LabelList{L"first", L"a", L"b.c"}));
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
  DnsSuffixMatcher matcher;
  const wchar_t* const texts[] = {L"",       L"*",     L"com",      L"example.com", L"*.com",
                                  L"e*.com", L"*[",    L"corp*",    L"EXAMPLE.com", L"(a|b)*.com",
                                  L"b.com",  L"*.b.*", L"x.b.test", L"com."};
  for (int round = 0; round < 2; ++round) {
    for (const wchar_t* criterion : texts)
      for (const wchar_t* suffix : texts)
        EXPECT_EQ(matcher.Matches(criterion, suffix), DnsSuffixMatches(criterion, suffix))
            << criterion << " against " << suffix;
    matcher.Clear();
  }
}

std::size_t AllocationsOf(const std::function<void()>& action) {
  const HeapWatch heap;
  action();
  return heap.Allocations();
}

// Neither splitting nor compiling can do without memory.
TEST(DnsSuffixMatch, AMatcherSplitsAndCompilesOnlyOnce) {
  const std::wstring label = L"[a-z]+(corp|lab)*";
  const std::wstring criterion = label + L".some-longer-name-of-a-domain.example";
  const std::wstring suffix = L"xcorp-7.some-longer-name-of-a-domain.example";
  const std::wstring other = L"xlab-77.some-longer-name-of-a-domain.example";
  const std::size_t compiling = AllocationsOf([&] { const WildcardLabel compiled(label); });
  const WildcardLabel compiled(label);
  const std::size_t matching = AllocationsOf([&] { EXPECT_TRUE(compiled.Matches(L"xcorp-7")); });
  const std::size_t splitting = AllocationsOf([&] {
    LabelList labels;
    SplitLabels(suffix, labels, L'.');
  });
  ASSERT_GT(compiling, 10u);
  ASSERT_GT(splitting, 0u);

  HeapWatch heap;
  DnsSuffixMatcher matcher;
  EXPECT_TRUE(matcher.Matches(criterion, suffix));
  const std::size_t first = heap.Allocations();
  EXPECT_GE(first, compiling + matching + 2 * splitting);
  EXPECT_TRUE(matcher.Matches(criterion, suffix));
  const std::size_t second = heap.Allocations() - first;
  EXPECT_EQ(second, matching) << "the same pair again";
  EXPECT_TRUE(matcher.Matches(criterion, other));
  EXPECT_LT(heap.Allocations() - first - second, matching + compiling) << "the same label with another suffix";

  // Plain labels and the plain form of a wildcard need nothing at all the second time.
  EXPECT_TRUE(matcher.Matches(L"corp*.example", L"corp-7.example"));
  const std::wstring plain = L"corp*.example";
  const std::wstring plainSuffix = L"corp-7.example";
  const std::size_t before = heap.Allocations();
  EXPECT_TRUE(matcher.Matches(plain, plainSuffix));
  EXPECT_EQ(heap.Allocations(), before);
  matcher.Clear();
}

TEST(DnsSuffixMatch, ClearingForgetsEverything) {
  HeapWatch heap;
  {
    DnsSuffixMatcher matcher;
    const std::ptrdiff_t empty = heap.BlocksLeft();
    matcher.Matches(L"(a|b)*.some-longer-name-of-a-domain.example", L"corp*.some-longer-name-of-a-domain.example");
    EXPECT_GT(heap.BlocksLeft(), empty + 4);
    matcher.Clear();
    EXPECT_LE(heap.BlocksLeft(), empty + 2) << "no more than the tables' own buckets";
    EXPECT_TRUE(matcher.Matches(L"corp*", L"corp1"));
  }
  EXPECT_EQ(heap.BlocksLeft(), 0);
}

// A split that fails for want of memory must not leave half a name behind for the next question.
TEST(DnsSuffixMatch, RunningOutOfMemoryLeavesNothingWrongBehind) {
  const std::wstring criterion = L"some-longer-name-of-a-host.corp*.[a-z]+some-longer-name-of-a-domain*.example";
  const std::wstring other = L"another-longer-name-of-host.corp*.[a-z]+some-longer-name-of-a-domain*.example";
  const std::wstring suffix = L"some-longer-name-of-a-host.corp-7.xsome-longer-name-of-a-domain.example";
  FailEveryAllocation([&](auto attempt) {
    DnsSuffixMatcher matcher;
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
    const HeapWatch heap;
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

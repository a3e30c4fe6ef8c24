#include "FwClient/Service/QeLaLib/ExpressionSurvey.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iostream>
#include <iterator>
#include <random>
#include <regex>
#include <string>
#include <vector>

namespace {

bool StandardLibraryTakes(const std::wstring& expression) {
  try {
    const std::wregex compiled(expression);
    return true;
  } catch (const std::regex_error&) {
    return false;
  }
}

// What the two must agree on, one row a rule or an oddity of the standard library.
TEST(ExpressionSurvey, TellsWhatTheStandardLibraryTakes) {
  const std::wstring valid[] = {
      // Groups.
      L"", L"()", L"(a(b)c)", L"(?:a)", L"(?=a)b", L"(?!a)b", L"(|)", L"a||b", L"|", L"\\(", L"\\)", L"[(]", L"[)]",
      L"[[:alpha:](]", L"\\c(a", L"\\c)a", L"(a)*", L"(?:a)+?",
      // Assertions, which are not repeated.
      L"^^a$$", L"\\b\\Ba", L"a^b",
      // Repetitions of repetitions.
      L"a**", L"a*?*?", L"a?+", L"a{2}{3}", L"a{2}?", L"a{2,}", L"a{2,3}?*", L"a{0}", L"a{3,3}", L"a{00000000003}",
      // Closing marks that stand alone.
      L"]", L"}", L"a}", L"a]*",
      // Brackets. Empty ones are valid, and a "]" is none of theirs.
      L"[]", L"[^]", L"[]]", L"[a]", L"[-]", L"[--a]", L"[a-]", L"[a-b-c]", L"[a-b-]", L"[^-a]", L"[a-a]", L"[[]",
      L"[a[]", L"[\\]]", L"[\\b]", L"[\\d]", L"[\\d-]", L"[\\x41-\\x42]", L"[\\0-a]", L"[[:alpha:]]", L"[[:w:]]",
      L"[[:ALPHA:]]", L"[[.a.]]", L"[[.tilde.]]", L"[[=a=]]", L"[[.a.]-b]", L"[\\c]]", L"[*+?(){}|^$.]", L"[+--]",
      // Escapes.
      L"\\0", L"\\n\\t\\v\\f\\r", L"\\d\\D\\s\\S\\w\\W", L"\\cA", L"\\x41", L"\\u0041", L"\\.", L"\\*", L"\\-", L"\\q",
      // Back-references.
      L"(a)\\1", L"(a)(b)\\2\\1", L"((a)\\2)", L"(?:a)(b)\\1", L"(a)\\1*", L"(?=(a))\\1",
      // Letters of other scripts.
      L"\u00e4*", L"[\u00e4-\u00f6]", L"(\u4e2d)+", L"\\\uff08", L"[\uff08]", L"\\\uff4e", L"[\\\uff4e-a]", L"\\\uff10",
      L"a{\u0663}", L"a{\u0663,2}"};
  const std::wstring invalid[] = {
      L"(", L")", L"(a", L"a)", L"(()", L"(a))", L"(?a)", L"(?<a>b)", L"(?:a", L"(?=a", L"(?", L"((((a", L"(a|b",
      // Nothing to repeat.
      L"*", L"+", L"?", L"{2}", L"(*a)", L"a|*", L"|+", L"^*", L"$+", L"\\b?", L"(?=a)*", L"(?!a){2}", L"a|{2}",
      // Counts.
      L"a{", L"a{2", L"a{2,", L"a{2,3", L"a{}", L"a{,3}", L"a{3,2}", L"a{a}", L"a{2 }", L"a{2,3,4}", L"a{-1}",
      L"a{2147483648}", L"a{1,99999999999}",
      // Brackets.
      L"[", L"[a", L"[^", L"[b-a]", L"[a-\\d]", L"[\\d-a]", L"[[:alpha:]-a]", L"[a-[.b.]]", L"[[:none:]]", L"[[:alpha:",
      L"[[:alpha]", L"[[.none.]]", L"[[..]]", L"[[=none=]]", L"[[==]]", L"[[::]]", L"[[", L"[\\", L"[\\B]", L"[\\1]",
      L"[\\x4]", L"[\\c", L"[a-", L"[a-b", L"[b--]", L"[[.b.]-a]", L"[\uff4e-a]",
      // Escapes.
      L"\\", L"a\\", L"\\c", L"\\x", L"\\x4", L"\\x4g", L"\\u004", L"\\ug",
      // Back-references.
      L"\\1", L"(a)\\2", L"(a\\1)", L"((a)\\1)", L"(?:a)\\1", L"\\1(a)", L"(a)\\99999999999", L"\\\u0663",
      L"(a)\\1\u0663"};
  for (const std::wstring& expression : valid) {
    EXPECT_TRUE(SurveyExpression(expression).isValid) << expression;
    EXPECT_TRUE(StandardLibraryTakes(expression)) << expression;
  }
  for (const std::wstring& expression : invalid) {
    EXPECT_FALSE(SurveyExpression(expression).isValid) << expression;
    EXPECT_FALSE(StandardLibraryTakes(expression)) << expression;
  }
}

// Pieces around the places where the two could differ, and plain characters.
std::wstring RandomExpression(std::mt19937& random) {
  constexpr const wchar_t* kPieces[] = {
      L"a",      L"b",      L"z",        L"*",        L"+",          L"?",        L"*?",     L"(",     L")",
      L"(",      L")",      L"|",        L"^",        L"$",          L".",        L"(?:",    L"(?=",   L"(?!",
      L"(?",     L"(a)",    L"[",        L"]",        L"[",          L"]",        L"[^",     L"-",     L"-",
      L"[:",     L":]",     L"[.",       L".]",       L"[=",         L"=]",       L"{",      L"}",     L"{2}",
      L"{1,2}",  L"{0,}",   L"{2,1",     L"3",        L",",          L"0",        L"\\",     L"\\(",   L"\\)",
      L"\\[",    L"\\]",    L"\\1",      L"\\2",      L"\\0",        L"\\10",     L"\\b",    L"\\B",   L"\\d",
      L"\\W",    L"\\c",    L"\\x",      L"\\x4",     L"\\x41",      L"\\u00",    L"\\u0",   L"61",    L"alpha",
      L"tilde",  L"w",      L"d",        L"[a-z",     L"[[:alpha:]", L"[[.a.]",   L"[[=a=]", L"[ab]",  L"\n",
      L"\u00e4", L"\u0663", L"\\\u0663", L"{\u0663}", L"\\\uff08",   L"\\\uff4e", L"\uff4e", L"\uff10"};
  std::wstring expression;
  for (std::size_t i = random() % 12; i > 0; --i) expression += kPieces[random() % std::size(kPieces)];
  if (random() % 8 == 0) expression.insert(random() % (expression.size() + 1), 1, L'\0');
  if (random() % 4 != 0) expression += L'$';  // as a label's expression ends
  return expression;
}

TEST(ExpressionSurvey, AgreesWithTheStandardLibraryOnRandomExpressions) {
  constexpr int kExpressions = 20000;
  std::mt19937 random(20240301);
  int valid = 0;
  int differ = 0;
  for (int i = 0; i < kExpressions; ++i) {
    const std::wstring expression = RandomExpression(random);
    const bool expected = StandardLibraryTakes(expression);
    if (expected) ++valid;
    if (SurveyExpression(expression).isValid != expected && ++differ <= 20)
      ADD_FAILURE() << testing::PrintToString(expression) << " is " << (expected ? "valid" : "invalid");
  }
  EXPECT_EQ(differ, 0);
  // The generator is worth something only while it makes both kinds.
  std::cout << valid << " of " << kExpressions << " expressions are valid\n";
  EXPECT_GT(valid, kExpressions / 20);
}

// The standard library reads U+FF08 as whatever it has read before, and U+FF0A as "*".
TEST(ExpressionSurvey, FindsLettersThatTheStandardLibraryMisreads) {
  using Places = std::vector<std::size_t>;
  EXPECT_EQ(SurveyExpression(L"a\uff08b\uff0a").misread, (Places{1, 3}));
  EXPECT_EQ(SurveyExpression(L"[\uff08]\\\uff09").misread, Places{}) << "not in brackets, nor behind a backslash";
  EXPECT_EQ(SurveyExpression(L"\u00e4\u4e2d()").misread, Places{});
  EXPECT_TRUE(SurveyExpression(L"(\uff09)").isValid);
  EXPECT_FALSE(SurveyExpression(L"(\uff09").isValid);
  EXPECT_TRUE(SurveyExpression(L"\uff0a").isValid) << "it is no repetition";
}

TEST(ExpressionSurvey, CountsStatesWithRepetitionsWrittenOut) {
  const auto states = [](const wchar_t* expression) { return SurveyExpression(expression).states; };
  EXPECT_EQ(states(L"abc"), 3u);
  EXPECT_EQ(states(L"a*b+c?"), 6u);
  EXPECT_EQ(states(L"a|b"), 3u);
  EXPECT_EQ(states(L"(ab)"), 4u);
  EXPECT_EQ(states(L"a{9}"), 20u);
  EXPECT_EQ(states(L"(a{9}){9}"), 230u);
  EXPECT_EQ(states(L"[abc][^a-z]"), 2u);
  EXPECT_EQ(states((L"[" + std::wstring(1024, L'a') + L"]").c_str()), 5u) << "they are copied";
  EXPECT_EQ(states(L"((((a{999}){999}){999}){999}){999}"), kCountlessStates);
  EXPECT_EQ(states(L"a{2147483647}"), kCountlessStates);
}

TEST(ExpressionSurvey, CountsHowDeepTheParserRecurses) {
  const auto depth = [](const wchar_t* expression) { return SurveyExpression(expression).depth; };
  EXPECT_EQ(depth(L"abc"), 3u);
  EXPECT_EQ(depth(L"a*b*c*"), 3u);
  EXPECT_EQ(depth(L"abc|d|efgh"), 4u) << "alternatives stand side by side";
  EXPECT_EQ(depth(L"((a))"), 9u);
  EXPECT_EQ(depth(L"ab(c|de)f"), 8u);
  EXPECT_EQ(depth(L"()()()"), 6u);
}

TEST(ExpressionSurvey, CountsWhereTheMatcherRecurses) {
  const auto branches = [](const wchar_t* expression) { return SurveyExpression(expression).branches; };
  EXPECT_EQ(branches(L"a*b+c?d{2,3}"), 0u) << "these return from each letter";
  EXPECT_EQ(branches(L"a|b|c"), 2u);
  EXPECT_EQ(branches(L"a*?b+?c??"), 3u);
  EXPECT_EQ(branches(L"(a)*(b)+(c)?a**"), 8u);
  EXPECT_EQ(branches(L"(|a){9}"), 10u);
  EXPECT_EQ(branches(L"(a){9}"), 0u);
  EXPECT_EQ(branches(L"(a){2,9}"), 20u);
  EXPECT_EQ(branches(L"a{9}?"), 10u);
}

}  // namespace

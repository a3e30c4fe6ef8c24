#include "Tools/qela/Text.h"

#include <gtest/gtest.h>

namespace {

TEST(QelaWrapped, BreaksALongLineAtABlank) {
  EXPECT_EQ(Wrapped("one two three four five six seven", 24), "one two three four five\nsix seven\n");
  EXPECT_EQ(Wrapped("  one two three four five six seven", 25), "  one two three four five\n  six seven\n");
}

TEST(QelaWrapped, GoesOnBelowTheSecondColumn) {
  EXPECT_EQ(Wrapped("  --a  one two three four five six seven", 30),
            "  --a  one two three four five\n       six seven\n");
}

TEST(QelaWrapped, LeavesWhatFitsAndWhatCannotBeBroken) {
  EXPECT_EQ(Wrapped("one two\n\nthree\n", 24), "one two\n\nthree\n");
  const std::string word(60, 'x');
  EXPECT_EQ(Wrapped(word, 24), word + "\n");
  EXPECT_EQ(Wrapped("a " + word + " b", 24), "a\n" + word + "\nb\n");
  EXPECT_EQ(Wrapped("  --option  one two three", 10), "  --option  one two three\n") << "a terminal of ten columns";
}

TEST(QelaGlob, ComparesWholeTextsWithoutLetterCase) {
  EXPECT_TRUE(MatchesGlob(L"Office", L"office"));
  EXPECT_FALSE(MatchesGlob(L"Office", L"Offices"));
  EXPECT_FALSE(MatchesGlob(L"", L"a"));
  EXPECT_TRUE(MatchesGlob(L"", L""));
}

TEST(QelaGlob, AStarStandsForAnyTextAndAQuestionMarkForOneLetter) {
  EXPECT_TRUE(MatchesGlob(L"*", L""));
  EXPECT_TRUE(MatchesGlob(L"branch *", L"Branch 12"));
  EXPECT_TRUE(MatchesGlob(L"*a*b*", L"xxaxxabx"));
  EXPECT_TRUE(MatchesGlob(L"*ab", L"aab"));
  EXPECT_FALSE(MatchesGlob(L"*ab", L"aba"));
  EXPECT_TRUE(MatchesGlob(L"b?ro", L"B\u00fcro"));
  EXPECT_FALSE(MatchesGlob(L"b?ro", L"bro"));
}

TEST(QelaGlob, ManyStarsTakeNoLongerThanTheTextsAreLong) {
  const std::wstring text(20'000, L'a');
  std::wstring pattern;
  for (int i = 0; i < 1'000; ++i) pattern += L"a*";
  EXPECT_FALSE(MatchesGlob(pattern + L"b", text));
}

}  // namespace

// What the standard library would make of a regular expression, found out without asking it: its parser recurses, and
// leaves a broken expression by throwing from there, after which the runtime keeps what it made to throw.
#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

struct ExpressionSurvey {
  // Whether std::wregex takes the text, as ECMAScript and without options. Only then do the other fields say something.
  bool isValid = false;
  bool hasBackReferences = false;
  std::size_t lookaheads = 0;
  // About how many states it makes: one a term, and the counted repetitions, which may nest, written out.
  std::size_t states = 0;
  // How deep the parser recurses: one for each term before a place in the same alternative, four for each open group.
  std::size_t depth = 0;
  // How deep the matcher may recurse, with repetitions written out: one for each alternative and lazy repetition, two
  // for each other repetition of what may be empty.
  std::size_t branches = 0;
  // Where characters of other scripts stand, in rising order, that the standard library takes for "(" or "*", since the
  // C library narrows them to it (U+FF08, U+FF0A). An ordinary character is one only behind a backslash to it, and that
  // is how the other fields count it.
  std::vector<std::size_t> misread;
};

// Counts end at this number.
inline constexpr std::size_t kCountlessStates = 1 << 20;

// In linear time, and without recursion.
ExpressionSurvey SurveyExpression(std::wstring_view expression);

// What the survey says of an expression, against what the standard library makes of it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <locale>
#include <new>
#include <optional>
#include <regex>
#include <string>
#include <string_view>

#include "FwClient/Service/QeLaLib/ExpressionSurvey.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/FuzzText.h"

namespace {

// The standard library recurses, and takes a state of memory for each term: longer ones are for the survey alone.
constexpr std::size_t kMostCharacters = 160;
constexpr std::size_t kMostStates = 5000;

// Nothing where every block takes a page, and there are not as many: up to a mistake it may have taken any number.
std::optional<bool> StandardLibraryTakes(const std::wstring& expression) {
  try {
    const std::wregex compiled(expression);
    return true;
  } catch (const std::regex_error&) {
    return false;
  } catch (const std::bad_alloc&) {
    if (!FuzzIsSlow()) throw;
    return std::nullopt;
  }
}

// Whether the standard library takes it for one of its marks.
bool IsMisread(wchar_t character) {
  const char narrow = std::use_facet<std::ctype<wchar_t>>(std::locale()).narrow(character, ' ');
  return character > 0x7f && std::string_view("^$\\.*+?()[]{}|").find(narrow) != std::string_view::npos;
}

void Run(FuzzInput input) {
  std::wstring expression = FuzzText(input);
  const ExpressionSurvey survey = SurveyExpression(expression);
  for (std::size_t i = 0; i < survey.misread.size(); ++i)
    if (survey.misread[i] >= expression.size() || (i > 0 && survey.misread[i] <= survey.misread[i - 1]))
      FuzzFail("what is misread stands nowhere");
  FuzzKind(static_cast<std::uint32_t>(survey.isValid) + 2 * static_cast<std::uint32_t>(survey.hasBackReferences) +
           4 * static_cast<std::uint32_t>(survey.lookaheads % 8) +
           32 * static_cast<std::uint32_t>(survey.branches % 32) +
           1024 * static_cast<std::uint32_t>(survey.depth % 32));
  if (expression.size() > kMostCharacters) return;

  if (survey.isValid && survey.states > kMostStates) return;
  // As it is compiled, such letters stand behind a backslash. Of what is not valid it is not told where they stand.
  if (!survey.isValid && std::any_of(expression.begin(), expression.end(), IsMisread)) return;
  for (std::size_t i = survey.misread.size(); i-- > 0;) expression.insert(survey.misread[i], 1, L'\\');
  if (StandardLibraryTakes(expression).value_or(survey.isValid) != survey.isValid)
    FuzzFail(survey.isValid ? "the standard library refuses what the survey takes"
                            : "the standard library takes what the survey refuses");
}

const FuzzTarget g_target("expression", Run,
                          {"a",
                           "b",
                           "*",
                           "+",
                           "?",
                           "*?",
                           "(",
                           ")",
                           "(?:",
                           "(?=",
                           "(?!",
                           "|",
                           "^",
                           "$",
                           ".",
                           "[",
                           "]",
                           "[^",
                           "-",
                           "[:",
                           ":]",
                           "[.",
                           ".]",
                           "[=",
                           "=]",
                           "{",
                           "}",
                           "{2}",
                           "{1,2}",
                           "{0,}",
                           "{2,1",
                           ",",
                           "0",
                           "\\",
                           "\\(",
                           "\\1",
                           "\\2",
                           "\\0",
                           "\\10",
                           "\\b",
                           "\\B",
                           "\\d",
                           "\\W",
                           "\\c",
                           "\\x",
                           "\\x4",
                           "\\x41",
                           "\\u00",
                           "61",
                           "alpha",
                           "tilde",
                           "[a-z",
                           "[[:alpha:]",
                           "[[.a.]",
                           "[[=a=]",
                           "\n",
                           "\xc0\x06\x63",
                           "\xc0\xff\x08",
                           "\xc0\xff\x4e",
                           "\xc0\xff\x10",
                           "2147483648"});

}  // namespace

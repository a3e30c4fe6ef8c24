// UTF-16 to UTF-8 and back, strict: text that is not valid is refused, never repaired.
#pragma once

#include <algorithm>
#include <climits>
#include <cstddef>
#include <exception>
#include <optional>
#include <string>
#include <string_view>

namespace StlStringUtfConv {

inline constexpr std::size_t kMaxUnits = INT_MAX;  // the system takes lengths as int

// A text that could not be converted.
class Exception : public std::exception {
 public:
  // Whose fault it is: the text's, or that of a system which cannot convert even a good one just now.
  enum class Cause { kText, kSystem };

  explicit Exception(unsigned long error, Cause cause = Cause::kText) noexcept : m_error(error), m_cause(cause) {}

  // The Win32 error; never 0.
  unsigned long Error() const noexcept { return m_error; }
  Cause WhoseFault() const noexcept { return m_cause; }
  const char* what() const noexcept override {
    return m_cause == Cause::kText ? "text is not valid UTF-16 or UTF-8" : "text could not be converted";
  }

 private:
  unsigned long m_error;
  Cause m_cause;
};

// The text up to its first NUL, when that is nothing but ASCII: such a text has the same units in both forms.
template <typename Char>
std::optional<std::basic_string_view<Char>> AsciiText(std::basic_string_view<Char> text) noexcept {
  const auto end = std::find_if_not(text.begin(), text.end(), [](Char unit) { return unit > 0 && unit < 0x80; });
  const auto length = static_cast<std::size_t>(end - text.begin());
  if ((length != text.size() && text[length] != 0) || length > kMaxUnits) return std::nullopt;
  return text.substr(0, length);
}

// Both convert the text up to its first NUL. They throw Exception when that part is not valid (a lone surrogate, a
// byte that is no UTF-8: error 1113) or has 2^31 or more units (error 111), and when the system fails for any other
// reason; and std::bad_alloc.
std::string ToUtf8(std::wstring_view text);
std::wstring ToWide(std::string_view text);

}  // namespace StlStringUtfConv

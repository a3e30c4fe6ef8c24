// UTF-16 to UTF-8 and back, strict: text that is not valid is refused, never repaired.
#pragma once

#include <exception>
#include <string>
#include <string_view>

namespace StlStringUtfConv {

// A text that could not be converted.
class Exception : public std::exception {
 public:
  explicit Exception(unsigned long error) noexcept : m_error(error) {}

  // The Win32 error; never 0.
  unsigned long Error() const noexcept { return m_error; }
  const char* what() const noexcept override { return "text is not valid UTF-16 or UTF-8"; }

 private:
  unsigned long m_error;
};

// Both convert the text up to its first NUL. They throw Exception when that part is not valid (a lone surrogate, a
// byte that is no UTF-8) or has 2^31 or more units (error 111), and std::bad_alloc.
std::string ToUtf8(std::wstring_view text);
std::wstring ToWide(std::string_view text);

}  // namespace StlStringUtfConv

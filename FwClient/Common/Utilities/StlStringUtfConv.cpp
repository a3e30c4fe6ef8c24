#include "FwClient/Common/Utilities/StlStringUtfConv.h"

#include <windows.h>

#include <array>
#include <cstddef>
#include <vector>

namespace StlStringUtfConv {
namespace {

// Most texts are names and addresses: they are converted without an allocation beyond the result's.
constexpr std::size_t kStackBufferBytes = 1024;

// The system blames the text with one error only.
[[noreturn]] void ThrowLastError() {
  const DWORD error = ::GetLastError();
  throw Exception(error != 0 ? error : ERROR_INVALID_FUNCTION,
                  error == ERROR_NO_UNICODE_TRANSLATION ? Exception::Cause::kText : Exception::Cause::kSystem);
}

// Cuts at the first NUL.
template <typename Char>
int ConvertibleLength(std::basic_string_view<Char>& text) {
  text = text.substr(0, text.find(Char{}));
  if (text.size() > kMaxUnits) throw Exception(ERROR_BUFFER_OVERFLOW, Exception::Cause::kText);
  return static_cast<int>(text.size());
}

// `convert(buffer, units)` converts into a buffer, or with a null one tells the units needed; 0 is a failure.
template <typename Char, typename Convert>
std::basic_string<Char> Converted(Convert convert) {
  // So that a call which fails without naming an error is not taken for the last one that named one.
  ::SetLastError(ERROR_SUCCESS);
  const int needed = convert(nullptr, 0);
  if (needed <= 0) ThrowLastError();
  const auto units = static_cast<std::size_t>(needed);
  std::array<Char, kStackBufferBytes / sizeof(Char)> stack;
  std::vector<Char> heap;
  Char* buffer = stack.data();
  if (units > stack.size()) {
    heap.resize(units);
    buffer = heap.data();
  }
  if (convert(buffer, needed) != needed) ThrowLastError();
  return std::basic_string<Char>(buffer, units);
}

}  // namespace

std::string ToUtf8(std::wstring_view text) {
  if (const auto ascii = AsciiText(text)) return {ascii->begin(), ascii->end()};
  const int length = ConvertibleLength(text);
  return Converted<char>([&](char* buffer, int bytes) {
    return ::WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, text.data(), length, buffer, bytes, nullptr, nullptr);
  });
}

std::wstring ToWide(std::string_view text) {
  if (const auto ascii = AsciiText(text)) return {ascii->begin(), ascii->end()};
  const int length = ConvertibleLength(text);
  return Converted<wchar_t>([&](wchar_t* buffer, int units) {
    return ::MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), length, buffer, units);
  });
}

}  // namespace StlStringUtfConv

// Words of 16 bits, as the sources have them on Windows: the log reader lays bytes on them, and surrogates are two. The
// C and C++ libraries of the building machine have words of 32 bits; their templates are compiled anew (see
// CMakeLists.txt), and what lies compiled in them and takes wide texts is replaced here, which the loader prefers.
// Single letters need nothing: they come in registers.
#include <algorithm>
#include <codecvt>
#include <cstddef>
#include <cstdlib>
#include <cwchar>
#include <cwctype>
#include <locale>
#include <string>

#include "Utf.h"

static_assert(sizeof(wchar_t) == 2);

extern "C" {

std::size_t wcslen(const wchar_t* text) noexcept {
  const wchar_t* end = text;
  while (*end != 0) ++end;
  return static_cast<std::size_t>(end - text);
}

int wmemcmp(const wchar_t* left, const wchar_t* right, std::size_t count) noexcept {
  for (; count != 0; ++left, ++right, --count)
    if (*left != *right) return *left < *right ? -1 : 1;
  return 0;
}

wchar_t* wmemcpy(wchar_t* to, const wchar_t* from, std::size_t count) noexcept {
  return static_cast<wchar_t*>(__builtin_memcpy(to, from, count * sizeof *to));
}

wchar_t* wmemmove(wchar_t* to, const wchar_t* from, std::size_t count) noexcept {
  return static_cast<wchar_t*>(__builtin_memmove(to, from, count * sizeof *to));
}

wchar_t* wmemset(wchar_t* to, wchar_t unit, std::size_t count) noexcept {
  for (std::size_t i = 0; i < count; ++i) to[i] = unit;
  return to;
}

}  // extern "C"

// The headers have more than one form for these symbols.
const wchar_t* FindUnit(const wchar_t* text, wchar_t unit, std::size_t count) noexcept __asm__("wmemchr");
const wchar_t* FindUnit(const wchar_t* text, wchar_t unit, std::size_t count) noexcept {
  for (; count != 0; ++text, --count)
    if (*text == unit) return text;
  return nullptr;
}

const wchar_t* FindLetter(const wchar_t* text, wchar_t letter) noexcept __asm__("wcschr");
const wchar_t* FindLetter(const wchar_t* text, wchar_t letter) noexcept {
  return FindUnit(text, letter, wcslen(text) + 1);
}

// Numbers are ASCII.
template <typename Number>
Number Converted(const wchar_t* text, wchar_t** end, int base, Number (*convert)(const char*, char**, int)) {
  std::string narrow;
  for (const wchar_t* unit = text; *unit > 0 && *unit < 0x80; ++unit) narrow += static_cast<char>(*unit);
  char* narrowEnd = nullptr;
  const Number number = convert(narrow.c_str(), &narrowEnd, base);
  if (end != nullptr) *end = const_cast<wchar_t*>(text) + (narrowEnd - narrow.c_str());
  return number;
}
long Signed(const wchar_t* text, wchar_t** end, int base) __asm__("__isoc23_wcstol");
long Signed(const wchar_t* text, wchar_t** end, int base) { return Converted(text, end, base, &std::strtol); }
unsigned long Unsigned(const wchar_t* text, wchar_t** end, int base) __asm__("__isoc23_wcstoul");
unsigned long Unsigned(const wchar_t* text, wchar_t** end, int base) {
  return Converted(text, end, base, &std::strtoul);
}

// What std::collate does for expressions, as in the "C" locale: letters are put in order by their numbers.
std::wstring Collated(const std::collate<wchar_t>*, const wchar_t* low,
                      const wchar_t* high) __asm__("_ZNKSt7__cxx117collateIwE12do_transformEPKwS3_");
std::wstring Collated(const std::collate<wchar_t>*, const wchar_t* low, const wchar_t* high) { return {low, high}; }

namespace std {

const wchar_t* ctype<wchar_t>::do_tolower(wchar_t* low, const wchar_t* high) const {
  for (; low != high; ++low) *low = do_tolower(*low);
  return high;
}

const wchar_t* ctype<wchar_t>::do_toupper(wchar_t* low, const wchar_t* high) const {
  for (; low != high; ++low) *low = do_toupper(*low);
  return high;
}

// Names of files.
codecvt_base::result __codecvt_utf8_utf16_base<wchar_t>::do_out(mbstate_t&, const wchar_t* from, const wchar_t* fromEnd,
                                                                const wchar_t*& fromNext, char* to, char* toEnd,
                                                                char*& toNext) const {
  const string utf8 = Utf::ToUtf8({from, fromEnd});
  const bool fits = utf8.size() <= static_cast<size_t>(toEnd - to);
  fromNext = fits ? fromEnd : from;
  toNext = fits ? copy(utf8.begin(), utf8.end(), to) : to;
  return fits ? ok : partial;
}

codecvt_base::result __codecvt_utf8_utf16_base<wchar_t>::do_in(mbstate_t&, const char* from, const char* fromEnd,
                                                               const char*& fromNext, wchar_t* to, wchar_t* toEnd,
                                                               wchar_t*& toNext) const {
  const wstring text = Utf::ToWide({from, fromEnd});
  const bool fits = text.size() <= static_cast<size_t>(toEnd - to);
  fromNext = fits ? fromEnd : from;
  toNext = fits ? copy(text.begin(), text.end(), to) : to;
  return fits ? ok : partial;
}

}  // namespace std

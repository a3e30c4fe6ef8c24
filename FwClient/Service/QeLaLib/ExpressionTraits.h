// The letters of an expression, with the outcomes of the standard library's own traits.
#pragma once

#include <algorithm>
#include <regex>
#include <string>

struct ExpressionTraits : std::regex_traits<wchar_t> {
  // The value of a digit, or -1. The library's own asks a stream for it, and the streams would make the DLL 155 KB
  // larger.
  static int value(wchar_t character, int radix) {
    int digit = radix;
    if (character >= L'0' && character <= L'9') digit = character - L'0';
    if (character >= L'a' && character <= L'f') digit = character - L'a' + 10;
    if (character >= L'A' && character <= L'F') digit = character - L'A' + 10;
    return digit < radix ? digit : -1;
  }

  // What a back-reference compares. With its own traits the library compares letters; with others it compares what
  // they make of a text for sorting, which also depends on the host's locale. These make letters of it.
  template <typename Iterator>
  struct Letters {
    Iterator first;
    Iterator last;
    bool operator==(const Letters& other) const { return std::equal(first, last, other.first, other.last); }
    operator std::wstring() const { return {first, last}; }
  };
  template <typename Iterator>
  static Letters<Iterator> transform(Iterator first, Iterator last) {
    return {first, last};
  }
};

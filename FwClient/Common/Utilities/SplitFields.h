// Splitting texts that are lists.
#pragma once

#include <string_view>
#include <vector>

// The pieces between the delimiters, in order, as a stream's line reader finds them: a delimiter ends a piece, so that
// an empty piece between two delimiters counts, and nothing follows a delimiter at the end. The pieces live as long as
// the text's characters.
inline std::vector<std::wstring_view> SplitFields(std::wstring_view text, wchar_t delimiter) {
  std::vector<std::wstring_view> fields;
  while (!text.empty()) {
    const std::wstring_view field = text.substr(0, text.find(delimiter));
    fields.push_back(field);
    text.remove_prefix(field.size());
    if (!text.empty()) text.remove_prefix(1);
  }
  return fields;
}

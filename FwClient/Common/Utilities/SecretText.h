// Texts that must not stay in memory after their use: passwords and the names that go with them.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

// Overwrites the text and all the memory that it holds, then leaves it empty. A string only forgets its length when it
// is cleared or destroyed; the characters would stay on the heap, or in the string itself.
inline void WipeSecret(std::wstring& text) noexcept {
  text.resize(text.capacity());  // never allocates: it only makes all the memory the string's own text
  ::SecureZeroMemory(text.data(), text.size() * sizeof(wchar_t));
  text.clear();
}

// Replaces the text. What was there is wiped first, since a longer text goes to a new block and the old one is freed.
// Throws std::bad_alloc, and leaves the text empty then.
inline void AssignSecret(std::wstring& text, std::wstring_view secret) {
  WipeSecret(text);
  text.assign(secret);
}

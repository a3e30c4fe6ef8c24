// Texts of the registry as they may really be: not terminated, of an odd size, of any type.
#pragma once

#include <windows.h>

#include <cstddef>

// Reads a value of any type. `text` has room for one character more than the `bytes` that are offered, so that what is
// read always ends.
inline LSTATUS QueryRegistryText(HKEY key, const wchar_t* valueName, DWORD& type, wchar_t* text,
                                 DWORD& bytes) noexcept {
  const LSTATUS status = ::RegQueryValueExW(key, valueName, nullptr, &type, reinterpret_cast<BYTE*>(text), &bytes);
  if (status == ERROR_SUCCESS) text[bytes / sizeof(wchar_t)] = L'\0';  // half a character at the end is none
  return status;
}

// A value of at most 520 bytes, terminator included, read in one query.
class RegistryText {
 public:
  static constexpr DWORD kMaxBytes = 520;

  // False when there is no such value, or a longer one.
  bool Read(HKEY key, const wchar_t* valueName) noexcept {
    m_bytes = kMaxBytes;
    return QueryRegistryText(key, valueName, m_type, m_text, m_bytes) == ERROR_SUCCESS;
  }

  DWORD Type() const noexcept { return m_type; }
  // Up to its first NUL.
  const wchar_t* Get() const noexcept { return m_text; }
  // Of whole characters, the last of them a NUL; or without a byte.
  bool IsWellFormed() const noexcept {
    return m_bytes == 0 || (m_bytes % sizeof(wchar_t) == 0 && m_text[m_bytes / sizeof(wchar_t) - 1] == L'\0');
  }

 private:
  DWORD m_type = REG_NONE;
  DWORD m_bytes = 0;
  wchar_t m_text[kMaxBytes / sizeof(wchar_t) + 1] = L"";  // one character more than is offered
};

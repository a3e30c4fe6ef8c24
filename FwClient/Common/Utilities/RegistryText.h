// Texts of the registry as they may really be: not terminated, of an odd size, of any type.
#pragma once

#include <windows.h>

#include <cstddef>

// A value of at most 520 bytes, terminator included, read in one query whatever its type.
class RegistryText {
 public:
  static constexpr DWORD kMaxBytes = 520;

  // False when there is no such value, or a longer one.
  bool Read(HKEY key, const wchar_t* valueName) noexcept {
    m_bytes = kMaxBytes;
    if (::RegQueryValueExW(key, valueName, nullptr, &m_type, reinterpret_cast<BYTE*>(m_text), &m_bytes) !=
        ERROR_SUCCESS)
      return false;
    m_text[m_bytes / sizeof(wchar_t)] = L'\0';  // half a character at the end is none
    return true;
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

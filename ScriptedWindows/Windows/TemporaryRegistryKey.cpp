#include "ScriptedWindows/Windows/TemporaryRegistryKey.h"

#include <gtest/gtest.h>

#include "ScriptedWindows/Windows/UniqueName.h"

TemporaryRegistryKey::TemporaryRegistryKey(REGSAM view) : m_path(L"SOFTWARE\\QeLaTests-" + UniqueName()), m_view(view) {
  // Of an earlier process with this number, if it crashed.
  ::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, m_path.c_str(), m_view, 0);
  EXPECT_EQ(::RegCreateKeyExW(HKEY_LOCAL_MACHINE, m_path.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | m_view, nullptr,
                              &m_key, nullptr),
            ERROR_SUCCESS);
}

TemporaryRegistryKey::~TemporaryRegistryKey() {
  EXPECT_EQ(::RegCloseKey(m_key), ERROR_SUCCESS);
  EXPECT_EQ(::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, m_path.c_str(), m_view, 0), ERROR_SUCCESS);
}

void TemporaryRegistryKey::Set(const std::wstring& name, DWORD type, const void* data, std::size_t bytes) {
  EXPECT_EQ(::RegSetValueExW(m_key, name.c_str(), 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(bytes)),
            ERROR_SUCCESS);
}

void TemporaryRegistryKey::SetText(const std::wstring& name, const std::wstring& text, DWORD type) {
  Set(name, type, text.c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void TemporaryRegistryKey::SetNumber(const std::wstring& name, DWORD number) {
  Set(name, REG_DWORD, &number, sizeof number);
}

// Wine stands in for Windows while the library is developed, and does not play all that the library relies on.
#pragma once

#include <winsock2.h>
#include <windows.h>

inline bool IsWine() { return ::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr; }

// For a test that only Windows can pass. What Wine does instead is the reason.
#define SKIP_UNDER_WINE(whatWineDoes) \
  if (IsWine()) GTEST_SKIP() << "Wine: " << (whatWineDoes)

#include "Output.h"

#include <windows.h>

#include <string>

#include "CommandError.h"
#include "Text.h"

namespace {

bool IsConsole(HANDLE handle) noexcept {
  DWORD mode = 0;
  return ::GetConsoleMode(handle, &mode) != FALSE;
}

bool Write(HANDLE handle, std::string_view utf8) {
  DWORD written = 0;
  if (IsConsole(handle)) {  // shows UTF-16 whatever its code page
    const std::wstring text = ToWide(utf8);
    return ::WriteConsoleW(handle, text.data(), static_cast<DWORD>(text.size()), &written, nullptr) != FALSE;
  }
  while (!utf8.empty()) {
    if (!::WriteFile(handle, utf8.data(), static_cast<DWORD>(utf8.size()), &written, nullptr)) return false;
    utf8.remove_prefix(written);
  }
  return true;
}

}  // namespace

void Print(std::string_view utf8) {
  if (!Write(::GetStdHandle(STD_OUTPUT_HANDLE), utf8))
    throw CommandError(kFailed, "the output could not be written (error " + std::to_string(::GetLastError()) + ")");
}

bool IsTerminal(DWORD standardHandle) noexcept { return IsConsole(::GetStdHandle(standardHandle)); }

std::size_t OutputWidth() noexcept {
  constexpr std::size_t kElsewhere = 100;
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!::GetConsoleScreenBufferInfo(::GetStdHandle(STD_OUTPUT_HANDLE), &info) || info.dwSize.X <= 0) return kElsewhere;
  return static_cast<std::size_t>(info.dwSize.X);
}

namespace {

// Windows shows colours to those who ask for them once.
bool ShowsColours() {
  static const bool shows = [] {
    HANDLE handle = ::GetStdHandle(STD_OUTPUT_HANDLE);
    DWORD mode = 0;
    if (::GetEnvironmentVariableW(L"NO_COLOR", nullptr, 0) > 1) return false;
    return ::GetConsoleMode(handle, &mode) != FALSE &&
           ::SetConsoleMode(handle, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
  }();
  return shows;
}

}  // namespace

std::string Coloured(Colour colour, const std::string& text) {
  if (text.empty() || !ShowsColours()) return text;
  constexpr const char* kCodes[] = {"\x1b[2m", "\x1b[33m", "\x1b[31m"};
  return kCodes[static_cast<std::size_t>(colour)] + text + "\x1b[0m";
}

void PrintDiagnostic(std::string_view utf8) noexcept {
  try {
    Write(::GetStdHandle(STD_ERROR_HANDLE), utf8);
  } catch (...) {
  }
}

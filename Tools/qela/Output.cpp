#include "Output.h"

#include <windows.h>

#include <string>

#include "CommandError.h"
#include "Text.h"

namespace {

bool Write(HANDLE handle, std::string_view utf8) {
  DWORD mode = 0;
  DWORD written = 0;
  if (::GetConsoleMode(handle, &mode)) {  // shows UTF-16 whatever its code page
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

bool IsTerminal(DWORD standardHandle) noexcept {
  DWORD mode = 0;
  return ::GetConsoleMode(::GetStdHandle(standardHandle), &mode) != FALSE;
}

void PrintDiagnostic(std::string_view utf8) noexcept {
  try {
    Write(::GetStdHandle(STD_ERROR_HANDLE), utf8);
  } catch (...) {
  }
}

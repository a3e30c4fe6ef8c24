// Standard output and standard error in UTF-8. Every call is one write that nothing holds back, so that a line is seen
// at once.
#pragma once

#include <windows.h>

#include <string_view>

// Throws CommandError when the text could not be written, as when the reader of a pipe has gone.
void Print(std::string_view utf8);

// A message for people, to standard error. A failure to write it is ignored: there is nobody left to tell.
void PrintDiagnostic(std::string_view utf8) noexcept;

// Whether a person reads it: STD_OUTPUT_HANDLE or STD_ERROR_HANDLE.
bool IsTerminal(DWORD standardHandle) noexcept;

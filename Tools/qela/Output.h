// Standard output and standard error in UTF-8. Every call is one write that nothing holds back, so that a line is seen
// at once.
#pragma once

#include <windows.h>

#include <cstddef>
#include <string>
#include <string_view>

// Throws CommandError when the text could not be written, as when the reader of a pipe has gone.
void Print(std::string_view utf8);

// A message for people, to standard error. A failure to write it is ignored: there is nobody left to tell.
void PrintDiagnostic(std::string_view utf8) noexcept;

// Whether a person reads it: STD_OUTPUT_HANDLE or STD_ERROR_HANDLE.
bool IsTerminal(DWORD standardHandle) noexcept;

// The columns of the terminal that standard output is; 100 where it is none.
std::size_t OutputWidth() noexcept;

// A text for standard output, in a colour where that is a terminal which shows colours and NO_COLOR is not set.
enum class Colour { kDim, kYellow, kRed };
std::string Coloured(Colour colour, const std::string& text);

// Where this program lies, and the libraries beside it.
#pragma once

#include <string>

// With a backslash at its end.
std::wstring ProgramFolder();

#pragma once

#include "Options.h"

#include <optional>
#include <string>
#include <vector>

// Reads the arguments (without the program's name). Empty when they asked for help, which is then printed. Throws
// CommandError for a wrong command line.
std::optional<Options> ParseCommandLine(const std::vector<std::wstring>& arguments);

// Files that tests read, and the folder of their program.
#pragma once

#include <filesystem>
#include <string_view>

std::filesystem::path ProgramFolder();

// The file or folder of this name, which starts at the checkout ("Tests/Data"). Tests that were carried to another
// machine have a copy of that part of the checkout beside their program; others read the checkout they were built from.
std::filesystem::path TestFile(std::string_view name);

#pragma once

#include <string>

// The versions of this program and of the library that it would load, a line each.
std::string VersionText();

// With its backslash at the end.
std::wstring FolderOfThisProgram();
// Such as 1.2.3; empty when the file is not there or has no version.
std::string FileVersion(const std::wstring& path);

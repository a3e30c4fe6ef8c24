// Where the programs of the system itself lie.
#pragma once

#include <string>

// The system directory, without a trailing backslash. False, with `path` as it was, when Windows does not tell. Throws
// only std::bad_alloc.
bool GetSystemDirectoryPath(std::wstring& path);

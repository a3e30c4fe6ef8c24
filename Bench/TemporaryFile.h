// A file of a name that nobody else has.
#pragma once

#include <windows.h>

// Empty at first; gone with the object.
struct TemporaryFile {
  TemporaryFile() {
    wchar_t folder[MAX_PATH] = {};
    ::GetTempPathW(MAX_PATH, folder);
    ::GetTempFileNameW(folder, L"qlb", 0, path);
  }
  ~TemporaryFile() { ::DeleteFileW(path); }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  wchar_t path[MAX_PATH] = {};
};

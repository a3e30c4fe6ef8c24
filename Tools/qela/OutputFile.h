// A file that is written piece by piece. What cannot be written is told: each operation throws CommandError (kFailed)
// with the path and the reason.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>

#include "FwClient/Common/Utilities/UniqueHandle.h"

struct FileHandleTraits {
  using Handle = HANDLE;
  static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) noexcept { ::CloseHandle(handle); }
};

// Pieces wait until there are enough of them.
class OutputFile {
 public:
  // Makes the file, or empties the one that is there.
  explicit OutputFile(const std::wstring& path);

  void Write(std::string_view bytes);
  void WriteAtStart(std::string_view bytes);  // over what stands there; the last thing to be written
  void Flush();

 private:
  std::wstring m_path;
  UniqueHandle<FileHandleTraits> m_file;
  std::string m_waiting;
};

#include "FileBytes.h"

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <system_error>

#include "CommandError.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "Text.h"

namespace {

constexpr std::size_t kChunkBytes = 1 << 20;

std::string ReasonOf(DWORD error) {
  switch (error) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
      return "there is no such file or folder";
    case ERROR_ACCESS_DENIED:
      return "it is a folder, or access is denied";
    case ERROR_SHARING_VIOLATION:
      return "another program has it open";
    default:
      return "Windows refuses it with error " + std::to_string(error);
  }
}

[[noreturn]] void FailFile(const std::wstring& path, const std::string& message) {
  throw CommandError(kFailed, ShownFileName(path) + ": " + message);
}

// Returns the error; 0 for success.
DWORD WriteNewFile(const std::wstring& path, const std::string& bytes) {
  UniqueKernelHandle file;
  HANDLE handle = ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return ::GetLastError();
  file.reset(handle);
  for (std::size_t at = 0; at < bytes.size();) {
    DWORD written = 0;
    const std::size_t size = std::min(bytes.size() - at, kChunkBytes);
    if (!::WriteFile(handle, bytes.data() + at, static_cast<DWORD>(size), &written, nullptr)) return ::GetLastError();
    at += written;
  }
  return ::FlushFileBuffers(handle) ? ERROR_SUCCESS : ::GetLastError();
}

}  // namespace

std::string ShownFileName(const std::wstring& path) { return path == L"-" ? "standard input" : Printable(path); }

std::string ReadFileBytes(const std::wstring& path, std::uint64_t limit) {
  UniqueKernelHandle file;
  HANDLE handle = ::GetStdHandle(STD_INPUT_HANDLE);
  if (path != L"-") {
    handle = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == INVALID_HANDLE_VALUE) FailReading(path, ::GetLastError());
    file.reset(handle);
  }
  std::string bytes;
  for (;;) {
    constexpr std::size_t kLeastBytes = 4 << 10;  // most files are small, and there may be many of them
    const std::size_t size = bytes.size();
    const std::size_t chunk = std::clamp(size, kLeastBytes, kChunkBytes);
    bytes.resize(size + chunk);
    DWORD read = 0;
    const BOOL done = ::ReadFile(handle, bytes.data() + size, static_cast<DWORD>(chunk), &read, nullptr);
    const DWORD error = ::GetLastError();
    bytes.resize(size + read);
    // The end of a pipe is an error of its own.
    if (!done && error != ERROR_BROKEN_PIPE) FailReading(path, error);
    if (bytes.size() > limit)
      FailFile(path, "it is larger than " + std::to_string(limit) + " bytes; give a smaller file");
    if (read == 0) return bytes;
  }
}

void FailReading(const std::wstring& path, unsigned long error) {
  FailFile(path, "it cannot be read: " + ReasonOf(error));
}

void FailWriting(const std::wstring& path, unsigned long error) {
  FailFile(path, "it cannot be written: " + ReasonOf(error));
}

void WriteFileBytes(const std::wstring& path, const std::string& bytes) {
  const std::wstring unfinished = path + L".new";
  DWORD error = WriteNewFile(unfinished, bytes);
  if (error == ERROR_SUCCESS &&
      !::MoveFileExW(unfinished.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
    error = ::GetLastError();
  if (error == ERROR_SUCCESS) return;
  ::DeleteFileW(unfinished.c_str());
  FailWriting(path, error);
}

void RefuseToOverwrite(const std::vector<std::wstring>& logs, const std::wstring& page) {
  for (const std::wstring& log : logs) {
    std::error_code error;
    if (std::filesystem::equivalent(log, page, error))
      throw CommandError(kFailed, ShownFileName(page) + ": this is the log itself; name another file for the page");
  }
}

#include "OutputSinks.h"

#include <string_view>

#include "FwClient/Common/Utilities/LenientUtf.h"

namespace {

bool IsUsable(HANDLE handle) { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }

bool WriteAll(HANDLE file, std::string_view bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    if (!::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) return false;
    bytes.remove_prefix(written);
  }
  return true;
}

// Only the console itself can tell, which costs as much as writing four lines; but a file or a pipe is no console, and
// the type costs far less. Nothing is remembered: the host may redirect standard error at any time, and a handle that
// is closed may come back as something else.
bool IsConsole(HANDLE handle) {
  DWORD mode = 0;
  return ::GetFileType(handle) == FILE_TYPE_CHAR && ::GetConsoleMode(handle, &mode);
}

// A console shows UTF-16 whatever its code page; anything else is fed UTF-8.
void WriteToStandardError(std::string_view utf8) {
  HANDLE handle = ::GetStdHandle(STD_ERROR_HANDLE);
  if (!IsUsable(handle)) return;
  if (!IsConsole(handle)) {
    WriteAll(handle, utf8);
    return;
  }
  const std::wstring text = LenientUtf::ToWide(utf8);
  ::WriteConsoleW(handle, text.data(), static_cast<DWORD>(text.size()), nullptr, nullptr);
}

}  // namespace

void ConsoleSink::WriteNotice(const std::wstring& text) noexcept {
  try {
    WriteToStandardError(LenientUtf::ToUtf8(text) + "\n");
  } catch (...) {
    // No memory for a notice: the events themselves matter more.
  }
}

void ConsoleSink::sink_it_(const spdlog::details::log_msg& message) {
  spdlog::memory_buf_t line;
  formatter_->format(message, line);
  WriteToStandardError({line.data(), line.size()});
}

// Opened for appending only: the system then puts every write at the end, also when several processes share the file.
FileSink::FileSink(const std::wstring& path)
    : m_path(path),
      m_file(::CreateFileW(path.c_str(), FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                           nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr)) {
  if (!IsUsable(m_file)) ReportOnce(::GetLastError());
}

FileSink::~FileSink() {
  if (IsUsable(m_file)) ::CloseHandle(m_file);
}

void FileSink::sink_it_(const spdlog::details::log_msg& message) {
  if (!IsUsable(m_file)) return;
  spdlog::memory_buf_t line;
  formatter_->format(message, line);
  if (!WriteAll(m_file, {line.data(), line.size()})) ReportOnce(::GetLastError());
}

void FileSink::ReportOnce(DWORD error) noexcept {
  if (std::exchange(m_reported, true)) return;
  ConsoleSink::WriteNotice(L"LogLib: cannot write the log file \"" + m_path + L"\" (error " + std::to_wstring(error) +
                           L"); events may be missing there");
}

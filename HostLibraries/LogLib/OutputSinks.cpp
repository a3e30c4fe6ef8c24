#include "OutputSinks.h"

#include <string_view>
#include <utility>

#include "FwClient/Common/Utilities/LenientUtf.h"

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr LONGLONG kMostBytes = LONGLONG{10} * 1024 * 1024;
constexpr int kOlderFiles = 3;

bool IsUsable(HANDLE handle) { return handle != nullptr && handle != INVALID_HANDLE_VALUE; }

bool WriteAll(HANDLE file, std::string_view bytes) {
  while (!bytes.empty()) {
    DWORD written = 0;
    if (!::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr)) return false;
    if (written == 0) return false;  // a full pipe that does not wait for its reader; the host must not wait for it
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
void WriteToStandardError(HANDLE handle, std::string_view utf8) {
  if (!IsConsole(handle)) {
    WriteAll(handle, utf8);
    return;
  }
  const std::wstring text = LenientUtf::ToWide(utf8);
  ::WriteConsoleW(handle, text.data(), static_cast<DWORD>(text.size()), nullptr, nullptr);
}

}  // namespace

void ConsoleSink::WriteNotice(const std::wstring& text) {
  HANDLE handle = ::GetStdHandle(STD_ERROR_HANDLE);
  if (IsUsable(handle))
    WriteToStandardError(handle, LenientUtf::ToUtf8(text) + "\n");
  else
    ::OutputDebugStringW((text + L"\n").c_str());
}

void ConsoleSink::sink_it_(const spdlog::details::log_msg& message) {
  HANDLE handle = ::GetStdHandle(STD_ERROR_HANDLE);
  if (!IsUsable(handle)) {
    m_debugger.log(message);
    return;
  }
  spdlog::memory_buf_t line;
  formatter_->format(message, line);
  WriteToStandardError(handle, {line.data(), line.size()});
}

void ConsoleSink::set_formatter_(std::unique_ptr<spdlog::formatter> formatter) {
  m_debugger.set_formatter(formatter->clone());
  base_sink::set_formatter_(std::move(formatter));
}

FileSink::FileSink(const std::wstring& path) : m_path(path) {
  Open();
  if (!IsUsable(m_file)) ReportOnce(::GetLastError());
}

FileSink::~FileSink() {
  if (IsUsable(m_file)) ::CloseHandle(m_file);
}

// For appending only: the system then puts every write at the end, also when several processes share the file. One that
// cannot be opened leaves the one before.
void FileSink::Open() {
  HANDLE file =
      ::CreateFileW(m_path.c_str(), FILE_APPEND_DATA, kShareAll, nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (!IsUsable(file)) return;
  if (IsUsable(m_file)) ::CloseHandle(m_file);
  m_file = file;
  LARGE_INTEGER size{};
  m_bytes = ::GetFileSizeEx(file, &size) ? size.QuadPart : 0;
}

void FileSink::sink_it_(const spdlog::details::log_msg& message) {
  if (!IsUsable(m_file)) return;
  spdlog::memory_buf_t line;
  formatter_->format(message, line);
  if (m_bytes != 0 && m_bytes + static_cast<LONGLONG>(line.size()) > kMostBytes) Rotate();
  if (!WriteAll(m_file, {line.data(), line.size()})) ReportOnce(::GetLastError());
  m_bytes += static_cast<LONGLONG>(line.size());
}

// Where the file cannot be renamed, since a reader forbids it, it grows, and the next try comes when as much again was
// written: lines matter more than its size.
void FileSink::Rotate() {
  m_bytes = 0;
  if (LeadsPathToOurFile()) {
    const auto older = [this](int age) { return m_path + L"." + std::to_wstring(age); };
    const auto rename = [](const std::wstring& from, const std::wstring& to) {
      return ::MoveFileExW(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING) != FALSE;
    };
    if (!rename(m_path, older(0))) return;
    for (int age = kOlderFiles; age > 0; --age) rename(older(age - 1), older(age));
  }
  Open();
}

// Not when another process that shares the file has rotated it before.
bool FileSink::LeadsPathToOurFile() const noexcept {
  HANDLE there = ::CreateFileW(m_path.c_str(), FILE_READ_ATTRIBUTES, kShareAll, nullptr, OPEN_EXISTING, 0, nullptr);
  if (!IsUsable(there)) return false;
  BY_HANDLE_FILE_INFORMATION its{};
  BY_HANDLE_FILE_INFORMATION ours{};
  const bool same = ::GetFileInformationByHandle(there, &its) && ::GetFileInformationByHandle(m_file, &ours) &&
                    its.dwVolumeSerialNumber == ours.dwVolumeSerialNumber &&
                    its.nFileIndexHigh == ours.nFileIndexHigh && its.nFileIndexLow == ours.nFileIndexLow;
  ::CloseHandle(there);
  return same;
}

void FileSink::ReportOnce(DWORD error) noexcept {
  if (std::exchange(m_reported, true)) return;
  try {
    ConsoleSink::WriteNotice(L"LogLib: cannot write the log file \"" + m_path + L"\" (error " + std::to_wstring(error) +
                             L"); events may be missing there");
  } catch (...) {
    // No memory for a notice: the events themselves matter more.
  }
}

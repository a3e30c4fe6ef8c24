#include "LogBlocks.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "FileBytes.h"
#include "LogScan.h"
#include "Output.h"
#include "Text.h"

namespace {

constexpr std::size_t kBlockBytes = 256 << 10;  // what stays in a processor's cache
constexpr std::size_t kMostUtf8BytesAUnit = 3;
constexpr std::size_t kProgressWidth = 60;

std::wstring FileName(const std::wstring& path) { return path.substr(path.find_last_of(L"\\/:") + 1); }

}  // namespace

LogProgress::LogProgress()
    : m_isWatched(IsTerminal(STD_ERROR_HANDLE)), m_next(std::chrono::steady_clock::now() + std::chrono::seconds(1)) {}

LogProgress::~LogProgress() {
  if (m_isShown) PrintDiagnostic("\r" + std::string(kProgressWidth, ' ') + "\r");
}

void LogProgress::Tell(const std::wstring& path, std::uint64_t done, std::uint64_t size) {
  if (!m_isWatched || std::chrono::steady_clock::now() < m_next) return;
  constexpr std::chrono::milliseconds kPause{200};
  constexpr std::size_t kMostName = 40;
  m_next = std::chrono::steady_clock::now() + kPause;
  m_isShown = true;
  std::string text = "reading " + Printable(FileName(path).substr(0, kMostName)) + ": ";
  text += size == 0 ? std::to_string(done >> 20) + " MB" : std::to_string(done * 100 / size) + " %";
  text.resize(kProgressWidth, ' ');
  PrintDiagnostic("\r" + text);
}

LogBlocks::LogBlocks(const std::wstring& path, LogProgress& progress)
    : m_path(path),
      m_progress(progress),
      m_buffer(std::make_unique_for_overwrite<char[]>(kLongestLine + 2 * kMostUtf8BytesAUnit * kBlockBytes)) {
  // The host may go on writing to it, and rotate it.
  HANDLE handle = ::CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                nullptr, OPEN_EXISTING, FILE_FLAG_SEQUENTIAL_SCAN, nullptr);
  if (handle == INVALID_HANDLE_VALUE) FailReading(path, ::GetLastError());
  m_file.reset(handle);
  if (::GetFileType(handle) != FILE_TYPE_DISK) return;
  LARGE_INTEGER size{};
  if (!::GetFileSizeEx(handle, &size)) FailReading(path, ::GetLastError());
  m_size = static_cast<std::uint64_t>(size.QuadPart);
}

bool LogBlocks::Next(std::string_view& lines) {
  for (;;) {
    if (m_begin != 0) std::memmove(m_buffer.get(), m_buffer.get() + m_begin, m_end - m_begin);
    m_end -= std::exchange(m_begin, 0);
    const std::size_t before = m_end;
    if (!Fill()) {
      if (m_isSkipping) m_end = 0;
      lines = {m_buffer.get(), m_end};
      m_begin = m_end;
      return !lines.empty();
    }
    if (m_isSkipping) SkipLine();
    // A carriage return at the end may be the first half of a line end.
    std::string_view text{m_buffer.get(), m_end};
    if (text.ends_with('\r')) text.remove_suffix(1);
    const std::size_t known = std::min(before == 0 ? 0 : before - 1, text.size());  // without a line end
    m_begin = known + LogScan::LineStart(text.substr(known), text.size() - known);
    if (m_begin != known) {
      lines = text.substr(0, m_begin);
      return true;
    }
    m_begin = 0;
    if (m_end > kLongestLine) {
      m_isSkipping = true;
      m_end = 0;
    }
  }
}

// Goes on with the end of the line that is skipped, once it is there.
void LogBlocks::SkipLine() {
  const std::size_t end = LogScan::FindLineEnd({m_buffer.get(), m_end}, 0);
  m_isSkipping = end == m_end;
  std::memmove(m_buffer.get(), m_buffer.get() + end, m_end - end);
  m_end -= end;
}

// Appends to the buffer. False at the end of the file.
bool LogBlocks::Fill() {
  if (!m_isRecognised) Recognise();
  if (m_encoding == Encoding::kUtf16 || m_encoding == Encoding::kUtf16BigEndian) {
    const std::size_t had = m_raw.size();
    m_raw.resize(had + kBlockBytes);
    const std::size_t read = Read(m_raw.data() + had, kBlockBytes);
    m_raw.resize(had + read);
    const std::size_t before = m_end;
    AppendUtf16();
    return read != 0 || m_end != before;
  }
  if (!m_raw.empty()) {
    std::memcpy(m_buffer.get() + m_end, m_raw.data(), m_raw.size());
    m_end += std::exchange(m_raw, {}).size();
    return true;
  }
  const std::size_t read = Read(m_buffer.get() + m_end, kBlockBytes);
  m_end += read;
  return read != 0;
}

std::size_t LogBlocks::Read(char* to, std::size_t size) {
  if (m_size) size = static_cast<std::size_t>(std::min<std::uint64_t>(size, *m_size - m_read));
  if (size == 0) return 0;
  DWORD read = 0;
  if (!::ReadFile(m_file.get(), to, static_cast<DWORD>(size), &read, nullptr)) {
    const DWORD error = ::GetLastError();
    if (error != ERROR_BROKEN_PIPE && error != ERROR_HANDLE_EOF) FailReading(m_path, error);
    read = 0;
  }
  m_read += read;
  m_progress.Tell(m_path, m_read, m_size.value_or(0));
  return read;
}

// By a byte order mark, or in a file without one by its first letters: most of what is logged is ASCII, so that UTF-16
// shows by its zeros.
void LogBlocks::Recognise() {
  constexpr std::size_t kEnough = 4096;
  m_isRecognised = true;
  m_raw.resize(kEnough);
  std::size_t size = 0;
  while (size < kEnough) {
    const std::size_t read = Read(m_raw.data() + size, kEnough - size);
    if (read == 0) break;
    size += read;
  }
  m_raw.resize(size);
  const auto skip = [&](std::size_t bytes, Encoding encoding) {
    m_raw.erase(0, bytes);
    m_encoding = encoding;
  };
  if (m_raw.starts_with("\xef\xbb\xbf")) return skip(3, Encoding::kUtf8);
  if (m_raw.starts_with("\xff\xfe")) return skip(2, Encoding::kUtf16);
  if (m_raw.starts_with("\xfe\xff")) return skip(2, Encoding::kUtf16BigEndian);
  std::size_t zeros[2] = {};
  for (std::size_t i = 0; i < size; ++i) zeros[i % 2] += m_raw[i] == '\0' ? 1U : 0U;
  const std::size_t pairs = size / 2;
  const auto isMost = [&](std::size_t parity) {
    return zeros[parity] > 0 && zeros[parity] >= pairs / 2 && zeros[1 - parity] <= zeros[parity] / 8;
  };
  if (isMost(1)) return skip(0, Encoding::kUtf16);
  // The other order, or the usual one without its first byte: then the number of bytes is odd.
  if (isMost(0)) {
    if (m_size.value_or(0) % 2 == 0) return skip(0, Encoding::kUtf16BigEndian);
    return skip(1, Encoding::kUtf16);
  }
}

// A letter of two units, and a unit of two bytes, may be divided between two blocks.
void LogBlocks::AppendUtf16() {
  m_units.resize(m_raw.size() / 2);
  std::memcpy(m_units.data(), m_raw.data(), m_units.size() * 2);
  if (m_encoding == Encoding::kUtf16BigEndian)
    for (wchar_t& unit : m_units) unit = static_cast<wchar_t>((unit << 8) | ((unit >> 8) & 0xff));
  const auto isHighSurrogate = [](wchar_t unit) { return (unit & 0xfc00) == 0xd800; };
  if (!m_units.empty() && isHighSurrogate(m_units.back())) m_units.pop_back();
  m_raw.erase(0, m_units.size() * 2);
  if (m_units.empty()) return;
  m_end += static_cast<std::size_t>(
      ::WideCharToMultiByte(CP_UTF8, 0, m_units.data(), static_cast<int>(m_units.size()), m_buffer.get() + m_end,
                            static_cast<int>(m_units.size() * kMostUtf8BytesAUnit), nullptr, nullptr));
}

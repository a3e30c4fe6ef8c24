#include "OutputFile.h"

#include <algorithm>

#include "FileBytes.h"

OutputFile::OutputFile(const std::wstring& path)
    : m_path(path),
      m_file(::CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL,
                           nullptr)) {
  if (!m_file) FailWriting(m_path, ::GetLastError());
}

void OutputFile::Write(std::string_view bytes) {
  constexpr std::size_t kEnough = 64 << 10;
  m_waiting += bytes;
  if (m_waiting.size() >= kEnough) Flush();
}

void OutputFile::Flush() {
  constexpr std::size_t kMostAtOnce = 1 << 30;
  for (std::size_t done = 0; done < m_waiting.size();) {
    DWORD written = 0;
    const auto size = static_cast<DWORD>(std::min(m_waiting.size() - done, kMostAtOnce));
    if (!::WriteFile(m_file.get(), m_waiting.data() + done, size, &written, nullptr))
      FailWriting(m_path, ::GetLastError());
    done += written;
  }
  m_waiting.clear();
}

void OutputFile::WriteAtStart(std::string_view bytes) {
  Flush();
  if (!::SetFilePointerEx(m_file.get(), {}, nullptr, FILE_BEGIN)) FailWriting(m_path, ::GetLastError());
  Write(bytes);
}

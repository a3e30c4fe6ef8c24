// Runs a command of qela in the process of the test.
#pragma once

#include <windows.h>

#include <exception>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "Tools/qela/CommandError.h"
#include "Tools/qela/CommandLine.h"

// Standard output or standard error, in a file of its own while this lives.
class CapturedOutput {
 public:
  explicit CapturedOutput(DWORD standardHandle) : m_standardHandle(standardHandle) {
    wchar_t folder[MAX_PATH];
    wchar_t path[MAX_PATH];
    ::GetTempPathW(MAX_PATH, folder);
    ::GetTempFileNameW(folder, L"qla", 0, path);
    m_file = UniqueKernelHandle(::CreateFileW(path, GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                              FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
    m_before = ::GetStdHandle(standardHandle);
    ::SetStdHandle(standardHandle, m_file.get());
  }
  ~CapturedOutput() { ::SetStdHandle(m_standardHandle, m_before); }
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  std::string Text() const {
    std::string text(::GetFileSize(m_file.get(), nullptr), '\0');
    DWORD read = 0;
    ::SetFilePointer(m_file.get(), 0, nullptr, FILE_BEGIN);
    ::ReadFile(m_file.get(), text.data(), static_cast<DWORD>(text.size()), &read, nullptr);
    return text;
  }

 private:
  DWORD m_standardHandle;
  UniqueKernelHandle m_file;
  HANDLE m_before;
};

struct QelaAnswer {
  int code = kDone;
  std::string out;
  std::string err;
};

inline QelaAnswer RunQela(const std::vector<std::wstring>& arguments) {
  QelaAnswer answer;
  const CapturedOutput out(STD_OUTPUT_HANDLE);
  const CapturedOutput err(STD_ERROR_HANDLE);
  std::string message;
  try {
    if (const auto options = ParseCommandLine(arguments)) answer.code = options->run(*options);
  } catch (const CommandError& error) {
    answer.code = error.Code();
    message = error.what();
  }
  answer.out = out.Text();
  answer.err = err.Text() + message;
  return answer;
}

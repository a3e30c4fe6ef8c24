// What the targets of the tools share.
#pragma once

#include <windows.h>

#include <string>
#include <string_view>
#include <vector>

#include "Tests/Fuzz/FuzzTarget.h"
#include "Tools/qela/CommandError.h"
#include "Tools/qela/Text.h"

inline std::string FuzzBytes(FuzzInput bytes) { return {bytes.begin(), bytes.end()}; }

// What is shown to people: UTF-8 without control characters, at which consoles act.
inline void RequireShowable(std::string_view text, const char* what, std::string_view allowed = "\n") {
  if (ToUtf8(ToWide(text)) != text) FuzzFail(std::string(what) + " is not UTF-8");
  for (const char byte : text)
    if (static_cast<unsigned char>(byte) < 0x20 && allowed.find(byte) == std::string_view::npos)
      FuzzFail(std::string(what) + " holds a control character");
}
inline void RequirePage(std::string_view html) { RequireShowable(html, "the page", "\n\r\t"); }

// A refusal names the file and says what is wrong there.
inline void RequireRefusal(const CommandError& error, ExitCode code, std::string_view beginning) {
  const std::string_view message = error.what();
  RequireShowable(message, "the message");
  if (error.Code() != code) FuzzFail("another exit code: " + std::string(message));
  if (!message.starts_with(beginning) || message.size() < beginning.size() + 4)
    FuzzFail("a message that does not say where: " + std::string(message));
}

// A file of the target's own, gone with the program.
class FuzzFile {
 public:
  explicit FuzzFile(const wchar_t* name) {
    wchar_t folder[MAX_PATH + 1];
    m_path.assign(folder, ::GetTempPathW(MAX_PATH + 1, folder));
    m_path += L"fuzz-" + std::to_wstring(::GetCurrentProcessId()) + L"-" + name;
  }
  ~FuzzFile() { ::DeleteFileW(m_path.c_str()); }
  FuzzFile(const FuzzFile&) = delete;
  FuzzFile& operator=(const FuzzFile&) = delete;

  const std::wstring& Path() const { return m_path; }

  const FuzzFile& Holding(std::string_view bytes) const {
    HANDLE file = ::CreateFileW(m_path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, CREATE_ALWAYS,
                                FILE_ATTRIBUTE_TEMPORARY, nullptr);
    DWORD written = 0;
    if (file == INVALID_HANDLE_VALUE ||
        !::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) || !::CloseHandle(file))
      FuzzFail("the target cannot write its file");
    return *this;
  }

 private:
  std::wstring m_path;
};

// What is printed meanwhile, nobody sees.
class FuzzSilence {
 public:
  FuzzSilence() {
    static HANDLE nowhere = ::CreateFileW(L"NUL", GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                          OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    ::SetStdHandle(STD_OUTPUT_HANDLE, nowhere);
  }
  ~FuzzSilence() { ::SetStdHandle(STD_OUTPUT_HANDLE, m_before); }
  FuzzSilence(const FuzzSilence&) = delete;
  FuzzSilence& operator=(const FuzzSilence&) = delete;

 private:
  HANDLE m_before = ::GetStdHandle(STD_OUTPUT_HANDLE);
};

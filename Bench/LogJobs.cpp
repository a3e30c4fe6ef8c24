// LogLib with a file.
#include <windows.h>

#include <string>

#include "Bench/Job.h"
#include "Bench/Machine.h"
#include "Bench/TemporaryFile.h"
#include "Tests/Support/TestFile.h"

namespace {

// The library once more, under another name: it reads where to write to but once.
class LogLibrary {
 public:
  explicit LogLibrary(const wchar_t* logFile) {
    ::CopyFileW((ProgramFolder() / L"LogLib.dll").c_str(), m_file.path, FALSE);
    ::SetEnvironmentVariableW(L"LOGLIB_FILE", logFile);
    m_module = ::LoadLibraryW(m_file.path);
    m_log = LogCallsOf(m_module);
    const FARPROC setConsole = ::GetProcAddress(m_module, "_ZN8LogUtils17setConsoleLoggingEb");
    if (setConsole != nullptr) reinterpret_cast<void (*)(bool)>(reinterpret_cast<void*>(setConsole))(false);
    ::SetEnvironmentVariableW(L"LOGLIB_FILE", nullptr);
    m_isUsable = setConsole != nullptr && m_log.wide != nullptr;
  }
  ~LogLibrary() { ::FreeLibrary(m_module); }
  LogLibrary(const LogLibrary&) = delete;
  LogLibrary& operator=(const LogLibrary&) = delete;

  bool IsUsable() const { return m_isUsable; }

  void WriteLine() const {
    alignas(void*) unsigned char event[sizeof(LogUtils::LogEvent)];
    m_log.construct(event, "FwClient/Service/QeLaLib/LocationMatching.cpp", 18, 8, "FirewallBL", m_log.manager(), 2, 0);
    m_log.wide(event, "FIREWALL",
               L"Matching all the location criterias with the properties of adapter with index %d and description %s.",
               5, L"Intel(R) Ethernet Connection (7) I219-LM");
  }

 private:
  TemporaryFile m_file;
  HMODULE m_module = nullptr;
  LogCalls m_log{};
  bool m_isUsable = false;
};

std::string ContentOf(const wchar_t* path) {
  std::string content(4096, '\0');
  const HANDLE file = ::CreateFileW(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  DWORD bytes = 0;
  ::ReadFile(file, content.data(), static_cast<DWORD>(content.size()), &bytes, nullptr);
  ::CloseHandle(file);
  content.resize(bytes);
  return content;
}

void WriteLines(Run& run) {
  const TemporaryFile own;
  const TemporaryFile bare;
  const LogLibrary library(own.path);
  if (!library.IsUsable()) return run.Fail("LogLib.dll cannot be used");
  library.WriteLine();
  const std::string line = ContentOf(own.path);
  if (line.find("I219-LM") == std::string::npos) return run.Fail("the line is not in the file");

  const HANDLE file = ::CreateFileW(bare.path, FILE_APPEND_DATA, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                    nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  run.Compare([&] { library.WriteLine(); },
              [&] {
                DWORD written = 0;
                ::WriteFile(file, line.data(), static_cast<DWORD>(line.size()), &written, nullptr);
              });
  ::CloseHandle(file);
}

}  // namespace

void AddLogJobs(Jobs& jobs) {
  jobs.push_back({.name = "LogLib, a line to a file", .goal = {.factor = 1.5}, .measure = WriteLines});
}

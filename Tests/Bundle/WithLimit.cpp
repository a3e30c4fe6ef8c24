// WithLimit SECONDS PROGRAM [ARGUMENT...]
//
// Runs a test program where nobody watches it: nothing that it does wrong opens a window, and when it takes too long it
// is ended with all that it has started. The exit code is the program's; 1460, the system's number for a time-out, when
// it was ended; 2 when it could not be started.
#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <string>
#include <string_view>

namespace {

constexpr UINT kNotStarted = 2;

// Takes the first argument off a command line. As the system does, which knows no quote inside quotes here.
std::wstring_view TakeArgument(std::wstring_view& line) {
  line.remove_prefix(std::min(line.find_first_not_of(L' '), line.size()));
  const bool quoted = line.starts_with(L'"');
  const std::size_t end = quoted ? line.find(L'"', 1) : line.find(L' ');
  const std::wstring_view argument = line.substr(quoted ? 1 : 0, end - (quoted ? 1 : 0));
  line.remove_prefix(end == std::wstring_view::npos ? line.size() : end + 1);
  return argument;
}

}  // namespace

int main() {
  std::wstring_view rest = ::GetCommandLineW();
  TakeArgument(rest);
  const std::wstring seconds(TakeArgument(rest));
  std::wstring command(rest.substr(std::min(rest.find_first_not_of(L' '), rest.size())));

  // Programs that are started have the same mode.
  ::SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
  HANDLE job = ::CreateJobObjectW(nullptr, nullptr);
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  ::SetInformationJobObject(job, JobObjectExtendedLimitInformation, &limits, sizeof limits);

  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION child{};
  if (!::CreateProcessW(nullptr, command.data(), nullptr, nullptr, TRUE, CREATE_SUSPENDED, nullptr, nullptr, &startup,
                        &child)) {
    std::printf("cannot be started, error %lu: %ls\n", ::GetLastError(), command.c_str());
    return kNotStarted;
  }
  ::AssignProcessToJobObject(job, child.hProcess);
  ::ResumeThread(child.hThread);
  const DWORD limitMs = std::wcstoul(seconds.c_str(), nullptr, 10) * 1000;
  if (::WaitForSingleObject(child.hProcess, limitMs) != WAIT_OBJECT_0) {
    std::printf("ended after %ls seconds\n", seconds.c_str());
    ::TerminateJobObject(job, ERROR_TIMEOUT);
    ::WaitForSingleObject(child.hProcess, INFINITE);
  }
  DWORD code = kNotStarted;
  ::GetExitCodeProcess(child.hProcess, &code);
  return static_cast<int>(code);
}

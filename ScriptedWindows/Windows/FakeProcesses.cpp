#include "ScriptedWindows/Windows/FakeProcesses.h"

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <format>

FakeProcesses::FakeProcesses(WindowsScript& script) : m_script(script) {
  const auto patch = [&](const char* function, auto* replacement) {
    m_patches.try_emplace(function, script.Module(), function, replacement);
  };
  patch("CreateToolhelp32Snapshot", &CreateSnapshot);
  patch("Process32FirstW", &ProcessFirst);
  patch("Process32NextW", &ProcessNext);
  patch("CreatePipe", &CreatePipe);
  patch("SetHandleInformation", &SetHandleInformation);
  patch("CreateProcessW", &CreateProcess);
  patch("PeekNamedPipe", &PeekNamedPipe);
  patch("ReadFile", &ReadFile);
  patch("TerminateProcess", &TerminateProcess);
  patch("Sleep", &Sleep);
  patch("GetTickCount64", &GetTickCount64);
  patch("OpenProcess", &OpenProcess);
}

HANDLE WINAPI FakeProcesses::CreateSnapshot(DWORD flags, DWORD) {
  const HeapWatch::Pause pause;
  FakeProcesses& self = Current();
  if (!self.m_script.Enter("CreateToolhelp32Snapshot", std::to_string(flags))) return INVALID_HANDLE_VALUE;
  self.m_nextProcess = 0;
  return self.m_script.Open("snapshot");
}

BOOL WINAPI FakeProcesses::ProcessFirst(HANDLE snapshot, LPPROCESSENTRY32W entry) {
  const HeapWatch::Pause pause;
  FakeProcesses& self = Current();
  Require(entry->dwSize == sizeof(PROCESSENTRY32W));
  return self.m_script.Enter("Process32FirstW", self.m_script.Name(snapshot)) && self.GiveProcess(entry);
}

BOOL WINAPI FakeProcesses::ProcessNext(HANDLE snapshot, LPPROCESSENTRY32W entry) {
  const HeapWatch::Pause pause;
  FakeProcesses& self = Current();
  return self.m_script.Enter("Process32NextW", self.m_script.Name(snapshot)) && self.GiveProcess(entry);
}

BOOL FakeProcesses::GiveProcess(LPPROCESSENTRY32W entry) {
  if (m_nextProcess == list.size()) {
    ::SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
  }
  const auto& [name, id] = list[m_nextProcess++];
  std::wmemcpy(entry->szExeFile, name.c_str(), name.size() + 1);
  entry->th32ProcessID = id;
  return TRUE;
}

BOOL WINAPI FakeProcesses::CreatePipe(PHANDLE read, PHANDLE write, LPSECURITY_ATTRIBUTES attributes, DWORD) {
  const HeapWatch::Pause pause;
  FakeProcesses& self = Current();
  Require(attributes != nullptr && attributes->bInheritHandle);
  if (!self.m_script.Enter("CreatePipe")) return FALSE;
  *read = self.m_script.Open("read end");
  *write = self.m_script.Open("write end");
  self.m_inheritable.insert({self.m_script.Name(*read), self.m_script.Name(*write)});
  return TRUE;
}

BOOL WINAPI FakeProcesses::SetHandleInformation(HANDLE handle, DWORD mask, DWORD flags) {
  const HeapWatch::Pause pause;
  FakeProcesses& self = Current();
  Require(mask == DWORD{HANDLE_FLAG_INHERIT});
  Require(flags == 0u);
  const std::string name = self.m_script.Name(handle);
  if (!self.m_script.Enter("SetHandleInformation", name)) return FALSE;
  self.m_inheritable.erase(name);
  return TRUE;
}

BOOL WINAPI FakeProcesses::CreateProcess(LPCWSTR path, LPWSTR commandLine, LPSECURITY_ATTRIBUTES process,
                                         LPSECURITY_ATTRIBUTES thread, BOOL inherit, DWORD flags, LPVOID environment,
                                         LPCWSTR directory, LPSTARTUPINFOW startup, LPPROCESS_INFORMATION information) {
  const HeapWatch::Pause pause;
  FakeProcesses& self = Current();
  Require(process == nullptr);
  Require(thread == nullptr);
  Require(inherit);
  Require(flags == 0u);
  Require(environment == nullptr);
  Require(directory == nullptr);
  Require(startup->cb == 104u);
  Require(startup->dwFlags == 0x101u);
  Require(startup->wShowWindow == SW_HIDE);
  Require(startup->hStdOutput == startup->hStdError);
  self.program = path;
  self.commandLine = commandLine;
  const std::string childReads = self.m_script.Name(startup->hStdInput);
  const std::string childWrites = self.m_script.Name(startup->hStdOutput);
  Require(childReads.starts_with("read end"));
  Require(childWrites.starts_with("write end"));
  const std::vector<std::string> open = self.m_script.OpenHandles();
  std::erase_if(self.m_inheritable,
                [&](const std::string& name) { return std::ranges::find(open, name) == open.end(); });
  Require(self.m_inheritable == std::set<std::string>{childReads, childWrites},
          "the child inherits more than its own ends");
  if (!self.m_script.Enter("CreateProcessW")) return FALSE;
  self.m_inheritable.clear();
  self.m_read = 0;
  information->hProcess = self.m_script.Open("child");
  information->hThread = self.m_script.Open("child thread");
  return TRUE;
}

BOOL WINAPI FakeProcesses::PeekNamedPipe(HANDLE pipe, LPVOID, DWORD, LPDWORD, LPDWORD available, LPDWORD) {
  const HeapWatch::Pause pause;
  FakeProcesses& self = Current();
  self.m_script.Name(pipe);
  const std::size_t left = self.output.size() - self.m_read;
  if (left == 0 && !self.silent && !self.endless) {
    ::SetLastError(ERROR_BROKEN_PIPE);
    return FALSE;
  }
  *available = self.endless ? 1 : static_cast<DWORD>(left);
  return TRUE;
}

BOOL WINAPI FakeProcesses::ReadFile(HANDLE pipe, LPVOID buffer, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
  const HeapWatch::Pause pause;
  FakeProcesses& self = Current();
  Require(overlapped == nullptr);
  Require(size != 0u);
  Require(size + self.m_read <= self.mostBytes, "more is read than there is room for");
  *count = 0;
  if (!self.m_script.Enter("ReadFile", self.m_script.Name(pipe))) return FALSE;
  if (self.endless) {
    *count = static_cast<DWORD>(std::min<std::size_t>(size, self.pieceBytes));
    std::memset(buffer, 'x', *count);
    self.m_read += *count;
    return TRUE;
  }
  Require(!(self.silent && self.m_read == self.output.size()), "this would block for ever");
  *count = static_cast<DWORD>(std::min({std::size_t{size}, self.pieceBytes, self.output.size() - self.m_read}));
  std::memcpy(buffer, self.output.data() + self.m_read, *count);
  self.m_read += *count;
  if (*count != 0 || self.endsWithEmptyRead) return TRUE;
  ::SetLastError(ERROR_BROKEN_PIPE);
  return FALSE;
}

BOOL WINAPI FakeProcesses::TerminateProcess(HANDLE process, UINT) {
  const HeapWatch::Pause pause;
  Current().m_script.Note("TerminateProcess", Current().m_script.Name(process));
  return TRUE;
}

void WINAPI FakeProcesses::Sleep(DWORD milliseconds) {
  FakeProcesses& self = Current();
  if (::GetCurrentThreadId() != self.m_thread)
    self.m_patches.at("Sleep").Original<decltype(Sleep)>()(milliseconds);
  else
    self.sleptMs += milliseconds;
}

ULONGLONG WINAPI FakeProcesses::GetTickCount64() { return 1000 + Current().sleptMs; }

HANDLE WINAPI FakeProcesses::OpenProcess(DWORD access, BOOL inherit, DWORD id) {
  const HeapWatch::Pause pause;
  FakeProcesses& self = Current();
  Require(!inherit);
  self.openedProcess = id;
  if (!self.m_script.Enter("OpenProcess", std::format("{}, {}", WindowsScript::Hex(access), id))) return nullptr;
  return self.m_script.Open("process");
}

#include "ScriptedWindows/Windows/FakeInteractiveUser.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <cwchar>
#include <format>
#include <tuple>

namespace {

FakeInteractiveUser* current = nullptr;
constexpr wchar_t kWinlogon[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon";
constexpr std::size_t kMaxTasklistOutput = 4096;

std::string Text(const wchar_t* text) { return WindowsScript::Text(text); }

}  // namespace

FakeInteractiveUser& FakeInteractiveUser::Current() { return *current; }

FakeInteractiveUser::FakeInteractiveUser(WindowsScript& script) : m_script(script) {
  current = this;
  const HMODULE module = script.Module();
  const auto patch = [&](const char* name, auto* function) {
    m_patches.emplace(std::piecewise_construct, std::forward_as_tuple(name),
                      std::forward_as_tuple(module, name, function));
  };
  patch("RegOpenKeyExW", &FakeInteractiveUser::RegOpenKeyEx);
  patch("RegQueryValueExW", &FakeInteractiveUser::RegQueryValueEx);
  patch("RegCloseKey", &FakeInteractiveUser::RegCloseKey);
  patch("GetVersionExW", &FakeInteractiveUser::GetVersionEx);
  patch("LoadLibraryW", &FakeInteractiveUser::LoadLibrary);
  patch("GetProcAddress", &FakeInteractiveUser::GetProcAddress);
  patch("FreeLibrary", &FakeInteractiveUser::FreeLibrary);
  patch("GetSystemDirectoryW", &FakeInteractiveUser::GetSystemDirectory);
  patch("CreateToolhelp32Snapshot", &FakeInteractiveUser::CreateSnapshot);
  patch("Process32FirstW", &FakeInteractiveUser::ProcessFirst);
  patch("Process32NextW", &FakeInteractiveUser::ProcessNext);
  patch("CreatePipe", &FakeInteractiveUser::CreatePipe);
  patch("SetHandleInformation", &FakeInteractiveUser::SetHandleInformation);
  patch("CreateProcessW", &FakeInteractiveUser::CreateProcess);
  patch("PeekNamedPipe", &FakeInteractiveUser::PeekNamedPipe);
  patch("ReadFile", &FakeInteractiveUser::ReadFile);
  patch("TerminateProcess", &FakeInteractiveUser::TerminateProcess);
  patch("Sleep", &FakeInteractiveUser::Sleep);
  patch("GetTickCount64", &FakeInteractiveUser::GetTickCount64);
  patch("OpenProcess", &FakeInteractiveUser::OpenProcess);
  patch("OpenProcessToken", &FakeInteractiveUser::OpenProcessToken);
  patch("ImpersonateLoggedOnUser", &FakeInteractiveUser::ImpersonateLoggedOnUser);
  patch("RevertToSelf", &FakeInteractiveUser::RevertToSelf);
  patch("SetThreadToken", &FakeInteractiveUser::SetThreadToken);
  patch("WinHttpGetIEProxyConfigForCurrentUser", &FakeInteractiveUser::GetIEProxyConfig);
}

FakeInteractiveUser::~FakeInteractiveUser() {
  m_patches.clear();
  EXPECT_FALSE(impersonating) << "the thread was left with the user's identity";
  current = nullptr;
}

void FakeInteractiveUser::SetShell(const std::wstring& text, bool terminated) {
  const auto* const bytes = reinterpret_cast<const BYTE*>(text.c_str());
  shell.emplace(bytes, bytes + (text.size() + (terminated ? 1 : 0)) * sizeof(wchar_t));
}

void FakeInteractiveUser::KeepIdentity() {
  m_script.FailAlways("RevertToSelf", ERROR_INTERNAL_ERROR);
  m_script.FailAlways("SetThreadToken", ERROR_ACCESS_DENIED);
}

void FakeInteractiveUser::LetGo() {
  m_script.Heal("RevertToSelf");
  m_script.Heal("SetThreadToken");
}

LSTATUS WINAPI FakeInteractiveUser::RegOpenKeyEx(HKEY hive, LPCWSTR path, DWORD options, REGSAM access, PHKEY key) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (path == nullptr || std::wcscmp(path, kWinlogon) != 0)
    return self.m_patches.at("RegOpenKeyExW").Original<decltype(RegOpenKeyEx)>()(hive, path, options, access, key);
  EXPECT_EQ(hive, HKEY_LOCAL_MACHINE);
  if (!self.m_script.Enter("RegOpenKeyExW", WindowsScript::Hex(access))) return ERROR_FILE_NOT_FOUND;
  *key = static_cast<HKEY>(self.m_script.Open("key"));
  return ERROR_SUCCESS;
}

LSTATUS WINAPI FakeInteractiveUser::RegQueryValueEx(HKEY key, LPCWSTR name, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                                    LPDWORD size) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Knows(key))
    return self.m_patches.at("RegQueryValueExW")
        .Original<decltype(RegQueryValueEx)>()(key, name, reserved, type, data, size);
  if (!self.m_script.Enter("RegQueryValueExW", std::format("{}, {}, {}", self.m_script.Name(key), Text(name), *size)) ||
      !self.shell)
    return ERROR_FILE_NOT_FOUND;
  *type = self.shellType;
  const DWORD offered = std::exchange(*size, static_cast<DWORD>(self.shell->size()));
  if (*size > offered) return ERROR_MORE_DATA;
  std::memcpy(data, self.shell->data(), *size);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI FakeInteractiveUser::RegCloseKey(HKEY key) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Knows(key)) return self.m_patches.at("RegCloseKey").Original<decltype(RegCloseKey)>()(key);
  self.m_script.Note("RegCloseKey", self.m_script.Name(key));
  self.m_script.Close("key", key);
  return ERROR_SUCCESS;
}

BOOL WINAPI FakeInteractiveUser::GetVersionEx(LPOSVERSIONINFOW version) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  EXPECT_EQ(version->dwOSVersionInfoSize, sizeof(OSVERSIONINFOW));
  if (!self.m_script.Enter("GetVersionExW")) return FALSE;
  version->dwMajorVersion = self.majorVersion;
  version->dwMinorVersion = self.minorVersion;
  return TRUE;
}

HMODULE WINAPI FakeInteractiveUser::LoadLibrary(LPCWSTR name) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (std::wcscmp(name, L"kernel32.dll") != 0) {
    self.m_script.Note("LoadLibraryW", Text(name));
    return self.m_patches.at("LoadLibraryW").Original<decltype(LoadLibrary)>()(name);
  }
  if (!self.m_script.Enter("LoadLibraryW", Text(name))) return nullptr;
  return static_cast<HMODULE>(self.m_script.Open("module"));
}

FARPROC WINAPI FakeInteractiveUser::GetProcAddress(HMODULE module, LPCSTR name) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Knows(module))
    return self.m_patches.at("GetProcAddress").Original<decltype(GetProcAddress)>()(module, name);
  if (!self.m_script.Enter("GetProcAddress", std::format("{}, {}", self.m_script.Name(module), name)) ||
      !self.knowsWow64Directory)
    return nullptr;
  return reinterpret_cast<FARPROC>(reinterpret_cast<void*>(&GetSystemWow64Directory));
}

BOOL WINAPI FakeInteractiveUser::FreeLibrary(HMODULE module) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Knows(module)) return self.m_patches.at("FreeLibrary").Original<decltype(FreeLibrary)>()(module);
  self.m_script.Note("FreeLibrary", self.m_script.Name(module));
  self.m_script.Close("module", module);
  return TRUE;
}

UINT WINAPI FakeInteractiveUser::GetSystemWow64Directory(LPWSTR, UINT size) {
  const HeapWatch::Pause pause;
  EXPECT_EQ(size, 1u);
  if (!Current().m_script.Enter("GetSystemWow64DirectoryW")) return 0;
  return Current().wow64DirectoryLength;
}

UINT WINAPI FakeInteractiveUser::GetSystemDirectory(LPWSTR path, UINT size) {
  const HeapWatch::Pause pause;
  const std::wstring& directory = Current().systemDirectory;
  if (!Current().m_script.Enter("GetSystemDirectoryW")) return 0;
  if (size <= directory.size()) return static_cast<UINT>(directory.size() + 1);
  std::wmemcpy(path, directory.c_str(), directory.size() + 1);
  return static_cast<UINT>(directory.size());
}

HANDLE WINAPI FakeInteractiveUser::CreateSnapshot(DWORD flags, DWORD) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Enter("CreateToolhelp32Snapshot", std::to_string(flags))) return INVALID_HANDLE_VALUE;
  self.m_nextProcess = 0;
  return self.m_script.Open("snapshot");
}

BOOL WINAPI FakeInteractiveUser::ProcessFirst(HANDLE snapshot, LPPROCESSENTRY32W entry) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  EXPECT_EQ(entry->dwSize, sizeof(PROCESSENTRY32W));
  return self.m_script.Enter("Process32FirstW", self.m_script.Name(snapshot)) && self.GiveProcess(entry);
}

BOOL WINAPI FakeInteractiveUser::ProcessNext(HANDLE snapshot, LPPROCESSENTRY32W entry) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  return self.m_script.Enter("Process32NextW", self.m_script.Name(snapshot)) && self.GiveProcess(entry);
}

BOOL FakeInteractiveUser::GiveProcess(LPPROCESSENTRY32W entry) {
  if (m_nextProcess == processes.size()) {
    ::SetLastError(ERROR_NO_MORE_FILES);
    return FALSE;
  }
  const auto& [name, id] = processes[m_nextProcess++];
  std::wmemcpy(entry->szExeFile, name.c_str(), name.size() + 1);
  entry->th32ProcessID = id;
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::CreatePipe(PHANDLE read, PHANDLE write, LPSECURITY_ATTRIBUTES attributes, DWORD) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  EXPECT_TRUE(attributes != nullptr && attributes->bInheritHandle);
  if (!self.m_script.Enter("CreatePipe")) return FALSE;
  *read = self.m_script.Open("read end");
  *write = self.m_script.Open("write end");
  self.m_inheritable.insert({self.m_script.Name(*read), self.m_script.Name(*write)});
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::SetHandleInformation(HANDLE handle, DWORD mask, DWORD flags) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  EXPECT_EQ(mask, DWORD{HANDLE_FLAG_INHERIT});
  EXPECT_EQ(flags, 0u);
  const std::string name = self.m_script.Name(handle);
  if (!self.m_script.Enter("SetHandleInformation", name)) return FALSE;
  self.m_inheritable.erase(name);
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::CreateProcess(LPCWSTR program, LPWSTR commandLine, LPSECURITY_ATTRIBUTES process,
                                               LPSECURITY_ATTRIBUTES thread, BOOL inherit, DWORD flags,
                                               LPVOID environment, LPCWSTR directory, LPSTARTUPINFOW startup,
                                               LPPROCESS_INFORMATION information) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  EXPECT_EQ(process, nullptr);
  EXPECT_EQ(thread, nullptr);
  EXPECT_TRUE(inherit);
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(environment, nullptr);
  EXPECT_EQ(directory, nullptr);
  EXPECT_EQ(startup->cb, 104u);
  EXPECT_EQ(startup->dwFlags, 0x101u);
  EXPECT_EQ(startup->wShowWindow, SW_HIDE);
  EXPECT_EQ(startup->hStdOutput, startup->hStdError);
  self.program = program;
  self.commandLine = commandLine;
  const std::string input = self.m_script.Name(startup->hStdInput);
  const std::string output = self.m_script.Name(startup->hStdOutput);
  EXPECT_TRUE(input.starts_with("read end"));
  EXPECT_TRUE(output.starts_with("write end"));
  const std::vector<std::string> open = self.m_script.OpenHandles();
  std::erase_if(self.m_inheritable,
                [&](const std::string& name) { return std::ranges::find(open, name) == open.end(); });
  EXPECT_EQ(self.m_inheritable, (std::set<std::string>{input, output})) << "the child inherits its own ends only";
  if (!self.m_script.Enter("CreateProcessW")) return FALSE;
  self.m_inheritable.clear();
  self.m_read = 0;
  information->hProcess = self.m_script.Open("child");
  information->hThread = self.m_script.Open("child thread");
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::PeekNamedPipe(HANDLE pipe, LPVOID, DWORD, LPDWORD, LPDWORD available, LPDWORD) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  self.m_script.Name(pipe);
  const std::size_t left = self.tasklistOutput.size() - self.m_read;
  if (left == 0 && !self.silent && !self.endless) {
    ::SetLastError(ERROR_BROKEN_PIPE);
    return FALSE;
  }
  *available = self.endless ? 1 : static_cast<DWORD>(left);
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::ReadFile(HANDLE pipe, LPVOID buffer, DWORD size, LPDWORD count,
                                          LPOVERLAPPED overlapped) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  EXPECT_EQ(overlapped, nullptr);
  EXPECT_NE(size, 0u);
  EXPECT_LE(size + self.m_read, kMaxTasklistOutput);
  *count = 0;
  if (!self.m_script.Enter("ReadFile", self.m_script.Name(pipe))) return FALSE;
  if (self.endless) {
    *count = static_cast<DWORD>(std::min<std::size_t>(size, self.pieceBytes));
    std::memset(buffer, 'x', *count);
    self.m_read += *count;
    return TRUE;
  }
  EXPECT_FALSE(self.silent && self.m_read == self.tasklistOutput.size()) << "this would block for ever";
  *count = static_cast<DWORD>(std::min({std::size_t{size}, self.pieceBytes, self.tasklistOutput.size() - self.m_read}));
  std::memcpy(buffer, self.tasklistOutput.data() + self.m_read, *count);
  self.m_read += *count;
  if (*count != 0 || self.endsWithEmptyRead) return TRUE;
  ::SetLastError(ERROR_BROKEN_PIPE);
  return FALSE;
}

BOOL WINAPI FakeInteractiveUser::TerminateProcess(HANDLE process, UINT) {
  const HeapWatch::Pause pause;
  Current().m_script.Note("TerminateProcess", Current().m_script.Name(process));
  return TRUE;
}

void WINAPI FakeInteractiveUser::Sleep(DWORD milliseconds) {
  FakeInteractiveUser& self = Current();
  if (::GetCurrentThreadId() != self.m_thread)
    self.m_patches.at("Sleep").Original<decltype(Sleep)>()(milliseconds);
  else
    self.sleptMs += milliseconds;
}

ULONGLONG WINAPI FakeInteractiveUser::GetTickCount64() { return 1000 + Current().sleptMs; }

HANDLE WINAPI FakeInteractiveUser::OpenProcess(DWORD access, BOOL inherit, DWORD id) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  EXPECT_FALSE(inherit);
  self.openedProcess = id;
  if (!self.m_script.Enter("OpenProcess", std::format("{}, {}", WindowsScript::Hex(access), id))) return nullptr;
  return self.m_script.Open("process");
}

BOOL WINAPI FakeInteractiveUser::OpenProcessToken(HANDLE process, DWORD access, PHANDLE token) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Enter("OpenProcessToken", std::format("{}, {}", self.m_script.Name(process), access)))
    return FALSE;
  *token = self.m_script.Open("token");
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::ImpersonateLoggedOnUser(HANDLE token) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Enter("ImpersonateLoggedOnUser", self.m_script.Name(token))) return FALSE;
  self.impersonating = true;
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::RevertToSelf() {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Enter("RevertToSelf")) return FALSE;
  EXPECT_TRUE(self.impersonating);
  self.impersonating = false;
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::SetThreadToken(PHANDLE thread, HANDLE token) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  EXPECT_EQ(thread, nullptr) << "only the calling thread's token is to be taken away";
  if (!self.m_script.Enter("SetThreadToken", self.m_script.Name(token))) return FALSE;
  EXPECT_TRUE(self.impersonating);
  self.impersonating = token != nullptr;
  return TRUE;
}

BOOL WINAPI FakeInteractiveUser::GetIEProxyConfig(WINHTTP_CURRENT_USER_IE_PROXY_CONFIG* config) {
  const HeapWatch::Pause pause;
  FakeInteractiveUser& self = Current();
  if (!self.m_script.Enter("WinHttpGetIEProxyConfigForCurrentUser", self.impersonating ? "as the user" : ""))
    return FALSE;
  const auto text = [&](const char* kind, const std::optional<std::wstring>& value) -> wchar_t* {
    return value ? self.m_script.GlobalText(kind, *value) : nullptr;
  };
  config->fAutoDetect = self.autoDetect;
  config->lpszAutoConfigUrl = text("user's url", self.configUrl);
  config->lpszProxy = text("user's proxy list", self.proxyList);
  config->lpszProxyBypass = text("user's bypass list", self.bypassList);
  return TRUE;
}

#include "FwClient/Service/QeLaLib/InteractiveUser.h"

#include <tlhelp32.h>

#include <algorithm>
#include <array>
#include <cstdlib>

#include "FwClient/Common/Utilities/RegistryText.h"
#include "FwClient/Common/Utilities/SystemDirectory.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"

namespace {

// The image name of the user's shell. Only a plain string counts: an expandable one would need the user's environment.
std::wstring ShellImageName() {
  static constexpr wchar_t kDefault[] = L"explorer.exe";
  UniqueRegKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon", 0, KEY_READ,
                      key.put()) != ERROR_SUCCESS)
    return kDefault;
  RegistryText shell;
  return shell.Read(key.get(), L"Shell") && shell.Type() == REG_SZ ? shell.Get() : kDefault;
}

struct SnapshotTraits {
  using Handle = HANDLE;
  static Handle Invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void Close(Handle handle) noexcept { ::CloseHandle(handle); }
};
using UniqueSnapshot = UniqueHandle<SnapshotTraits>;

struct ModuleTraits {
  using Handle = HMODULE;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::FreeLibrary(handle); }
};
using UniqueModule = UniqueHandle<ModuleTraits>;

// The way of 32-bit systems.
bool FindProcessIdWithToolhelp(const std::wstring& imageName, DWORD* processId) {
  const UniqueSnapshot snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
  if (!snapshot) return false;
  PROCESSENTRY32W entry{};
  entry.dwSize = sizeof entry;
  // The first entry, which is the system's idle process, is never compared.
  if (!::Process32FirstW(snapshot.get(), &entry)) return false;
  while (::Process32NextW(snapshot.get(), &entry)) {
    if (imageName != entry.szExeFile) continue;
    *processId = entry.th32ProcessID;
    return true;
  }
  return false;
}

// From here on the way of 64-bit systems: tasklist.
constexpr DWORD kTasklistOutputBytes = 4096;

// What tasklist may take. It asks other services of the system, so it can be slow, and it must not hold this one.
constexpr ULONGLONG kTasklistLimitMs = 30000;
constexpr DWORD kTasklistPollMs = 10;

struct Pipe {
  UniqueKernelHandle read;
  UniqueKernelHandle write;
};

enum class ParentEnd { kRead, kWrite };

// A pipe to a child, which inherits only the other end.
bool MakePipe(Pipe& pipe, ParentEnd parentEnd) {
  SECURITY_ATTRIBUTES inheritable{};
  inheritable.nLength = sizeof inheritable;
  inheritable.bInheritHandle = TRUE;
  if (!::CreatePipe(pipe.read.put(), pipe.write.put(), &inheritable, 0)) return false;
  HANDLE parents = parentEnd == ParentEnd::kRead ? pipe.read.get() : pipe.write.get();
  return ::SetHandleInformation(parents, HANDLE_FLAG_INHERIT, 0) != FALSE;
}

// A started tasklist and the parent's ends of its pipes.
struct Tasklist {
  Pipe output;
  Pipe input;
  UniqueKernelHandle process;
  UniqueKernelHandle thread;
};

bool StartTasklist(Tasklist& tasklist, const std::wstring& imageName) {
  std::wstring program;
  if (!MakePipe(tasklist.output, ParentEnd::kRead) || !MakePipe(tasklist.input, ParentEnd::kWrite) ||
      !GetSystemDirectoryPath(program))
    return false;
  program += L"\\tasklist.exe";
  std::wstring commandLine = L" /FI \"IMAGENAME eq ";
  commandLine += imageName;
  commandLine += L"\" /FO CSV /NH";

  STARTUPINFOW startup{};
  static_assert(sizeof startup == 104);
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES | STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  startup.hStdInput = tasklist.input.read.get();
  startup.hStdOutput = tasklist.output.write.get();
  startup.hStdError = tasklist.output.write.get();
  PROCESS_INFORMATION child{};
  if (!::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &child))
    return false;
  tasklist.process.reset(child.hProcess);
  tasklist.thread.reset(child.hThread);
  // While this process held the child's end of the output, its end would never be seen.
  tasklist.output.write.reset();
  tasklist.input.read.reset();
  return true;
}

// Waits until ReadFile will not block. A pipe of this kind has no event to wait for, so it is looked at again and
// again; a failed look means that ReadFile fails at once as well. False: nothing came in time.
bool WaitForOutput(HANDLE pipe, ULONGLONG deadline) {
  DWORD available = 0;
  while (::PeekNamedPipe(pipe, nullptr, 0, nullptr, &available, nullptr) && available == 0) {
    if (::GetTickCount64() >= deadline) return false;
    ::Sleep(kTasklistPollMs);
  }
  return true;
}

// Reads until the child ends, says nothing for too long or has filled the buffer. More is not needed: only processes
// of the one image name are listed, and the first is taken. A child that has more to say ends when its pipe closes.
std::size_t ReadOutput(const Tasklist& tasklist, std::array<char, kTasklistOutputBytes>& buffer) {
  const ULONGLONG deadline = ::GetTickCount64() + kTasklistLimitMs;
  HANDLE pipe = tasklist.output.read.get();
  DWORD used = 0;
  while (used < kTasklistOutputBytes) {
    if (!WaitForOutput(pipe, deadline)) {
      ::TerminateProcess(tasklist.process.get(), 1);
      break;
    }
    DWORD count = 0;
    if (!::ReadFile(pipe, buffer.data() + used, kTasklistOutputBytes - used, &count, nullptr) || count == 0) break;
    used += count;
  }
  return used;
}

// Takes the next field off the front of a line. Quotes and commas separate fields, and several of them count as one.
std::string TakeField(std::string_view& line) {
  constexpr std::string_view kSeparators = "\",";
  line.remove_prefix(std::min(line.find_first_not_of(kSeparators), line.size()));
  const std::string_view field = line.substr(0, line.find_first_of(kSeparators));
  line.remove_prefix(field.size());
  return std::string(field);
}

// Compares a field, which is in the process's own narrow encoding. Text that is not valid in it equals no name.
bool Equals(const std::string& field, const std::wstring& imageName) {
  constexpr std::size_t kMaxCharacters = 511;
  std::array<wchar_t, kMaxCharacters + 1> wide{};
  return std::mbstowcs(wide.data(), field.c_str(), kMaxCharacters) != static_cast<std::size_t>(-1) &&
         imageName == wide.data();
}

}  // namespace

HRESULT GetInteractiveUserToken(HANDLE* token) {
  *token = nullptr;
  const std::wstring imageName = ShellImageName();
  DWORD processId = 0;
  const bool found = IsWow64SystemDirectoryPresent() ? FindProcessIdWithTasklist(imageName, &processId) && processId > 0
                                                     : FindProcessIdWithToolhelp(imageName, &processId);
  if (!found) return E_FAIL;
  const UniqueKernelHandle process(::OpenProcess(PROCESS_QUERY_INFORMATION | PROCESS_VM_READ, FALSE, processId));
  if (!process) return E_FAIL;
  UniqueKernelHandle opened;
  if (!::OpenProcessToken(process.get(), TOKEN_ASSIGN_PRIMARY | TOKEN_DUPLICATE | TOKEN_QUERY, opened.put()))
    return E_FAIL;
  *token = opened.release();
  return S_OK;
}

bool IsWow64SystemDirectoryPresent() {
  OSVERSIONINFOW version{};
  version.dwOSVersionInfoSize = sizeof version;
  if (!::GetVersionExW(&version)) return false;
  // Systems older than these do not know the function.
  if (version.dwMajorVersion < 4 && (version.dwMajorVersion < 3 || version.dwMinorVersion == 0)) return false;

  const UniqueModule kernel(::LoadLibraryW(L"kernel32.dll"));
  if (!kernel) return false;
  const auto getDirectory = reinterpret_cast<UINT(WINAPI*)(LPWSTR, UINT)>(
      reinterpret_cast<void*>(::GetProcAddress(kernel.get(), "GetSystemWow64DirectoryW")));
  if (getDirectory == nullptr) return false;
  // Where the directory exists, the answer is the size that it would need.
  wchar_t oneCharacter[1] = L"";
  return getDirectory(oneCharacter, 1) != 0;
}

// The image name comes from the registry, from a place that only administrators can write. No command interpreter reads
// the command line, so the only special characters are those of tasklist's own argument rules. A quote would end the
// filter, and what follows would be arguments of their own (another computer to ask, for example). No image name holds
// a quote and no output could match it, so such a name is refused before anything is started. Blanks, commas and
// other characters stay inside the filter. A backslash at the end takes the closing quote into the filter, and all that
// follows with it: then tasklist finds nothing. A name that is too long makes CreateProcessW fail.
bool FindProcessIdWithTasklist(const std::wstring& imageName, DWORD* processId) {
  if (imageName.find(L'"') != std::wstring::npos) return false;
  Tasklist tasklist;
  if (!StartTasklist(tasklist, imageName)) return false;
  std::array<char, kTasklistOutputBytes> buffer;
  const std::size_t size = ReadOutput(tasklist, buffer);
  return FindProcessIdInCsv({buffer.data(), size}, imageName, processId);
}

bool FindProcessIdInCsv(std::string_view text, const std::wstring& imageName, DWORD* processId) {
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    // Each line is read as C text.
    line = line.substr(0, line.find('\0'));
    if (!line.starts_with('"')) continue;
    if (!Equals(TakeField(line), imageName)) continue;
    const std::string id = TakeField(line);
    if (id.empty()) continue;
    *processId = static_cast<DWORD>(std::strtol(id.c_str(), nullptr, 10));
    return true;
  }
  return false;
}

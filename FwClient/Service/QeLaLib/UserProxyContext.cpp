#include "FwClient/Service/QeLaLib/UserProxyContext.h"

#include <tlhelp32.h>

#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "FwClient/Service/QeLaLib/HttpsHandles.h"
#include "FwClient/Service/QeLaLib/HttpsProxyList.h"
#include "FwClient/Service/QeLaLib/TasklistQuery.h"
#include "FwClient/Service/QeLaLib/ValidateHttpsConnection.h"

namespace {

// The image name of the user's shell. Only a plain string counts: an expandable one would need the user's environment.
std::wstring ShellImageName() {
  constexpr DWORD kBufferBytes = 520;
  // One character more than is offered, since registry text need not be terminated.
  wchar_t text[kBufferBytes / sizeof(wchar_t) + 1] = L"";
  UniqueRegKey key;
  if (::RegOpenKeyExW(HKEY_LOCAL_MACHINE, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Winlogon", 0, KEY_READ,
                      key.put()) != ERROR_SUCCESS)
    return L"explorer.exe";
  DWORD type = REG_NONE;
  DWORD size = kBufferBytes;
  if (::RegQueryValueExW(key.get(), L"Shell", nullptr, &type, reinterpret_cast<BYTE*>(text), &size) != ERROR_SUCCESS ||
      type != REG_SZ)
    return L"explorer.exe";
  text[size / sizeof(wchar_t)] = L'\0';
  return text;
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

// The Internet settings of the thread's user. Their texts are ours to free.
class UserProxySettings {
 public:
  UserProxySettings() noexcept = default;
  ~UserProxySettings() {
    const UniqueGlobalMemory url(m_config.lpszAutoConfigUrl);
    const UniqueGlobalMemory list(m_config.lpszProxy);
    const UniqueGlobalMemory bypass(m_config.lpszProxyBypass);
  }
  UserProxySettings(const UserProxySettings&) = delete;
  UserProxySettings& operator=(const UserProxySettings&) = delete;

  bool Read() noexcept { return ::WinHttpGetIEProxyConfigForCurrentUser(&m_config) != FALSE; }

  // Empty when there is none.
  std::wstring ConfigUrl() const { return Text(m_config.lpszAutoConfigUrl); }
  std::wstring ProxyList() const { return Text(m_config.lpszProxy); }

 private:
  static std::wstring Text(const wchar_t* text) { return text == nullptr ? std::wstring() : std::wstring(text); }

  WINHTTP_CURRENT_USER_IE_PROXY_CONFIG m_config{};
};

// Reads the interactive user's settings as that user.
bool ReadInteractiveUserSettings(UserProxySettings& settings) {
  UniqueKernelHandle token;
  if (GetInteractiveUserToken(token.put()) != S_OK) return false;
  ImpersonationGuard impersonation(token.get());
  if (!impersonation) return false;
  const bool read = settings.Read();
  token.reset();
  return read;
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

bool ValidateHttpsConnectionAsUser(ProxyContext& context, const std::wstring& host) {
  // Neither the framework nor the registry is asked with a user's identity.
  if (!ThreadActsAsItself()) return false;
  GetProxyCredentials(context, host);
  UserProxySettings settings;
  if (!ReadInteractiveUserSettings(settings)) return false;

  const std::wstring configUrl = settings.ConfigUrl();
  if (!configUrl.empty() &&
      ValidateHttpsConnectionAutoProxy(context, host, configUrl, context.userName, context.password))
    return true;
  const std::wstring proxyList = settings.ProxyList();
  return !proxyList.empty() &&
         ValidateHttpsConnection(host, GetHttpsProxyFromList(proxyList), context.userName, context.password);
}

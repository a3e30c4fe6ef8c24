#include <winsock2.h>
#include <windows.h>
#include <objbase.h>

#include "ScriptedWindows/ImportTable/HandleLedger.h"

namespace {

HandleLedger* g_current = nullptr;

}  // namespace

HandleLedger& HandleLedger::Current() { return *g_current; }

template <typename Function>
void HandleLedger::Patch(HMODULE module, const char* function, Function* replacement) {
  if (Imports(module, function))
    m_patches.emplace(function, std::make_unique<ImportPatch>(module, function, replacement));
}

void HandleLedger::Opened(const char* function, const char* closedBy, const void* handle) {
  const std::lock_guard lock(m_mutex);
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return;
  ++m_counts[function];
  m_closed.erase(handle);  // the system uses the values of closed handles again
  m_open[handle] = {function, closedBy};
}

bool HandleLedger::IsOpen(const void* handle) const {
  const std::lock_guard lock(m_mutex);
  return m_open.contains(handle);
}

// Noted before the handle is really closed: afterwards another thread may be given the same value.
void HandleLedger::Closed(const char* function, const void* handle) {
  const std::lock_guard lock(m_mutex);
  ++m_counts[function];
  if (const auto open = m_open.find(handle); open != m_open.end()) {
    if (std::string(open->second.closedBy) != function)
      m_mistakes.push_back(std::string(open->second.openedBy) + " closed by " + function);
    m_closed.insert(*open);
    m_open.erase(open);
  } else if (const auto closed = m_closed.find(handle); closed != m_closed.end()) {
    m_mistakes.push_back(std::string(closed->second.openedBy) + " closed twice");
  }
}

void HandleLedger::Entered(const char* function, bool succeeded) {
  const std::lock_guard lock(m_mutex);
  if (!succeeded) return;
  ++m_counts[function];
  ++m_entered[function];
}

void HandleLedger::Left(const char* function, const char* enteredBy) {
  const std::lock_guard lock(m_mutex);
  ++m_counts[function];
  if (m_entered[enteredBy] == 0)
    m_mistakes.push_back(std::string(function) + " without " + enteredBy);
  else
    --m_entered[enteredBy];
}

void* HandleLedger::Original(const char* function) const {
  return reinterpret_cast<void*>(m_patches.at(function)->Original<void()>());
}

// One replacement a function: it forwards and notes what came of it.
struct HandleLedger::Replacements {
  template <typename Function>
  static Function* Real(Function*, const char* function) {
    return reinterpret_cast<Function*>(Current().Original(function));
  }

  static HANDLE WINAPI CreateEventW(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) {
    HANDLE handle = Real(&CreateEventW, "CreateEventW")(security, manual, set, name);
    Current().Opened("CreateEventW", "CloseHandle", handle);
    return handle;
  }
  static HANDLE WINAPI CreateThread(SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                                    void* argument, DWORD flags, DWORD* id) {
    HANDLE handle = Real(&CreateThread, "CreateThread")(security, stack, start, argument, flags, id);
    Current().Opened("CreateThread", "CloseHandle", handle);
    return handle;
  }
  static BOOL WINAPI CloseHandle(HANDLE handle) {
    Current().Closed("CloseHandle", handle);
    return Real(&CloseHandle, "CloseHandle")(handle);
  }
  static WSAEVENT WINAPI WSACreateEvent() {
    WSAEVENT handle = Real(&WSACreateEvent, "WSACreateEvent")();
    Current().Opened("WSACreateEvent", "WSACloseEvent", handle);
    return handle;
  }
  static BOOL WINAPI WSACloseEvent(WSAEVENT handle) {
    Current().Closed("WSACloseEvent", handle);
    return Real(&WSACloseEvent, "WSACloseEvent")(handle);
  }
  static LSTATUS WINAPI RegOpenKeyExW(HKEY hive, const wchar_t* path, DWORD options, REGSAM access, HKEY* key) {
    const LSTATUS status = Real(&RegOpenKeyExW, "RegOpenKeyExW")(hive, path, options, access, key);
    Current().Opened("RegOpenKeyExW", "RegCloseKey", status == ERROR_SUCCESS ? *key : nullptr);
    return status;
  }
  static LSTATUS WINAPI RegCreateKeyExW(HKEY hive, const wchar_t* path, DWORD reserved, wchar_t* keyClass,
                                        DWORD options, REGSAM access, const SECURITY_ATTRIBUTES* security, HKEY* key,
                                        DWORD* disposition) {
    const LSTATUS status = Real(&RegCreateKeyExW, "RegCreateKeyExW")(hive, path, reserved, keyClass, options, access,
                                                                     security, key, disposition);
    Current().Opened("RegCreateKeyExW", "RegCloseKey", status == ERROR_SUCCESS ? *key : nullptr);
    return status;
  }
  static LSTATUS WINAPI RegCloseKey(HKEY key) {
    Current().Closed("RegCloseKey", key);
    return Real(&RegCloseKey, "RegCloseKey")(key);
  }
  static BOOL WINAPI DuplicateHandle(HANDLE from, HANDLE handle, HANDLE to, HANDLE* copy, DWORD access, BOOL inherit,
                                     DWORD options) {
    const BOOL result = Real(&DuplicateHandle, "DuplicateHandle")(from, handle, to, copy, access, inherit, options);
    // Of what was opened here; the runtime's own records of threads are not meant.
    if (result && Current().IsOpen(handle)) Current().Opened("DuplicateHandle", "CloseHandle", *copy);
    return result;
  }
  static BOOL WINAPI GetModuleHandleExW(DWORD flags, const wchar_t* name, HMODULE* found) {
    const BOOL result = Real(&GetModuleHandleExW, "GetModuleHandleExW")(flags, name, found);
    Current().Entered("GetModuleHandleExW", result != FALSE);
    return result;
  }
  static BOOL WINAPI FreeLibrary(HMODULE freed) {
    Current().Left("FreeLibrary", "GetModuleHandleExW");
    return Real(&FreeLibrary, "FreeLibrary")(freed);
  }
  static void WINAPI FreeLibraryAndExitThread(HMODULE freed, DWORD code) {
    // Looked up first: the test may end the ledger as soon as the release is noted.
    const auto real = Real(&FreeLibraryAndExitThread, "FreeLibraryAndExitThread");
    Current().Left("FreeLibraryAndExitThread", "GetModuleHandleExW");
    real(freed, code);
  }
  static HRESULT WINAPI CoInitializeEx(void* reserved, DWORD model) {
    const HRESULT result = Real(&CoInitializeEx, "CoInitializeEx")(reserved, model);
    Current().Entered("CoInitializeEx", SUCCEEDED(result));
    return result;
  }
  static void WINAPI CoUninitialize() {
    Current().Left("CoUninitialize", "CoInitializeEx");
    Real(&CoUninitialize, "CoUninitialize")();
  }
  static int WINAPI WSAStartup(WORD version, WSADATA* data) {
    const int result = Real(&WSAStartup, "WSAStartup")(version, data);
    Current().Entered("WSAStartup", result == 0);
    return result;
  }
  static int WINAPI WSACleanup() {
    Current().Left("WSACleanup", "WSAStartup");
    return Real(&WSACleanup, "WSACleanup")();
  }
};

HandleLedger::HandleLedger(HMODULE module) {
  g_current = this;
  Patch(module, "CreateEventW", &Replacements::CreateEventW);
  Patch(module, "CreateThread", &Replacements::CreateThread);
  Patch(module, "DuplicateHandle", &Replacements::DuplicateHandle);
  Patch(module, "CloseHandle", &Replacements::CloseHandle);
  Patch(module, "WSACreateEvent", &Replacements::WSACreateEvent);
  Patch(module, "WSACloseEvent", &Replacements::WSACloseEvent);
  Patch(module, "RegOpenKeyExW", &Replacements::RegOpenKeyExW);
  Patch(module, "RegCreateKeyExW", &Replacements::RegCreateKeyExW);
  Patch(module, "RegCloseKey", &Replacements::RegCloseKey);
  Patch(module, "GetModuleHandleExW", &Replacements::GetModuleHandleExW);
  Patch(module, "FreeLibrary", &Replacements::FreeLibrary);
  Patch(module, "FreeLibraryAndExitThread", &Replacements::FreeLibraryAndExitThread);
  Patch(module, "CoInitializeEx", &Replacements::CoInitializeEx);
  Patch(module, "CoUninitialize", &Replacements::CoUninitialize);
  Patch(module, "WSAStartup", &Replacements::WSAStartup);
  Patch(module, "WSACleanup", &Replacements::WSACleanup);
}

HandleLedger::~HandleLedger() {
  m_patches.clear();
  g_current = nullptr;
}

std::size_t HandleLedger::Count(const char* function) const {
  const std::lock_guard lock(m_mutex);
  const auto count = m_counts.find(function);
  return count != m_counts.end() ? count->second : 0;
}

std::size_t HandleLedger::Open(const char* function) const {
  const std::lock_guard lock(m_mutex);
  std::size_t open = 0;
  for (const auto& [handle, entry] : m_open)
    if (std::string(entry.openedBy) == function) ++open;
  if (const auto entered = m_entered.find(function); entered != m_entered.end()) open += entered->second;
  return open;
}

std::vector<std::string> HandleLedger::Leaks() const {
  const std::lock_guard lock(m_mutex);
  std::map<std::string, std::size_t> open = m_entered;
  for (const auto& [handle, entry] : m_open) ++open[entry.openedBy];
  std::vector<std::string> leaks;
  for (const auto& [function, count] : open)
    if (count != 0) leaks.push_back(function + " x" + std::to_string(count));
  return leaks;
}

std::vector<std::string> HandleLedger::Mistakes() const {
  const std::lock_guard lock(m_mutex);
  return m_mistakes;
}

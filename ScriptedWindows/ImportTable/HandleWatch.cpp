#include "ScriptedWindows/ImportTable/HandleWatch.h"

#include <winsock2.h>
#include <windows.h>
#include <objbase.h>

// One replacement a function: it forwards and notes what came of it.
struct HandleWatch::Replacements {
  // What the module called before; the function's own type comes with its replacement.
  template <typename Function>
  static Function* Real(Function*, const char* function) {
    return Current().m_patches.at(function).Original<Function>();
  }
  static void Opened(const char* function, const char* closer, const void* handle) {
    if (handle != nullptr && handle != INVALID_HANDLE_VALUE) Current().Opened(function, closer, handle);
  }

  static HANDLE WINAPI CreateEventW(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) {
    HANDLE handle = Real(&CreateEventW, "CreateEventW")(security, manual, set, name);
    Opened("CreateEventW", "CloseHandle", handle);
    return handle;
  }
  static HANDLE WINAPI CreateThread(SECURITY_ATTRIBUTES* security, SIZE_T stack, LPTHREAD_START_ROUTINE start,
                                    void* argument, DWORD flags, DWORD* id) {
    HANDLE handle = Real(&CreateThread, "CreateThread")(security, stack, start, argument, flags, id);
    Opened("CreateThread", "CloseHandle", handle);
    return handle;
  }
  static HANDLE WINAPI CreateFileW(const wchar_t* path, DWORD access, DWORD share, SECURITY_ATTRIBUTES* security,
                                   DWORD disposition, DWORD flags, HANDLE pattern) {
    HANDLE handle = Real(&CreateFileW, "CreateFileW")(path, access, share, security, disposition, flags, pattern);
    Opened("CreateFileW", "CloseHandle", handle);
    return handle;
  }
  static BOOL WINAPI CloseHandle(HANDLE handle) {
    Current().Closed("CloseHandle", handle);
    return Real(&CloseHandle, "CloseHandle")(handle);
  }
  static WSAEVENT WINAPI WSACreateEvent() {
    WSAEVENT handle = Real(&WSACreateEvent, "WSACreateEvent")();
    Opened("WSACreateEvent", "WSACloseEvent", handle);
    return handle;
  }
  static BOOL WINAPI WSACloseEvent(WSAEVENT handle) {
    Current().Closed("WSACloseEvent", handle);
    return Real(&WSACloseEvent, "WSACloseEvent")(handle);
  }
  static LSTATUS WINAPI RegOpenKeyExW(HKEY hive, const wchar_t* path, DWORD options, REGSAM access, HKEY* key) {
    const LSTATUS status = Real(&RegOpenKeyExW, "RegOpenKeyExW")(hive, path, options, access, key);
    Opened("RegOpenKeyExW", "RegCloseKey", status == ERROR_SUCCESS ? *key : nullptr);
    return status;
  }
  static LSTATUS WINAPI RegCreateKeyExW(HKEY hive, const wchar_t* path, DWORD reserved, wchar_t* keyClass,
                                        DWORD options, REGSAM access, const SECURITY_ATTRIBUTES* security, HKEY* key,
                                        DWORD* disposition) {
    const LSTATUS status = Real(&RegCreateKeyExW, "RegCreateKeyExW")(hive, path, reserved, keyClass, options, access,
                                                                     security, key, disposition);
    Opened("RegCreateKeyExW", "RegCloseKey", status == ERROR_SUCCESS ? *key : nullptr);
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
    if (result && Current().IsOpen(handle)) Opened("DuplicateHandle", "CloseHandle", *copy);
    return result;
  }
  static BOOL WINAPI GetModuleHandleExW(DWORD flags, const wchar_t* name, HMODULE* found) {
    const BOOL result = Real(&GetModuleHandleExW, "GetModuleHandleExW")(flags, name, found);
    constexpr DWORD kTakesNone = GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT | GET_MODULE_HANDLE_EX_FLAG_PIN;
    if (result != FALSE && (flags & kTakesNone) == 0) Current().Entered("GetModuleHandleExW");
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
    if (SUCCEEDED(result)) Current().Entered("CoInitializeEx");
    return result;
  }
  static void WINAPI CoUninitialize() {
    Current().Left("CoUninitialize", "CoInitializeEx");
    Real(&CoUninitialize, "CoUninitialize")();
  }
  static int WINAPI WSAStartup(WORD version, WSADATA* data) {
    const int result = Real(&WSAStartup, "WSAStartup")(version, data);
    if (result == 0) Current().Entered("WSAStartup");
    return result;
  }
  static int WINAPI WSACleanup() {
    Current().Left("WSACleanup", "WSAStartup");
    return Real(&WSACleanup, "WSACleanup")();
  }
};

HandleWatch::HandleWatch(HMODULE module) {
  const auto patch = [&](const char* function, auto* replacement) {
    if (Imports(module, function)) m_patches.try_emplace(function, module, function, replacement);
  };
  patch("CreateEventW", &Replacements::CreateEventW);
  patch("CreateThread", &Replacements::CreateThread);
  patch("CreateFileW", &Replacements::CreateFileW);
  patch("DuplicateHandle", &Replacements::DuplicateHandle);
  patch("CloseHandle", &Replacements::CloseHandle);
  patch("WSACreateEvent", &Replacements::WSACreateEvent);
  patch("WSACloseEvent", &Replacements::WSACloseEvent);
  patch("RegOpenKeyExW", &Replacements::RegOpenKeyExW);
  patch("RegCreateKeyExW", &Replacements::RegCreateKeyExW);
  patch("RegCloseKey", &Replacements::RegCloseKey);
  patch("GetModuleHandleExW", &Replacements::GetModuleHandleExW);
  patch("FreeLibrary", &Replacements::FreeLibrary);
  patch("FreeLibraryAndExitThread", &Replacements::FreeLibraryAndExitThread);
  patch("CoInitializeEx", &Replacements::CoInitializeEx);
  patch("CoUninitialize", &Replacements::CoUninitialize);
  patch("WSAStartup", &Replacements::WSAStartup);
  patch("WSACleanup", &Replacements::WSACleanup);
}

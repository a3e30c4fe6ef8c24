#include "Tests/Support/ImportFailures.h"

#include <winsock2.h>
#include <windows.h>
#include <rpc.h>
#include <windns.h>
#include <winhttp.h>

#include <cerrno>
#include <unordered_map>

namespace {

constexpr std::uint64_t kMinusOne = ~std::uint64_t{0};  // INVALID_HANDLE_VALUE, -1, WEOF
constexpr std::uint64_t kNull = 0;                      // a null pointer or handle, FALSE, no bytes

ImportRule Memory(const char* name) { return {name, {{kNull, ERROR_NOT_ENOUGH_MEMORY}}, nullptr, true}; }
// A registry function returns its error.
ImportRule Registry(const char* name, std::initializer_list<std::uint64_t> errors) {
  ImportRule rule{name, {}};
  for (const std::uint64_t error : errors) rule.failures.push_back({error});
  return rule;
}

constexpr char kNoResult[] = "it has no result that tells of a failure";
constexpr char kOpen[] = "it fails only for what is not open, or of another kind";
constexpr char kValue[] = "every result is a value";
constexpr char kEnds[] = "it does not return";
constexpr char kUnwinds[] = "it is the system's part of throwing, which has no other way";

const std::vector<ImportRule>& Rules() {
  static const std::vector<ImportRule> rules = {
      // ---- the registry ----
      Registry("RegOpenKeyExW",
               {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_KEY_DELETED, ERROR_NO_SYSTEM_RESOURCES}),
      // That there is no such value is an answer, not a failure.
      Registry("RegGetValueW", {ERROR_ACCESS_DENIED, ERROR_MORE_DATA, ERROR_KEY_DELETED, ERROR_NO_SYSTEM_RESOURCES}),
      Registry("RegNotifyChangeKeyValue", {ERROR_KEY_DELETED, ERROR_NO_SYSTEM_RESOURCES, ERROR_INVALID_PARAMETER}),
      Registry("RegQueryValueExW", {ERROR_ACCESS_DENIED, ERROR_FILE_NOT_FOUND, ERROR_MORE_DATA, ERROR_KEY_DELETED,
                                    ERROR_NO_SYSTEM_RESOURCES}),
      Registry("RegCreateKeyExW", {ERROR_ACCESS_DENIED, ERROR_CHILD_MUST_BE_VOLATILE, ERROR_NO_SYSTEM_RESOURCES}),
      Registry("RegSetValueExW", {ERROR_ACCESS_DENIED, ERROR_KEY_DELETED, ERROR_NO_SYSTEM_RESOURCES}),
      Registry("RegFlushKey", {ERROR_REGISTRY_IO_FAILED, ERROR_DISK_FULL}),
      {"RegCloseKey", {}, kOpen},

      // ---- who the thread is, and whose processes there are ----
      {"OpenProcessToken", {{kNull, ERROR_ACCESS_DENIED}, {kNull, ERROR_NO_SYSTEM_RESOURCES}}},
      {"ImpersonateLoggedOnUser", {{kNull, ERROR_BAD_IMPERSONATION_LEVEL}, {kNull, ERROR_NO_SYSTEM_RESOURCES}}},
      {"RevertToSelf", {{kNull, ERROR_INTERNAL_ERROR}}},
      {"SetThreadToken", {{kNull, ERROR_ACCESS_DENIED}}},
      {"CreateToolhelp32Snapshot", {{kMinusOne, ERROR_NOT_ENOUGH_MEMORY}, {kMinusOne, ERROR_ACCESS_DENIED}}},
      {"Process32FirstW", {{kNull, ERROR_NO_MORE_FILES}}},
      {"Process32NextW", {{kNull, ERROR_NO_MORE_FILES}}},
      {"CreateProcessW",
       {{kNull, ERROR_FILE_NOT_FOUND}, {kNull, ERROR_ACCESS_DENIED}, {kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"CreatePipe", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"SetHandleInformation", {{kNull, ERROR_ACCESS_DENIED}}},
      {"PeekNamedPipe", {{kNull, ERROR_BROKEN_PIPE}}},
      {"ReadFile", {{kNull, ERROR_BROKEN_PIPE}, {kNull, ERROR_NOT_ENOUGH_MEMORY}}},

      // ---- handles, threads, waits ----
      {"CreateEventA", {{kNull, ERROR_NO_SYSTEM_RESOURCES}}},
      {"CreateEventW", {{kNull, ERROR_NOT_ENOUGH_MEMORY}, {kNull, ERROR_NO_SYSTEM_RESOURCES}}},
      {"CreateSemaphoreA", {{kNull, ERROR_NO_SYSTEM_RESOURCES}}},
      {"CreateThread", {{kNull, ERROR_NOT_ENOUGH_MEMORY}, {kNull, ERROR_MAX_THRDS_REACHED}}},
      {"_beginthreadex", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"DuplicateHandle", {{kNull, ERROR_NO_SYSTEM_RESOURCES}}},
      {"OpenProcess", {{kNull, ERROR_ACCESS_DENIED}}},
      {"WaitForMultipleObjects", {{WAIT_FAILED, ERROR_NOT_ENOUGH_MEMORY}}},
      {"WaitForSingleObject", {{WAIT_FAILED, ERROR_NOT_ENOUGH_MEMORY}}},
      {"InitOnceExecuteOnce", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"TlsAlloc", {{TLS_OUT_OF_INDEXES, ERROR_NO_MORE_ITEMS}}},
      {"TlsSetValue",
       {},
       "it fails only for the first value that a thread keeps in a slot, and what is kept then stays"},
      {"GetHandleInformation", {{kNull, ERROR_INVALID_HANDLE}}},
      {"GetProcessAffinityMask", {{kNull, ERROR_ACCESS_DENIED}}},
      {"GetThreadContext", {{kNull, ERROR_GEN_FAILURE}}},
      {"SetThreadContext", {{kNull, ERROR_GEN_FAILURE}}},
      {"SetProcessAffinityMask", {{kNull, ERROR_ACCESS_DENIED}}},
      {"SetThreadPriority", {{kNull, ERROR_ACCESS_DENIED}}},
      {"GetThreadPriority", {{THREAD_PRIORITY_ERROR_RETURN, ERROR_ACCESS_DENIED}}},
      {"ResumeThread", {{kMinusOne, ERROR_ACCESS_DENIED}}},
      {"SuspendThread", {{kMinusOne, ERROR_ACCESS_DENIED}}},
      {"TryEnterCriticalSection", {}, "that somebody else has it is no failure, and is played by somebody who has"},
      {"SleepConditionVariableCS", {}, "that the time is over is an answer, and all that it knows"},
      {"CloseHandle", {}, kOpen},
      {"SetEvent", {}, kOpen},
      {"ResetEvent", {}, kOpen},
      {"ReleaseSemaphore", {}, kOpen},
      {"TlsFree", {}, kOpen},
      {"TlsGetValue", {}, kValue},
      {"GetCurrentProcess", {}, kValue},
      {"GetCurrentProcessId", {}, kValue},
      {"GetCurrentThread", {}, kValue},
      {"GetCurrentThreadId", {}, kValue},
      {"InitializeCriticalSection", {}, kNoResult},
      {"EnterCriticalSection", {}, kNoResult},
      {"LeaveCriticalSection", {}, kNoResult},
      {"DeleteCriticalSection", {}, kNoResult},
      {"AcquireSRWLockExclusive", {}, kNoResult},
      {"ReleaseSRWLockExclusive", {}, kNoResult},
      {"WakeAllConditionVariable", {}, kNoResult},
      {"Sleep", {}, kNoResult},
      {"TerminateProcess", {}, kEnds},

      // ---- modules and their resources ----
      {"GetModuleHandleA", {{kNull, ERROR_MOD_NOT_FOUND}}},
      {"GetModuleHandleW", {{kNull, ERROR_MOD_NOT_FOUND}}},
      {"GetModuleHandleExW", {{kNull, ERROR_MOD_NOT_FOUND}}},
      {"GetProcAddress", {{kNull, ERROR_PROC_NOT_FOUND}}},
      {"LoadLibraryW", {{kNull, ERROR_MOD_NOT_FOUND}, {kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"FreeLibrary", {}, kOpen},
      {"FreeLibraryAndExitThread", {}, kEnds},
      {"FindResourceW", {{kNull, ERROR_RESOURCE_NAME_NOT_FOUND}}},
      {"SizeofResource", {{kNull, ERROR_RESOURCE_DATA_NOT_FOUND}}},
      {"LoadResource", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"LockResource", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},

      // ---- files and consoles ----
      {"CreateFileW",
       {{kMinusOne, ERROR_ACCESS_DENIED},
        {kMinusOne, ERROR_SHARING_VIOLATION},
        {kMinusOne, ERROR_PATH_NOT_FOUND},
        {kMinusOne, ERROR_TOO_MANY_OPEN_FILES}}},
      // The last is a pipe that does not wait for its reader: it takes nothing, and nothing has failed.
      {"WriteFile", {{kNull, ERROR_DISK_FULL}, {kNull, ERROR_NO_DATA}, {TRUE, ERROR_SUCCESS}}},
      {"WriteConsoleW", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"MoveFileExW", {{kNull, ERROR_ACCESS_DENIED}, {kNull, ERROR_SHARING_VIOLATION}}},
      {"GetFileSizeEx", {{kNull, ERROR_ACCESS_DENIED}}},
      {"GetFileInformationByHandle", {{kNull, ERROR_ACCESS_DENIED}}},
      {"GetFileType", {{FILE_TYPE_UNKNOWN, ERROR_INVALID_HANDLE}}},
      {"GetConsoleMode", {{kNull, ERROR_INVALID_HANDLE}}},
      {"GetStdHandle", {{kNull, ERROR_SUCCESS}, {kMinusOne, ERROR_INVALID_HANDLE}}},
      {"GetEnvironmentVariableW", {{kNull, ERROR_ENVVAR_NOT_FOUND}, {kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"OutputDebugStringA", {}, kNoResult},
      {"OutputDebugStringW", {}, kNoResult},
      {"IsDebuggerPresent", {}, kValue},

      // ---- the machine and its network ----
      {"GetVersionExW", {{kNull, ERROR_INSUFFICIENT_BUFFER}}},
      {"GetSystemDirectoryW", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      Registry("GetAdaptersAddresses",
               {ERROR_NO_DATA, ERROR_BUFFER_OVERFLOW, ERROR_NOT_ENOUGH_MEMORY, ERROR_INVALID_PARAMETER}),
      Registry("GetIpAddrTable", {ERROR_NO_DATA, ERROR_INSUFFICIENT_BUFFER, ERROR_NOT_ENOUGH_MEMORY}),
      {"NotifyAddrChange",
       {{ERROR_NOT_ENOUGH_MEMORY, ERROR_NOT_ENOUGH_MEMORY},
        {ERROR_NOT_SUPPORTED, ERROR_NOT_SUPPORTED},
        {ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER}}},
      {"CancelIPChangeNotify", {}, "it fails only for what does not pend"},
      {"GetOverlappedResult", {}, "it is asked to wait for what is withdrawn, which it does whatever it answers"},
      Registry("DnsQuery_W",
               {DNS_ERROR_RCODE_NAME_ERROR, DNS_ERROR_RCODE_SERVER_FAILURE, ERROR_TIMEOUT, ERROR_NOT_ENOUGH_MEMORY}),
      {"DnsFree", {}, kNoResult},
      {"WSAStartup", {{WSASYSNOTREADY}, {WSAEPROCLIM}}},
      {"WSACreateEvent", {{kNull, WSA_NOT_ENOUGH_MEMORY}}},
      {"WSAStringToAddressW", {{kMinusOne, WSAEINVAL}, {kMinusOne, WSA_NOT_ENOUGH_MEMORY}}},
      {"GetAddrInfoW",
       {{WSAHOST_NOT_FOUND, WSAHOST_NOT_FOUND},
        {WSATRY_AGAIN, WSATRY_AGAIN},
        {WSA_NOT_ENOUGH_MEMORY, WSA_NOT_ENOUGH_MEMORY}}},
      {"InetPtonW", {{kNull, WSAEINVAL}, {kMinusOne, WSAEFAULT}}},
      {"InetNtopW", {{kNull, ERROR_INVALID_PARAMETER}}},
      {"inet_ntop", {{kNull, ERROR_INVALID_PARAMETER}}},
      {"FreeAddrInfoW", {}, kNoResult},
      {"WSACleanup", {}, kOpen},
      {"WSACloseEvent", {}, kOpen},
      {"WSAGetLastError", {}, kValue},
      {"htonl", {}, kValue},

      // ---- HTTPS and certificates ----
      {"WinHttpOpen", {{kNull, ERROR_NOT_ENOUGH_MEMORY}, {kNull, ERROR_WINHTTP_INTERNAL_ERROR}}},
      {"WinHttpConnect", {{kNull, ERROR_NOT_ENOUGH_MEMORY}, {kNull, ERROR_WINHTTP_INVALID_URL}}},
      {"WinHttpOpenRequest", {{kNull, ERROR_NOT_ENOUGH_MEMORY}, {kNull, ERROR_WINHTTP_INTERNAL_ERROR}}},
      {"WinHttpSetStatusCallback", {{kMinusOne, ERROR_NOT_ENOUGH_MEMORY}}},
      {"WinHttpSetTimeouts", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"WinHttpSetOption", {{kNull, ERROR_WINHTTP_INVALID_OPTION}, {kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"WinHttpSetCredentials", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"WinHttpSendRequest",
       {{kNull, ERROR_WINHTTP_NAME_NOT_RESOLVED},
        {kNull, ERROR_WINHTTP_CANNOT_CONNECT},
        {kNull, ERROR_WINHTTP_TIMEOUT},
        {kNull, ERROR_WINHTTP_SECURE_FAILURE},
        {kNull, ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED},
        {kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"WinHttpReceiveResponse",
       {{kNull, ERROR_WINHTTP_TIMEOUT},
        {kNull, ERROR_WINHTTP_CONNECTION_ERROR},
        {kNull, ERROR_WINHTTP_RESEND_REQUEST}}},
      {"WinHttpQueryHeaders", {{kNull, ERROR_WINHTTP_HEADER_NOT_FOUND}}},
      {"WinHttpQueryOption", {{kNull, ERROR_WINHTTP_INCORRECT_HANDLE_STATE}, {kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"WinHttpQueryAuthSchemes", {{kNull, ERROR_WINHTTP_INCORRECT_HANDLE_STATE}}},
      {"WinHttpGetProxyForUrl",
       {{kNull, ERROR_WINHTTP_AUTODETECTION_FAILED},
        {kNull, ERROR_WINHTTP_UNABLE_TO_DOWNLOAD_SCRIPT},
        {kNull, ERROR_WINHTTP_LOGIN_FAILURE}}},
      {"WinHttpGetIEProxyConfigForCurrentUser", {{kNull, ERROR_FILE_NOT_FOUND}, {kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"WinHttpCloseHandle", {}, kOpen},
      {"CertOpenStore", {{kNull, ERROR_ACCESS_DENIED}, {kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"CertFindChainInStore", {}, "it frees the chain that it goes on from, also where it fails: a fake plays that"},
      {"CertNameToStrW", {{1}}},
      {"CertDuplicateCertificateContext", {}, "it adds a reference"},
      {"CertCloseStore", {}, kOpen},
      {"CertFreeCertificateChain", {}, kNoResult},
      {"CertFreeCertificateContext", {}, kOpen},

      // ---- COM and identifiers ----
      Registry("CoInitializeEx", {static_cast<std::uint32_t>(E_OUTOFMEMORY), 0x80010106}),  // RPC_E_CHANGED_MODE
      {"CoUninitialize", {}, kNoResult},
      Registry("UuidCreate", {RPC_S_UUID_NO_ADDRESS, RPC_S_OUT_OF_MEMORY}),
      Registry("UuidToStringW", {RPC_S_OUT_OF_MEMORY}),
      {"RpcStringFreeW", {}, kOpen},

      // ---- texts and time ----
      {"FormatMessageA", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"LocalFree", {}, kOpen},
      {"MultiByteToWideChar", {{kNull, ERROR_NO_UNICODE_TRANSLATION}}},
      {"WideCharToMultiByte", {{kNull, ERROR_NO_UNICODE_TRANSLATION}}},
      {"GetDynamicTimeZoneInformation", {{TIME_ZONE_ID_INVALID, ERROR_NOT_ENOUGH_MEMORY}}},
      {"FileTimeToSystemTime", {{kNull, ERROR_INVALID_PARAMETER}}},
      {"GetProcessTimes", {{kNull, ERROR_ACCESS_DENIED}}},
      {"GetThreadTimes", {{kNull, ERROR_ACCESS_DENIED}}},
      {"GetSystemTimeAdjustment", {{kNull, ERROR_ACCESS_DENIED}}},
      {"SetSystemTime", {{kNull, ERROR_PRIVILEGE_NOT_HELD}}},
      {"GetSystemTimeAsFileTime", {}, kNoResult},
      {"GetTickCount", {}, kValue},
      {"GetTickCount64", {}, kValue},
      {"QueryPerformanceCounter", {}, "no Windows that the library runs on lacks the counter"},
      {"QueryPerformanceFrequency", {}, "no Windows that the library runs on lacks the counter"},

      // ---- errors, exceptions, pages ----
      {"GetLastError", {}, kValue},
      {"SetLastError", {}, kNoResult},
      {"IsProcessorFeaturePresent", {}, kValue},
      {"RaiseException", {}, kUnwinds},
      {"RtlCaptureContext", {}, kUnwinds},
      {"RtlLookupFunctionEntry", {}, kUnwinds},
      {"RtlUnwindEx", {}, kUnwinds},
      {"RtlVirtualUnwind", {}, kUnwinds},
      {"__C_specific_handler", {}, kUnwinds},
      {"VirtualProtect", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
      {"VirtualQuery", {{kNull, ERROR_INVALID_PARAMETER}}},

      // ---- the C runtime ----
      Memory("malloc"),
      Memory("calloc"),
      Memory("realloc"),
      Memory("_strdup"),
      {"HeapAlloc", {{kNull}}, nullptr, true},
      {"HeapFree", {}, kOpen},
      {"GetProcessHeap", {}, kValue},
      {"GlobalFree", {}, kOpen},
      {"free", {}, kNoResult},
      {"_set_new_mode", {}, kValue},
      {"__stdio_common_vsprintf", {{kMinusOne}}},
      {"__stdio_common_vswprintf", {{kMinusOne}}},
      {"__stdio_common_vfprintf", {{kMinusOne}}},
      {"__stdio_common_vfwprintf", {{kMinusOne}}},
      {"fputc", {{kMinusOne}}},
      {"fputs", {{kMinusOne}}},
      {"fwrite", {{0}}},
      {"_read", {{kMinusOne}}},
      {"_write", {{kMinusOne}}},
      {"mbrtowc", {{kMinusOne}}},
      {"wcrtomb", {{kMinusOne}}},
      {"setlocale", {{kNull}}},
      {"getenv", {{kNull}}},
      {"signal", {{kMinusOne}}},
      {"strftime", {{0}}},
      {"wcsftime", {{0}}},
      {"_localtime64_s", {{EINVAL}}},
      {"_gmtime64_s", {{EINVAL}}},
      {"rand_s", {{EINVAL}}},
      {"_configure_narrow_argv", {{EINVAL}}},
      {"_configure_wide_argv", {{EINVAL}}},
      {"_initialize_narrow_environment", {{kMinusOne}}},
      {"_initialize_wide_environment", {{kMinusOne}}},
      {"_initialize_onexit_table", {{kMinusOne}}},
      {"_register_onexit_function", {{kMinusOne}}},
      {"_execute_onexit_table", {{kMinusOne}}},
      {"_crt_atexit", {{kMinusOne}}},
      {"_crt_at_quick_exit", {{kMinusOne}}},
      {"strxfrm", {}, kValue},
      {"wcsxfrm", {}, kValue},
      {"strcoll", {}, kValue},
      {"wcscoll", {}, kValue},
      {"strtol", {}, kValue},
      {"strtoul", {}, kValue},
      {"wcstol", {}, kValue},
      {"_wtoi", {}, kValue},
      {"mbstowcs", {{kMinusOne}}},
      {"strerror", {}, kValue},
      {"memchr", {}, kValue},
      {"memcmp", {}, kValue},
      {"memcpy", {}, kValue},
      {"memmove", {}, kValue},
      {"memset", {}, kValue},
      {"strchr", {}, kValue},
      {"strcmp", {}, kValue},
      {"strlen", {}, kValue},
      {"strncmp", {}, kValue},
      {"wcscmp", {}, kValue},
      {"wcslen", {}, kValue},
      {"iswctype", {}, kValue},
      {"towlower", {}, kValue},
      {"towupper", {}, kValue},
      {"localeconv", {}, kValue},
      {"___lc_codepage_func", {}, kValue},
      {"___mb_cur_max_func", {}, kValue},
      {"_errno", {}, kValue},
      {"__acrt_iob_func", {}, kValue},
      {"__daylight", {}, kValue},
      {"__timezone", {}, kValue},
      {"__tzname", {}, kValue},
      {"__p__environ", {}, kValue},
      {"__p__wenviron", {}, kValue},
      {"__p___argc", {}, kValue},
      {"__p___argv", {}, kValue},
      {"__p___wargv", {}, kValue},
      {"_tzset", {}, kNoResult},
      {"_initterm", {}, kNoResult},
      {"_lock_file", {}, kNoResult},
      {"_unlock_file", {}, kNoResult},
      {"_endthreadex", {}, kEnds},
      {"_exit", {}, kEnds},
      {"abort", {}, kEnds},
      {"exit", {}, kEnds},
      {"longjmp", {}, kEnds},
      {"__intrinsic_setjmpex", {}, kValue},

      // ---- our own modules ----
      {"GetQeLaApiSmart", {}, "it hands out an object, which a register cannot refuse"},
      {"_Z21BuildNewKzVariantListPK10KzvElementjPFPvyE", {{kNull}}},
      {"_ZNK7KzvBase17BuildNewKzVariantEPFPvyE", {{kNull}}},
      {"_ZN9KzvStringC1EPKwS1_j", {}, kNoResult},
      {"_ZNK7KzvView6StringEv", {{kNull}}},
      {"_ZNK7KzvView4ListEv", {{kNull}}},
      {"_ZNK7KzvView4NameEv", {{kNull}}},
      {"_ZNK7KzvViewixEj", {{kNull}}},  // a view of nothing
      {"_Z13getLogManagerv", {}, kValue},
      {"_ZN8LogUtils8LogEventC1EPKciiS2_PNS_10LogManagerEii", {}, kNoResult},
      {"_ZNK8LogUtils8LogEventclEPKcPKwz", {}, kNoResult},
      {"_ZNK8LogUtils8LogEventclEPKcS2_z", {}, kNoResult},
      {"BLFrameworkInit", {{1}}},
      {"BLGetObjectHandle", {{1}}},
      {"BLInvokeMethod", {{1}}},
      {"BLAlloc", {{kNull}}},
      {"BLFree", {}, kNoResult},
      {"BLReleaseObjectHandle", {}, kOpen},
      {"BLFrameworkCleanUp", {}, kNoResult},
  };
  return rules;
}

}  // namespace

const ImportRule* FindImportRule(const std::string& name) {
  static const auto table = [] {
    std::unordered_map<std::string, const ImportRule*> rules;
    for (const ImportRule& rule : Rules()) rules.emplace(rule.name, &rule);
    return rules;
  }();
  const auto found = table.find(name);
  return found == table.end() ? nullptr : found->second;
}

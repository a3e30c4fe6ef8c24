#include "Tests/Support/ImportFailures.h"

#include <winsock2.h>
#include <windows.h>

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
      {"RegCloseKey", {}, kOpen},

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
      {"TlsSetValue", {{kNull, ERROR_NOT_ENOUGH_MEMORY}}},
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
      {"strtoul", {}, kValue},
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

// What the sources that are fuzzed on the building machine want of Windows: its types and the calls that they make, in
// Windows' own words. The calls are in Windows.cpp; what is only declared is never reached from there.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <cwchar>

// NOLINTBEGIN(modernize-use-using,readability-identifier-naming): Windows' names
#define WINAPI
#define CALLBACK
#define TRUE 1
#define FALSE 0

using BOOL = int;
using INT = int;
using UINT = unsigned;
using LONG = std::int32_t;
using LSTATUS = LONG;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using ULONG = std::uint32_t;
using UCHAR = unsigned char;
using BYTE = unsigned char;
using HANDLE = void*;
using LPVOID = void*;
using PCWSTR = const wchar_t*;
using LPCWSTR = const wchar_t*;
using LPWSTR = wchar_t*;
using PWSTR = wchar_t*;
struct HKEY__;
using HKEY = HKEY__*;
using REGSAM = DWORD;

inline constexpr DWORD MAX_PATH = 260;
#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(std::intptr_t{-1}))
#define HKEY_CLASSES_ROOT (reinterpret_cast<HKEY>(std::uintptr_t{0x80000000}))
#define HKEY_CURRENT_USER (reinterpret_cast<HKEY>(std::uintptr_t{0x80000001}))
#define HKEY_LOCAL_MACHINE (reinterpret_cast<HKEY>(std::uintptr_t{0x80000002}))
#define HKEY_USERS (reinterpret_cast<HKEY>(std::uintptr_t{0x80000003}))
inline constexpr REGSAM KEY_QUERY_VALUE = 0x0001, KEY_READ = 0x20019, KEY_WOW64_64KEY = 0x0100;
inline constexpr DWORD REG_NONE = 0, REG_SZ = 1, REG_EXPAND_SZ = 2, REG_BINARY = 3;

inline constexpr DWORD ERROR_SUCCESS = 0, ERROR_INVALID_FUNCTION = 1, ERROR_FILE_NOT_FOUND = 2,
                       ERROR_PATH_NOT_FOUND = 3, ERROR_ACCESS_DENIED = 5, ERROR_INVALID_DATA = 13,
                       ERROR_SHARING_VIOLATION = 32, ERROR_HANDLE_EOF = 38, ERROR_INVALID_PARAMETER = 87,
                       ERROR_BROKEN_PIPE = 109, ERROR_BUFFER_OVERFLOW = 111, ERROR_INSUFFICIENT_BUFFER = 122,
                       ERROR_MOD_NOT_FOUND = 126, ERROR_MORE_DATA = 234, ERROR_NO_UNICODE_TRANSLATION = 1113;
DWORD GetLastError();
void SetLastError(DWORD error);

inline constexpr UINT CP_ACP = 0, CP_UTF8 = 65001;
inline constexpr DWORD MB_ERR_INVALID_CHARS = 8, WC_ERR_INVALID_CHARS = 0x80;
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* from, int bytes, wchar_t* to, int units);
int WideCharToMultiByte(UINT codePage, DWORD flags, const wchar_t* from, int units, char* to, int bytes,
                        const char* defaultChar, BOOL* usedDefault);
inline constexpr DWORD LCMAP_LOWERCASE = 0x100;
#define LOCALE_NAME_INVARIANT L""
int LCMapStringEx(PCWSTR locale, DWORD flags, PCWSTR from, int units, PWSTR to, int room, void*, void*, std::intptr_t);
int _wcsicmp(const wchar_t* left, const wchar_t* right);
// Of a path's own text, which is UTF-8 here.
int _wcsicmp(const char* left, const wchar_t* right);

// Of files, which lie in memory.
union LARGE_INTEGER {
  std::int64_t QuadPart;
};
struct FILETIME {
  DWORD dwLowDateTime, dwHighDateTime;
};
struct SYSTEMTIME {
  WORD wYear, wMonth, wDayOfWeek, wDay, wHour, wMinute, wSecond, wMilliseconds;
};
struct WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  wchar_t cFileName[MAX_PATH];
};
enum FINDEX_INFO_LEVELS { FindExInfoBasic = 1 };
enum FINDEX_SEARCH_OPS { FindExSearchNameMatch };
inline constexpr DWORD GENERIC_READ = 0x80000000, GENERIC_WRITE = 0x40000000, FILE_APPEND_DATA = 4, FILE_SHARE_READ = 1,
                       FILE_SHARE_WRITE = 2, FILE_SHARE_DELETE = 4, CREATE_NEW = 1, CREATE_ALWAYS = 2,
                       OPEN_EXISTING = 3, OPEN_ALWAYS = 4, FILE_ATTRIBUTE_NORMAL = 0x80,
                       FILE_ATTRIBUTE_DIRECTORY = 0x10, FILE_ATTRIBUTE_TEMPORARY = 0x100,
                       FILE_FLAG_SEQUENTIAL_SCAN = 0x08000000, FILE_TYPE_DISK = 1, MOVEFILE_REPLACE_EXISTING = 1,
                       MOVEFILE_WRITE_THROUGH = 8, INVALID_FILE_ATTRIBUTES = 0xffffffff, STD_INPUT_HANDLE = 0xfffffff6,
                       STD_OUTPUT_HANDLE = 0xfffffff5, STD_ERROR_HANDLE = 0xfffffff4;
HANDLE CreateFileW(PCWSTR path, DWORD access, DWORD share, void*, DWORD disposition, DWORD flags, HANDLE);
BOOL ReadFile(HANDLE file, void* to, DWORD bytes, DWORD* read, void*);
BOOL WriteFile(HANDLE file, const void* from, DWORD bytes, DWORD* written, void*);
BOOL FlushFileBuffers(HANDLE file);
BOOL CloseHandle(HANDLE handle);
BOOL GetFileSizeEx(HANDLE file, LARGE_INTEGER* size);
DWORD GetFileType(HANDLE file);
BOOL DeleteFileW(PCWSTR path);
BOOL MoveFileExW(PCWSTR from, PCWSTR to, DWORD flags);
DWORD GetFileAttributesW(PCWSTR path);
HANDLE FindFirstFileExW(PCWSTR pattern, FINDEX_INFO_LEVELS, WIN32_FIND_DATAW*, FINDEX_SEARCH_OPS, void*, DWORD);
BOOL FindNextFileW(HANDLE search, WIN32_FIND_DATAW* found);
BOOL FindClose(HANDLE search);
DWORD GetTempPathW(DWORD units, PWSTR path);
DWORD GetCurrentProcessId();

// Nobody looks at a console.
struct COORD {
  short X, Y;
};
struct CONSOLE_SCREEN_BUFFER_INFO {
  COORD dwSize;
};
inline constexpr DWORD ENABLE_VIRTUAL_TERMINAL_PROCESSING = 4;
HANDLE GetStdHandle(DWORD which);
BOOL SetStdHandle(DWORD which, HANDLE handle);
BOOL GetConsoleMode(HANDLE handle, DWORD* mode);
BOOL SetConsoleMode(HANDLE handle, DWORD mode);
BOOL WriteConsoleW(HANDLE handle, const void* text, DWORD units, DWORD* written, void*);
BOOL GetConsoleScreenBufferInfo(HANDLE handle, CONSOLE_SCREEN_BUFFER_INFO* info);
DWORD GetEnvironmentVariableW(PCWSTR name, PWSTR value, DWORD units);

void GetSystemTime(SYSTEMTIME* time);
void GetLocalTime(SYSTEMTIME* time);
BOOL SystemTimeToFileTime(const SYSTEMTIME* time, FILETIME* file);
BOOL SystemTimeToTzSpecificLocalTime(const void* zone, const SYSTEMTIME* universal, SYSTEMTIME* local);

// The registry is empty.
LSTATUS RegOpenKeyExW(HKEY key, PCWSTR path, DWORD options, REGSAM access, HKEY* opened);
LSTATUS RegQueryValueExW(HKEY key, PCWSTR name, DWORD*, DWORD* type, BYTE* data, DWORD* bytes);
LSTATUS RegCloseKey(HKEY key);

struct UUID {
  unsigned char bytes[16];
};
using GUID = UUID;

inline void SecureZeroMemory(void* memory, std::size_t bytes) {
  std::memset(memory, 0, bytes);
  __asm__ volatile("" : : "r"(memory) : "memory");
}

// Only declared.
struct CRITICAL_SECTION {
  void* unused;
};
void InitializeCriticalSection(CRITICAL_SECTION* section);
void DeleteCriticalSection(CRITICAL_SECTION* section);
void EnterCriticalSection(CRITICAL_SECTION* section);
void LeaveCriticalSection(CRITICAL_SECTION* section);
struct SRWLOCK {
  void* unused;
};
#define SRWLOCK_INIT \
  {                  \
  }
void AcquireSRWLockExclusive(SRWLOCK* lock);
void ReleaseSRWLockExclusive(SRWLOCK* lock);
// NOLINTEND(modernize-use-using,readability-identifier-naming)

// The calls of Windows that the fuzzed sources make, over memory: there are no files, no registry and no console but
// what a target has put there.
#include <windows.h>
// After windows.h.
#include <ws2tcpip.h>
#include <rpc.h>

#include <locale.h>
#include <wctype.h>

#include <algorithm>
#include <cwctype>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "LogLib.h"
#include "Utf.h"

namespace {

DWORD g_error = ERROR_SUCCESS;

BOOL Fail(DWORD error) {
  g_error = error;
  return FALSE;
}

// What Windows answers for a converted text: its length, after it has been copied where it fits.
template <typename Char>
int HandOut(const std::basic_string<Char>& text, Char* to, int room) {
  if (room == 0) return static_cast<int>(text.size());
  if (text.size() > static_cast<std::size_t>(room)) return Fail(ERROR_INSUFFICIENT_BUFFER);
  std::copy(text.begin(), text.end(), to);
  return static_cast<int>(text.size());
}

// A length of -1 means up to the terminator, and with it.
template <typename Char>
std::basic_string_view<Char> TextOf(const Char* text, int length) {
  return length < 0 ? std::basic_string_view<Char>(text, std::basic_string_view<Char>(text).size() + 1)
                    : std::basic_string_view<Char>(text, static_cast<std::size_t>(length));
}

using FileBytes = std::shared_ptr<std::string>;
std::map<std::wstring, FileBytes>& Files() {
  static auto& files = *new std::map<std::wstring, FileBytes>;  // outlives every target's file
  return files;
}

struct OpenFile {
  FileBytes bytes;
  std::size_t at = 0;
};

struct Search {
  std::wstring from;  // that every name begins with
  std::wstring last;  // that was found
};

bool FindNext(Search& search, WIN32_FIND_DATAW& found) {
  auto file = search.last.empty() ? Files().lower_bound(search.from) : Files().upper_bound(search.last);
  for (; file != Files().end() && file->first.starts_with(search.from); ++file) {
    search.last = file->first;
    const std::wstring name = search.last.substr(search.last.find_last_of(L"\\/:") + 1);
    if (name.size() >= std::size(found.cFileName)) continue;
    found.dwFileAttributes = FILE_ATTRIBUTE_NORMAL;
    found.cFileName[name.copy(found.cFileName, name.size())] = L'\0';
    return true;
  }
  return Fail(ERROR_FILE_NOT_FOUND) != FALSE;
}

}  // namespace

DWORD GetLastError() { return g_error; }
void SetLastError(DWORD error) { g_error = error; }

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* from, int bytes, wchar_t* to, int units) {
  if (bytes == 0) return Fail(ERROR_INVALID_PARAMETER);
  const std::string_view text = TextOf(from, bytes);
  if (codePage != CP_UTF8) {
    std::wstring wide;
    for (const char byte : text) wide += static_cast<wchar_t>(static_cast<unsigned char>(byte));
    return HandOut(wide, to, units);
  }
  bool isValid = true;
  const std::wstring wide = Utf::ToWide(text, &isValid);
  if (!isValid && (flags & MB_ERR_INVALID_CHARS) != 0) return Fail(ERROR_NO_UNICODE_TRANSLATION);
  return HandOut(wide, to, units);
}

int WideCharToMultiByte(UINT, DWORD flags, const wchar_t* from, int units, char* to, int bytes, const char*, BOOL*) {
  if (units == 0) return Fail(ERROR_INVALID_PARAMETER);
  bool isValid = true;
  const std::string utf8 = Utf::ToUtf8(TextOf(from, units), &isValid);
  if (!isValid && (flags & WC_ERR_INVALID_CHARS) != 0) return Fail(ERROR_NO_UNICODE_TRANSLATION);
  return HandOut(utf8, to, bytes);
}

// By the letters of all scripts, whatever locale the program has.
int LCMapStringEx(PCWSTR, DWORD, PCWSTR from, int units, PWSTR to, int room, void*, void*, std::intptr_t) {
  std::wstring text(TextOf(from, units));
  static const locale_t kLetters = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  for (wchar_t& unit : text) unit = static_cast<wchar_t>(::towlower_l(unit, kLetters));
  return HandOut(text, to, room);
}

int _wcsicmp(const wchar_t* left, const wchar_t* right) {
  for (; *left != 0 && std::towlower(*left) == std::towlower(*right); ++left, ++right) {
  }
  return static_cast<int>(std::towlower(*left)) - static_cast<int>(std::towlower(*right));
}

int _wcsicmp(const char* left, const wchar_t* right) { return _wcsicmp(Utf::ToWide(left).c_str(), right); }

HANDLE CreateFileW(PCWSTR path, DWORD access, DWORD, void*, DWORD, DWORD, HANDLE) {
  const auto file = Files().find(path);
  if ((access & GENERIC_WRITE) != 0) {
    const auto bytes = std::make_shared<std::string>();
    Files()[path] = bytes;
    return new OpenFile{bytes};
  }
  if (file != Files().end()) return new OpenFile{file->second};
  Fail(ERROR_FILE_NOT_FOUND);
  return INVALID_HANDLE_VALUE;
}

BOOL ReadFile(HANDLE handle, void* to, DWORD bytes, DWORD* read, void*) {
  *read = 0;
  if (handle == nullptr) return TRUE;
  auto& file = *static_cast<OpenFile*>(handle);
  *read = static_cast<DWORD>(std::min<std::size_t>(bytes, file.bytes->size() - file.at));
  file.bytes->copy(static_cast<char*>(to), *read, file.at);
  file.at += *read;
  return TRUE;
}

BOOL WriteFile(HANDLE handle, const void* from, DWORD bytes, DWORD* written, void*) {
  *written = bytes;
  if (handle != nullptr) static_cast<OpenFile*>(handle)->bytes->append(static_cast<const char*>(from), bytes);
  return TRUE;
}

BOOL FlushFileBuffers(HANDLE) { return TRUE; }

BOOL CloseHandle(HANDLE handle) {
  delete static_cast<OpenFile*>(handle);
  return TRUE;
}

BOOL GetFileSizeEx(HANDLE handle, LARGE_INTEGER* size) {
  size->QuadPart = static_cast<std::int64_t>(static_cast<OpenFile*>(handle)->bytes->size());
  return TRUE;
}

DWORD GetFileType(HANDLE) { return FILE_TYPE_DISK; }
BOOL DeleteFileW(PCWSTR path) { return Files().erase(path) != 0 ? TRUE : Fail(ERROR_FILE_NOT_FOUND); }

BOOL MoveFileExW(PCWSTR from, PCWSTR to, DWORD) {
  const auto file = Files().find(from);
  if (file == Files().end()) return Fail(ERROR_FILE_NOT_FOUND);
  const FileBytes bytes = file->second;
  Files().erase(file);
  Files()[to] = bytes;
  return TRUE;
}

DWORD GetFileAttributesW(PCWSTR path) {
  if (Files().contains(path)) return FILE_ATTRIBUTE_NORMAL;
  Fail(ERROR_FILE_NOT_FOUND);
  return INVALID_FILE_ATTRIBUTES;
}

// The pattern ends in its only "*".
HANDLE FindFirstFileExW(PCWSTR pattern, FINDEX_INFO_LEVELS, WIN32_FIND_DATAW* found, FINDEX_SEARCH_OPS, void*, DWORD) {
  std::wstring from = pattern;
  from.pop_back();
  auto search = std::make_unique<Search>(Search{from, {}});
  return FindNext(*search, *found) ? search.release() : INVALID_HANDLE_VALUE;
}

BOOL FindNextFileW(HANDLE search, WIN32_FIND_DATAW* found) {
  return FindNext(*static_cast<Search*>(search), *found) ? TRUE : FALSE;
}

BOOL FindClose(HANDLE search) {
  delete static_cast<Search*>(search);
  return TRUE;
}

DWORD GetTempPathW(DWORD, PWSTR path) {
  path[0] = L'/';
  path[1] = L'\0';
  return 1;
}
DWORD GetCurrentProcessId() { return 1; }

HANDLE GetStdHandle(DWORD) { return nullptr; }
BOOL SetStdHandle(DWORD, HANDLE) { return TRUE; }
BOOL GetConsoleMode(HANDLE, DWORD*) { return FALSE; }
BOOL SetConsoleMode(HANDLE, DWORD) { return FALSE; }
BOOL WriteConsoleW(HANDLE, const void*, DWORD, DWORD*, void*) { return FALSE; }
BOOL GetConsoleScreenBufferInfo(HANDLE, CONSOLE_SCREEN_BUFFER_INFO*) { return FALSE; }
DWORD GetEnvironmentVariableW(PCWSTR, PWSTR, DWORD) { return 0; }

// Always the same time, so that an input always does the same.
void GetSystemTime(SYSTEMTIME* time) { *time = {2025, 11, 5, 21, 2, 44, 6, 736}; }
void GetLocalTime(SYSTEMTIME* time) { GetSystemTime(time); }
BOOL SystemTimeToFileTime(const SYSTEMTIME*, FILETIME* file) {
  *file = {};
  return TRUE;
}
BOOL SystemTimeToTzSpecificLocalTime(const void*, const SYSTEMTIME*, SYSTEMTIME*) { return FALSE; }

LSTATUS RegOpenKeyExW(HKEY, PCWSTR, DWORD, REGSAM, HKEY*) { return static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND); }
LSTATUS RegQueryValueExW(HKEY, PCWSTR, DWORD*, DWORD*, BYTE*, DWORD*) {
  return static_cast<LSTATUS>(ERROR_FILE_NOT_FOUND);
}
LSTATUS RegCloseKey(HKEY) { return ERROR_SUCCESS; }

INT InetPtonW(INT family, PCWSTR text, void* address) {
  std::string narrow;
  for (; *text != 0; ++text) narrow += static_cast<char>(*text < 0x80 ? *text : 0x7f);
  return ::inet_pton(family, narrow.c_str(), address);
}

PCWSTR InetNtopW(INT family, const void* address, PWSTR text, std::size_t units) {
  char narrow[INET6_ADDRSTRLEN];
  ::inet_ntop(family, address, narrow, sizeof narrow);
  const std::string_view written = narrow;
  if (written.size() >= units) return nullptr;
  *std::copy(written.begin(), written.end(), text) = L'\0';
  return text;
}

// Each location gets the same.
LONG UuidCreate(UUID*) { return RPC_S_OK; }
LONG UuidToStringW(const UUID*, RPC_WSTR* text) {
  static wchar_t uuid[] = L"1f0c7f31-0000-4000-8000-00000000abcd";
  *text = reinterpret_cast<RPC_WSTR>(uuid);
  return RPC_S_OK;
}
LONG RpcStringFreeW(RPC_WSTR*) { return RPC_S_OK; }

// Nobody reads the log.
LogUtils::LogEvent::LogEvent(const char* file, int line, int severity, const char* source, LogManager* manager, int,
                             int) noexcept
    : m_file(file), m_line(line), m_severity(severity), m_source(source), m_manager(manager) {
  static_cast<void>(m_file), static_cast<void>(m_line), static_cast<void>(m_severity), static_cast<void>(m_source);
}
void LogUtils::LogEvent::operator()(const char*, const wchar_t*, ...) const noexcept {}
void LogUtils::LogEvent::operator()(const char*, const char*, ...) const noexcept {}
LogUtils::LogManager* getLogManager() noexcept { return nullptr; }

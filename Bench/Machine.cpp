#include "Bench/Machine.h"

#include <objbase.h>

#include <cstring>
#include <utility>

namespace {

constexpr char kManager[] = "_Z13getLogManagerv";
constexpr char kConstruct[] = "_ZN8LogUtils8LogEventC1EPKciiS2_PNS_10LogManagerEii";
constexpr char kWide[] = "_ZNK8LogUtils8LogEventclEPKcPKwz";
constexpr char kNarrow[] = "_ZNK8LogUtils8LogEventclEPKcS2_z";

LogUtils::LogManager* NoManager() { return nullptr; }
void NoEvent(void*, const char*, int, int, const char*, LogUtils::LogManager*, int, int) {}
void NoWideText(const void*, const char*, const wchar_t*, ...) {}
void NoNarrowText(const void*, const char*, const char*, ...) {}

const IP_ADAPTER_ADDRESSES* g_adapters = nullptr;

// The first entry leads to the others, which stay where they are.
ULONG WINAPI QuickAdapters(ULONG, ULONG, void*, IP_ADAPTER_ADDRESSES* buffer, ULONG*) {
  ++callCounts.adapters;
  std::memcpy(buffer, g_adapters, sizeof *buffer);
  return ERROR_SUCCESS;
}

DWORD WINAPI QuickAddressTable(MIB_IPADDRTABLE* table, ULONG*, BOOL) {
  ++callCounts.addressTable;
  table->dwNumEntries = 1;
  table->table[0] = {};
  return NO_ERROR;
}

HRESULT WINAPI QuickComStart(void*, DWORD) {
  ++callCounts.comStarts;
  return S_OK;
}

void WINAPI QuickComEnd() { ++callCounts.comEnds; }

const char* WSAAPI CountedAddressText(INT family, const void* address, char* text, std::size_t size) {
  ++callCounts.addressTexts;
  return ::inet_ntop(family, address, text, size);
}

HKEY const kKey = reinterpret_cast<HKEY>(std::uintptr_t{0xBE4C});
std::vector<std::uint8_t> g_stored;
bool g_hasKey = false;

LSTATUS WINAPI QuickOpen(HKEY, const wchar_t*, DWORD, REGSAM, HKEY* key) {
  ++callCounts.keysOpened;
  *key = g_hasKey ? kKey : nullptr;
  return g_hasKey ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

LSTATUS WINAPI QuickQuery(HKEY, const wchar_t*, DWORD*, DWORD* type, BYTE* data, DWORD* size) {
  if (g_stored.empty()) return ERROR_FILE_NOT_FOUND;
  if (type != nullptr) *type = REG_BINARY;
  if (data != nullptr) std::memcpy(data, g_stored.data(), g_stored.size());
  *size = static_cast<DWORD>(g_stored.size());
  return ERROR_SUCCESS;
}

LSTATUS WINAPI QuickSet(HKEY, const wchar_t*, DWORD, DWORD, const BYTE*, DWORD) {
  ++callCounts.valuesSet;
  return ERROR_SUCCESS;
}

LSTATUS WINAPI QuickFlush(HKEY) {
  ++callCounts.keysFlushed;
  return ERROR_SUCCESS;
}

LSTATUS WINAPI QuickClose(HKEY) {
  ++callCounts.keysClosed;
  return ERROR_SUCCESS;
}

}  // namespace

LogCalls LogCallsOf(HMODULE logLibrary) {
  const auto find = [&]<typename Function>(Function*, const char* name) {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(::GetProcAddress(logLibrary, name)));
  };
  return {find(&NoManager, kManager), find(&NoEvent, kConstruct), find(&NoWideText, kWide),
          find(&NoNarrowText, kNarrow)};
}

LogCalls logCalls = LogCallsOf(::GetModuleHandleW(L"LogLib.dll"));

CallCounts callCounts;

const WindowsCalls windowsCalls = {QuickAdapters, QuickAddressTable, QuickComStart, QuickComEnd, CountedAddressText,
                                   QuickOpen,     QuickSet,          QuickFlush,    QuickClose};

EmptyLog::EmptyLog(HMODULE library) : m_before{logCalls.manager, logCalls.construct, logCalls.wide, logCalls.narrow} {
  m_patches.emplace_back(library, kManager, NoManager);
  m_patches.emplace_back(library, kConstruct, NoEvent);
  m_patches.emplace_back(library, kWide, NoWideText);
  m_patches.emplace_back(library, kNarrow, NoNarrowText);
  logCalls.manager = NoManager;
  logCalls.construct = NoEvent;
  logCalls.wide = NoWideText;
  logCalls.narrow = NoNarrowText;
}

EmptyLog::~EmptyLog() {
  logCalls.manager = m_before.manager;
  logCalls.construct = m_before.construct;
  logCalls.wide = m_before.wide;
  logCalls.narrow = m_before.narrow;
}

QuickRegistry::QuickRegistry(HMODULE library) {
  m_patches.emplace_back(library, "RegOpenKeyExW", QuickOpen);
  m_patches.emplace_back(library, "RegQueryValueExW", QuickQuery);
  m_patches.emplace_back(library, "RegSetValueExW", QuickSet);
  m_patches.emplace_back(library, "RegFlushKey", QuickFlush);
  m_patches.emplace_back(library, "RegCloseKey", QuickClose);
}

QuickRegistry::~QuickRegistry() {
  g_stored.clear();
  g_hasKey = false;
}

void QuickRegistry::Store(std::vector<std::uint8_t> bytes) {
  g_stored = std::move(bytes);
  g_hasKey = !g_stored.empty();
}

void QuickRegistry::MakeKey(bool isThere) { g_hasKey = isThere; }

QuickMachine::QuickMachine(HMODULE library, const AdapterList& adapters) : m_adapters(adapters.Build()) {
  g_adapters = m_adapters.First();
  m_patches.emplace_back(library, "GetAdaptersAddresses", QuickAdapters);
  m_patches.emplace_back(library, "GetIpAddrTable", QuickAddressTable);
  m_patches.emplace_back(library, "CoInitializeEx", QuickComStart);
  m_patches.emplace_back(library, "CoUninitialize", QuickComEnd);
  m_patches.emplace_back(library, "inet_ntop", CountedAddressText);
}

QuickMachine::~QuickMachine() { g_adapters = nullptr; }

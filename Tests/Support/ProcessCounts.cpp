#include "Tests/Support/ProcessCounts.h"

#include <windows.h>
#include <tlhelp32.h>
#include <winternl.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

// GetProcessHandleCount answers 0 under Wine, so the system's list of all handles is counted.
std::size_t CountHandles() {
  struct Entry {
    void* object;
    ULONG_PTR processId;
    HANDLE handle;
    ULONG access;
    USHORT backTrace;
    USHORT type;
    ULONG attributes;
    ULONG reserved;
  };
  struct List {
    ULONG_PTR count;
    ULONG_PTR reserved;
    Entry entries[1];
  };
  constexpr auto kExtendedHandles = static_cast<SYSTEM_INFORMATION_CLASS>(64);
  std::vector<std::uint64_t> buffer(1 << 16);
  ULONG needed = 0;
  while (::NtQuerySystemInformation(kExtendedHandles, buffer.data(), static_cast<ULONG>(buffer.size() * 8), &needed) !=
         0) {
    if (buffer.size() > (1 << 24)) {
      ADD_FAILURE() << "the handles cannot be listed";
      return 0;
    }
    buffer.resize(buffer.size() * 2);
  }
  const auto* list = reinterpret_cast<const List*>(buffer.data());
  std::size_t handles = 0;
  for (ULONG_PTR i = 0; i < list->count; ++i)
    if (list->entries[i].processId == ::GetCurrentProcessId()) ++handles;
  return handles;
}

std::size_t CountThreads() {
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  std::size_t count = 0;
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  for (BOOL more = ::Thread32First(snapshot, &entry); more; more = ::Thread32Next(snapshot, &entry))
    if (entry.th32OwnerProcessID == ::GetCurrentProcessId()) ++count;
  ::CloseHandle(snapshot);
  return count;
}

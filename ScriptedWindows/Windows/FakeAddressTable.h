// The machine's table of IPv4 addresses, as a test sets it.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"

// While it lives, GetIpAddrTable of the module answers from here: with the size that it needs when there is no buffer
// or too small a one. The table and the answers may be changed at any time and from any thread.
class FakeAddressTable : public OnlyOne<FakeAddressTable> {
 public:
  // One address, 127.0.0.1.
  explicit FakeAddressTable(HMODULE module);

  static MIB_IPADDRROW Row(std::uint32_t address, std::uint32_t ifIndex = 1, std::uint32_t mask = 0x00ffffff);

  void Set(std::vector<MIB_IPADDRROW> rows);
  // Another table than any before.
  void Change();

  // The next calls fail with this error; ERROR_SUCCESS ends it.
  void Fail(DWORD error);

  // Called at the start of each call, on its thread, without any lock of this object's.
  void OnCall(std::function<void()> hook);

  std::size_t Calls() const;

 private:
  static DWORD WINAPI GetTable(MIB_IPADDRTABLE* table, ULONG* bytes, BOOL ordered);

  mutable std::mutex m_mutex;
  std::vector<MIB_IPADDRROW> m_rows;
  std::uint32_t m_changes = 0;
  DWORD m_error = NO_ERROR;
  std::function<void()> m_hook;
  std::size_t m_calls = 0;
  ImportPatch m_patch;
};

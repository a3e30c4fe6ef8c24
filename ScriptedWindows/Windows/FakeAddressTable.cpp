#include "ScriptedWindows/Windows/FakeAddressTable.h"

#include <algorithm>
#include <utility>

#include "ScriptedWindows/ImportTable/HeapWatch.h"

namespace {

constexpr std::uint32_t kLoopback = 0x0100007f;

}  // namespace

FakeAddressTable::FakeAddressTable(HMODULE module)
    : m_rows{Row(kLoopback)}, m_patch(module, "GetIpAddrTable", &GetTable) {}

MIB_IPADDRROW FakeAddressTable::Row(std::uint32_t address, std::uint32_t ifIndex, std::uint32_t mask) {
  MIB_IPADDRROW row{};
  row.dwAddr = address;
  row.dwIndex = ifIndex;
  row.dwMask = mask;
  return row;
}

void FakeAddressTable::Set(std::vector<MIB_IPADDRROW> rows) {
  const std::lock_guard lock(m_mutex);
  m_rows = std::move(rows);
}

void FakeAddressTable::Change() {
  const HeapWatch::Pause pause;
  const std::lock_guard lock(m_mutex);
  m_rows = {Row(kLoopback), Row(++m_changes, 2)};
}

void FakeAddressTable::Fail(DWORD error) {
  const std::lock_guard lock(m_mutex);
  m_error = error;
}

void FakeAddressTable::OnCall(std::function<void()> hook) {
  const std::lock_guard lock(m_mutex);
  m_hook = std::move(hook);
}

std::size_t FakeAddressTable::Calls() const {
  const std::lock_guard lock(m_mutex);
  return m_calls;
}

DWORD WINAPI FakeAddressTable::GetTable(MIB_IPADDRTABLE* table, ULONG* bytes, BOOL) {
  FakeAddressTable& self = Current();
  std::function<void()> hook;
  {
    const HeapWatch::Pause pause;
    const std::lock_guard lock(self.m_mutex);
    ++self.m_calls;
    hook = self.m_hook;
  }
  if (hook) hook();

  const std::lock_guard lock(self.m_mutex);
  if (self.m_error != NO_ERROR) return self.m_error;
  // As the system counts: the table's header holds one row already.
  const auto needed = static_cast<ULONG>(sizeof(MIB_IPADDRTABLE) - sizeof(MIB_IPADDRROW) +
                                         std::max<std::size_t>(self.m_rows.size(), 1) * sizeof(MIB_IPADDRROW));
  if (table == nullptr || *bytes < needed) {
    *bytes = needed;
    return ERROR_INSUFFICIENT_BUFFER;
  }
  table->dwNumEntries = static_cast<DWORD>(self.m_rows.size());
  std::copy(self.m_rows.begin(), self.m_rows.end(), table->table);
  *bytes = needed;
  return NO_ERROR;
}

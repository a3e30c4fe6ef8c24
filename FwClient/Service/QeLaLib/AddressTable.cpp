#include "FwClient/Service/QeLaLib/AddressTable.h"

#include <ws2tcpip.h>
#include <iphlpapi.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <new>
#include <utility>

#include "FwClient/Common/Utilities/ScopeGuards.h"

namespace {

// Room for some 40 addresses: most machines need no other buffer.
constexpr std::size_t kFirstBufferBytes = 1024;
// A table that grows between asking for its size and reading it is asked for again.
constexpr int kMaxTries = 5;

AddressTable RowsOf(const MIB_IPADDRTABLE& table) {
  AddressTable read;
  read.rows.reserve(table.dwNumEntries);
  // Not the reassembly size and the type, which may change while the address stays.
  for (DWORD i = 0; i < table.dwNumEntries; ++i)
    read.rows.push_back({table.table[i].dwAddr, table.table[i].dwIndex, table.table[i].dwMask});
  std::sort(read.rows.begin(), read.rows.end());
  read.known = true;
  return read;
}

AddressTable Read() {
  alignas(MIB_IPADDRTABLE) std::array<std::byte, kFirstBufferBytes> first;
  std::vector<MIB_IPADDRROW> larger;  // aligned as the table is
  void* buffer = first.data();
  ULONG bytes = kFirstBufferBytes;
  for (int tries = 0; tries < kMaxTries; ++tries) {
    const DWORD result = ::GetIpAddrTable(static_cast<MIB_IPADDRTABLE*>(buffer), &bytes, FALSE);
    if (result == NO_ERROR) return RowsOf(*static_cast<const MIB_IPADDRTABLE*>(buffer));
    if (result != ERROR_INSUFFICIENT_BUFFER) break;
    larger.resize(bytes / sizeof(MIB_IPADDRROW) + 1);
    buffer = larger.data();
    bytes = static_cast<ULONG>(larger.size() * sizeof(MIB_IPADDRROW));
  }
  return {};
}

}  // namespace

AddressTable ReadAddressTable() noexcept {
  try {
    return Read();
  } catch (const std::bad_alloc&) {
    return {};
  }
}

bool Differ(const AddressTable& left, const AddressTable& right) noexcept {
  return left.known && right.known && left.rows != right.rows;
}

void RememberedAddressTable::Read() noexcept {
  AddressTable table = ReadAddressTable();
  const SlimLockGuard lock(m_lock);
  std::swap(m_table, table);
}

bool RememberedAddressTable::DiffersFromNow() noexcept {
  const AddressTable now = ReadAddressTable();
  const SlimLockGuard lock(m_lock);
  return Differ(m_table, now);
}

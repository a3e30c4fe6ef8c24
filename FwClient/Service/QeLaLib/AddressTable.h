// The machine's IPv4 addresses, as far as needed to see that they have changed.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <compare>
#include <cstdint>
#include <vector>

// One address of one interface.
struct AddressTableRow {
  std::uint32_t address = 0;  // in network order, as the mask
  std::uint32_t ifIndex = 0;
  std::uint32_t mask = 0;

  auto operator<=>(const AddressTableRow&) const = default;
};

struct AddressTable {
  bool known = false;  // false: it could not be read
  std::vector<AddressTableRow> rows;
};

// Asks the system, which answers in microseconds. Any failure, want of memory included, gives an unknown table.
AddressTable ReadAddressTable() noexcept;

// Whether both are known and differ. The order in which the system lists the addresses does not count.
bool Differ(const AddressTable& left, const AddressTable& right) noexcept;

// The table that was read last, shared by the threads that take snapshots and the one that looks whether it still
// holds. Its lock is held for the copy only, so that nobody waits for a calculation.
class RememberedAddressTable {
 public:
  void Read() noexcept;
  bool DiffersFromNow() noexcept;

 private:
  SRWLOCK m_lock = SRWLOCK_INIT;
  AddressTable m_table;
};

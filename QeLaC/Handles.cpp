#include "QeLaC/Handles.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <unordered_map>
#include <utility>

#include "FwClient/Common/Utilities/ScopeGuards.h"

namespace Handles {

namespace {

struct Entry {
  Kind kind;
  std::shared_ptr<void> object;
};

struct Table {
  SRWLOCK lock = SRWLOCK_INIT;
  std::unordered_map<std::uintptr_t, Entry> entries;
  // In steps as wide as a pointer's alignment, from a page on that no process has: a debugger shows at once that it is
  // no address.
  std::uintptr_t next = 0x1000;
};

// Never destroyed: when the process ends, a host may still be in a call.
Table& TheTable() {
  static Table* const table = new Table;
  return *table;
}

}  // namespace

void* Add(Kind kind, std::shared_ptr<void> object) {
  Table& table = TheTable();
  const SlimLockGuard lock(table.lock);
  table.entries.emplace(table.next, Entry{kind, std::move(object)});
  return reinterpret_cast<void*>(std::exchange(table.next, table.next + sizeof(void*)));
}

std::shared_ptr<void> Find(Kind kind, const void* handle) noexcept try {
  Table& table = TheTable();
  const SlimLockGuard lock(table.lock);
  const auto entry = table.entries.find(reinterpret_cast<std::uintptr_t>(handle));
  return entry == table.entries.end() || entry->second.kind != kind ? nullptr : entry->second.object;
} catch (...) {
  return nullptr;  // no memory for the table: then nothing is in it
}

std::shared_ptr<void> Remove(Kind kind, const void* handle) noexcept try {
  Table& table = TheTable();
  const SlimLockGuard lock(table.lock);
  const auto entry = table.entries.find(reinterpret_cast<std::uintptr_t>(handle));
  if (entry == table.entries.end() || entry->second.kind != kind) return nullptr;
  std::shared_ptr<void> object = std::move(entry->second.object);
  table.entries.erase(entry);
  return object;
} catch (...) {
  return nullptr;
}

}  // namespace Handles

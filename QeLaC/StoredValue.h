// The registry value that holds the stored set, and the news that it has changed.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>
#include <optional>
#include <vector>

#include "FwClient/Common/Utilities/UniqueHandle.h"

// Its bytes: none when there is no such value; nothing when it cannot be read now, so that it is not known. Throws
// std::bad_alloc.
using StoredValue = std::optional<std::vector<std::uint8_t>>;
StoredValue ReadStoredValue();

// Signals an event at every change of the value, its making and its removal included, whether or not its key exists.
// The thread that arms it must live as long as it.
class StoredValueWatch {
 public:
  StoredValueWatch() noexcept : m_event(::CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

  // Null when Windows gave none; then it is never armed.
  HANDLE Event() const noexcept { return m_event.get(); }

  // Resets the event and asks for the next change. What changed before is not told any more: read the value afterwards.
  // False when Windows refuses it.
  bool Arm() noexcept;

 private:
  UniqueKernelHandle m_event;
  UniqueRegKey m_key;
  UniqueRegKey m_parent;
};

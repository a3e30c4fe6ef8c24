#include "QeLaC/Service.h"

#include <algorithm>
#include <mutex>
#include <utility>

namespace {

// How the stored form begins: a record whose one field is the collection.
constexpr std::uint8_t kRecordOfOne = 0x91;

}  // namespace

Service::Service(Library& library, const qela_options& options, StoredValue seen)
    : m_library(library),
      m_callTimeoutMs(options.call_timeout_ms == 0 ? QELA_DEFAULT_CALL_TIMEOUT_MS : options.call_timeout_ms),
      m_quietMs(options.quiet_ms),
      m_autoSave((options.flags & QELA_OPEN_AUTO_SAVE) != 0),
      m_reload((options.flags & QELA_OPEN_NO_RELOAD) == 0),
      m_seen(std::move(seen)) {}

void Service::Retain() noexcept {
  const std::lock_guard lock(m_control);
  ++m_owners;
}

qela_status Service::Close(bool& last) {
  last = false;
  {
    const std::lock_guard lock(m_control);
    if (m_owners > 1) {
      --m_owners;
      return QELA_STATUS_OK;
    }
  }
  if (const qela_status status = Stop(); status != QELA_STATUS_OK && status != QELA_STATUS_NOT_STARTED) return status;
  while (Lock().LeaveForHost()) {
  }
  last = true;
  return QELA_STATUS_OK;
}

qela_status Service::Load() {
  StoredValue stored = ReadStoredValue();
  const bool isStored = stored && !stored->empty();
  const bool loaded = Api().Load();
  TellWorker();
  if (!loaded) return isStored ? QELA_STATUS_BAD_DATA : QELA_STATUS_NOT_FOUND;
  m_seen = std::move(stored);
  m_hasUnsavedEdits = false;
  return QELA_STATUS_OK;
}

qela_status Service::Save() {
  const bool saved = Api().Save();
  TellWorker();
  if (!saved) return QELA_STATUS_NOT_SAVED;
  m_hasUnsavedEdits = false;
  try {
    // What stands there already need not be read again. If somebody else's value stands there, it is news.
    StoredValue stored = ReadStoredValue();
    if (IsStored(stored)) m_seen = std::move(stored);
  } catch (const std::bad_alloc&) {  // then it is read again
  }
  return QELA_STATUS_OK;
}

qela_status Service::Edited() {
  m_hasUnsavedEdits = true;
  return m_autoSave ? Save() : QELA_STATUS_OK;
}

bool Service::ReloadIfChangedByOthers() {
  if (!m_reload || m_hasUnsavedEdits) return true;
  StoredValue stored = ReadStoredValue();
  if (!stored) return false;
  if (stored == m_seen) return true;
  // Before it is read: a value that is bad is told of once, not at every look.
  m_seen = std::move(stored);
  if (!m_seen->empty()) Api().Load();
  return true;
}

bool Service::IsStored(const StoredValue& value) {
  std::vector<std::uint8_t> set;
  return value && !value->empty() && value->front() == kRecordOfOne && Api().GetLocations()->SerializeToBytes(set) &&
         std::equal(value->begin() + 1, value->end(), set.begin(), set.end());
}

#include "QeLaC/StoredValue.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

namespace {

// From the key of the value up to one that every Windows has.
constexpr const wchar_t* kKeys[] = {L"SOFTWARE\\Corvane\\Tessel\\Firewall\\LA", L"SOFTWARE\\Corvane\\Tessel\\Firewall",
                                    L"SOFTWARE\\Corvane\\Tessel", L"SOFTWARE\\Corvane", L"SOFTWARE"};
constexpr wchar_t kValue[] = L"la";

// Keys come and go while they are looked for; who never finds one twice gives up and tries later.
constexpr int kTries = 10;

LSTATUS Open(const wchar_t* path, UniqueRegKey& key) noexcept {
  return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_NOTIFY, key.put());
}

// The event is signalled once, at the next change.
LSTATUS Request(const UniqueRegKey& key, DWORD filter, HANDLE event) noexcept {
  return ::RegNotifyChangeKeyValue(key.get(), FALSE, filter, event, TRUE);
}

}  // namespace

StoredValue ReadStoredValue() {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < kTries; ++i) {
    auto size = static_cast<DWORD>(bytes.size());
    const LSTATUS status = ::RegGetValueW(HKEY_LOCAL_MACHINE, kKeys[0], kValue, RRF_RT_REG_BINARY, nullptr,
                                          bytes.empty() ? nullptr : bytes.data(), &size);
    if (status == ERROR_SUCCESS && (size == 0 || !bytes.empty())) {
      bytes.resize(size);
      return bytes;
    }
    if (status == ERROR_FILE_NOT_FOUND || status == ERROR_PATH_NOT_FOUND || status == ERROR_UNSUPPORTED_TYPE)
      return std::vector<std::uint8_t>();
    if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) break;
    bytes.resize(size);
  }
  return std::nullopt;
}

// Of the deepest key that there is, and of the one above it: a key's own removal is told to whoever watches the one
// above.
bool StoredValueWatch::Arm() noexcept {
  if (!m_event) return false;
  for (int i = 0; i < kTries; ++i) {
    // Closing signals the event where a request still pends.
    m_key.reset();
    m_parent.reset();
    ::ResetEvent(m_event.get());
    const auto* const path = std::find_if(std::begin(kKeys), std::end(kKeys), [&](const wchar_t* candidate) {
      return Open(candidate, m_key) == ERROR_SUCCESS;
    });
    if (path == std::end(kKeys)) return false;
    const bool isKeyOfValue = path == std::begin(kKeys);
    const auto* const parent = path + 1;
    LSTATUS status = ERROR_SUCCESS;
    if (parent != std::end(kKeys)) {
      status = Open(*parent, m_parent);
      if (status == ERROR_SUCCESS) status = Request(m_parent, REG_NOTIFY_CHANGE_NAME, m_event.get());
    }
    // From here on the removal of the key is told; the one found above may have been removed and made anew before.
    if (status == ERROR_SUCCESS) status = Open(*path, m_key);
    if (status == ERROR_SUCCESS)
      status = Request(m_key, isKeyOfValue ? REG_NOTIFY_CHANGE_LAST_SET : REG_NOTIFY_CHANGE_NAME, m_event.get());
    if (status == ERROR_KEY_DELETED || status == ERROR_FILE_NOT_FOUND) continue;
    if (status != ERROR_SUCCESS) break;
    // A key that was made before it was asked for, nobody was told of.
    UniqueRegKey made;
    if (isKeyOfValue || Open(path[-1], made) != ERROR_SUCCESS) return true;
  }
  m_key.reset();
  m_parent.reset();
  return false;
}

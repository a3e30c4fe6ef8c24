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

bool Exists(const wchar_t* path) noexcept {
  UniqueRegKey key;
  return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, path, 0, KEY_NOTIFY, key.put()) == ERROR_SUCCESS;
}

}  // namespace

std::vector<std::uint8_t> ReadStoredValue() {
  std::vector<std::uint8_t> bytes;
  for (int i = 0; i < kTries; ++i) {
    auto size = static_cast<DWORD>(bytes.size());
    const LSTATUS status = ::RegGetValueW(HKEY_LOCAL_MACHINE, kKeys[0], kValue, RRF_RT_REG_BINARY, nullptr,
                                          bytes.empty() ? nullptr : bytes.data(), &size);
    if (status == ERROR_SUCCESS && (size == 0 || !bytes.empty())) {
      bytes.resize(size);
      return bytes;
    }
    if (status != ERROR_SUCCESS && status != ERROR_MORE_DATA) break;
    bytes.resize(size);
  }
  return {};
}

bool StoredValueWatch::Arm() noexcept {
  if (!m_event) return false;
  for (int i = 0; i < kTries; ++i) {
    m_key.reset();  // which signals the event when a request still pends
    ::ResetEvent(m_event.get());
    const auto* const path = std::find_if(std::begin(kKeys), std::end(kKeys), [&](const wchar_t* candidate) {
      return ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, candidate, 0, KEY_NOTIFY, m_key.put()) == ERROR_SUCCESS;
    });
    if (path == std::end(kKeys)) return false;
    // A key's own removal is told as well. Of a key above it only the names below count.
    const DWORD filter = REG_NOTIFY_CHANGE_NAME | (path == std::begin(kKeys) ? REG_NOTIFY_CHANGE_LAST_SET : 0);
    const LSTATUS status = ::RegNotifyChangeKeyValue(m_key.get(), FALSE, filter, m_event.get(), TRUE);
    if (status == ERROR_KEY_DELETED) continue;
    if (status != ERROR_SUCCESS) break;
    // A key that was made before the request, nobody was told of.
    if (path == std::begin(kKeys) || !Exists(path[-1])) return true;
  }
  m_key.reset();
  return false;
}

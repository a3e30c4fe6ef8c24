#include "StoredSet.h"

#include <string>
#include <string_view>

#include "CommandError.h"
#include "FwClient/Service/QeLaLib/LaRegistry.h"
#include "FwClient/Service/QeLaLib/StoredSetRecord.h"

namespace {

constexpr wchar_t kFormerValue[] = L"la.former";
constexpr const char* kValueInWords = R"("la" in HKEY_LOCAL_MACHINE\SOFTWARE\Corvane\Tessel\Firewall\LA)";

StoredValue ReadValue(const wchar_t* name) {
  StoredValue value;
  UniqueRegKey key;
  value.status = ::RegOpenKeyExW(HKEY_LOCAL_MACHINE, kLaKey, 0, KEY_QUERY_VALUE, key.put());
  DWORD size = 0;
  if (value.status == ERROR_SUCCESS)
    value.status = ::RegQueryValueExW(key.get(), name, nullptr, &value.type, nullptr, &size);
  while (value.status == ERROR_SUCCESS) {
    value.bytes.resize(size);
    value.status = ::RegQueryValueExW(key.get(), name, nullptr, &value.type, value.bytes.data(), &size);
    if (value.status == ERROR_SUCCESS) {
      value.bytes.resize(size);
      break;
    }
    if (value.status == ERROR_MORE_DATA) value.status = ERROR_SUCCESS;  // it has grown in between
  }
  return value;
}

void Write(const wchar_t* name, const std::vector<std::uint8_t>& bytes) {
  const unsigned long error = WriteLaValue(kLaKey, name, bytes);
  if (error == ERROR_SUCCESS) return;
  // Flushing comes after writing.
  if (std::wstring_view(name) == kLaValue && ReadValue(name) == StoredValue{ERROR_SUCCESS, REG_BINARY, bytes})
    throw CommandError(kFailed, std::string("the locations are in place in the value ") + kValueInWords +
                                    ", but Windows did not bring them to the disk (error " + std::to_string(error) +
                                    "): they are lost if the machine fails now.");
  throw CommandError(kFailed, std::string("the locations could not be saved to the value ") + kValueInWords +
                                  " (error " + std::to_string(error) +
                                  "). Writing there needs an administrator's rights. Nothing was changed.");
}

}  // namespace

StoredValue ReadStoredValue() { return ReadValue(kLaValue); }

LocationSet LocationsIn(const StoredValue& value) {
  if (value.IsAbsent()) return {};
  std::string reason = "it is damaged, or another program's";
  if (value.status != ERROR_SUCCESS) {
    reason = "Windows refuses it with error " + std::to_string(value.status);
  } else if (value.type == REG_BINARY) {
    try {
      return DecodeSet(value.bytes);
    } catch (const CommandError&) {
    }
  }
  throw CommandError(kUnreadableSet, std::string("a location set is stored but cannot be read (the value ") +
                                         kValueInWords + "): " + reason + ". Nothing was changed.");
}

StoredSetEdit::StoredSetEdit() : m_mutex(::CreateMutexW(nullptr, FALSE, L"Global\\qela location edit")) {
  constexpr DWORD kWaitMs = 60'000;
  const DWORD result = ::WaitForSingleObject(m_mutex.get(), kWaitMs);
  if (result != WAIT_OBJECT_0 && result != WAIT_ABANDONED)
    throw CommandError(kFailed, "another qela is changing the locations. Nothing was changed; run the command again.");
  try {
    m_read = ReadStoredValue();
    locations = LocationsIn(m_read);
  } catch (...) {
    ::ReleaseMutex(m_mutex.get());
    throw;
  }
}

StoredSetEdit::~StoredSetEdit() { ::ReleaseMutex(m_mutex.get()); }

void StoredSetEdit::Save() {
  const std::vector<std::uint8_t> bytes = EncodeSet(locations);
  if (ReadStoredValue() != m_read)
    throw CommandError(
        kFailed,
        "the stored locations were changed by another program meanwhile. Nothing was saved; run the command again.");
  // A set that was never there reads as an empty one, which is what taking back the first edit comes to.
  Write(kFormerValue, m_read.IsAbsent() ? EncodeSet({}) : m_read.bytes);
  Write(kLaValue, bytes);
}

LocationSet StoredSetEdit::Former() {
  const StoredValue former = ReadValue(kFormerValue);
  if (former.IsAbsent()) throw CommandError(kFailed, "no former set is kept: qela has changed nothing here yet");
  return LocationsIn(former);
}

#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"

#include <string_view>
#include <vector>

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Common/Utilities/RegistryText.h"
#include "FwClient/Common/Utilities/SplitFields.h"
#include "FwClient/Common/Utilities/ThreadIdentity.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"

namespace {

struct HiveName {
  std::wstring_view name;
  HKEY hive;
};

// Null for any other name. Short forms and other cases are not names: what an administrator has not written exactly
// must not be taken for something else.
HKEY HiveOf(std::wstring_view text) noexcept {
  const HiveName hives[] = {
      {L"HKEY_LOCAL_MACHINE", HKEY_LOCAL_MACHINE},
      {L"HKEY_CLASSES_ROOT", HKEY_CLASSES_ROOT},
      {L"HKEY_CURRENT_USER", HKEY_CURRENT_USER},
      {L"HKEY_USERS", HKEY_USERS},
  };
  for (const HiveName& hive : hives)
    if (hive.name == text) return hive.hive;
  return nullptr;
}

UniqueRegKey OpenKey(const RegistryKeyCriterion& criterion) noexcept {
  UniqueRegKey key;
  const wchar_t* const subkey = criterion.subkey.c_str();
  if (::RegOpenKeyExW(criterion.hive, subkey, 0, KEY_READ, key.put()) == ERROR_SUCCESS) return key;
  // Logged although the second try may succeed: it tells which view the key was not in.
  FW_LOG(kLogInfo, L"The registry key %s specified for the location does not exist.", subkey);
  if (::RegOpenKeyExW(criterion.hive, subkey, 0, KEY_READ | KEY_WOW64_64KEY, key.put()) == ERROR_SUCCESS) return key;
  FW_LOG(kLogInfo, L"The registry key %s specified for the location does not exist in KEY_WOW64_64KEY.", subkey);
  return {};
}

// A value that is not terminated, or that has half a character, is not a text.
bool IsText(const RegistryText& value) noexcept {
  return (value.Type() == REG_SZ || value.Type() == REG_EXPAND_SZ) && value.IsWellFormed();
}

// Any value of four bytes is a number, whatever its type.
bool ReadNumber(HKEY key, const wchar_t* valueName, DWORD& number) noexcept {
  DWORD bytes = sizeof number;
  const LSTATUS status = ::RegQueryValueExW(key, valueName, nullptr, nullptr, reinterpret_cast<BYTE*>(&number), &bytes);
  return status == ERROR_SUCCESS && bytes == sizeof number;
}

// The value as text, up to its first NUL; nothing when it can be read neither as a text nor as a number.
std::optional<std::wstring> ReadValue(HKEY key, const std::wstring& valueName) {
  RegistryText text;
  if (text.Read(key, valueName.c_str()) && IsText(text)) return text.Get();
  FW_LOG(kLogInfo, L"Unable to find the string value in the registry for %s.", valueName.c_str());
  DWORD number = 0;
  if (ReadNumber(key, valueName.c_str(), number)) return std::to_wstring(number);
  FW_LOG(kLogInfo, L"Unable to find the DWORD value in the registry for %s.", valueName.c_str());
  return std::nullopt;
}

}  // namespace

std::optional<RegistryKeyCriterion> ParseRegistryKeyCriterion(const std::wstring& text) {
  const std::vector<std::wstring_view> fields = SplitFields(text, L'=');
  if (fields.empty() || fields.size() > 2) return std::nullopt;
  const std::wstring_view keyText = fields[0];
  const std::wstring_view data = fields.size() == 2 ? fields[1] : std::wstring_view();

  const std::size_t first = keyText.find(L'\\');
  if (first == std::wstring_view::npos) return std::nullopt;
  const std::size_t last = keyText.rfind(L'\\');
  HKEY hive = HiveOf(keyText.substr(0, first));
  if (hive == nullptr) return std::nullopt;
  // With one backslash, first and last are the same: there is no path between them.
  const std::wstring_view subkey = last > first ? keyText.substr(first + 1, last - first - 1) : std::wstring_view();
  return RegistryKeyCriterion{hive, std::wstring(subkey), std::wstring(keyText.substr(last + 1)), std::wstring(data)};
}

std::uint32_t IsRegistryKeyCriterionMet(const std::wstring& text) {
  // As a user the thread would be shown that user's part of the registry, or be refused.
  if (!ThreadActsAsItself()) return 0;
  const std::optional<RegistryKeyCriterion> criterion = ParseRegistryKeyCriterion(text);
  if (!criterion.has_value()) return 0;
  const UniqueRegKey key = OpenKey(*criterion);
  if (!key) return 0;
  if (criterion->IsExistenceOnly()) {
    FW_LOG(kLogInfo, L"Checking only for existence of the registry key and not the registry value/data.");
    return 1;
  }
  const std::optional<std::wstring> value = ReadValue(key.get(), criterion->valueName);
  if (!value.has_value()) return 0;
  if (*value != criterion->data) {
    FW_LOG(kLogInfo, L"The registry value %s does NOT match the specified location awareness group value of %s.",
           criterion->valueName.c_str(), value->c_str());
    return 0;
  }
  FW_LOG(kLogInfo, L"The registry value %s matches the specified location awareness group value of %s.",
         criterion->valueName.c_str(), value->c_str());
  return 1;
}

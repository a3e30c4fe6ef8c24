// A registry criterion and the value that is found for it, against the rules step by step. The registry is scripted: it
// answers with any bytes of any type.
#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/RegistryKeyCriterion.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/FuzzText.h"

namespace {

struct ScriptedValue {
  std::uint8_t opens = 0;  // 0: in the default view; 1: in the 64-bit view; else in none
  DWORD type = REG_NONE;
  std::vector<std::uint8_t> data;
  bool isThere = true;
  int keys = 0;  // that are open
  HKEY hive = nullptr;
  std::wstring subkey, valueName;
};
ScriptedValue g_value;
HKEY const kKey = reinterpret_cast<HKEY>(std::uintptr_t{0x4B4B});

LSTATUS WINAPI Open(HKEY hive, const wchar_t* subkey, DWORD options, REGSAM access, HKEY* key) {
  if (options != 0 || (access != KEY_READ && access != (KEY_READ | KEY_WOW64_64KEY)))
    FuzzFail("a key is opened for more than reading");
  if (g_value.opens != ((access & KEY_WOW64_64KEY) != 0 ? 1 : 0)) return ERROR_FILE_NOT_FOUND;
  g_value.hive = hive;
  g_value.subkey = subkey;
  ++g_value.keys;
  *key = kKey;
  return ERROR_SUCCESS;
}

LSTATUS WINAPI Query(HKEY key, const wchar_t* name, DWORD* reserved, DWORD* type, BYTE* data, DWORD* bytes) {
  if (key != kKey || g_value.keys != 1 || reserved != nullptr || data == nullptr)
    FuzzFail("a value is asked for in a way that Windows does not know");
  g_value.valueName = name;
  if (!g_value.isThere) return ERROR_FILE_NOT_FOUND;
  if (type != nullptr) *type = g_value.type;
  const auto size = static_cast<DWORD>(g_value.data.size());
  const bool fits = size <= *bytes;
  *bytes = size;
  if (!fits) return ERROR_MORE_DATA;
  std::copy(g_value.data.begin(), g_value.data.end(), data);
  return ERROR_SUCCESS;
}

LSTATUS WINAPI Close(HKEY key) {
  if (key != kKey || --g_value.keys != 0) FuzzFail("a key is closed that is not open");
  return ERROR_SUCCESS;
}

std::wstring UpToNul(const std::wstring& text) { return text.substr(0, text.find(L'\0')); }

struct Parts {
  HKEY hive = nullptr;
  std::wstring subkey, valueName, data;
};

// A character at a time: "hive\subkey\value name=data".
std::optional<Parts> Parse(const std::wstring& text) {
  std::vector<std::wstring> fields(1);
  for (const wchar_t character : text) {
    if (character == L'=')
      fields.emplace_back();
    else
      fields.back() += character;
  }
  if (fields.back().empty()) fields.pop_back();  // nothing follows a delimiter at the end
  if (fields.empty() || fields.size() > 2) return std::nullopt;
  std::vector<std::wstring> names(1);
  for (const wchar_t character : fields[0]) {
    if (character == L'\\')
      names.emplace_back();
    else
      names.back() += character;
  }
  if (names.size() < 2) return std::nullopt;
  Parts parts;
  if (names.front() == L"HKEY_LOCAL_MACHINE")
    parts.hive = HKEY_LOCAL_MACHINE;
  else if (names.front() == L"HKEY_CLASSES_ROOT")
    parts.hive = HKEY_CLASSES_ROOT;
  else if (names.front() == L"HKEY_CURRENT_USER")
    parts.hive = HKEY_CURRENT_USER;
  else if (names.front() == L"HKEY_USERS")
    parts.hive = HKEY_USERS;
  else
    return std::nullopt;
  for (std::size_t i = 1; i + 1 < names.size(); ++i) parts.subkey += (i > 1 ? L"\\" : L"") + names[i];
  parts.valueName = names.back();
  if (fields.size() == 2) parts.data = fields[1];
  return parts;
}

bool IsMet(const Parts& parts) {
  constexpr std::size_t kMostBytes = 520;
  const std::vector<std::uint8_t>& data = g_value.data;
  if (g_value.opens > 1) return false;
  if (parts.valueName.empty() && parts.data.empty()) return true;
  if (!g_value.isThere) return false;
  const bool isWhole =
      data.size() % 2 == 0 && (data.empty() || (data[data.size() - 1] == 0 && data[data.size() - 2] == 0));
  if ((g_value.type == REG_SZ || g_value.type == REG_EXPAND_SZ) && isWhole && data.size() <= kMostBytes) {
    std::wstring text(data.size() / 2, L'\0');
    std::memcpy(text.data(), data.data(), data.size());
    return UpToNul(text) == parts.data;
  }
  if (data.size() != 4) return false;
  const std::uint32_t number =
      data[0] | std::uint32_t{data[1]} << 8 | std::uint32_t{data[2]} << 16 | std::uint32_t{data[3]} << 24;
  return std::to_wstring(number) == parts.data;
}

// The criterion up to a NUL; then how the key opens, the value's type, and its data.
void Run(FuzzInput input) {
  static const ImportPatch open(ThisProgram(), "RegOpenKeyExW", &Open);
  static const ImportPatch query(ThisProgram(), "RegQueryValueExW", &Query);
  static const ImportPatch close(ThisProgram(), "RegCloseKey", &Close);
  const FuzzPair pair = FuzzCut(input, 0);
  const std::wstring text = FuzzText(pair.first);
  FuzzChoices choices(pair.second);
  g_value = {};
  g_value.isThere = !choices.Empty();
  g_value.opens = choices.Byte() % 4;
  g_value.type = choices.Byte() % 12;
  const FuzzInput data = choices.Rest();
  g_value.data.assign(data.begin(), data.end());

  const std::optional<RegistryKeyCriterion> criterion = ParseRegistryKeyCriterion(text);
  const std::optional<Parts> expected = Parse(text);
  if (criterion.has_value() != expected.has_value())
    FuzzFail(criterion ? "a malformed criterion is taken" : "a criterion is refused");
  if (criterion && (criterion->hive != expected->hive || criterion->subkey != expected->subkey ||
                    criterion->valueName != expected->valueName || criterion->data != expected->data))
    FuzzFail("a criterion has other parts");

  const std::uint32_t isMet = IsRegistryKeyCriterionMet(text);
  if (g_value.keys != 0) FuzzFail("a key is left open");
  if (!expected) {
    if (isMet != 0 || g_value.hive != nullptr) FuzzFail("a malformed criterion is looked for");
    return FuzzKind(0);
  }
  if (isMet != (IsMet(*expected) ? 1u : 0u)) FuzzFail("it is told wrongly whether a criterion is met");
  if (g_value.hive != nullptr && (g_value.hive != expected->hive || g_value.subkey != UpToNul(expected->subkey)))
    FuzzFail("another key is opened");
  if (!g_value.valueName.empty() && g_value.valueName != UpToNul(expected->valueName))
    FuzzFail("another value is asked for");
  FuzzKind(1 + isMet + 2 * g_value.opens + 8 * g_value.type +
           128 * static_cast<std::uint32_t>(std::min<std::size_t>(g_value.data.size(), 523) / 4));
  g_value = {};
}

const FuzzTarget g_target("registry", Run,
                          {"HKEY_LOCAL_MACHINE\\", "HKEY_CLASSES_ROOT\\", "HKEY_CURRENT_USER\\", "HKEY_USERS\\", "\\",
                           "=", "\\\\", "==", "SOFTWARE", "Office", "4294967295", "\xc0\x00\x00"});

}  // namespace

// A location's criteria, edited value by value, against lists that are kept by the rules.
#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cwchar>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/CriteriaValue.h"
#include "FwClient/Service/QeLaLib/QeLocation.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/FuzzText.h"

namespace {

// Step by step: the lower-cased text, its fields of four characters in front, two bytes of each, and the prefix.
std::wstring Normalized(const std::wstring& value) {
  std::wstring lower = value;
  for (wchar_t& character : lower)
    if (character < 0x80) character = static_cast<wchar_t>(std::tolower(character));
  std::vector<unsigned> bytes;
  for (std::size_t start = 0; start < lower.size();) {
    const std::wstring field = lower.substr(start, lower.find(L':', start) - start);
    if (field.size() != 4) break;
    bytes.push_back(static_cast<unsigned>(std::wcstol(field.substr(0, 2).c_str(), nullptr, 16)) & 0xff);
    bytes.push_back(static_cast<unsigned>(std::wcstol(field.substr(2).c_str(), nullptr, 16)) & 0xff);
    start += field.size() + 1;
  }
  if (bytes.size() != 16 || lower.substr(0, 30) != L"0000:0000:0000:0000:0000:ffff:") return value;
  return std::to_wstring(bytes[12]) + L"." + std::to_wstring(bytes[13]) + L"." + std::to_wstring(bytes[14]) + L"." +
         std::to_wstring(bytes[15]);
}

struct Entry {
  std::uint32_t kind;
  std::wstring value;
  bool operator==(const Entry&) const = default;
};

// What a set is to hold, in the order of adding. The kind without a text is an entry with an empty one.
class Model {
 public:
  std::uint32_t Add(std::uint32_t kind, const std::wstring& value) {
    if (kind > LCT_ZELT_REACHABLE) return LCR_INVALID_KIND;
    const Entry entry = EntryOf(kind, value);
    if (std::find(m_entries.begin(), m_entries.end(), entry) != m_entries.end()) return LCR_ALREADY_PRESENT;
    m_entries.push_back(entry);
    return LCR_OK;
  }
  std::uint32_t Remove(std::uint32_t kind, const std::wstring& value) {
    if (kind > LCT_ZELT_REACHABLE) return LCR_INVALID_KIND;
    const auto entry = std::find(m_entries.begin(), m_entries.end(), EntryOf(kind, value));
    if (entry == m_entries.end()) return LCR_NOT_FOUND;
    m_entries.erase(entry);
    return LCR_OK;
  }
  void Clear() { m_entries.clear(); }
  std::vector<Entry> InOrder() const {
    std::vector<Entry> entries = m_entries;
    std::stable_sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.kind < b.kind; });
    return entries;
  }

 private:
  static Entry EntryOf(std::uint32_t kind, const std::wstring& value) {
    return {kind, kind == LCT_ZELT_REACHABLE ? std::wstring() : Normalized(value)};
  }
  std::vector<Entry> m_entries;
};

std::vector<Entry> EntriesOf(const _IEnumQeLocationCriterias& criterias) {
  std::vector<Entry> entries;
  LOCATION_CRITERIA_TYPE kind{};
  std::wstring value;
  for (std::size_t i = 0; criterias.GetAt(i, kind, value); ++i)
    entries.push_back({static_cast<std::uint32_t>(kind), kind == LCT_ZELT_REACHABLE ? std::wstring() : value});
  if (entries.size() != criterias.GetCount()) FuzzFail("the set has not as many entries as it says");
  return entries;
}

// Lines, each of what is done ("+" adds, "-" removes, "!" clears), a digit that is the kind, and the value.
void Run(FuzzInput input) {
  CQeLocation location;
  Model model;
  std::uint32_t results = 0;
  for (FuzzPair cut = FuzzCut(input, '\n'); !cut.first.empty() || !cut.second.empty();
       cut = FuzzCut(cut.second, '\n')) {
    FuzzChoices choices(cut.first);
    const std::uint8_t what = choices.Byte();
    const std::uint32_t number = static_cast<std::uint32_t>(choices.Byte()) - '0';
    const auto kind = static_cast<LOCATION_CRITERIA_TYPE>(number);
    const std::wstring value = FuzzText(choices.Rest());

    const std::wstring normal = NormalizeCriteriaValue(value);
    if (normal != Normalized(value)) FuzzFail("a value has another normal form");
    if (NormalizeCriteriaValue(normal) != normal) FuzzFail("a normal form has another one");
    if (IsNormalCriteriaValue(value) != (normal == value)) FuzzFail("it is not told whether a value is in normal form");
    std::uint32_t result = 0, expected = 0;
    if (what == '-') {
      result = location.RemoveCriteria(&kind, value);
      expected = model.Remove(number, value);
    } else if (what == '!') {
      location.ClearCriterias();
      model.Clear();
    } else {
      result = location.AddCriteria(&kind, value);
      expected = model.Add(number, value);
    }
    if (result != expected) FuzzFail("an edit has another result");
    results = results * 5 + result + (normal != value ? 4 : 0);
  }
  FuzzKind(results);
  if (EntriesOf(location.Criterias()) != model.InOrder()) FuzzFail("the set holds other entries");
  if (!location.Criterias().AreAsAdded()) FuzzFail("a set that was filled by adding could not have been");
  CQeLocation copy;
  if (!copy.AssignFrom(location) || EntriesOf(copy.Criterias()) != model.InOrder())
    FuzzFail("a copy holds other entries");
}

const FuzzTarget g_target("criterion", Run,
                          {"+",
                           "-",
                           "!",
                           "\n+1",
                           "\n-1",
                           "\n+8",
                           "\n-8",
                           "\n+9",
                           "0000:0000:0000:0000:0000:ffff:",
                           "0000:0000:0000:0000:0000:FFFF:c0a8:0101",
                           "0a00:0001",
                           ":",
                           "0000:",
                           "10.0.0.1",
                           "-1 1",
                           "0x1f",
                           ":x",
                           "\xc0\x00\x00",
                           "ZZzz",
                           "corp.example"});

}  // namespace

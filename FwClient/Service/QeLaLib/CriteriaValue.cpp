#include "FwClient/Service/QeLaLib/CriteriaValue.h"

#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "FwClient/Common/Utilities/AsciiCase.h"

namespace {

constexpr std::wstring_view kMappedPrefix = L"0000:0000:0000:0000:0000:ffff:";
constexpr std::size_t kGroupLength = 4;

// The low byte of a hexadecimal number. Its digits are only as valid as wcstol finds them: "zz" is 0, "-1" is 0xff.
std::wstring ByteAsDecimal(std::wstring_view hexadecimal) {
  const long number = std::wcstol(std::wstring(hexadecimal).c_str(), nullptr, 16);
  return std::to_wstring(number & 0xff);
}

// The address that the text carries, dotted; none for most texts.
std::optional<std::wstring> FindMappedIPv4(std::wstring_view text) {
  if (text.size() < kMappedPrefix.size() ||
      !EqualsIgnoringAsciiCase(text.substr(0, kMappedPrefix.size()), kMappedPrefix))
    return std::nullopt;

  // The groups after the prefix, up to the first that is not four characters long: there must be exactly two.
  // What stands behind that group does not matter, so "...:0101:x" still counts as an address.
  std::wstring dotted;
  std::size_t groups = 0;
  for (std::size_t start = kMappedPrefix.size(); start < text.size();) {
    const std::wstring_view group = text.substr(start, text.find(L':', start) - start);
    if (group.size() != kGroupLength) break;
    if (++groups > 2) return std::nullopt;
    if (groups == 2) dotted += L'.';
    dotted += ByteAsDecimal(group.substr(0, 2)) + L'.' + ByteAsDecimal(group.substr(2));
    start += kGroupLength + 1;
  }
  if (groups != 2) return std::nullopt;
  return dotted;
}

}  // namespace

std::wstring NormalizeCriteriaValue(const std::wstring& value) { return FindMappedIPv4(value).value_or(value); }

bool IsNormalCriteriaValue(const std::wstring& value) { return !FindMappedIPv4(value).has_value(); }

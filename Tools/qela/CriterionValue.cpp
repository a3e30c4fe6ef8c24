#include "CriterionValue.h"

#include <winsock2.h>
// After winsock2.h, which they need.
#include <ws2tcpip.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "CommandError.h"
#include "Text.h"

namespace {

[[noreturn]] void Refuse(const std::string& option, const std::wstring& value, const std::string& reason) {
  throw CommandError(kWrongUsage, option + ": \"" + Printable(value) + "\" " + reason);
}

// As the system writes it: the library's address texts come from there.
std::wstring CheckAddress(const std::string& option, const std::wstring& value) {
  wchar_t text[INET6_ADDRSTRLEN];
  IN_ADDR v4{};
  if (::InetPtonW(AF_INET, value.c_str(), &v4) == 1) return ::InetNtopW(AF_INET, &v4, text, std::size(text));
  IN6_ADDR v6{};
  if (::InetPtonW(AF_INET6, value.c_str(), &v6) != 1) Refuse(option, value, "is not an IPv4 or IPv6 address");
  // The full form of a mapped address must stay: the library itself stores it as the IPv4 address.
  constexpr std::size_t kFullFormLength = 39;
  if (IN6_IS_ADDR_V4MAPPED(&v6) && value.size() == kFullFormLength) return value;
  return ::InetNtopW(AF_INET6, &v6, text, std::size(text));
}

std::wstring CheckRegistryText(const std::string& option, const std::wstring& value) {
  const std::wstring key = value.substr(0, value.find(L'='));
  const std::size_t first = key.find(L'\\');
  if (first == std::wstring::npos || key.rfind(L'\\') == first)
    Refuse(option, value, "is not of the form HIVE\\Key\\ or HIVE\\Key\\Value=Data");
  constexpr std::wstring_view kHives[] = {L"HKEY_LOCAL_MACHINE", L"HKEY_CLASSES_ROOT", L"HKEY_CURRENT_USER",
                                          L"HKEY_USERS"};
  if (std::find(std::begin(kHives), std::end(kHives), std::wstring_view(key).substr(0, first)) == std::end(kHives))
    Refuse(option, value,
           "does not begin with HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT, HKEY_CURRENT_USER or HKEY_USERS "
           "(in capitals, not abbreviated)");
  if (std::count(value.begin(), value.end(), L'=') > 1)
    Refuse(option, value, "has more than one \"=\"; it would never hold");
  return value;
}

std::wstring CheckName(const std::string& option, const std::wstring& value, std::wstring_view forbidden,
                       const std::string& what) {
  if (value.find_first_of(forbidden) != std::wstring::npos ||
      std::any_of(value.begin(), value.end(), [](wchar_t unit) { return unit <= L' ' || unit == 0x7f; }))
    Refuse(option, value, "is not a " + what);
  return value;
}

}  // namespace

std::wstring CheckCriterionValue(LOCATION_CRITERIA_TYPE kind, const std::string& option, const std::wstring& value) {
  // An empty value means "the adapter has none", which most adapters fulfil: rather an unset variable of a script than
  // an intention.
  if (value.empty()) throw CommandError(kWrongUsage, option + ": the value must not be empty");
  switch (kind) {
    case LCT_DNS_SUFFIX:
      return CheckName(option, value, L"/\\:", "DNS suffix");
    case LCT_DOMAIN_REACHABLE:
      return CheckName(option, value, L"/\\?#@", "host name (give the name alone, without https:// and path)");
    case LCT_REGISTRY_KEY:
      return CheckRegistryText(option, value);
    default:
      return CheckAddress(option, value);
  }
}

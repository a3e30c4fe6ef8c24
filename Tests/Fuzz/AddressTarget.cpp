// Address texts: their family and order, subnets and specifications, against addresses that are read by the book. What
// the book does not know is compared with itself: an order is an order whatever stands in the texts.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Service/QeLaLib/AddressSpecification.h"
#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "FwClient/Service/QeLaLib/QeLaUtils.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "Tests/Fuzz/FuzzTarget.h"
#include "Tests/Fuzz/FuzzText.h"

namespace {

using AddressBytes = std::vector<std::uint8_t>;  // 4 or 16

std::vector<std::wstring> Split(const std::wstring& text, wchar_t separator) {
  std::vector<std::wstring> pieces(1);
  for (const wchar_t character : text) {
    if (character == separator)
      pieces.emplace_back();
    else
      pieces.back() += character;
  }
  return pieces;
}

// Four decimal numbers without needless zeros.
std::optional<AddressBytes> ReadIPv4(const std::wstring& text) {
  AddressBytes bytes;
  for (const std::wstring& part : Split(text, L'.')) {
    if (part.empty() || part.size() > 3 || (part.size() > 1 && part[0] == L'0')) return std::nullopt;
    unsigned number = 0;
    for (const wchar_t digit : part) {
      if (digit < L'0' || digit > L'9') return std::nullopt;
      number = number * 10 + static_cast<unsigned>(digit - L'0');
    }
    if (number > 255) return std::nullopt;
    bytes.push_back(static_cast<std::uint8_t>(number));
  }
  if (bytes.size() != 4) return std::nullopt;
  return bytes;
}

// Groups of one to four hexadecimal digits, an IPv4 address perhaps at the end; false for any other text.
bool ReadGroups(const std::wstring& text, bool mayEndAsIPv4, AddressBytes& bytes) {
  if (text.empty()) return true;
  const std::vector<std::wstring> groups = Split(text, L':');
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (const auto ipv4 = ReadIPv4(groups[i]);
        ipv4 && mayEndAsIPv4 && i + 1 == groups.size() && groups[i].find(L'.') != std::wstring::npos) {
      bytes.insert(bytes.end(), ipv4->begin(), ipv4->end());
      continue;
    }
    if (groups[i].empty() || groups[i].size() > 4) return false;
    unsigned number = 0;
    for (const wchar_t digit : groups[i]) {
      const std::size_t value = std::wstring_view(L"0123456789abcdefABCDEF").find(digit);
      if (value == std::wstring_view::npos) return false;
      number = number * 16 + static_cast<unsigned>(value > 15 ? value - 6 : value);
    }
    bytes.push_back(static_cast<std::uint8_t>(number >> 8));
    bytes.push_back(static_cast<std::uint8_t>(number));
  }
  return true;
}

std::optional<AddressBytes> ReadIPv6(const std::wstring& text) {
  const std::size_t gap = text.find(L"::");
  AddressBytes front, back;
  if (gap == std::wstring::npos) {
    if (!ReadGroups(text, true, front) || front.size() != 16) return std::nullopt;
    return front;
  }
  if (!ReadGroups(text.substr(0, gap), false, front) || !ReadGroups(text.substr(gap + 2), true, back))
    return std::nullopt;
  if (front.size() + back.size() > 14) return std::nullopt;
  front.resize(16 - back.size());
  front.insert(front.end(), back.begin(), back.end());
  return front;
}

// Either; nothing for what the book does not know, which Windows may know.
std::optional<AddressBytes> Read(const std::wstring& text) {
  const std::optional<AddressBytes> ipv4 = ReadIPv4(text);
  return ipv4 ? ipv4 : ReadIPv6(text);
}

int FamilyOf(const AddressBytes& address) { return address.size() == 4 ? AF_INET : AF_INET6; }

// What no reader of addresses makes anything of: its first character stands in none.
bool IsNoAddress(const std::wstring& text) {
  return text.empty() || (text[0] < 0x80 && std::wstring_view(L"ghijklmnopqrstuvwyz_!#$&()*/;<=>?@").find(text[0]) !=
                                                std::wstring_view::npos);
}

int Sign(int number) { return (number > 0) - (number < 0); }
int Order(const AddressBytes& a, const AddressBytes& b) { return a < b ? -1 : a > b ? 1 : 0; }

// ---- family and order ----

void CheckFamily(const std::wstring& text) {
  const int family = QeLaUtils::IsIPV4orIPV6(text);
  const std::optional<AddressBytes> address = Read(text);
  if (address && family != FamilyOf(*address)) FuzzFail("an address is of another family");
  if (IsNoAddress(text) && !text.empty() && family != 0) FuzzFail("what is no address has a family");
  FuzzKind(static_cast<std::uint32_t>(family) * 2 + (address ? 1 : 0));
}

template <typename Compare>
void CheckOrder(Compare compare, std::size_t bytes, const std::wstring& a, const std::wstring& b,
                const std::wstring& c) {
  const int order = Sign(compare(a, b));
  if (compare(a, a) != 0) FuzzFail("an address differs from itself");
  if (Sign(compare(b, a)) != -order) FuzzFail("the order of two addresses depends on which comes first");
  if (order <= 0 && Sign(compare(b, c)) <= 0 && Sign(compare(a, c)) > 0)
    FuzzFail("the order of addresses goes in a circle");
  std::optional<AddressBytes> first = Read(a), second = Read(b);
  // A text that is none counts as zero.
  if (IsNoAddress(a)) first.emplace(bytes);
  if (IsNoAddress(b)) second.emplace(bytes);
  if (!first || !second || first->size() != bytes || second->size() != bytes) return;
  if (order != Order(*first, *second)) FuzzFail("two addresses are in the wrong order");
}

// ---- subnets and specifications ----

struct Range {
  AddressBytes low, high;
  bool Holds(const AddressBytes& address) const {
    return address.size() == low.size() && low <= address && address <= high;
  }
};

// As _wtoi for a text that is no more than a few digits, perhaps with a sign, and then anything.
std::optional<int> Prefix(const std::wstring& text) {
  const bool isSigned = !text.empty() && (text[0] == L'-' || text[0] == L'+');
  int number = 0;
  std::size_t at = isSigned ? 1 : 0;
  const std::size_t start = at;
  for (; at < text.size() && text[at] >= L'0' && text[at] <= L'9'; ++at) {
    if (at - start == 8) return std::nullopt;
    number = number * 10 + (text[at] - L'0');
  }
  if (at < text.size() && text[at] > 0x7f) return std::nullopt;  // the C library knows other digits and blanks
  if (at == 0 && !text.empty() && (text[0] <= L' ')) return std::nullopt;
  return isSigned && text[0] == L'-' ? -number : number;
}

std::optional<Range> RangeOf(const AddressBytes& address, int prefix) {
  // IPv4 has no empty prefix: it is counted modulo 32, and 0 is 32.
  const int bits = address.size() == 4 ? ((prefix % 32 + 31) % 32) + 1 : std::clamp(prefix, 0, 128);
  Range range{address, address};
  for (std::size_t bit = 0; bit < address.size() * 8; ++bit) {
    if (static_cast<int>(bit) < bits) continue;
    const auto mask = static_cast<std::uint8_t>(0x80 >> bit % 8);
    range.low[bit / 8] = static_cast<std::uint8_t>(range.low[bit / 8] & ~mask);
    range.high[bit / 8] = static_cast<std::uint8_t>(range.high[bit / 8] | mask);
  }
  return range;
}

void CheckSubnet(const std::wstring& subnet) {
  const std::size_t slash = subnet.find(L'/');
  const std::optional<AddressBytes> address = Read(subnet.substr(0, slash));
  const std::optional<int> prefix = Prefix(slash == std::wstring::npos ? subnet : subnet.substr(slash + 1));
  std::wstring low = L"low", high = L"high";
  const bool isSubnet = GetSubnetRange(subnet, low, high);
  if (!isSubnet && (low != L"low" || high != L"high")) FuzzFail("what is no subnet has a range");
  if (!isSubnet && address) FuzzFail("a subnet has no range");
  if (isSubnet && slash != 0 && IsNoAddress(subnet)) FuzzFail("what has no address is a subnet");
  if (!isSubnet || !address || !prefix) return;
  const std::optional<Range> range = RangeOf(*address, *prefix);
  if (Read(low) != range->low || Read(high) != range->high) FuzzFail("a subnet has another range");
  FuzzKind(1000 + static_cast<std::uint32_t>(address->size()) * 200 +
           static_cast<std::uint32_t>(std::clamp(*prefix, -1, 130) + 1));
}

// Nothing where the book does not know enough.
std::optional<bool> Satisfies(const std::vector<std::wstring>& addresses, std::uint32_t kind, const std::wstring& first,
                              const std::wstring& second) {
  if (kind == 0) return std::find(addresses.begin(), addresses.end(), first) != addresses.end();
  if (kind != FIAT_SUBNET && kind != 3 && kind != 7 && kind != 8) return false;
  std::optional<Range> range;
  if (kind == FIAT_SUBNET) {
    const std::size_t slash = first.find(L'/');
    const std::optional<AddressBytes> address = Read(first.substr(0, slash));
    const std::optional<int> prefix = Prefix(slash == std::wstring::npos ? first : first.substr(slash + 1));
    if (address && prefix) range = RangeOf(*address, *prefix);
  } else {
    std::optional<AddressBytes> low = Read(first), high = Read(second);
    if (low && IsNoAddress(second)) high.emplace(low->size());
    if (low && high && low->size() == high->size()) range = Range{*low, *high};
  }
  if (!range) return std::nullopt;
  bool isUnknown = false;
  for (const std::wstring& text : addresses) {
    const std::optional<AddressBytes> address = Read(text);
    if (address && range->Holds(*address)) return isUnknown ? std::nullopt : std::optional(true);
    isUnknown |= !address && !IsNoAddress(text);
  }
  return isUnknown ? std::nullopt : std::optional(false);
}

// No name of a hostile input is to be looked up in any network: numeric texts only.
decltype(::GetAddrInfoW)* g_getAddrInfo = nullptr;
INT WSAAPI NumericOnly(const wchar_t* name, const wchar_t* service, const ADDRINFOW* hints, ADDRINFOW** result) {
  if (service != nullptr || hints != nullptr) FuzzFail("an address is asked for with hints");
  ADDRINFOW numeric{};
  numeric.ai_flags = AI_NUMERICHOST;
  return g_getAddrInfo(name, nullptr, &numeric, result);
}

// Lines: the kind of a specification, its two texts, and addresses.
void Run(FuzzInput input) {
  static const WinsockGuard winsock;
  static const ImportPatch getAddrInfo(ThisProgram(), "GetAddrInfoW", &NumericOnly);
  g_getAddrInfo = getAddrInfo.Original<decltype(::GetAddrInfoW)>();

  constexpr std::size_t kMostTexts = 8;
  std::vector<std::wstring> texts = Split(FuzzText(input), L'\n');
  texts.resize(std::clamp<std::size_t>(texts.size(), 4, 3 + kMostTexts));
  std::uint32_t kind = 0;
  for (const wchar_t character : texts[0]) kind = kind * 10 + static_cast<std::uint32_t>(character - L'0');
  const std::wstring first = texts[1], second = texts[2];
  const std::vector<std::wstring> addresses(texts.begin() + 3, texts.end());

  for (std::size_t i = 1; i < texts.size(); ++i) CheckFamily(texts[i]);
  const auto v4 = [](const std::wstring& a, const std::wstring& b) { return QeLaUtils::IpCompareIPv4(a, b); };
  const auto v6 = [](const std::wstring& a, const std::wstring& b) { return QeLaUtils::IpCompareIPv6(a, b); };
  CheckOrder(v4, 4, first, second, addresses[0]);
  CheckOrder(v6, 16, first, second, addresses[0]);
  CheckSubnet(first);
  const bool matches = MatchAddressSpecification(addresses, &kind, first, second);
  if (const std::optional<bool> expected = Satisfies(addresses, kind, first, second); expected && *expected != matches)
    FuzzFail(matches ? "addresses satisfy a specification that they do not"
                     : "addresses do not satisfy their specification");
  FuzzKind(3000 + std::min(kind, 10u) * 2 + (matches ? 1 : 0));
}

const FuzzTarget g_target("address", Run,
                          {"0\n",
                           "1\n",
                           "3\n",
                           "7\n",
                           "8\n",
                           "\n",
                           "10.0.0.1",
                           "192.168.1.0/24",
                           "255.255.255.255",
                           "0.0.0.0",
                           "::",
                           "::1",
                           "fe80::1",
                           "::ffff:10.0.0.1",
                           "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff",
                           "/0",
                           "/1",
                           "/31",
                           "/32",
                           "/33",
                           "/64",
                           "/127",
                           "/128",
                           "/129",
                           "/-1",
                           "%5",
                           "0x10",
                           "010",
                           ".",
                           ":",
                           "256",
                           "localhost",
                           "[::1]:80",
                           "10.1",
                           " ",
                           "1",
                           "0"});

}  // namespace

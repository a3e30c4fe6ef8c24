#include "FwClient/Service/QeLaLib/AddressSpecification.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cwchar>
#include <iterator>

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "FwClient/Service/QeLaLib/QeLaUtils.h"

namespace {

constexpr int kIPv6Bits = 128;

bool IsAnyInRange(const std::vector<std::wstring>& addresses, const std::wstring& low, const std::wstring& high) {
  return std::any_of(addresses.begin(), addresses.end(),
                     [&](const std::wstring& address) { return IsIpInRange(address, low, high); });
}

void MaskOf(int prefix, in_addr& mask) noexcept {
  // Unsigned: any prefix that can be written has an answer.
  const std::uint32_t shift = (32U - static_cast<std::uint32_t>(prefix)) & 31U;
  mask.s_addr = ::htonl(0xFFFFFFFFU << shift);
}

void MaskOf(int prefix, in6_addr& mask) noexcept {
  // Outside of 0 to 128 there is no byte of the mask to set.
  int bits = std::clamp(prefix, 0, kIPv6Bits);
  for (UCHAR& byte : mask.s6_addr) {
    const int ofByte = std::min(bits, 8);
    byte = static_cast<UCHAR>(0xFFU << (8 - ofByte));
    bits -= ofByte;
  }
}

// The subnet's lowest and highest address, as texts in the system's spelling.
template <typename Address, std::size_t kTextSize>
bool RangeOf(int family, const std::wstring& text, int prefix, std::wstring& low, std::wstring& high) {
  Address address{};
  // A host name has a family too, but no numeric address.
  if (::InetPtonW(family, text.c_str(), &address) != 1) return false;
  Address mask{};
  MaskOf(prefix, mask);
  Address lowest{};
  Address highest{};
  const auto* const addressBytes = reinterpret_cast<const UCHAR*>(&address);
  const auto* const maskBytes = reinterpret_cast<const UCHAR*>(&mask);
  for (std::size_t i = 0; i < sizeof(Address); ++i) {
    reinterpret_cast<UCHAR*>(&lowest)[i] = addressBytes[i] & maskBytes[i];
    reinterpret_cast<UCHAR*>(&highest)[i] = static_cast<UCHAR>(addressBytes[i] | ~maskBytes[i]);
  }
  wchar_t lowText[kTextSize] = {};
  wchar_t highText[kTextSize] = {};
  if (::InetNtopW(family, &lowest, lowText, kTextSize) == nullptr ||
      ::InetNtopW(family, &highest, highText, kTextSize) == nullptr)
    return false;
  low = lowText;
  high = highText;
  return true;
}

}  // namespace

bool GetSubnetRange(const std::wstring& subnet, std::wstring& low, std::wstring& high) {
  const std::size_t slash = subnet.find(L'/');
  const std::wstring address = subnet.substr(0, slash);
  const int prefix = ::_wtoi(slash == std::wstring::npos ? subnet.c_str() : subnet.c_str() + slash + 1);
  switch (QeLaUtils::IsIPV4orIPV6(address)) {
    case AF_INET:
      return RangeOf<in_addr, 22>(AF_INET, address, prefix, low, high);
    case AF_INET6:
      return RangeOf<in6_addr, 65>(AF_INET6, address, prefix, low, high);
    default:
      return false;
  }
}

bool IsIpInRange(const std::wstring& address, const std::wstring& low, const std::wstring& high) {
  // The family of each text is asked for whenever it is needed, not once: every question that fails leaves a line in
  // the log, and their number tells which text is bad: two lines for an address, one for the low end of a range.
  if (QeLaUtils::IsIPV4orIPV6(address) == AF_INET && QeLaUtils::IsIPV4orIPV6(low) == AF_INET)
    return QeLaUtils::IpCompareIPv4(address, low) >= 0 && QeLaUtils::IpCompareIPv4(address, high) <= 0;
  if (QeLaUtils::IsIPV4orIPV6(address) == AF_INET6 && QeLaUtils::IsIPV4orIPV6(low) == AF_INET6)
    return QeLaUtils::IpCompareIPv6(address, low) >= 0 && QeLaUtils::IpCompareIPv6(address, high) <= 0;
  return false;
}

bool MatchAddressSpecification(const std::vector<std::wstring>& addresses, const std::uint32_t* kind,
                               const std::wstring& first, const std::wstring& second) {
  if (kind == nullptr) return false;
  switch (*kind) {
    case FIAT_SINGLE_IP:
      return std::find(addresses.begin(), addresses.end(), first) != addresses.end();

    case FIAT_SUBNET: {
      const WinsockGuard winsock;
      const int error = ::WSAGetLastError();
      if (winsock.Result() != 0) {
        FW_LOG(kLogInfo, L"FIAT_SUBNET WSAStartup failed with error %d with last error %d", winsock.Result(), error);
        return false;
      }
      std::wstring low;
      std::wstring high;
      return GetSubnetRange(first, low, high) && IsAnyInRange(addresses, low, high);
    }

    case FIAT_RANGE_IP:
    case FIAT_ANY_IP_V4:
    case FIAT_ANY_IP_V6: {
      const WinsockGuard winsock;
      const int error = ::WSAGetLastError();
      if (winsock.Result() != 0) {
        FW_LOG(kLogInfo,
               L"FIAT_RANGE_IP or FIAT_ANY_IP_V4 or FIAT_ANY_IP_V6 WSAStartup failed with error %d with last error %d",
               winsock.Result(), error);
        return false;
      }
      return IsAnyInRange(addresses, first, second);
    }

    default:
      return false;
  }
}

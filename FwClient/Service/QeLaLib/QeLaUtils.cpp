#include "FwClient/Service/QeLaLib/QeLaUtils.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <cstring>
#include <memory>

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Common/Utilities/NtDllExports.h"

namespace {

// Stands for the parser's answer where ntdll has no such parser: STATUS_INVALID_HANDLE.
constexpr LONG kNoParser = static_cast<LONG>(0xC0000008);

struct AddrInfoFree {
  void operator()(ADDRINFOW* list) const noexcept { ::FreeAddrInfoW(list); }
};

// The result of WSAStringToAddressW, which takes its text as changeable and does not change it.
template <typename SocketAddress>
int StringToAddress(const std::wstring& text, int family, SocketAddress& address) noexcept {
  INT length = sizeof address;
  return ::WSAStringToAddressW(const_cast<wchar_t*>(text.c_str()), family, nullptr,
                               reinterpret_cast<sockaddr*>(&address), &length);
}

// What Winsock refuses is given to ntdll, which is more lenient: fewer than four parts, octal and hexadecimal parts,
// and anything at all behind the address. The status is what counts, not where reading stopped. A non-zero `status`
// tells that the address is the zero address.
in_addr ParseIPv4(const std::wstring& text, const NtDllExports& ntDll, LONG& status) {
  status = 0;
  sockaddr_in address{};
  const int result = StringToAddress(text, AF_INET, address);
  if (result == 0) return address.sin_addr;
  const int error = ::WSAGetLastError();
  FW_LOG(kLogInfo, L"QeLaUtils::IpCompareIPv4 - WSAStringToAddress failed with error %d with last error %d", result,
         error);
  in_addr parsed{};
  PCWSTR end = nullptr;
  const auto parse = ntDll.RtlIpv4StringToAddressW();
  status = parse != nullptr ? parse(text.c_str(), FALSE, &end, &parsed) : kNoParser;
  return status == 0 ? parsed : in_addr{};
}

in6_addr ParseIPv6(const std::wstring& text, const NtDllExports& ntDll) {
  sockaddr_in6 address{};
  const int result = StringToAddress(text, AF_INET6, address);
  if (result == 0) return address.sin6_addr;
  const int error = ::WSAGetLastError();
  FW_LOG(kLogInfo, L"QeLaUtils::IpCompareIPv6 - WSAStringToAddress failed with error %d with last error %d", result,
         error);
  in6_addr parsed{};
  PCWSTR end = nullptr;
  const auto parse = ntDll.RtlIpv6StringToAddressW();
  const LONG status = parse != nullptr ? parse(text.c_str(), &end, &parsed) : kNoParser;
  if (status == 0) return parsed;
  // "addr2" for either address. Kept on purpose; guarded by ParserFailureTest.BothIPv6FailuresAreLoggedAsAddr2.
  FW_LOG(kLogInfo, L"QeLaUtils::IpCompareIPv6 - addr2 RtlIpv6StringToAddress failed with error %d", status);
  return {};
}

}  // namespace

// By value, since the signature is fixed: callers hand over a copy.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
int QeLaUtils::IsIPV4orIPV6(std::wstring address) {
  ADDRINFOW* first = nullptr;
  const INT result = ::GetAddrInfoW(address.c_str(), nullptr, nullptr, &first);
  const int error = ::WSAGetLastError();
  if (result != 0) {
    FW_LOG(kLogInfo, L"QeLaUtils::IsIPV4orIPV6 - GetAddrInfo failed with error %d with last error %d", result, error);
    return AF_UNSPEC;
  }
  const std::unique_ptr<ADDRINFOW, AddrInfoFree> list(first);
  return list != nullptr ? list->ai_family : AF_UNSPEC;
}

int QeLaUtils::IpCompareIPv4(const std::wstring& addr1, const std::wstring& addr2, const NtDllExports& ntDll) {
  LONG status = 0;
  const in_addr first = ParseIPv4(addr1, ntDll, status);
  if (status != 0)
    FW_LOG(kLogInfo, L"QeLaUtils::IpCompareIPv4 - addr1 RtlIpv4StringToAddress failed with error %d", status);
  const in_addr second = ParseIPv4(addr2, ntDll, status);
  if (status != 0)
    FW_LOG(kLogInfo, L"QeLaUtils::IpCompareIPv4 - addr2 RtlIpv4StringToAddress failed with error %d", status);
  // Network order, so the order of the bytes is that of the numbers.
  const int order = std::memcmp(&first, &second, sizeof first);
  return (order > 0) - (order < 0);
}

int QeLaUtils::IpCompareIPv6(const std::wstring& addr1, const std::wstring& addr2, const NtDllExports& ntDll) {
  const in6_addr first = ParseIPv6(addr1, ntDll);
  const in6_addr second = ParseIPv6(addr2, ntDll);
  return std::memcmp(&first, &second, sizeof first);
}

int QeLaUtils::IpCompareIPv4(const std::wstring& addr1, const std::wstring& addr2) {
  return IpCompareIPv4(addr1, addr2, NtDllExports::Instance());
}

int QeLaUtils::IpCompareIPv6(const std::wstring& addr1, const std::wstring& addr2) {
  return IpCompareIPv6(addr1, addr2, NtDllExports::Instance());
}

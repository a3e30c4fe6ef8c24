// Family and order of address texts. The comparisons with a given NtDllExports are declared here for their tests.
//
// The caller has Winsock started. Nothing fails towards the caller: what goes wrong is in the log only.
#pragma once

#include <string>

class NtDllExports;

namespace QeLaUtils {

// The family of the address: 2 for IPv4, 23 for IPv6. A host name is resolved (which may take as long as DNS does) and
// answered with the family of its first address. 0 when there is no answer.
int IsIPV4orIPV6(std::wstring address);

// Numeric order of two addresses: -1 when `addr1` is lower, 0 when they are equal, 1 when it is higher. Ports are
// ignored. A text that is no IPv4 address counts as 0.0.0.0.
int IpCompareIPv4(const std::wstring& addr1, const std::wstring& addr2);
int IpCompareIPv4(const std::wstring& addr1, const std::wstring& addr2, const NtDllExports& ntDll);

// Order of two addresses by their 16 bytes: negative, zero or positive. Ports and zones are ignored. A text that is no
// IPv6 address counts as ::.
int IpCompareIPv6(const std::wstring& addr1, const std::wstring& addr2);
int IpCompareIPv6(const std::wstring& addr1, const std::wstring& addr2, const NtDllExports& ntDll);

}  // namespace QeLaUtils

// Whether addresses satisfy an address specification: a single address, a subnet, or a range.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// As _IQeLaApiSmart::MatchAddressSpecification, which it stands behind. Starts Winsock for the kinds that need it.
bool MatchAddressSpecification(const std::vector<std::wstring>& addresses, const std::uint32_t* kind,
                               const std::wstring& first, const std::wstring& second);

// Whether the address lies between low and high, both included. The family of `low` has to be the address's own; that
// of `high` does not count. The caller has Winsock started, here and below.
bool IsIpInRange(const std::wstring& address, const std::wstring& low, const std::wstring& high);

// The first and the last address of the subnet "address/prefix". False, with both untouched, when the address is not
// numeric.
//
// The prefix is read leniently, and what that gives is relied upon: no digits are 0, and without a "/" the whole text
// is read ("10.1.2.3" is 10.1.2.3/10). IPv4 counts prefixes modulo 32, so that 0 is a single address, as 32 is. IPv6
// takes 0 and less for every address, 128 and more for a single one.
bool GetSubnetRange(const std::wstring& subnet, std::wstring& low, std::wstring& high);

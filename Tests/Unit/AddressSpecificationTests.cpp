#include "FwClient/Service/QeLaLib/AddressSpecification.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ostream>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/OfflineAddrInfo.h"
#include "ScriptedWindows/Windows/WinsockCounter.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::wstring>;

constexpr int kIPv4 = 2;
constexpr int kIPv6 = 23;
constexpr wchar_t kLowestIPv6[] = L"::";
constexpr wchar_t kHighestIPv6[] = L"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff";

bool Match(const Texts& addresses, std::uint32_t kind, const std::wstring& first, const std::wstring& second = L"") {
  return MatchAddressSpecification(addresses, &kind, first, second);
}

// No test asks the network, every start-up of Winsock is followed by a clean-up, and every answer is freed.
class AddressSpecificationTest : public testing::Test {
 protected:
  WinsockCounter m_winsock{ThisProgram()};
  OfflineAddrInfo m_addrInfo{ThisProgram()};
  LogRecorder m_log;
};

// For the functions that leave Winsock to their caller.
class StartedAddressSpecificationTest : public AddressSpecificationTest {
 private:
  const WinsockGuard m_started;
};

// ---- Subnets: their ranges ----

struct Subnet {
  const wchar_t* text;
  const wchar_t* low;
  const wchar_t* high;
};

void PrintTo(const Subnet& subnet, std::ostream* out) { *out << testing::PrintToString(std::wstring(subnet.text)); }

const Subnet kSubnets[] = {
    // Usual prefixes; the address need not be the lowest.
    {L"192.168.1.0/24", L"192.168.1.0", L"192.168.1.255"},
    {L"192.168.1.77/24", L"192.168.1.0", L"192.168.1.255"},
    {L"10.0.0.0/8", L"10.0.0.0", L"10.255.255.255"},
    {L"172.16.0.0/12", L"172.16.0.0", L"172.31.255.255"},
    {L"10.1.2.3/16", L"10.1.0.0", L"10.1.255.255"},
    {L"10.1.2.3/32", L"10.1.2.3", L"10.1.2.3"},
    {L"10.1.2.3/31", L"10.1.2.2", L"10.1.2.3"},
    {L"10.1.2.3/30", L"10.1.2.0", L"10.1.2.3"},
    {L"10.1.2.77/27", L"10.1.2.64", L"10.1.2.95"},
    {L"10.1.2.3/1", L"0.0.0.0", L"127.255.255.255"},
    {L"192.0.2.1/1", L"128.0.0.0", L"255.255.255.255"},
    {L"0.0.0.0/8", L"0.0.0.0", L"0.255.255.255"},
    {L"255.255.255.255/24", L"255.255.255.0", L"255.255.255.255"},
    // IPv4 prefixes count modulo 32: 0 is a single address, 33 is one bit, -1 is 31 bits.
    {L"10.1.2.3/0", L"10.1.2.3", L"10.1.2.3"},
    {L"10.1.2.3/33", L"0.0.0.0", L"127.255.255.255"},
    {L"10.1.2.3/40", L"10.0.0.0", L"10.255.255.255"},
    {L"10.1.2.3/64", L"10.1.2.3", L"10.1.2.3"},
    {L"10.1.2.3/-1", L"10.1.2.2", L"10.1.2.3"},
    {L"10.1.2.3/-8", L"10.1.2.0", L"10.1.2.255"},
    {L"10.1.2.3/-31", L"0.0.0.0", L"127.255.255.255"},
    {L"10.1.2.3/-32", L"10.1.2.3", L"10.1.2.3"},
    // A number that is too large is the largest or the smallest: 31 and 0 modulo 32.
    {L"10.1.2.3/2147483647", L"10.1.2.2", L"10.1.2.3"},
    {L"10.1.2.3/-2147483648", L"10.1.2.3", L"10.1.2.3"},
    {L"10.1.2.3/99999999999", L"10.1.2.2", L"10.1.2.3"},
    {L"10.1.2.3/-99999999999", L"10.1.2.3", L"10.1.2.3"},
    // No digits are 0; blanks before them are skipped; what follows them does not matter.
    {L"10.1.2.3/", L"10.1.2.3", L"10.1.2.3"},
    {L"10.1.2.3/abc", L"10.1.2.3", L"10.1.2.3"},
    {L"10.1.2.3//24", L"10.1.2.3", L"10.1.2.3"},
    {L"10.1.2.3/ 24", L"10.1.2.0", L"10.1.2.255"},
    {L"10.1.2.3/\t24", L"10.1.2.0", L"10.1.2.255"},
    {L"10.1.2.3/+24", L"10.1.2.0", L"10.1.2.255"},
    {L"10.1.2.3/024", L"10.1.2.0", L"10.1.2.255"},
    {L"10.1.2.3/0x18", L"10.1.2.3", L"10.1.2.3"},
    {L"10.1.2.3/24 ", L"10.1.2.0", L"10.1.2.255"},
    {L"10.1.2.3/24abc", L"10.1.2.0", L"10.1.2.255"},
    {L"10.1.2.3/24.9", L"10.1.2.0", L"10.1.2.255"},
    {L"10.1.2.3/24/8", L"10.1.2.0", L"10.1.2.255"},
    {L"10.1.2.3/255.255.255.0", L"10.1.2.2", L"10.1.2.3"},  // 255 is 31 modulo 32
    // Without a slash the address is its own prefix.
    {L"10.1.2.3", L"10.0.0.0", L"10.63.255.255"},
    {L"8.8.8.8", L"8.0.0.0", L"8.255.255.255"},
    {L"192.168.1.1", L"192.168.1.1", L"192.168.1.1"},   // 192 is 0
    {L"172.16.0.1", L"172.16.0.0", L"172.31.255.255"},  // 172 is 12
    {L"127.0.0.1", L"127.0.0.0", L"127.0.0.1"},         // 127 is 31
    {L"255.255.255.255", L"255.255.255.254", L"255.255.255.255"},
    {L"0.0.0.0", L"0.0.0.0", L"0.0.0.0"},
    // IPv6.
    {L"2001:db8::/32", L"2001:db8::", L"2001:db8:ffff:ffff:ffff:ffff:ffff:ffff"},
    {L"2001:db8::1/64", L"2001:db8::", L"2001:db8::ffff:ffff:ffff:ffff"},
    {L"2001:DB8::1/48", L"2001:db8::", L"2001:db8:0:ffff:ffff:ffff:ffff:ffff"},
    {L"2001:db8:ffff::/33", L"2001:db8:8000::", L"2001:db8:ffff:ffff:ffff:ffff:ffff:ffff"},
    {L"2001:db8::/7", L"2000::", L"21ff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    {L"fe80::1/10", L"fe80::", L"febf:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    {L"2001::1/1", kLowestIPv6, L"7fff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    {L"8000::/1", L"8000::", kHighestIPv6},
    {L"ff02::fb/8", L"ff00::", kHighestIPv6},
    {L"2001:db8::ab/124", L"2001:db8::a0", L"2001:db8::af"},
    {L"2001:db8::ab/120", L"2001:db8::", L"2001:db8::ff"},
    {L"2001:db8::ab/127", L"2001:db8::aa", L"2001:db8::ab"},
    {L"2001:db8::ab/128", L"2001:db8::ab", L"2001:db8::ab"},
    {L"::ffff:10.1.2.3/104", L"::ffff:10.0.0.0", L"::ffff:10.255.255.255"},
    // IPv6 takes 0 and less for every address...
    {L"2001:db8::1/0", kLowestIPv6, kHighestIPv6},
    {L"2001:db8::1/", kLowestIPv6, kHighestIPv6},
    {L"2001:db8::1/abc", kLowestIPv6, kHighestIPv6},
    {L"2001:db8::1/-1", kLowestIPv6, kHighestIPv6},
    {L"2001:db8::1/-7", kLowestIPv6, kHighestIPv6},
    {L"2001:db8::1/-8", kLowestIPv6, kHighestIPv6},
    {L"2001:db8::1/-9", kLowestIPv6, kHighestIPv6},
    {L"2001:db8::1/-128", kLowestIPv6, kHighestIPv6},
    {L"2001:db8::1/-99999999999", kLowestIPv6, kHighestIPv6},
    // ...and 128 and more for one.
    {L"2001:db8::1/129", L"2001:db8::1", L"2001:db8::1"},
    {L"2001:db8::1/136", L"2001:db8::1", L"2001:db8::1"},
    {L"2001:db8::1/1000", L"2001:db8::1", L"2001:db8::1"},
    {L"2001:db8::1/99999999999", L"2001:db8::1", L"2001:db8::1"},
    // Without a slash: the decimal digits at the start.
    {L"2001:db8::1", L"2001:db8::1", L"2001:db8::1"},
    {L"64:ff9b::1", L"64:ff9b::", L"64:ff9b::ffff:ffff:ffff:ffff"},
    {L"fe80::1", kLowestIPv6, kHighestIPv6},
    {L"::1", kLowestIPv6, kHighestIPv6},
};

class RangeOfSubnet : public StartedAddressSpecificationTest, public testing::WithParamInterface<Subnet> {};

TEST_P(RangeOfSubnet, GoesFromItsLowestToItsHighestAddress) {
  std::wstring low;
  std::wstring high;
  EXPECT_TRUE(GetSubnetRange(GetParam().text, low, high));
  EXPECT_EQ(low, GetParam().low);
  EXPECT_EQ(high, GetParam().high);
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Texts, RangeOfSubnet, testing::ValuesIn(kSubnets));

const wchar_t* const kNoSubnets[] = {L"", L" ", L"/", L"/24", L"24", L"garbage", L"garbage/24", L"10.0.0.0.0/8",
                                     L"10.0.0.256/8", L"2001:db8/32",
                                     // Forms that have a family, but are not written as an address is.
                                     L"10.1/8", L"10.0.1/8", L"167772160/8", L"010.0.0.0/8", L"0x0a.0.0.0/8",
                                     L"10.0.0.0:80/8", L"[2001:db8::]/32", L"fe80::1%5/64"};

class NoSubnet : public StartedAddressSpecificationTest, public testing::WithParamInterface<const wchar_t*> {};

TEST_P(NoSubnet, HasNoRangeAndLeavesTheTextsAlone) {
  std::wstring low = L"low";
  std::wstring high = L"high";
  EXPECT_FALSE(GetSubnetRange(GetParam(), low, high));
  EXPECT_EQ(low, L"low");
  EXPECT_EQ(high, L"high");
}

INSTANTIATE_TEST_SUITE_P(Texts, NoSubnet, testing::ValuesIn(kNoSubnets));

TEST_F(StartedAddressSpecificationTest, AHostNameIsNoSubnetThoughItHasAFamily) {
  m_addrInfo.Answer(L"four.example", {kIPv4});
  m_addrInfo.Answer(L"six.example", {kIPv6});
  std::wstring low;
  std::wstring high;
  EXPECT_FALSE(GetSubnetRange(L"four.example/24", low, high));
  EXPECT_FALSE(GetSubnetRange(L"six.example/64", low, high));
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(StartedAddressSpecificationTest, AnAddressOfAnotherFamilyIsNoSubnet) {
  m_addrInfo.Answer(L"10.0.0.0", {17});
  std::wstring low;
  std::wstring high;
  EXPECT_FALSE(GetSubnetRange(L"10.0.0.0/8", low, high));
}

TEST_F(StartedAddressSpecificationTest, TheFamilyIsThatOfTheTextBeforeTheFirstSlash) {
  std::wstring low;
  std::wstring high;
  GetSubnetRange(L"10.0.0.0/8/16", low, high);
  GetSubnetRange(L"10.0.0.1", low, high);
  EXPECT_THAT(m_addrInfo.Asked(), ElementsAre(L"10.0.0.0", L"10.0.0.1"));
}

int g_writings = 0;
int g_refusedWriting = 0;
decltype(&::InetNtopW) g_write = nullptr;
PCWSTR WINAPI RefuseOneWriting(INT family, const void* address, PWSTR text, std::size_t units) {
  return ++g_writings == g_refusedWriting ? nullptr : g_write(family, address, text, units);
}

TEST_F(StartedAddressSpecificationTest, ASubnetHasNoRangeWhereTheSystemCannotWriteOneOfItsEnds) {
  const ImportPatch patch(ThisProgram(), "InetNtopW", &RefuseOneWriting);
  g_write = patch.Original<std::remove_pointer_t<decltype(g_write)>>();
  for (g_refusedWriting = 1; g_refusedWriting <= 2; ++g_refusedWriting) {
    g_writings = 0;
    std::wstring low = L"low";
    std::wstring high = L"high";
    EXPECT_FALSE(GetSubnetRange(L"10.0.0.0/8", low, high));
    EXPECT_EQ(g_writings, g_refusedWriting);
    EXPECT_EQ(low, L"low");
    EXPECT_EQ(high, L"high");
  }
}

// ---- Subnets: what is inside ----

struct SubnetMatch {
  const wchar_t* address;
  const wchar_t* subnet;
  bool inside;
};

void PrintTo(const SubnetMatch& match, std::ostream* out) {
  *out << testing::PrintToString(std::wstring(match.address)) << " in "
       << testing::PrintToString(std::wstring(match.subnet));
}

const SubnetMatch kSubnetMatches[] = {
    {L"192.168.1.255", L"192.168.1.0/24", true},
    {L"192.168.1.0", L"192.168.1.0/24", true},
    {L"192.168.1.100", L"192.168.1.200/24", true},
    {L"192.168.2.0", L"192.168.1.0/24", false},
    {L"192.168.0.255", L"192.168.1.0/24", false},
    {L"10.200.3.4", L"10.0.0.0/8", true},
    {L"11.0.0.0", L"10.0.0.0/8", false},
    {L"9.255.255.255", L"10.0.0.0/8", false},
    {L"172.31.255.255", L"172.16.0.0/12", true},
    {L"172.32.0.0", L"172.16.0.0/12", false},
    {L"10.0.0.7", L"10.0.0.7/32", true},
    {L"10.0.0.8", L"10.0.0.7/32", false},
    {L"127.255.255.255", L"0.0.0.0/1", true},
    {L"128.0.0.0", L"0.0.0.0/1", false},
    {L"255.255.255.255", L"255.255.255.0/24", true},
    // The prefix 0 is a single IPv4 address.
    {L"10.0.0.0", L"10.0.0.0/0", true},
    {L"10.0.0.1", L"10.0.0.0/0", false},
    {L"0.0.0.0", L"0.0.0.0/0", true},
    {L"8.8.8.8", L"0.0.0.0/0", false},
    // An address without a prefix is its own prefix.
    {L"10.63.255.255", L"10.1.2.3", true},
    {L"10.64.0.0", L"10.1.2.3", false},
    {L"192.168.1.1", L"192.168.1.1", true},
    {L"192.168.1.2", L"192.168.1.1", false},
    // Addresses in lenient forms: they have a family and a number.
    {L"10.1", L"10.0.0.0/24", true},
    {L"10.256", L"10.0.0.0/24", false},
    {L"010.0.0.1", L"8.0.0.0/8", true},
    {L"010.0.0.1", L"10.0.0.0/8", false},
    {L"0xc0.168.1.1", L"192.168.1.0/24", true},
    {L"167772161", L"10.0.0.0/24", true},
    // No addresses.
    {L"10.0.0.1:80", L"10.0.0.0/24", false},
    {L"10.0.0.1/24", L"10.0.0.0/24", false},
    {L"garbage", L"0.0.0.0/8", false},
    {L"10.0.0.256", L"0.0.0.0/8", false},
    // IPv6.
    {L"2001:db8::1", L"2001:db8::/32", true},
    {L"2001:db8:ffff:ffff:ffff:ffff:ffff:ffff", L"2001:db8::/32", true},
    {L"2001:db9::", L"2001:db8::/32", false},
    {L"2001:db7:ffff:ffff:ffff:ffff:ffff:ffff", L"2001:db8::/32", false},
    {L"fe80::1", L"fe80::/10", true},
    {L"fe80::1%5", L"fe80::/10", true},
    {L"febf::1", L"fe80::/10", true},
    {L"fec0::", L"fe80::/10", false},
    {L"2001:db8::1", L"2001:db8::1/128", true},
    {L"2001:db8::2", L"2001:db8::1/128", false},
    {L"2001:db8::2", L"2001:db8::1/200", false},
    {L"2001:0DB8:0:0:0:0:0:0001", L"2001:db8::1/128", true},
    {L"fe80::1", L"2001:db8::1/0", true},
    {L"::", L"2001:db8::1/0", true},
    {kHighestIPv6, L"2001:db8::1/-9", true},
    {L"::1", L"fe80::1", true},            // no prefix: 0
    {L"::1", L"2001:db8::1", false},       // no prefix: 2001
    {L"64:ff9b::9", L"64:ff9b::1", true},  // no prefix: 64
    // Families do not mix, not even in the mapped form.
    {L"10.0.0.1", L"::/0", false},
    {L"::1", L"0.0.0.0/1", false},
    {L"::ffff:10.0.0.1", L"10.0.0.0/8", false},
    {L"10.0.0.1", L"::ffff:10.0.0.0/104", false},
    {L"::ffff:10.0.0.1", L"::ffff:10.0.0.0/104", true},
    {L"::ffff:11.0.0.1", L"::ffff:10.0.0.0/104", false},
    {L"::ffff:a00:1", L"::ffff:10.0.0.0/104", true},
    // No subnets.
    {L"10.0.0.1", L"", false},
    {L"10.0.0.1", L"/8", false},
    {L"10.0.0.1", L"garbage/8", false},
    {L"10.0.0.1", L"10.1/8", false},
    {L"0.0.0.0", L"garbage/8", false},
};

class AddressInSubnet : public AddressSpecificationTest, public testing::WithParamInterface<SubnetMatch> {};

TEST_P(AddressInSubnet, IsFoundByItsNumber) {
  EXPECT_EQ(Match({GetParam().address}, FIAT_SUBNET, GetParam().subnet), GetParam().inside);
  EXPECT_EQ(m_winsock.Startups(), 1u);
  EXPECT_EQ(m_winsock.Cleanups(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Texts, AddressInSubnet, testing::ValuesIn(kSubnetMatches));

// ---- Ranges ----

struct RangeMatch {
  const wchar_t* address;
  const wchar_t* low;
  const wchar_t* high;
  bool inside;
};

void PrintTo(const RangeMatch& match, std::ostream* out) {
  *out << testing::PrintToString(std::wstring(match.address)) << " in "
       << testing::PrintToString(std::wstring(match.low)) << " to " << testing::PrintToString(std::wstring(match.high));
}

const RangeMatch kRangeMatches[] = {
    {L"10.0.0.10", L"10.0.0.1", L"10.0.0.10", true},
    {L"10.0.0.9", L"10.0.0.1", L"10.0.0.10", true},
    {L"10.0.0.1", L"10.0.0.1", L"10.0.0.10", true},
    {L"10.0.0.0", L"10.0.0.1", L"10.0.0.10", false},
    {L"10.0.0.11", L"10.0.0.1", L"10.0.0.10", false},
    {L"10.0.0.100", L"10.0.0.1", L"10.0.0.10", false},
    {L"10.0.0.5", L"10.0.0.5", L"10.0.0.5", true},
    {L"10.0.0.5", L"10.0.0.9", L"10.0.0.1", false},  // low above high: nothing is inside
    {L"10.0.1.0", L"10.0.0.200", L"10.0.1.5", true},
    {L"200.0.0.1", L"100.0.0.0", L"255.255.255.255", true},
    {L"1.2.3.4", L"0.0.0.0", L"255.255.255.255", true},
    {L"0.0.0.0", L"0.0.0.0", L"255.255.255.255", true},
    {L"255.255.255.255", L"0.0.0.0", L"255.255.255.255", true},
    // Lenient forms on any side.
    {L"10.1", L"10.0.0.0", L"10.0.0.5", true},
    {L"10.0.0.3", L"10.1", L"10.5", true},
    {L"10.0.0.6", L"10.1", L"10.5", false},
    {L"10.0.0.8", L"010.0.0.8", L"10.0.0.9", true},  // low is 8.0.0.8
    {L"10.0.0.010", L"10.0.0.8", L"10.0.0.8", true},
    {L"0x0a000005", L"10.0.0.1", L"10.0.0.10", true},
    {L"10.0.0.5", L"167772161", L"167772170", true},
    // A port takes an address its family, but high is not asked for one.
    {L"10.0.0.5:80", L"10.0.0.1", L"10.0.0.10", false},
    {L"10.0.0.5", L"10.0.0.1:80", L"10.0.0.10", false},
    {L"10.0.0.5", L"10.0.0.1", L"10.0.0.10:80", true},
    {L"10.0.0.5", L"10.0.0.1", L"10.0.0.10 ", true},
    // High of the other family, or none at all, is the zero address.
    {L"10.0.0.5", L"10.0.0.1", L"fe80::1", false},
    {L"0.0.0.0", L"0.0.0.0", L"fe80::1", true},
    {L"0.0.0.1", L"0.0.0.0", L"fe80::1", false},
    {L"10.0.0.5", L"10.0.0.1", L"", false},
    {L"0.0.0.0", L"0.0.0.0", L"garbage", true},
    {L"fe80::5", L"fe80::1", L"10.0.0.10", false},
    {L"::", L"::", L"10.0.0.10", true},
    {L"::", L"::", L"garbage", true},
    // No address, or no low.
    {L"garbage", L"0.0.0.0", L"255.255.255.255", false},
    {L"garbage", L"garbage", L"garbage", false},
    {L"10.0.0.256", L"0.0.0.0", L"255.255.255.255", false},
    {L"10.0.0.5", L"", L"10.0.0.10", false},
    {L"10.0.0.5", L"garbage", L"10.0.0.10", false},
    {L"10.0.0.5", L"10.0.0.0/8", L"10.0.0.10", false},
    // IPv6.
    {L"fe80::5", L"fe80::1", L"fe80::9", true},
    {L"fe80::1", L"fe80::1", L"fe80::9", true},
    {L"fe80::9", L"fe80::1", L"fe80::9", true},
    {L"fe80::a", L"fe80::1", L"fe80::9", false},
    {L"fe80::", L"fe80::1", L"fe80::9", false},
    {L"fe80::10", L"fe80::9", L"fe80::a", false},
    {L"fe80::5%7", L"fe80::1", L"fe80::9", true},
    {L"fe80::5", L"fe80::1%3", L"fe80::9%3", true},
    {L"2001:db8::1", kLowestIPv6, kHighestIPv6, true},
    {L"::", kLowestIPv6, kHighestIPv6, true},
    {kHighestIPv6, kLowestIPv6, kHighestIPv6, true},
    {L"2001:DB8::AB", L"2001:db8::aa", L"2001:db8::ac", true},
    {L"2001:0db8:0000:0000:0000:0000:0000:00ab", L"2001:db8::aa", L"2001:db8::ac", true},
    {L"8000::", L"::", L"7fff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", false},
    // Families do not mix, not even in the mapped form.
    {L"10.0.0.5", kLowestIPv6, kHighestIPv6, false},
    {L"fe80::5", L"0.0.0.0", L"255.255.255.255", false},
    {L"::ffff:10.0.0.5", L"10.0.0.1", L"10.0.0.10", false},
    {L"10.0.0.5", L"::ffff:10.0.0.1", L"::ffff:10.0.0.10", false},
    {L"::ffff:10.0.0.5", L"::ffff:10.0.0.1", L"::ffff:10.0.0.10", true},
    {L"::ffff:10.0.0.11", L"::ffff:10.0.0.1", L"::ffff:10.0.0.10", false},
    {L"::10.0.0.5", L"::ffff:10.0.0.1", L"::ffff:10.0.0.10", false},
};

class AddressInRange : public AddressSpecificationTest, public testing::WithParamInterface<RangeMatch> {};

TEST_P(AddressInRange, IsFoundByItsNumberForEveryKindOfRange) {
  const auto& [address, low, high, inside] = GetParam();
  for (const std::uint32_t kind : {3U, 7U, 8U}) EXPECT_EQ(Match({address}, kind, low, high), inside) << kind;
  EXPECT_EQ(m_winsock.Startups(), 3u);
  EXPECT_EQ(m_winsock.Cleanups(), 3u);
}

INSTANTIATE_TEST_SUITE_P(Texts, AddressInRange, testing::ValuesIn(kRangeMatches));

TEST_F(AddressSpecificationTest, ANameThatResolvesComparesAsTheZeroAddress) {
  m_addrInfo.Answer(L"localhost", {kIPv4});
  EXPECT_TRUE(Match({L"localhost"}, FIAT_RANGE_IP, L"0.0.0.0", L"0.0.0.9"));
  EXPECT_FALSE(Match({L"localhost"}, FIAT_RANGE_IP, L"127.0.0.0", L"127.0.0.9"));
  EXPECT_TRUE(Match({L"127.0.0.1"}, FIAT_RANGE_IP, L"localhost", L"127.0.0.9"));
  EXPECT_TRUE(Match({L"localhost"}, FIAT_SUBNET, L"0.0.0.0/8"));
}

// Windows resolves the empty text to an address of the machine itself.
TEST_F(AddressSpecificationTest, AnEmptyTextThatResolvesComparesAsTheZeroAddress) {
  m_addrInfo.Answer(L"", {kIPv6});
  EXPECT_TRUE(Match({L""}, FIAT_RANGE_IP, L"::", L"::9"));
  EXPECT_FALSE(Match({L""}, FIAT_RANGE_IP, L"::1", L"::9"));
}

// ---- Single addresses, kinds, lists ----

TEST_F(AddressSpecificationTest, ASingleAddressIsComparedAsText) {
  EXPECT_TRUE(Match({L"10.0.0.1"}, FIAT_SINGLE_IP, L"10.0.0.1"));
  EXPECT_TRUE(Match({L"10.0.0.2", L"10.0.0.1"}, FIAT_SINGLE_IP, L"10.0.0.1"));
  EXPECT_FALSE(Match({L"10.0.0.1"}, FIAT_SINGLE_IP, L"10.0.0.01"));
  EXPECT_FALSE(Match({L"10.0.0.1"}, FIAT_SINGLE_IP, L"10.0.0.1 "));
  EXPECT_FALSE(Match({L"10.0.0.10"}, FIAT_SINGLE_IP, L"10.0.0.1"));
  EXPECT_FALSE(Match({L"2001:db8::ab"}, FIAT_SINGLE_IP, L"2001:DB8::AB"));
  EXPECT_FALSE(Match({L"2001:db8:0::1"}, FIAT_SINGLE_IP, L"2001:db8::1"));
  EXPECT_FALSE(Match({}, FIAT_SINGLE_IP, L"10.0.0.1"));
  EXPECT_FALSE(Match({}, FIAT_SINGLE_IP, L""));
  EXPECT_TRUE(Match({L""}, FIAT_SINGLE_IP, L""));
  EXPECT_TRUE(Match({L"any text"}, FIAT_SINGLE_IP, L"any text"));
  const std::wstring withNul(L"10.0.0.1\0x", 10);
  EXPECT_FALSE(Match({L"10.0.0.1"}, FIAT_SINGLE_IP, withNul));
}

TEST_F(AddressSpecificationTest, ASingleAddressDoesNotNeedWinsock) {
  Match({L"10.0.0.1"}, FIAT_SINGLE_IP, L"10.0.0.1");
  EXPECT_EQ(m_winsock.Startups(), 0u);
  EXPECT_EQ(m_winsock.Cleanups(), 0u);
  EXPECT_THAT(m_addrInfo.Asked(), IsEmpty());
}

TEST_F(AddressSpecificationTest, KindsWithoutARuleMatchNothingAndDoNotNeedWinsock) {
  for (const std::uint32_t kind : {2U, 4U, 5U, 6U, 9U, 10U, 255U, 256U, 257U, 0x80000000U, 0xFFFFFFFFU}) {
    EXPECT_FALSE(Match({L"10.0.0.1"}, kind, L"10.0.0.1", L"10.0.0.1")) << kind;
    EXPECT_FALSE(Match({L"10.0.0.1"}, kind, L"10.0.0.0/8")) << kind;
  }
  EXPECT_EQ(m_winsock.Startups(), 0u);
  EXPECT_THAT(m_addrInfo.Asked(), IsEmpty());
}

TEST_F(AddressSpecificationTest, ANullKindMatchesNothing) {
  EXPECT_FALSE(MatchAddressSpecification({L"10.0.0.1"}, nullptr, L"10.0.0.1", L""));
}

TEST_F(AddressSpecificationTest, AnEmptyListMatchesNothing) {
  EXPECT_FALSE(Match({}, FIAT_SUBNET, L"10.0.0.0/8"));
  for (const std::uint32_t kind : {3U, 7U, 8U}) EXPECT_FALSE(Match({}, kind, L"0.0.0.0", L"255.255.255.255"));
  EXPECT_EQ(m_winsock.Startups(), 4u);
  EXPECT_EQ(m_winsock.Cleanups(), 4u);
}

TEST_F(AddressSpecificationTest, TheFirstAddressInsideEndsTheSearch) {
  EXPECT_TRUE(Match({L"10.0.0.1", L"10.0.0.2", L"10.0.0.3"}, FIAT_SUBNET, L"10.0.0.2/32"));
  EXPECT_TRUE(Match({L"fe80::1", L"10.0.0.2", L"10.0.0.3"}, FIAT_RANGE_IP, L"10.0.0.2", L"10.0.0.2"));
  EXPECT_THAT(m_addrInfo.Asked(), testing::Not(testing::Contains(L"10.0.0.3")));
  EXPECT_EQ(m_winsock.Startups(), 2u);
  EXPECT_EQ(m_winsock.Cleanups(), 2u);
}

TEST_F(AddressSpecificationTest, ALaterAddressIsFoundBehindGarbageAndTheOtherFamily) {
  const Texts addresses = {L"garbage", L"", L"fe80::1", L"10.0.0.9"};
  EXPECT_TRUE(Match(addresses, FIAT_SUBNET, L"10.0.0.0/24"));
  EXPECT_TRUE(Match(addresses, FIAT_RANGE_IP, L"10.0.0.1", L"10.0.0.10"));
  EXPECT_FALSE(Match(addresses, FIAT_SUBNET, L"10.0.1.0/24"));
}

TEST_F(AddressSpecificationTest, AWrongSubnetLooksAtNoAddress) {
  EXPECT_FALSE(Match({L"10.0.0.1"}, FIAT_SUBNET, L"garbage/8"));
  EXPECT_THAT(m_addrInfo.Asked(), ElementsAre(L"garbage"));
}

// Each question for a family that fails leaves a line, so their number is part of what support engineers read.
TEST_F(AddressSpecificationTest, TheFamilyOfAnAddressIsAskedForEachTestAndThatOfLowOnlyWhenItMatters) {
  Match({L"fe80::5"}, FIAT_RANGE_IP, L"fe80::1", L"fe80::9");
  EXPECT_THAT(m_addrInfo.Asked(), ElementsAre(L"fe80::5", L"fe80::5", L"fe80::1"));
}

TEST_F(AddressSpecificationTest, AGarbageAddressIsLoggedTwice) {
  Match({L"garbage"}, FIAT_RANGE_IP, L"10.0.0.1", L"10.0.0.9");
  EXPECT_THAT(m_addrInfo.Asked(), ElementsAre(L"garbage", L"garbage"));
  EXPECT_EQ(m_log.Texts(8).size(), 2u);
}

TEST_F(AddressSpecificationTest, AGarbageLowIsLoggedOnce) {
  Match({L"10.0.0.5"}, FIAT_RANGE_IP, L"garbage", L"10.0.0.9");
  EXPECT_THAT(m_addrInfo.Asked(), ElementsAre(L"10.0.0.5", L"garbage", L"10.0.0.5"));
  EXPECT_EQ(m_log.Texts(8).size(), 1u);
}

// ---- Failures ----

TEST_F(AddressSpecificationTest, ASubnetWithoutWinsockIsLoggedAndMatchesNothing) {
  m_winsock.FailWith(10091, 10092);
  EXPECT_FALSE(Match({L"10.0.0.1"}, FIAT_SUBNET, L"10.0.0.0/8"));
  EXPECT_THAT(m_log.Texts(8), ElementsAre(L"FIAT_SUBNET WSAStartup failed with error 10091 with last error 10092"));
  EXPECT_EQ(m_log.Events()[0].file, "FwClient/Service/QeLaLib/AddressSpecification.cpp");
  EXPECT_EQ(m_winsock.Cleanups(), 0u);
  EXPECT_THAT(m_addrInfo.Asked(), IsEmpty());
}

TEST_F(AddressSpecificationTest, ARangeWithoutWinsockIsLoggedAndMatchesNothing) {
  m_winsock.FailWith(10091, 10092);
  const std::wstring line =
      L"FIAT_RANGE_IP or FIAT_ANY_IP_V4 or FIAT_ANY_IP_V6 WSAStartup failed with error 10091 with last error 10092";
  for (const std::uint32_t kind : {3U, 7U, 8U})
    EXPECT_FALSE(Match({L"10.0.0.1"}, kind, L"0.0.0.0", L"255.255.255.255"));
  EXPECT_THAT(m_log.Texts(8), ElementsAre(line, line, line));
  EXPECT_EQ(m_winsock.Cleanups(), 0u);
  EXPECT_THAT(m_addrInfo.Asked(), IsEmpty());
}

TEST_F(AddressSpecificationTest, WithoutAnswersAboutFamiliesNothingMatchesAndEachQuestionIsLogged) {
  m_addrInfo.FailWith(11002, 11003);
  const std::wstring line = L"QeLaUtils::IsIPV4orIPV6 - GetAddrInfo failed with error 11002 with last error 11003";
  EXPECT_FALSE(Match({L"10.0.0.1"}, FIAT_SUBNET, L"10.0.0.0/8"));
  EXPECT_THAT(m_log.Texts(), ElementsAre(line));
  m_log.Clear();
  EXPECT_FALSE(Match({L"10.0.0.1"}, FIAT_RANGE_IP, L"0.0.0.0", L"255.255.255.255"));
  EXPECT_THAT(m_log.Texts(), ElementsAre(line, line));
}

// ---- Properties, over random subnets ----

using Bytes = std::vector<std::uint8_t>;

std::wstring TextOf(const Bytes& bytes) {
  std::wstring text;
  wchar_t part[8] = {};
  if (bytes.size() == 4) {
    for (const std::uint8_t byte : bytes) {
      if (!text.empty()) text += L'.';
      text += std::to_wstring(byte);
    }
    return text;
  }
  for (std::size_t i = 0; i < bytes.size(); i += 2) {
    _snwprintf(part, 8, i == 0 ? L"%x" : L":%x", static_cast<unsigned>(bytes[i] << 8 | bytes[i + 1]));
    text += part;
  }
  return text;
}

// The neighbour above or below; false when there is none.
bool Step(Bytes& bytes, bool up) {
  for (std::size_t i = bytes.size(); i-- > 0;) {
    bytes[i] = static_cast<std::uint8_t>(up ? bytes[i] + 1 : bytes[i] - 1);
    if (bytes[i] != (up ? 0x00 : 0xFF)) return true;
  }
  return false;
}

// The subnet's edges are inside and their neighbours outside; a random member is inside; nothing of the other family.
void CheckSubnet(std::mt19937& random, std::size_t size, std::size_t prefix) {
  Bytes address(size);
  for (auto& byte : address) byte = static_cast<std::uint8_t>(random());
  Bytes low = address;
  Bytes high = address;
  Bytes member = address;
  for (std::size_t bit = prefix; bit < size * 8; ++bit) {
    const auto flag = static_cast<std::uint8_t>(0x80 >> bit % 8);
    low[bit / 8] = static_cast<std::uint8_t>(low[bit / 8] & ~flag);
    high[bit / 8] = static_cast<std::uint8_t>(high[bit / 8] | flag);
    if (random() % 2 != 0) member[bit / 8] = static_cast<std::uint8_t>(member[bit / 8] ^ flag);
  }
  const std::wstring subnet = TextOf(address) + L'/' + std::to_wstring(prefix);
  SCOPED_TRACE(testing::PrintToString(subnet));
  for (const Bytes& inside : {address, low, high, member})
    EXPECT_TRUE(Match({TextOf(inside)}, FIAT_SUBNET, subnet)) << testing::PrintToString(TextOf(inside));
  if (Bytes below = low; Step(below, false)) {
    EXPECT_FALSE(Match({TextOf(below)}, FIAT_SUBNET, subnet)) << testing::PrintToString(TextOf(below));
  }
  if (Bytes above = high; Step(above, true)) {
    EXPECT_FALSE(Match({TextOf(above)}, FIAT_SUBNET, subnet)) << testing::PrintToString(TextOf(above));
  }
  Bytes other(size == 4 ? 16 : 4);
  for (auto& byte : other) byte = static_cast<std::uint8_t>(random());
  EXPECT_FALSE(Match({TextOf(other)}, FIAT_SUBNET, subnet));
  EXPECT_FALSE(Match({TextOf(other)}, FIAT_RANGE_IP, TextOf(low), TextOf(high)));
}

TEST_F(AddressSpecificationTest, ARandomIPv4SubnetHoldsItsEdgesAndNotTheirNeighbours) {
  std::mt19937 random(20240103);
  for (std::size_t prefix = 1; prefix <= 32; ++prefix)
    for (int round = 0; round < 8; ++round) CheckSubnet(random, 4, prefix);
}

TEST_F(AddressSpecificationTest, ARandomIPv6SubnetHoldsItsEdgesAndNotTheirNeighbours) {
  std::mt19937 random(20240104);
  for (std::size_t prefix = 1; prefix <= 127; ++prefix)
    for (int round = 0; round < 2; ++round) CheckSubnet(random, 16, prefix);
}

}  // namespace

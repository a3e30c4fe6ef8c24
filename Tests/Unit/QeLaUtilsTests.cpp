#include "FwClient/Service/QeLaLib/QeLaUtils.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <cwchar>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/NtDllExports.h"
#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/OfflineAddrInfo.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using QeLaUtils::IpCompareIPv4;
using QeLaUtils::IpCompareIPv6;
using QeLaUtils::IsIPV4orIPV6;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;

constexpr int kIPv4 = 2;
constexpr int kIPv6 = 23;
constexpr int kInvalidParameter = -1073741811;  // 0xC000000D
constexpr int kInvalidHandle = -1073741816;     // 0xC0000008

int Sign(int value) { return (value > 0) - (value < 0); }

struct Parse {
  const wchar_t* text;
  const wchar_t* same;  // the address that it stands for, in full
};

void PrintTo(const Parse& parse, std::ostream* out) { *out << testing::PrintToString(std::wstring(parse.text)); }

// ---- IPv4 ----

const Parse kIPv4Texts[] = {
    // Four decimal parts.
    {L"127.0.0.1", L"127.0.0.1"},
    {L"255.255.255.255", L"255.255.255.255"},
    {L"10.0.0.1", L"10.0.0.1"},
    {L"169.254.1.1", L"169.254.1.1"},
    {L"224.0.0.251", L"224.0.0.251"},
    // Fewer parts: the last one fills the bytes that are left.
    {L"10.1", L"10.0.0.1"},
    {L"10.1.2", L"10.1.0.2"},
    {L"10.1.258", L"10.1.1.2"},
    {L"10.1.65535", L"10.1.255.255"},
    {L"10.65536", L"10.1.0.0"},
    {L"10.16777215", L"10.255.255.255"},
    {L"1", L"0.0.0.1"},
    {L"256", L"0.0.1.0"},
    {L"167772161", L"10.0.0.1"},
    {L"3232235777", L"192.168.1.1"},
    {L"4294967295", L"255.255.255.255"},
    // Octal parts.
    {L"010.0.0.1", L"8.0.0.1"},
    {L"10.0.0.010", L"10.0.0.8"},
    {L"0177.0.0.1", L"127.0.0.1"},
    {L"192.0250.01.01", L"192.168.1.1"},
    {L"0300.0250.0001.0001", L"192.168.1.1"},
    {L"00.00.00.01", L"0.0.0.1"},
    {L"012.1", L"10.0.0.1"},
    {L"017700000001", L"127.0.0.1"},
    // Hexadecimal parts, also mixed with others.
    {L"0x7f.0.0.1", L"127.0.0.1"},
    {L"0x7F000001", L"127.0.0.1"},
    {L"0xc0a80101", L"192.168.1.1"},
    {L"0XC0.0XA8.0X1.0X1", L"192.168.1.1"},
    {L"0xA.0xB.0xC.0xD", L"10.11.12.13"},
    {L"10.0x10", L"10.0.0.16"},
    {L"10.0.0.0xff", L"10.0.0.255"},
    {L"0x0a.012.10.1", L"10.10.10.1"},
    // A port is read and forgotten.
    {L"10.0.0.1:80", L"10.0.0.1"},
    {L"10.0.0.1:65535", L"10.0.0.1"},
    // What follows the address does not matter.
    {L"10.0.0.1 ", L"10.0.0.1"},
    {L"10.0.0.1\t", L"10.0.0.1"},
    {L"10.0.0.1/24", L"10.0.0.1"},
    {L"10.0.0.1%5", L"10.0.0.1"},
    {L"10.0.0.1,10.0.0.2", L"10.0.0.1"},
    {L"10.0.0.1-10.0.0.9", L"10.0.0.1"},
    {L"10.0.0.1abc", L"10.0.0.1"},
    {L"10.0.0.008", L"10.0.0.0"},  // octal ends before the 8
    {L"1234BEEF", L"0.0.4.210"},   // decimal ends before the B
    // The zero address, written or for want of any.
    {L"0", L"0.0.0.0"},
    {L"0.0.0.0", L"0.0.0.0"},
    {L"0x0", L"0.0.0.0"},
    {L"", L"0.0.0.0"},
    {L" ", L"0.0.0.0"},
    {L"garbage", L"0.0.0.0"},
    {L"localhost", L"0.0.0.0"},
    {L"host.example", L"0.0.0.0"},
    {L"x.y.z.w", L"0.0.0.0"},
    {L"::1", L"0.0.0.0"},
    {L"fe80::1", L"0.0.0.0"},
    {L"::ffff:10.0.0.1", L"0.0.0.0"},
    {L"256.1.1.1", L"0.0.0.0"},
    {L"1.2.3.256", L"0.0.0.0"},
    {L"1.256.1", L"0.0.0.0"},
    {L"10.1.65536", L"0.0.0.0"},
    {L"10.16777216", L"0.0.0.0"},
    {L"4294967296", L"0.0.0.0"},
    {L"99999999999999999999", L"0.0.0.0"},
    {L" 10.0.0.1", L"0.0.0.0"},
    {L"-1", L"0.0.0.0"},
    {L"+10.0.0.1", L"0.0.0.0"},
    {L".1.2.3.4", L"0.0.0.0"},
    {L"10..0.1", L"0.0.0.0"},
    {L"..", L"0.0.0.0"},
    {L"10.", L"0.0.0.0"},
    {L"10.0.0.", L"0.0.0.0"},
    {L"10.0.0.1.5", L"0.0.0.0"},
    {L"10.0.0.-1", L"0.0.0.0"},
    {L"10.0.0.0x", L"0.0.0.0"},
    {L"[10.0.0.1]", L"0.0.0.0"},
    {L"/24", L"0.0.0.0"},
};

class IpCompareIPv4Test : public testing::Test {
 protected:
  const WinsockGuard m_winsock;
  LogRecorder m_log;
};

class IPv4Text : public IpCompareIPv4Test, public testing::WithParamInterface<Parse> {};

TEST_P(IPv4Text, ComparesByTheAddressItStandsFor) {
  const auto& [text, same] = GetParam();
  EXPECT_EQ(IpCompareIPv4(text, same), 0);
  EXPECT_EQ(IpCompareIPv4(same, text), 0);
  const bool zero = std::wstring(same) == L"0.0.0.0";
  EXPECT_EQ(IpCompareIPv4(text, L"0.0.0.0"), zero ? 0 : 1);
  EXPECT_EQ(IpCompareIPv4(L"0.0.0.0", text), zero ? 0 : -1);
}

INSTANTIATE_TEST_SUITE_P(Texts, IPv4Text, testing::ValuesIn(kIPv4Texts));

TEST_F(IpCompareIPv4Test, OrdersByNumberAndNotByText) {
  const wchar_t* const ascending[] = {
      L"0.0.0.0",   L"0.0.0.1",         L"0.0.1.0",    L"1.2.3.4",     L"9.255.255.255", L"10.0.0.1",
      L"10.0.0.9",  L"10.0.0.10",       L"10.0.0.100", L"10.0.1.0",    L"10.1.0.0",      L"11.0.0.0",
      L"100.0.0.0", L"127.255.255.255", L"128.0.0.0",  L"192.168.1.1", L"192.168.2.0",   L"255.255.255.255"};
  for (std::size_t i = 0; i < std::size(ascending); ++i)
    for (std::size_t j = 0; j < std::size(ascending); ++j)
      EXPECT_EQ(IpCompareIPv4(ascending[i], ascending[j]), i < j   ? -1
                                                           : i > j ? 1
                                                                   : 0)
          << testing::PrintToString(std::wstring(ascending[i])) << testing::PrintToString(std::wstring(ascending[j]));
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(IpCompareIPv4Test, OneGarbageTextEqualsAnother) {
  EXPECT_EQ(IpCompareIPv4(L"garbage", L""), 0);
  EXPECT_EQ(IpCompareIPv4(L"garbage", L"rubbish"), 0);
}

std::wstring IPv4Of(std::uint32_t number) {
  return std::to_wstring(number >> 24) + L'.' + std::to_wstring(number >> 16 & 255) + L'.' +
         std::to_wstring(number >> 8 & 255) + L'.' + std::to_wstring(number & 255);
}

TEST_F(IpCompareIPv4Test, OrderIsAntisymmetricAndTransitiveForRandomAddresses) {
  std::mt19937 random(20240101);
  std::uniform_int_distribution<std::uint32_t> low(0, 7);
  for (int i = 0; i < 2000; ++i) {
    // Every second triple differs in its last bits only, so that equal addresses occur.
    std::array<std::uint32_t, 3> numbers{};
    for (auto& number : numbers) number = i % 2 == 0 ? random() : 0xC0A80100U + low(random);
    const auto [a, b, c] = numbers;
    const int ab = IpCompareIPv4(IPv4Of(a), IPv4Of(b));
    const int bc = IpCompareIPv4(IPv4Of(b), IPv4Of(c));
    const int ac = IpCompareIPv4(IPv4Of(a), IPv4Of(c));
    EXPECT_EQ(ab, (a > b) - (a < b));
    EXPECT_EQ(ab, -IpCompareIPv4(IPv4Of(b), IPv4Of(a)));
    if (ab <= 0 && bc <= 0) {
      EXPECT_LE(ac, 0);
    }
    if (ab >= 0 && bc >= 0) {
      EXPECT_GE(ac, 0);
    }
  }
}

// ---- IPv6 ----

const Parse kIPv6Texts[] = {
    {L"::1", L"0:0:0:0:0:0:0:1"},
    {L"1::", L"1:0:0:0:0:0:0:0"},
    {L"2001:db8::1", L"2001:db8:0:0:0:0:0:1"},
    {L"2001:DB8::ABCD", L"2001:db8:0:0:0:0:0:abcd"},
    {L"2001:0db8:0000:0000:0000:0000:0000:0001", L"2001:db8:0:0:0:0:0:1"},
    {L"2001:db8::1:0:0:1", L"2001:db8:0:0:1:0:0:1"},
    {L"1:2:3:4:5:6:7::", L"1:2:3:4:5:6:7:0"},
    {L"::2:3:4:5:6:7:8", L"0:2:3:4:5:6:7:8"},
    {L"ff02::fb", L"ff02:0:0:0:0:0:0:fb"},
    {L"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", L"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"},
    // IPv4 parts, mapped addresses among them.
    {L"::ffff:10.0.0.1", L"0:0:0:0:0:ffff:a00:1"},
    {L"::FFFF:192.168.1.1", L"0:0:0:0:0:ffff:c0a8:101"},
    {L"::ffff:255.255.255.255", L"0:0:0:0:0:ffff:ffff:ffff"},
    {L"::10.0.0.1", L"0:0:0:0:0:0:a00:1"},
    {L"64:ff9b::192.0.2.33", L"64:ff9b:0:0:0:0:c000:221"},
    {L"1:2:3:4:5:6:1.2.3.4", L"1:2:3:4:5:6:102:304"},
    // Zones and ports are read and forgotten.
    {L"fe80::1%5", L"fe80:0:0:0:0:0:0:1"},
    {L"fe80::1%0", L"fe80:0:0:0:0:0:0:1"},
    {L"fe80::1%4294967295", L"fe80:0:0:0:0:0:0:1"},
    {L"[::1]:80", L"0:0:0:0:0:0:0:1"},
    {L"[2001:db8::1]:443", L"2001:db8:0:0:0:0:0:1"},
    {L"[fe80::1%5]:80", L"fe80:0:0:0:0:0:0:1"},
    {L"[::1]", L"0:0:0:0:0:0:0:1"},
    // What follows the address does not matter.
    {L"fe80::1%eth0", L"fe80:0:0:0:0:0:0:1"},
    {L"fe80::1%", L"fe80:0:0:0:0:0:0:1"},
    {L"2001:db8::1/64", L"2001:db8:0:0:0:0:0:1"},
    {L"2001:db8::1 ", L"2001:db8:0:0:0:0:0:1"},
    {L"2001:db8::1,2001:db8::2", L"2001:db8:0:0:0:0:0:1"},
    // The zero address, written or for want of any.
    {L"::", L"0:0:0:0:0:0:0:0"},
    {L"::0", L"0:0:0:0:0:0:0:0"},
    {L"::0.0.0.0", L"0:0:0:0:0:0:0:0"},
    {L"", L"0:0:0:0:0:0:0:0"},
    {L" ", L"0:0:0:0:0:0:0:0"},
    {L"garbage", L"0:0:0:0:0:0:0:0"},
    {L"localhost", L"0:0:0:0:0:0:0:0"},
    {L"10.0.0.1", L"0:0:0:0:0:0:0:0"},
    {L"1:2:3", L"0:0:0:0:0:0:0:0"},
    {L"1:2:3:4:5:6:7", L"0:0:0:0:0:0:0:0"},
    {L":", L"0:0:0:0:0:0:0:0"},
    {L"12345::", L"0:0:0:0:0:0:0:0"},
    {L"gggg::", L"0:0:0:0:0:0:0:0"},
    {L" ::1", L"0:0:0:0:0:0:0:0"},
    {L"%5", L"0:0:0:0:0:0:0:0"},
    {L"[", L"0:0:0:0:0:0:0:0"},
    {L"[]", L"0:0:0:0:0:0:0:0"},
};

class IpCompareIPv6Test : public IpCompareIPv4Test {};

class IPv6Text : public IpCompareIPv6Test, public testing::WithParamInterface<Parse> {};

TEST_P(IPv6Text, ComparesByTheAddressItStandsFor) {
  const auto& [text, same] = GetParam();
  EXPECT_EQ(IpCompareIPv6(text, same), 0);
  EXPECT_EQ(IpCompareIPv6(same, text), 0);
  const bool zero = std::wstring(same) == L"0:0:0:0:0:0:0:0";
  EXPECT_EQ(Sign(IpCompareIPv6(text, L"0:0:0:0:0:0:0:0")), zero ? 0 : 1);
  EXPECT_EQ(Sign(IpCompareIPv6(L"0:0:0:0:0:0:0:0", text)), zero ? 0 : -1);
}

INSTANTIATE_TEST_SUITE_P(Texts, IPv6Text, testing::ValuesIn(kIPv6Texts));

TEST_F(IpCompareIPv6Test, OrdersByTheBytes) {
  const wchar_t* const ascending[] = {
      L"::",     L"::1",    L"::2",     L"::a",       L"::10",    L"::100",
      L"::1:0",  L"1::",    L"9::",     L"a::",       L"10::",    L"2001:db8::1",
      L"7fff::", L"8000::", L"fe80::1", L"fe80::1:0", L"ff02::1", L"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff"};
  for (std::size_t i = 0; i < std::size(ascending); ++i)
    for (std::size_t j = 0; j < std::size(ascending); ++j)
      EXPECT_EQ(Sign(IpCompareIPv6(ascending[i], ascending[j])), i < j   ? -1
                                                                 : i > j ? 1
                                                                         : 0)
          << testing::PrintToString(std::wstring(ascending[i])) << testing::PrintToString(std::wstring(ascending[j]));
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(IpCompareIPv6Test, ZonesDoNotTellAddressesApart) { EXPECT_EQ(IpCompareIPv6(L"fe80::1%5", L"fe80::1%6"), 0); }

TEST_F(IpCompareIPv6Test, OrderIsAntisymmetricAndTransitiveForRandomAddresses) {
  std::mt19937 random(20240102);
  using Bytes = std::array<std::uint8_t, 16>;
  const auto text = [](const Bytes& bytes) {
    std::wstring result;
    for (std::size_t i = 0; i < bytes.size(); i += 2) {
      wchar_t group[6] = {};
      _snwprintf(group, 6, i == 0 ? L"%x" : L":%x", static_cast<unsigned>(bytes[i] << 8 | bytes[i + 1]));
      result += group;
    }
    return result;
  };
  for (int i = 0; i < 1000; ++i) {
    std::array<Bytes, 3> addresses{};
    for (Bytes& bytes : addresses) {
      // Every second triple differs in one late byte only, so that equal addresses occur.
      if (i % 2 == 0)
        for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
      else
        bytes[15] = static_cast<std::uint8_t>(random() % 8);
    }
    const auto& [a, b, c] = addresses;
    const int ab = Sign(IpCompareIPv6(text(a), text(b)));
    const int bc = Sign(IpCompareIPv6(text(b), text(c)));
    const int ac = Sign(IpCompareIPv6(text(a), text(c)));
    EXPECT_EQ(ab, (a > b) - (a < b));
    EXPECT_EQ(ab, -Sign(IpCompareIPv6(text(b), text(a))));
    if (ab <= 0 && bc <= 0) {
      EXPECT_LE(ac, 0);
    }
    if (ab >= 0 && bc >= 0) {
      EXPECT_GE(ac, 0);
    }
  }
}

// ---- Family ----

struct FamilyCase {
  const wchar_t* text;
  int family;
};

void PrintTo(const FamilyCase& item, std::ostream* out) { *out << testing::PrintToString(std::wstring(item.text)); }

const FamilyCase kFamilies[] = {
    {L"127.0.0.1", kIPv4},
    {L"0.0.0.0", kIPv4},
    {L"255.255.255.255", kIPv4},
    {L"192.168.1.1", kIPv4},
    // The lenient forms have a family too.
    {L"10.1", kIPv4},
    {L"10.1.258", kIPv4},
    {L"010.0.0.1", kIPv4},
    {L"0x7f.0.0.1", kIPv4},
    {L"::1", kIPv6},
    {L"::", kIPv6},
    {L"2001:db8::1", kIPv6},
    {L"2001:0DB8:0000:0000:0000:0000:0000:0001", kIPv6},
    {L"::ffff:10.0.0.1", kIPv6},
    {L"64:ff9b::192.0.2.33", kIPv6},
    {L"fe80::1%5", kIPv6},
    // So have brackets, which is how a port is written behind an IPv6 address; one behind IPv4 is refused.
    {L"[::1]", kIPv6},
    {L"[::1]:80", kIPv6},
    // Neither a numeric address nor, here, a name that resolves.
    {L"10.0.0.1:80", 0},
    {L"10.0.0.0/24", 0},
    {L"2001:db8::/32", 0},
    {L"1.2.3.256", 0},
    {L"256.1.1.1", 0},
    {L"10.0.0.1.5", 0},
    {L"12345::", 0},
    {L"1:2:3", 0},
    {L"garbage", 0},
    {L" ", 0},
    {L"/", 0},
};

class AddressFamilyTest : public testing::Test {
 protected:
  const WinsockGuard m_winsock;
  OfflineAddrInfo m_addrInfo{ThisProgram()};
  LogRecorder m_log;
};

class FamilyOfText : public AddressFamilyTest, public testing::WithParamInterface<FamilyCase> {};

TEST_P(FamilyOfText, IsThatOfTheNumericAddress) {
  EXPECT_EQ(IsIPV4orIPV6(GetParam().text), GetParam().family);
  EXPECT_THAT(m_addrInfo.Asked(), ElementsAre(GetParam().text));
  EXPECT_EQ(m_log.Texts().size(), GetParam().family == 0 ? 1u : 0u);
}

INSTANTIATE_TEST_SUITE_P(Texts, FamilyOfText, testing::ValuesIn(kFamilies));

TEST_F(AddressFamilyTest, OfANameIsThatOfItsFirstAddress) {
  m_addrInfo.Answer(L"six.example", {kIPv6, kIPv4});
  m_addrInfo.Answer(L"four.example", {kIPv4, kIPv6});
  EXPECT_EQ(IsIPV4orIPV6(L"six.example"), kIPv6);
  EXPECT_EQ(IsIPV4orIPV6(L"four.example"), kIPv4);
  EXPECT_THAT(m_log.Texts(), IsEmpty());
}

TEST_F(AddressFamilyTest, IsPassedOnWhateverItIs) {
  m_addrInfo.Answer(L"odd.example", {17});
  EXPECT_EQ(IsIPV4orIPV6(L"odd.example"), 17);
}

TEST_F(AddressFamilyTest, IsZeroForAnAnswerWithoutAddresses) {
  m_addrInfo.Answer(L"none.example", {});
  EXPECT_EQ(IsIPV4orIPV6(L"none.example"), 0);
}

TEST_F(AddressFamilyTest, IsZeroAndLoggedWithBothErrorsWhenTheQuestionFails) {
  m_addrInfo.FailWith(11001, 11004);
  EXPECT_EQ(IsIPV4orIPV6(L"127.0.0.1"), 0);
  EXPECT_THAT(m_log.Texts(8),
              ElementsAre(L"QeLaUtils::IsIPV4orIPV6 - GetAddrInfo failed with error 11001 with last error 11004"));
  EXPECT_THAT(m_log.Events(), Each(Field(&LoggedEvent::file, "FwClient/Service/QeLaLib/QeLaUtils.cpp")));
}

// Winsock itself, unscripted: localhost is known to every machine.
TEST(AddressFamily, OfLocalhostIsFoundWithoutDns) {
  const WinsockGuard winsock;
  EXPECT_THAT(IsIPV4orIPV6(L"localhost"), testing::AnyOf(kIPv4, kIPv6));
  EXPECT_EQ(IsIPV4orIPV6(L"127.0.0.1"), kIPv4);
  EXPECT_EQ(IsIPV4orIPV6(L"::1"), kIPv6);
}

// ---- What fails, and what then stands in the log ----

INT WSAAPI RefuseAddress(LPWSTR, INT, WSAPROTOCOL_INFOW*, sockaddr* address, INT* length) {
  // As a provider may do that fails half-way.
  std::memset(address, 0xEE, static_cast<std::size_t>(*length));
  ::WSASetLastError(10022);
  return SOCKET_ERROR;
}

struct StringToAddressCall {
  std::wstring text;
  int family;
  bool hasProtocol;
  int length;
  bool cleared;
};
std::vector<StringToAddressCall> g_calls;

INT WSAAPI RecordAddress(LPWSTR text, INT family, WSAPROTOCOL_INFOW* protocol, sockaddr* address, INT* length) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(address);
  bool cleared = true;
  for (int i = 0; i < *length; ++i) cleared = cleared && bytes[i] == 0;
  g_calls.push_back({text, family, protocol != nullptr, *length, cleared});
  return 0;
}

// A parser that writes before it fails, and remembers how it was asked.
std::wstring g_parsed;
BOOLEAN g_strict = TRUE;

LONG NTAPI FailingIPv4Parser(PCWSTR text, BOOLEAN strict, PCWSTR* terminator, IN_ADDR* address) {
  g_parsed += text;
  g_strict = strict;
  *terminator = text;
  address->s_addr = 0xFFFFFFFF;
  return static_cast<LONG>(0xC000000D);
}

LONG NTAPI FailingIPv6Parser(PCWSTR text, PCWSTR* terminator, IN6_ADDR* address) {
  g_parsed += text;
  *terminator = text;
  std::memset(address, 0xFF, sizeof *address);
  return static_cast<LONG>(0xC000000D);
}

// Parsers that stop in mid-text and succeed. Those of Wine refuse an address before a port that is none, where those
// of Windows do not look at ports.
LONG NTAPI StoppingIPv4Parser(PCWSTR text, BOOLEAN, PCWSTR* terminator, IN_ADDR* address) {
  *terminator = std::wcschr(text, L':');
  address->s_addr = 0x0100000A;  // 10.0.0.1
  return 0;
}

LONG NTAPI StoppingIPv6Parser(PCWSTR text, PCWSTR* terminator, IN6_ADDR* address) {
  *terminator = std::wcschr(text, L'/');
  address->s6_addr[15] = 9;  // ::9
  return 0;
}

FARPROC WINAPI NoProcAddress(HMODULE, LPCSTR) { return nullptr; }

FARPROC WINAPI FailingParsers(HMODULE, LPCSTR name) {
  void* const parser = std::strcmp(name, "RtlIpv4StringToAddressW") == 0 ? reinterpret_cast<void*>(&FailingIPv4Parser)
                                                                         : reinterpret_cast<void*>(&FailingIPv6Parser);
  return reinterpret_cast<FARPROC>(parser);
}

FARPROC WINAPI StoppingParsers(HMODULE, LPCSTR name) {
  void* const parser = std::strcmp(name, "RtlIpv4StringToAddressW") == 0 ? reinterpret_cast<void*>(&StoppingIPv4Parser)
                                                                         : reinterpret_cast<void*>(&StoppingIPv6Parser);
  return reinterpret_cast<FARPROC>(parser);
}

// What the loader finds while GetProcAddress is replaced.
class FakedNtDll {
 public:
  explicit FakedNtDll(FARPROC(WINAPI* getProcAddress)(HMODULE, LPCSTR))
      : m_patch(ThisProgram(), "GetProcAddress", getProcAddress) {}
  const NtDllExports& get() const { return m_exports; }

 private:
  ImportPatch m_patch;
  NtDllExports m_exports;
};

class ParserFailureTest : public testing::Test {
 protected:
  ParserFailureTest() {
    g_calls.clear();
    g_parsed.clear();
    g_strict = TRUE;
  }

  static std::wstring WsaFailed(const wchar_t* function, int error) {
    return std::wstring(L"QeLaUtils::") + function + L" - WSAStringToAddress failed with error -1 with last error " +
           std::to_wstring(error);
  }

  static void ExpectAskedForOneAndTwo(INT family, INT length) {
    ASSERT_EQ(g_calls.size(), 2u);
    EXPECT_EQ(g_calls[0].text, L"one");
    EXPECT_EQ(g_calls[1].text, L"two");
    for (const StringToAddressCall& call : g_calls) {
      EXPECT_EQ(call.family, family);
      EXPECT_FALSE(call.hasProtocol);
      EXPECT_EQ(call.length, length);
      EXPECT_TRUE(call.cleared);
    }
  }

  const WinsockGuard m_winsock;
};

TEST_F(ParserFailureTest, WinsockIsAskedForIPv4WithAClearedAddressOfItsSize) {
  const ImportPatch patch(ThisProgram(), "WSAStringToAddressW", &RecordAddress);
  IpCompareIPv4(L"one", L"two");
  ExpectAskedForOneAndTwo(kIPv4, 16);
}

TEST_F(ParserFailureTest, WinsockIsAskedForIPv6WithAClearedAddressOfItsSize) {
  const ImportPatch patch(ThisProgram(), "WSAStringToAddressW", &RecordAddress);
  IpCompareIPv6(L"one", L"two");
  ExpectAskedForOneAndTwo(kIPv6, 28);
}

TEST_F(ParserFailureTest, NtDllParsesTheIPv4TextsThatWinsockRefuses) {
  const ImportPatch patch(ThisProgram(), "WSAStringToAddressW", &RefuseAddress);
  const LogRecorder log;
  EXPECT_EQ(IpCompareIPv4(L"10.0.0.9", L"10.0.0.10"), -1);
  EXPECT_EQ(IpCompareIPv4(L"10.1", L"0xa.0.0.01"), 0);
  EXPECT_EQ(log.Texts(8), std::vector(4, WsaFailed(L"IpCompareIPv4", 10022)));
  EXPECT_EQ(log.Texts().size(), 4u);
}

TEST_F(ParserFailureTest, NtDllParsesTheIPv6TextsThatWinsockRefuses) {
  const ImportPatch patch(ThisProgram(), "WSAStringToAddressW", &RefuseAddress);
  const LogRecorder log;
  EXPECT_LT(IpCompareIPv6(L"::9", L"::10"), 0);
  EXPECT_EQ(IpCompareIPv6(L"fe80::1%5", L"fe80:0::1"), 0);
  EXPECT_EQ(log.Texts(8), std::vector(4, WsaFailed(L"IpCompareIPv6", 10022)));
  EXPECT_EQ(log.Texts().size(), 4u);
}

TEST_F(ParserFailureTest, TheParsersStatusCountsAndNotWhereItStopped) {
  const FakedNtDll ntDll(&StoppingParsers);
  const LogRecorder log;
  EXPECT_EQ(IpCompareIPv4(L"10.0.0.1:http", L"10.0.0.1", ntDll.get()), 0);
  EXPECT_EQ(IpCompareIPv4(L"10.0.0.2", L"10.0.0.1:", ntDll.get()), 1);
  EXPECT_EQ(IpCompareIPv6(L"::9/64", L"::9", ntDll.get()), 0);
  EXPECT_EQ(log.Texts().size(), 3u);  // Winsock's refusals only
}

TEST_F(ParserFailureTest, EachIPv4AddressThatBothParsersRefuseIsLoggedByItsName) {
  const ImportPatch patch(ThisProgram(), "WSAStringToAddressW", &RefuseAddress);
  const FakedNtDll ntDll(&FailingParsers);
  const LogRecorder log;
  EXPECT_EQ(IpCompareIPv4(L"10.0.0.1", L"10.0.0.2", ntDll.get()), 0);  // both are 0.0.0.0 now
  EXPECT_EQ(g_parsed, L"10.0.0.110.0.0.2");
  EXPECT_EQ(g_strict, FALSE);
  const std::wstring status = std::to_wstring(kInvalidParameter);
  EXPECT_THAT(log.Texts(8),
              ElementsAre(WsaFailed(L"IpCompareIPv4", 10022),
                          L"QeLaUtils::IpCompareIPv4 - addr1 RtlIpv4StringToAddress failed with error " + status,
                          WsaFailed(L"IpCompareIPv4", 10022),
                          L"QeLaUtils::IpCompareIPv4 - addr2 RtlIpv4StringToAddress failed with error " + status));
  EXPECT_THAT(log.Events(), Each(Field(&LoggedEvent::file, "FwClient/Service/QeLaLib/QeLaUtils.cpp")));
}

TEST_F(ParserFailureTest, OnlyTheFailedIPv4AddressIsZero) {
  const FakedNtDll ntDll(&FailingParsers);
  const LogRecorder log;
  EXPECT_EQ(IpCompareIPv4(L"garbage", L"0.0.0.1", ntDll.get()), -1);
  EXPECT_EQ(IpCompareIPv4(L"0.0.0.1", L"garbage", ntDll.get()), 1);
  ASSERT_EQ(log.Texts().size(), 4u);
  EXPECT_THAT(log.Texts()[1], testing::HasSubstr(L"addr1 Rtl"));
  EXPECT_THAT(log.Texts()[3], testing::HasSubstr(L"addr2 Rtl"));
}

TEST_F(ParserFailureTest, BothIPv6FailuresAreLoggedAsAddr2) {
  const ImportPatch patch(ThisProgram(), "WSAStringToAddressW", &RefuseAddress);
  const FakedNtDll ntDll(&FailingParsers);
  const LogRecorder log;
  EXPECT_EQ(IpCompareIPv6(L"::1", L"::2", ntDll.get()), 0);  // both are :: now
  EXPECT_EQ(g_parsed, L"::1::2");
  const std::wstring failed = L"QeLaUtils::IpCompareIPv6 - addr2 RtlIpv6StringToAddress failed with error " +
                              std::to_wstring(kInvalidParameter);
  EXPECT_THAT(log.Texts(8),
              ElementsAre(WsaFailed(L"IpCompareIPv6", 10022), failed, WsaFailed(L"IpCompareIPv6", 10022), failed));
}

TEST_F(ParserFailureTest, WithoutNtDllParsersTheStatusIsThatOfAnInvalidHandle) {
  LogRecorder log;
  const FakedNtDll ntDll(&NoProcAddress);
  const ImportPatch patch(ThisProgram(), "WSAStringToAddressW", &RefuseAddress);
  log.Clear();  // of the loader's own lines
  EXPECT_EQ(IpCompareIPv4(L"10.0.0.1", L"10.0.0.2", ntDll.get()), 0);
  EXPECT_EQ(IpCompareIPv6(L"::1", L"::2", ntDll.get()), 0);
  const std::wstring status = std::to_wstring(kInvalidHandle);
  const std::wstring failed6 = L"QeLaUtils::IpCompareIPv6 - addr2 RtlIpv6StringToAddress failed with error " + status;
  EXPECT_THAT(log.Texts(8),
              ElementsAre(WsaFailed(L"IpCompareIPv4", 10022),
                          L"QeLaUtils::IpCompareIPv4 - addr1 RtlIpv4StringToAddress failed with error " + status,
                          WsaFailed(L"IpCompareIPv4", 10022),
                          L"QeLaUtils::IpCompareIPv4 - addr2 RtlIpv4StringToAddress failed with error " + status,
                          WsaFailed(L"IpCompareIPv6", 10022), failed6, WsaFailed(L"IpCompareIPv6", 10022), failed6));
}

// The real parsers, both: 10022 is WSAEINVAL, the status is STATUS_INVALID_PARAMETER.
TEST_F(ParserFailureTest, GarbageLeavesTheErrorsOfBothParsers) {
  const LogRecorder log;
  EXPECT_EQ(IpCompareIPv4(L"10.0.0.1", L"garbage"), 1);
  EXPECT_THAT(log.Texts(8), ElementsAre(WsaFailed(L"IpCompareIPv4", 10022),
                                        L"QeLaUtils::IpCompareIPv4 - addr2 RtlIpv4StringToAddress failed with error " +
                                            std::to_wstring(kInvalidParameter)));
}

}  // namespace

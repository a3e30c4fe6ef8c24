// The host's questions about addresses and adapters, put to the shipped library.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iphlpapi.h>

#include <QeLaApi.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/FreedMemory.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/OfflineAddrInfo.h"
#include "ScriptedWindows/Windows/WinsockCounter.h"
#include "Tests/Contract/ServiceTest.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::wstring>;

// The service with two adapters: an Ethernet card, and a wireless one with addresses of both families.
class AddressQueries : public ServiceTest {
 protected:
  AddressQueries() {
    m_adapters.Set(TwoAdapters());
    m_api = m_library.SmartApi();
    Forget();
  }

  static AdapterList TwoAdapters() {
    AdapterList list;
    list.Add(L"Card").Index(2).Mac({0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}).Ip("10.0.0.9");
    list.Add(L"Unplugged").Index(3).Mac({2, 0, 0, 0, 0, 3}).Ip("10.9.9.9").Down();
    list.Add(L"Wi-Fi")
        .Index(4)
        .Type(IF_TYPE_IEEE80211)
        .Mac({2, 0, 0, 0, 0, 0xFF})
        .Ip("192.168.1.77")
        .Ip("2001:db8:0:0:0:0:0:ab");
    return list;
  }

  void Forget() {
    m_log.Clear();
    m_adapters.ClearCalls();
  }

  bool MatchAdapters(std::uint32_t kind, const std::wstring& first, const std::wstring& second = L"") {
    return m_api->MatchAdapterAddresses(&kind, first, second);
  }

  std::shared_ptr<_IQeLaApiSmart> m_api;
};

TEST_F(AddressQueries, AddressesAreMatchedByEveryKind) {
  struct {
    Texts addresses;
    std::uint32_t kind;
    const wchar_t* first;
    const wchar_t* second;
    bool expected;
  } const cases[] = {
      {{L"10.0.0.2", L"10.0.0.1"}, FIAT_SINGLE_IP, L"10.0.0.1", L"", true},
      {{L"10.0.0.1"}, FIAT_SINGLE_IP, L"10.0.0.01", L"", false},
      {{L"192.168.1.255"}, FIAT_SUBNET, L"192.168.1.0/24", L"", true},
      {{L"192.168.2.0"}, FIAT_SUBNET, L"192.168.1.0/24", L"", false},
      {{L"10.0.0.1"}, FIAT_SUBNET, L"10.0.0.0/0", L"", false},
      {{L"2001:db8::1"}, FIAT_SUBNET, L"2001:db8::/32", L"", true},
      {{L"10.0.0.9"}, FIAT_RANGE_IP, L"10.0.0.1", L"10.0.0.10", true},
      {{L"10.0.0.11"}, FIAT_RANGE_IP, L"10.0.0.1", L"10.0.0.10", false},
      {{L"8.8.8.8"}, FIAT_ANY_IP_V4, L"0.0.0.0", L"255.255.255.255", true},
      {{L"::1"}, FIAT_ANY_IP_V4, L"0.0.0.0", L"255.255.255.255", false},
      {{L"::1"}, FIAT_ANY_IP_V6, L"::", L"ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", true},
      {{L"10.0.0.1"}, 2, L"10.0.0.1", L"10.0.0.1", false},
      {{L"10.0.0.1"}, 9, L"10.0.0.1", L"10.0.0.1", false},
  };
  for (const auto& [addresses, kind, first, second, expected] : cases)
    EXPECT_EQ(m_api->MatchAddressSpecification(addresses, &kind, first, second), expected)
        << kind << ' ' << testing::PrintToString(std::wstring(first));
  EXPECT_FALSE(m_api->MatchAddressSpecification({L"10.0.0.1"}, nullptr, L"10.0.0.1", L""));
}

TEST_F(AddressQueries, TheAddressesOfEveryAdapterThatIsUpCount) {
  EXPECT_TRUE(MatchAdapters(FIAT_SUBNET, L"10.0.0.0/24"));
  EXPECT_TRUE(MatchAdapters(FIAT_RANGE_IP, L"192.168.1.70", L"192.168.1.80"));
  EXPECT_TRUE(MatchAdapters(FIAT_SUBNET, L"2001:db8::/32"));
  EXPECT_FALSE(MatchAdapters(FIAT_SUBNET, L"10.9.9.0/24"));
  EXPECT_FALSE(MatchAdapters(2, L"10.0.0.9", L"10.0.0.9"));
  EXPECT_FALSE(m_api->MatchAdapterAddresses(nullptr, L"10.0.0.9", L""));
}

TEST_F(AddressQueries, ASingleAddressIsComparedWithTheSystemsSpelling) {
  EXPECT_TRUE(MatchAdapters(FIAT_SINGLE_IP, L"10.0.0.9"));
  EXPECT_TRUE(MatchAdapters(FIAT_SINGLE_IP, L"2001:db8::ab"));
  EXPECT_FALSE(MatchAdapters(FIAT_SINGLE_IP, L"2001:db8:0:0:0:0:0:ab"));
  EXPECT_FALSE(MatchAdapters(FIAT_SINGLE_IP, L"2001:DB8::AB"));
}

TEST_F(AddressQueries, WinsockIsStartedAndCleanedUpForEachAdapterThatIsAsked) {
  WinsockCounter winsock(Module());
  EXPECT_FALSE(MatchAdapters(FIAT_SUBNET, L"172.16.0.0/12"));
  EXPECT_EQ(winsock.Startups(), 2u);
  EXPECT_EQ(winsock.Cleanups(), 2u);
  EXPECT_TRUE(MatchAdapters(FIAT_SUBNET, L"10.0.0.0/24"));  // the first one decides
  EXPECT_EQ(winsock.Startups(), 3u);
  EXPECT_EQ(winsock.Cleanups(), 3u);
}

TEST_F(AddressQueries, EveryAnswerOfWinsockIsFreed) {
  OfflineAddrInfo addrInfo(Module());
  EXPECT_FALSE(MatchAdapters(FIAT_RANGE_IP, L"fe80::1", L"fe80::9"));
  EXPECT_TRUE(MatchAdapters(FIAT_SUBNET, L"2001:db8::/32"));
  EXPECT_FALSE(addrInfo.Asked().empty());
}

TEST_F(AddressQueries, AnAdapterWithoutWinsockIsLoggedAndMatchesNothing) {
  WinsockCounter winsock(Module());
  winsock.FailWith(10091, 10091);
  EXPECT_FALSE(MatchAdapters(FIAT_SUBNET, L"10.0.0.0/24"));
  const std::wstring line = L"FIAT_SUBNET WSAStartup failed with error 10091 with last error 10091";
  EXPECT_THAT(m_log.Texts(8), ElementsAre(line, line));
}

TEST_F(AddressQueries, MediaTypesAreTestedByBitAndLogged) {
  EXPECT_FALSE(m_api->IsAdapterMediaType(2, {2}));
  EXPECT_TRUE(m_api->IsAdapterMediaType(3, {2}));
  m_log.Clear();
  EXPECT_TRUE(m_api->IsAdapterMediaType(2, {4}));
  EXPECT_THAT(m_log.Texts(8),
              ElementsAre(L"The Adapter Card has Media Type as 1.", L"The Adapter Wi-Fi has Media Type as 2."));
  EXPECT_EQ(m_log.Events()[0].file, "FwClient/Service/QeLaLib/AdapterQueries.cpp");
  m_log.Clear();
  EXPECT_FALSE(m_api->IsAdapterMediaType(255, {}));
  EXPECT_EQ(m_log.Texts(8).size(), 2u);
  EXPECT_FALSE(m_api->IsAdapterMediaType(255, {3}));  // not up, so not in the snapshot
}

// The host's log sink asks for a calculation, which replaces the snapshot while the question walks it.
TEST_F(AddressQueries, MediaTypesAreThoseOfTheSnapshotThatTheQuestionBeganWith) {
  const FreedMemory freed(Module());
  m_log.OnEvent([this](const LoggedEvent&) {
    m_log.OnEvent(nullptr);
    m_adapters.Set({});
    EXPECT_TRUE(m_api->Save());
  });
  EXPECT_TRUE(m_api->IsAdapterMediaType(2, {4}));
  EXPECT_EQ(m_log.Count(L"The Adapter Wi-Fi has Media Type as 2."), 1u);
}

TEST_F(AddressQueries, PhysicalAddressesComeInTheOrderOfTheAdapters) {
  EXPECT_THAT(m_api->GetMacAddresses(), ElementsAre(L"00-1A-2B-3C-4D-5E", L"02-00-00-00-00-FF"));
}

TEST_F(AddressQueries, NoneOfThemTakesANewSnapshot) {
  m_adapters.Set({});
  EXPECT_TRUE(MatchAdapters(FIAT_SINGLE_IP, L"10.0.0.9"));
  EXPECT_TRUE(m_api->IsAdapterMediaType(1, {2}));
  EXPECT_EQ(m_api->GetMacAddresses().size(), 2u);
  EXPECT_EQ(m_adapters.CallCount(), 0u);
}

TEST_F(AddressQueries, WithoutAdaptersAllAreFalseOrEmptyAndNothingIsLogged) {
  m_adapters.Set({});
  m_api->Load();
  Forget();
  WinsockCounter winsock(Module());
  EXPECT_FALSE(MatchAdapters(FIAT_SINGLE_IP, L"10.0.0.9"));
  EXPECT_FALSE(MatchAdapters(FIAT_SUBNET, L"garbage"));
  EXPECT_FALSE(MatchAdapters(FIAT_ANY_IP_V4, L"0.0.0.0", L"255.255.255.255"));
  EXPECT_FALSE(m_api->IsAdapterMediaType(255, {2, 4}));
  EXPECT_THAT(m_api->GetMacAddresses(), IsEmpty());
  EXPECT_THAT(m_log.Texts(), IsEmpty());
  EXPECT_EQ(winsock.Startups(), 0u);
}

TEST_F(AddressQueries, NoneOfThemWaitsForTheLock) {
  bool right = false;
  m_api->Lock();
  OtherThread asker([&] {
    const std::uint32_t kind = FIAT_SUBNET;
    right = m_api->MatchAddressSpecification({L"10.0.0.1"}, &kind, L"10.0.0.0/24", L"") &&
            MatchAdapters(kind, L"10.0.0.0/24") && m_api->IsAdapterMediaType(1, {2}) &&
            m_api->GetMacAddresses().size() == 2;
  });
  EXPECT_TRUE(asker.HasEnded());
  m_api->Unlock();
  asker.Join();
  EXPECT_TRUE(right);
}

TEST_F(AddressQueries, ManyThreadsMayAskAtOnce) {
  std::array<bool, 8> right{};
  std::deque<OtherThread> askers;
  for (std::size_t i = 0; i < right.size(); ++i)
    askers.emplace_back([this, i, &right] {
      const std::uint32_t kind = FIAT_RANGE_IP;
      const std::wstring own = L"10.0.0." + std::to_wstring(i);
      bool all = true;
      for (int round = 0; round < 200; ++round)
        all = all && m_api->MatchAddressSpecification({L"fe80::1", own}, &kind, own, own) &&
              !m_api->MatchAddressSpecification({own}, &kind, L"10.0.1.0", L"10.0.1.255");
      right[i] = all;
    });
  askers.clear();  // waits for them
  EXPECT_THAT(right, testing::Each(true));
}

std::vector<std::string> g_lookedUp;
ImportPatch* g_getProcAddress = nullptr;

FARPROC WINAPI GetProcAddressSpy(HMODULE module, LPCSTR name) {
  if (std::strncmp(name, "RtlIpv", 6) == 0) g_lookedUp.emplace_back(name);
  return g_getProcAddress->Original<FARPROC WINAPI(HMODULE, LPCSTR)>()(module, name);
}

TEST_F(AddressQueries, TheLenientParsersWereFoundWhileTheLibraryWasLoaded) {
  ImportPatch spy(Module(), "GetProcAddress", &GetProcAddressSpy);
  g_getProcAddress = &spy;
  g_lookedUp.clear();
  const std::uint32_t kind = FIAT_RANGE_IP;
  // High is refused by Winsock for the blank, and read by ntdll.
  EXPECT_TRUE(m_api->MatchAddressSpecification({L"10.0.0.9"}, &kind, L"10.0.0.1", L"10.0.0.10 "));
  EXPECT_TRUE(m_api->MatchAddressSpecification({L"fe80::9"}, &kind, L"fe80::1", L"fe80::10 "));
  EXPECT_THAT(g_lookedUp, IsEmpty());
}

}  // namespace

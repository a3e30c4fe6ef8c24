// The host's questions about addresses and adapters, put to the shipped library.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iphlpapi.h>

#include <QeLaApi.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <deque>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Support/ImportPatch.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/WinsockFakes.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Texts = std::vector<std::wstring>;

// What GetAdaptersAddresses reports, linked as the system links it.
class FakeAdapters {
 public:
  struct Adapter {
    ULONG index;
    IFTYPE type;
    const wchar_t* description;
    std::vector<BYTE> physicalAddress;
    std::vector<const char*> addresses;
    IF_OPER_STATUS status = IfOperStatusUp;
  };

  explicit FakeAdapters(const std::vector<Adapter>& adapters) {
    for (const Adapter& adapter : adapters) Add(adapter);
  }

  const IP_ADAPTER_ADDRESSES* First() const { return m_entries.empty() ? nullptr : &m_entries.front(); }

 private:
  void Add(const Adapter& adapter) {
    IP_ADAPTER_ADDRESSES& entry = m_entries.emplace_back();
    if (m_entries.size() > 1) m_entries[m_entries.size() - 2].Next = &entry;
    entry.IfIndex = adapter.index;
    entry.IfType = adapter.type;
    entry.Description = m_descriptions.emplace_back(adapter.description).data();
    entry.OperStatus = adapter.status;
    entry.PhysicalAddressLength = static_cast<ULONG>(adapter.physicalAddress.size());
    std::copy(adapter.physicalAddress.begin(), adapter.physicalAddress.end(), entry.PhysicalAddress);
    IP_ADAPTER_UNICAST_ADDRESS** link = &entry.FirstUnicastAddress;
    for (const char* text : adapter.addresses) {
      IP_ADAPTER_UNICAST_ADDRESS& unicast = m_unicasts.emplace_back();
      unicast.Address = SocketAddress(text);
      *link = &unicast;
      link = &unicast.Next;
    }
  }

  SOCKET_ADDRESS SocketAddress(const char* text) {
    auto& storage = m_storage.emplace_back();
    auto* const ipv4 = reinterpret_cast<sockaddr_in*>(&storage);
    auto* const ipv6 = reinterpret_cast<sockaddr_in6*>(&storage);
    const bool isIPv4 = ::inet_pton(AF_INET, text, &ipv4->sin_addr) == 1;
    if (!isIPv4) ::inet_pton(AF_INET6, text, &ipv6->sin6_addr);
    storage.ss_family = isIPv4 ? AF_INET : AF_INET6;
    return {reinterpret_cast<sockaddr*>(&storage), isIPv4 ? 16 : 28};
  }

  std::deque<IP_ADAPTER_ADDRESSES> m_entries;
  std::deque<std::wstring> m_descriptions;
  std::deque<IP_ADAPTER_UNICAST_ADDRESS> m_unicasts;
  std::deque<sockaddr_storage> m_storage;
};

const FakeAdapters* g_adapters = nullptr;
int g_queries = 0;

ULONG WINAPI GetAdaptersAddressesFake(ULONG, ULONG, PVOID, IP_ADAPTER_ADDRESSES* buffer, ULONG*) {
  ++g_queries;
  if (g_adapters->First() == nullptr) return ERROR_NO_DATA;
  // The first entry is copied; what it points to outlives the call.
  *buffer = *g_adapters->First();
  return ERROR_SUCCESS;
}

// The service with two adapters: an Ethernet card, and a wireless one with addresses of both families.
class AddressQueries : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(m_library, nullptr);
    using GetSmart = std::shared_ptr<_IQeLaApiSmart> (*)(CQeCriticalSection*);
    const auto getSmart =
        reinterpret_cast<GetSmart>(reinterpret_cast<void*>(::GetProcAddress(m_library, "GetQeLaApiSmart")));
    ASSERT_NE(getSmart, nullptr);
    m_patch = std::make_unique<ImportPatch>(m_library, "GetAdaptersAddresses", &GetAdaptersAddressesFake);
    Calculate(m_adapters);
    m_api = getSmart(nullptr);
    Calculate(m_adapters);
  }

  // Makes these the adapters of the last calculation.
  void Calculate(const FakeAdapters& adapters) {
    g_adapters = &adapters;
    if (m_api != nullptr) m_api->Load();
    m_log.Clear();
    g_queries = 0;
  }

  bool MatchAdapters(std::uint32_t kind, const std::wstring& first, const std::wstring& second = L"") {
    return m_api->MatchAdapterAddresses(&kind, first, second);
  }

  const HMODULE m_library = ::LoadLibraryW(L"QeLaLib.dll");
  const FakeAdapters m_adapters{
      {{2, IF_TYPE_ETHERNET_CSMACD, L"Card", {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, {"10.0.0.9"}},
       {3, IF_TYPE_ETHERNET_CSMACD, L"Unplugged", {2, 0, 0, 0, 0, 3}, {"10.9.9.9"}, IfOperStatusDown},
       {4, IF_TYPE_IEEE80211, L"Wi-Fi", {2, 0, 0, 0, 0, 0xFF}, {"192.168.1.77", "2001:db8:0:0:0:0:0:ab"}}}};
  const FakeAdapters m_none{{}};
  LogRecorder m_log;
  std::unique_ptr<ImportPatch> m_patch;
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
  WinsockCounter winsock(m_library);
  EXPECT_FALSE(MatchAdapters(FIAT_SUBNET, L"172.16.0.0/12"));
  EXPECT_EQ(winsock.Startups(), 2u);
  EXPECT_EQ(winsock.Cleanups(), 2u);
  EXPECT_TRUE(MatchAdapters(FIAT_SUBNET, L"10.0.0.0/24"));  // the first one decides
  EXPECT_EQ(winsock.Startups(), 3u);
  EXPECT_EQ(winsock.Cleanups(), 3u);
}

TEST_F(AddressQueries, EveryAnswerOfWinsockIsFreed) {
  OfflineAddrInfo addrInfo(m_library);
  EXPECT_FALSE(MatchAdapters(FIAT_RANGE_IP, L"fe80::1", L"fe80::9"));
  EXPECT_TRUE(MatchAdapters(FIAT_SUBNET, L"2001:db8::/32"));
  EXPECT_FALSE(addrInfo.Asked().empty());
}

TEST_F(AddressQueries, AnAdapterWithoutWinsockIsLoggedAndMatchesNothing) {
  WinsockCounter winsock(m_library);
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

TEST_F(AddressQueries, PhysicalAddressesComeInTheOrderOfTheAdapters) {
  EXPECT_THAT(m_api->GetMacAddresses(), ElementsAre(L"00-1A-2B-3C-4D-5E", L"02-00-00-00-00-FF"));
}

TEST_F(AddressQueries, NoneOfThemTakesANewSnapshot) {
  g_adapters = &m_none;
  EXPECT_TRUE(MatchAdapters(FIAT_SINGLE_IP, L"10.0.0.9"));
  EXPECT_TRUE(m_api->IsAdapterMediaType(1, {2}));
  EXPECT_EQ(m_api->GetMacAddresses().size(), 2u);
  EXPECT_EQ(g_queries, 0);
}

TEST_F(AddressQueries, WithoutAdaptersAllAreFalseOrEmptyAndNothingIsLogged) {
  Calculate(m_none);
  WinsockCounter winsock(m_library);
  EXPECT_FALSE(MatchAdapters(FIAT_SINGLE_IP, L"10.0.0.9"));
  EXPECT_FALSE(MatchAdapters(FIAT_SUBNET, L"garbage"));
  EXPECT_FALSE(MatchAdapters(FIAT_ANY_IP_V4, L"0.0.0.0", L"255.255.255.255"));
  EXPECT_FALSE(m_api->IsAdapterMediaType(255, {2, 4}));
  EXPECT_THAT(m_api->GetMacAddresses(), IsEmpty());
  EXPECT_THAT(m_log.Texts(), IsEmpty());
  EXPECT_EQ(winsock.Startups(), 0u);
}

TEST_F(AddressQueries, NoneOfThemWaitsForTheLock) {
  m_api->Lock();
  auto done = std::async(std::launch::async, [this] {
    const std::uint32_t kind = FIAT_SUBNET;
    return m_api->MatchAddressSpecification({L"10.0.0.1"}, &kind, L"10.0.0.0/24", L"") &&
           MatchAdapters(kind, L"10.0.0.0/24") && m_api->IsAdapterMediaType(1, {2}) &&
           m_api->GetMacAddresses().size() == 2;
  });
  EXPECT_EQ(done.wait_for(std::chrono::seconds(10)), std::future_status::ready);
  m_api->Unlock();
  EXPECT_TRUE(done.get());
}

TEST_F(AddressQueries, ManyThreadsMayAskAtOnce) {
  std::vector<std::future<bool>> askers;
  for (int i = 0; i < 8; ++i)
    askers.push_back(std::async(std::launch::async, [this, i] {
      const std::uint32_t kind = FIAT_RANGE_IP;
      const std::wstring own = L"10.0.0." + std::to_wstring(i);
      bool right = true;
      for (int round = 0; round < 200; ++round)
        right = right && m_api->MatchAddressSpecification({L"fe80::1", own}, &kind, own, own) &&
                !m_api->MatchAddressSpecification({own}, &kind, L"10.0.1.0", L"10.0.1.255");
      return right;
    }));
  for (std::future<bool>& asker : askers) EXPECT_TRUE(asker.get());
}

std::vector<std::string> g_lookedUp;
ImportPatch* g_getProcAddress = nullptr;

FARPROC WINAPI GetProcAddressSpy(HMODULE module, LPCSTR name) {
  if (std::strncmp(name, "RtlIpv", 6) == 0) g_lookedUp.emplace_back(name);
  return g_getProcAddress->Original<FARPROC WINAPI(HMODULE, LPCSTR)>()(module, name);
}

TEST_F(AddressQueries, TheLenientParsersWereFoundWhileTheLibraryWasLoaded) {
  ImportPatch spy(m_library, "GetProcAddress", &GetProcAddressSpy);
  g_getProcAddress = &spy;
  g_lookedUp.clear();
  const std::uint32_t kind = FIAT_RANGE_IP;
  // High is refused by Winsock for the blank, and read by ntdll.
  EXPECT_TRUE(m_api->MatchAddressSpecification({L"10.0.0.9"}, &kind, L"10.0.0.1", L"10.0.0.10 "));
  EXPECT_TRUE(m_api->MatchAddressSpecification({L"fe80::9"}, &kind, L"fe80::1", L"fe80::10 "));
  EXPECT_THAT(g_lookedUp, IsEmpty());
}

}  // namespace

#include "FwClient/Service/QeLaLib/AdapterSnapshot.h"

#include <LogLibHost.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/QeLaLib.h"
#include "ScriptedWindows/ImportTable/HeapWatch.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/AdapterList.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "Tests/Support/LogRecorder.h"

namespace {

using Texts = std::vector<std::wstring>;

std::vector<AdapterProps> RecordsOf(const AdapterList& list) {
  std::vector<AdapterProps> records;
  AppendAdapters(list.Build().First(), records);
  return records;
}

std::wstring TextOf(const FakeAddress& address) {
  std::vector<std::byte> bytes = address.Bytes();
  return SocketAddressToText(
      {bytes.empty() ? nullptr : reinterpret_cast<SOCKADDR*>(bytes.data()), static_cast<INT>(bytes.size())});
}

TEST(SocketAddressToText, SpellsAddressesAsTheSystemDoes) {
  EXPECT_EQ(TextOf("192.168.1.1"), L"192.168.1.1");
  EXPECT_EQ(TextOf("0.0.0.0"), L"0.0.0.0");
  EXPECT_EQ(TextOf("255.255.255.255"), L"255.255.255.255");
  EXPECT_EQ(TextOf("FE80:0:0:0:0:0:0:1"), L"fe80::1");
  EXPECT_EQ(TextOf("::"), L"::");
  EXPECT_EQ(TextOf("2001:db8:1:2:3:4:5:6"), L"2001:db8:1:2:3:4:5:6");
}

TEST(SocketAddressToText, HasNothingForOtherFamiliesAndForNoAddress) {
  EXPECT_EQ(TextOf(FakeAddress::OfFamily(AF_UNSPEC)), L"");
  EXPECT_EQ(TextOf(FakeAddress::OfFamily(AF_IPX)), L"");
  EXPECT_EQ(TextOf(FakeAddress::OfFamily(-1)), L"");
  EXPECT_EQ(TextOf(FakeAddress::Null()), L"");
}

TEST(SocketAddressToText, IsEmptyWhenTheSystemCannotSpellTheAddress) {
  const ImportPatch patch(
      ThisProgram(), "inet_ntop", +[](INT, const void*, char*, std::size_t) WINAPI -> const char* { return nullptr; });
  EXPECT_EQ(TextOf("10.0.0.1"), L"");
  EXPECT_EQ(TextOf("fe80::1"), L"");
}

TEST(AppendAdapters, TakesEveryFieldOfAnEntry) {
  AdapterList list;
  list.Add(L"Intel(R) Ethernet")
      .Index(12)
      .DnsSuffix(L"Corp.Example")
      .Mac({0x00, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e})
      .Ip("10.0.0.5")
      .Ip("fe80::5")
      .Gateway("10.0.0.1")
      .Gateway("fe80::1")
      .DnsServer("10.0.0.3")
      .DnsServer("10.0.0.4")
      .Wins("10.0.0.6")
      .Wins("10.0.0.7")
      .Dhcp("10.0.0.2")
      .DhcpV6("fe80::2");
  const auto records = RecordsOf(list);
  ASSERT_EQ(records.size(), 1u);
  const AdapterProps& record = records[0];
  EXPECT_EQ(record.ifIndex, 12u);
  EXPECT_EQ(record.mediaType, Wired);
  EXPECT_EQ(record.description, L"Intel(R) Ethernet");
  EXPECT_EQ(record.gateways, (Texts{L"10.0.0.1", L"fe80::1"}));
  EXPECT_TRUE(record.dhcpEnabled);
  EXPECT_EQ(record.dhcpServer, L"10.0.0.2");
  EXPECT_EQ(record.dhcpV6Server, L"fe80::2");
  EXPECT_EQ(record.ipAddresses, (Texts{L"10.0.0.5", L"fe80::5"}));
  EXPECT_EQ(record.macAddresses, Texts{L"00-1A-2B-3C-4D-5E"});
  EXPECT_EQ(record.dnsSuffix, L"Corp.Example");
  EXPECT_EQ(record.dnsServers, (Texts{L"10.0.0.3", L"10.0.0.4"}));
  EXPECT_EQ(record.winsPrimary, L"10.0.0.6");
  EXPECT_EQ(record.winsSecondary, L"10.0.0.7");
}

TEST(AppendAdapters, AnEntryWithNothingIsARecordWithNothing) {
  AdapterList list;
  list.Add(nullptr).Index(0).Ipv6Index(9).DnsSuffix(nullptr);
  const auto records = RecordsOf(list);
  ASSERT_EQ(records.size(), 1u);
  const AdapterProps& record = records[0];
  EXPECT_EQ(record.ifIndex, 0u) << "the IPv6 index is another one";
  EXPECT_EQ(record.mediaType, Wired);
  EXPECT_EQ(record.description, L"");
  EXPECT_EQ(record.dnsSuffix, L"");
  EXPECT_FALSE(record.dhcpEnabled);
  EXPECT_TRUE(record.gateways.empty() && record.ipAddresses.empty() && record.macAddresses.empty() &&
              record.dnsServers.empty());
  EXPECT_TRUE(record.dhcpServer.empty() && record.dhcpV6Server.empty() && record.winsPrimary.empty() &&
              record.winsSecondary.empty());
}

TEST(AppendAdapters, LeavesOutAdaptersThatAreNotUpAndTheLoopback) {
  AdapterList list;
  list.AddLoopback();
  list.Add(L"up");
  for (const IF_OPER_STATUS status : {IfOperStatusDown, IfOperStatusTesting, IfOperStatusUnknown, IfOperStatusDormant,
                                      IfOperStatusNotPresent, IfOperStatusLowerLayerDown})
    list.Add(L"not up").Status(status).Ip("10.0.0.5");
  list.Add(L"also up");
  const auto records = RecordsOf(list);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].description, L"up");
  EXPECT_EQ(records[1].description, L"also up");
}

TEST(AppendAdapters, AppendsBehindWhatIsThereAndTakesNoList) {
  std::vector<AdapterProps> records(1);
  AppendAdapters(nullptr, records);
  EXPECT_EQ(records.size(), 1u);
  AdapterList list;
  list.Add(L"second");
  AppendAdapters(list.Build().First(), records);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[1].description, L"second");
}

TEST(AppendAdapters, DropsAddressesWithoutText) {
  AdapterList list;
  list.Add(L"")
      .Gateway(FakeAddress::OfFamily(AF_IPX))
      .Gateway("10.0.0.1")
      .Gateway(FakeAddress::Null())
      .DnsServer(FakeAddress::Null())
      .DnsServer("10.0.0.3")
      .Ip(FakeAddress::OfFamily(AF_UNSPEC))
      .Ip("10.0.0.5");
  const auto records = RecordsOf(list);
  EXPECT_EQ(records[0].gateways, Texts{L"10.0.0.1"});
  EXPECT_EQ(records[0].dnsServers, Texts{L"10.0.0.3"});
  EXPECT_EQ(records[0].ipAddresses, Texts{L"10.0.0.5"});
}

TEST(AppendAdapters, IgnoresDhcpServersWhileDhcpIsOff) {
  AdapterList list;
  list.Add(L"stale").StaleDhcpServers("10.0.0.2", "fe80::2");
  list.Add(L"other flags").StaleDhcpServers("10.0.0.2", "fe80::2").Flags(0xffffffff & ~ULONG{0x4});
  list.Add(L"on, no server").Flags(0x4);
  const auto records = RecordsOf(list);
  for (int i : {0, 1}) {
    EXPECT_FALSE(records[static_cast<std::size_t>(i)].dhcpEnabled);
    EXPECT_EQ(records[static_cast<std::size_t>(i)].dhcpServer, L"");
    EXPECT_EQ(records[static_cast<std::size_t>(i)].dhcpV6Server, L"");
  }
  EXPECT_TRUE(records[2].dhcpEnabled);
  EXPECT_EQ(records[2].dhcpServer, L"");
}

TEST(AppendAdapters, TakesTheFirstTwoWinsServersByPlace) {
  AdapterList list;
  list.Add(L"one").Wins("10.0.0.6");
  list.Add(L"three").Wins("10.0.0.6").Wins("10.0.0.7").Wins("10.0.0.8");
  list.Add(L"first without text").Wins(FakeAddress::Null()).Wins("10.0.0.7");
  const auto records = RecordsOf(list);
  EXPECT_EQ(records[0].winsPrimary, L"10.0.0.6");
  EXPECT_EQ(records[0].winsSecondary, L"");
  EXPECT_EQ(records[1].winsPrimary, L"10.0.0.6");
  EXPECT_EQ(records[1].winsSecondary, L"10.0.0.7");
  EXPECT_EQ(records[2].winsPrimary, L"");
  EXPECT_EQ(records[2].winsSecondary, L"10.0.0.7");
}

TEST(AppendAdapters, WritesThePhysicalAddressInUpperCaseHexadecimal) {
  const struct {
    std::vector<BYTE> bytes;
    Texts expected;
  } cases[] = {
      {{0x0a, 0x1b, 0x2c, 0x3d, 0x4e, 0x5f}, {L"0A-1B-2C-3D-4E-5F"}},
      {{}, {}},
      {{0x00}, {L"00"}},
      {{0xff, 0x09}, {L"FF-09"}},
      {{1, 2, 3, 4, 5, 6, 7, 8}, {L"01-02-03-04-05-06-07-08"}},
  };
  for (const auto& row : cases) {
    AdapterList list;
    list.Add(L"").Mac(row.bytes);
    EXPECT_EQ(RecordsOf(list)[0].macAddresses, row.expected);
  }
}

TEST(AppendAdapters, TellsTheMediaTypeFromTypeAndDescription) {
  const struct {
    ULONG type;
    const wchar_t* description;
    AdapterMediaType expected;
  } cases[] = {
      {IF_TYPE_ETHERNET_CSMACD, L"Realtek PCIe GbE", Wired},
      {IF_TYPE_ETHERNET_CSMACD, L"", Wired},
      {IF_TYPE_ETHERNET_CSMACD, nullptr, Wired},
      {IF_TYPE_ETHERNET_CSMACD, L"virtua", Wired},  // shorter than the word
      {IF_TYPE_ETHERNET_CSMACD, L"virtua l", Wired},
      {IF_TYPE_ETHERNET_CSMACD, L"virtual", Virtual},
      {IF_TYPE_ETHERNET_CSMACD, L"Hyper-V Virtual Ethernet Adapter", Virtual},
      {IF_TYPE_ETHERNET_CSMACD, L"VIRTUAL switch", Virtual},
      {IF_TYPE_ETHERNET_CSMACD, L"myvIrTuAlizer", Virtual},
      {IF_TYPE_ETHERNET_CSMACD, L"v\u0130rtual", Wired},  // a Turkish letter is no "i"
      {IF_TYPE_IEEE80211, L"Wi-Fi 6", Wireless},
      {IF_TYPE_IEEE80211, L"Microsoft Wi-Fi Direct Virtual Adapter", Wireless},
      {IF_TYPE_ISO88025_TOKENRING, L"Token ring", Other},
      {IF_TYPE_TUNNEL, L"Virtual tunnel", Other},
      {IF_TYPE_PPP, L"VPN", Other},
      {IF_TYPE_OTHER, L"", Other},
  };
  for (const auto& row : cases) {
    AdapterList list;
    list.Add(row.description).Type(row.type);
    EXPECT_EQ(RecordsOf(list)[0].mediaType, row.expected)
        << row.type << " " << (row.description != nullptr ? row.description : L"null");
  }
}

TEST(AppendAdapters, KeepsTheDescriptionAsItIs) {
  AdapterList list;
  list.Add(L"VIRTUAL Switch \u00c4");
  EXPECT_EQ(RecordsOf(list)[0].description, L"VIRTUAL Switch \u00c4");
}

TEST(AppendAdapters, TakesThousandsOfAdaptersInOrder) {
  AdapterList list;
  for (ULONG i = 0; i < 3000; ++i) list.Add(std::to_wstring(i).c_str()).Index(i % 7);
  const auto records = RecordsOf(list);
  ASSERT_EQ(records.size(), 3000u);
  for (std::size_t i = 0; i < records.size(); ++i) ASSERT_EQ(records[i].description, std::to_wstring(i));
}

// The process heap as the snapshot uses it: by size, since others allocate there too.
class HeapLedger {
 public:
  HeapLedger() { s_self = this; }
  ~HeapLedger() { s_self = nullptr; }

  std::size_t failAt = 0;  // the allocation to fail, from 1 on; 0: none
  std::vector<SIZE_T> sizes;
  std::size_t freed = 0;

 private:
  static void* WINAPI Alloc(HANDLE heap, DWORD flags, SIZE_T bytes) {
    if (bytes < 15000) return s_self->m_alloc.Original<decltype(Alloc)>()(heap, flags, bytes);
    EXPECT_EQ(heap, ::GetProcessHeap());
    EXPECT_EQ(flags, 0u);
    s_self->sizes.push_back(bytes);
    if (s_self->sizes.size() == s_self->failAt) return nullptr;
    void* const memory = s_self->m_alloc.Original<decltype(Alloc)>()(heap, flags, bytes);
    s_self->m_living.push_back(memory);
    return memory;
  }
  static BOOL WINAPI Free(HANDLE heap, DWORD flags, void* memory) {
    auto& living = s_self->m_living;
    if (const auto it = std::find(living.begin(), living.end(), memory); it != living.end()) {
      EXPECT_EQ(heap, ::GetProcessHeap());
      EXPECT_EQ(flags, 0u);
      living.erase(it);
      ++s_self->freed;
    }
    return s_self->m_free.Original<decltype(Free)>()(heap, flags, memory);
  }

  static HeapLedger* s_self;
  std::vector<void*> m_living;
  ImportPatch m_alloc{ThisProgram(), "HeapAlloc", &Alloc};
  ImportPatch m_free{ThisProgram(), "HeapFree", &Free};
};

HeapLedger* HeapLedger::s_self;

class Service : public CQeLaLib {
 public:
  Service() : CQeLaLib(nullptr, false, NotLoaded{}) {}
  using CQeLaLib::BuildAdapterSnapshot;
  using CQeLaLib::CalculateCurrentAdapterProps;

  const std::vector<AdapterProps>& Adapters() const { return *m_adapters; }
  // What the last snapshot left.
  void LeaveAdapters(std::size_t count) { m_adapters = std::make_shared<std::vector<AdapterProps>>(count); }
};

class AdapterSnapshot : public testing::Test {
 protected:
  static AdapterList OneAdapter() {
    AdapterList list;
    list.AddLoopback();
    list.Add(L"Office").Index(5).Gateway("10.0.0.1");
    return list;
  }

  // A failed snapshot empties what the last one left.
  AdapterSnapshot() { m_service.LeaveAdapters(3); }

  void ExpectOnlyCalls(const std::vector<ULONG>& sizes) {
    std::vector<ULONG> asked;
    for (const FakeAdapters::Call& call : m_adapters.Calls()) asked.push_back(call.bytes);
    EXPECT_EQ(asked, sizes);
    const auto failed = m_heap.failAt != 0 && m_heap.failAt <= m_heap.sizes.size() ? 1u : 0u;
    EXPECT_EQ(m_heap.sizes.size(), sizes.size() + failed);
    EXPECT_EQ(m_heap.freed, sizes.size()) << "every buffer is freed, once";
  }

  static constexpr wchar_t kNoMemory[] = L"Memory allocation failed for IP_ADAPTER_ADDRESSES struct";
  static constexpr wchar_t kSuccess[] = L"GetAdaptersAddresses succeeds, the return value is : 0";

  FakeAdapters m_adapters{ThisProgram(), OneAdapter()};
  HeapLedger m_heap;
  LogRecorder m_log;
  Service m_service;
};

TEST_F(AdapterSnapshot, AsksTheSystemOnceForEverything) {
  EXPECT_TRUE(m_service.BuildAdapterSnapshot());
  ASSERT_EQ(m_service.Adapters().size(), 1u);
  EXPECT_EQ(m_service.Adapters()[0].ifIndex, 5u);
  const auto calls = m_adapters.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].family, ULONG{AF_UNSPEC});
  EXPECT_EQ(calls[0].flags, 0xd0u);
  EXPECT_EQ(calls[0].reserved, nullptr);
  ExpectOnlyCalls({15000});
  EXPECT_EQ(m_log.Texts(), Texts{kSuccess});
}

TEST_F(AdapterSnapshot, EachSnapshotStartsAnewAtTheUsualSize) {
  AdapterList many;
  for (int i = 0; i < 100; ++i) many.Add(L"Some adapter").Ip("10.0.0.5");
  m_adapters.Set(many);
  EXPECT_TRUE(m_service.BuildAdapterSnapshot());
  EXPECT_TRUE(m_service.BuildAdapterSnapshot());
  EXPECT_EQ(m_service.Adapters().size(), 100u);
  const auto calls = m_adapters.Calls();
  ASSERT_EQ(calls.size(), 4u);
  const ULONG needed = calls[0].bytesWritten;
  EXPECT_GT(needed, 15000u);
  ExpectOnlyCalls({15000, needed, 15000, needed});
}

TEST_F(AdapterSnapshot, GivesUpAfterFiveOverflows) {
  const ULONG overflow = ERROR_BUFFER_OVERFLOW;
  m_adapters.Script({{overflow, 16000}, {overflow, 17000}, {overflow, 18000}, {overflow, 19000}, {overflow, 20000}});
  EXPECT_FALSE(m_service.BuildAdapterSnapshot());
  ExpectOnlyCalls({15000, 16000, 17000, 18000, 19000});
  EXPECT_TRUE(m_service.Adapters().empty());
  EXPECT_TRUE(m_log.Texts().empty());
}

TEST_F(AdapterSnapshot, TakesTheAnswerOfTheFifthCall) {
  const ULONG overflow = ERROR_BUFFER_OVERFLOW;
  m_adapters.Script({{overflow, {}}, {overflow, {}}, {overflow, {}}, {overflow, {}}});  // the size does not grow
  EXPECT_TRUE(m_service.BuildAdapterSnapshot());
  ExpectOnlyCalls({15000, 15000, 15000, 15000, 15000});
  EXPECT_EQ(m_service.Adapters().size(), 1u);
  EXPECT_EQ(m_log.Texts(), Texts{kSuccess});
}

TEST_F(AdapterSnapshot, AnyOtherErrorIsFailureWithoutALine) {
  for (const ULONG error : {232ul, 1228ul, 13ul, 8ul, 87ul, 50ul}) {
    m_adapters.FailAlways(error);
    m_adapters.ClearCalls();
    m_service.LeaveAdapters(3);
    EXPECT_FALSE(m_service.BuildAdapterSnapshot()) << error;
    EXPECT_EQ(m_adapters.CallCount(), 1u) << error;
    EXPECT_TRUE(m_service.Adapters().empty()) << error;
  }
  EXPECT_EQ(m_heap.freed, m_heap.sizes.size());
  EXPECT_TRUE(m_log.Texts().empty());
}

TEST_F(AdapterSnapshot, AnErrorAfterAnOverflowIsFailureWithoutALine) {
  m_adapters.Script({{ERROR_BUFFER_OVERFLOW, 16000}, {ERROR_NO_DATA, {}}});
  EXPECT_FALSE(m_service.BuildAdapterSnapshot());
  ExpectOnlyCalls({15000, 16000});
  EXPECT_TRUE(m_log.Texts().empty());
}

// Without memory at the first try the answer counts as one without adapters, success line included.
TEST_F(AdapterSnapshot, NoMemoryAtTheFirstTryLogsTheSuccessAsWell) {
  m_heap.failAt = 1;
  EXPECT_FALSE(m_service.BuildAdapterSnapshot());
  ExpectOnlyCalls({});
  EXPECT_TRUE(m_service.Adapters().empty());
  EXPECT_EQ(m_log.Texts(8), (Texts{kNoMemory, kSuccess}));
}

TEST_F(AdapterSnapshot, NoMemoryAfterAnOverflowLogsOnlyThat) {
  m_heap.failAt = 2;
  m_adapters.Script({{ERROR_BUFFER_OVERFLOW, 16000}});
  EXPECT_FALSE(m_service.BuildAdapterSnapshot());
  ExpectOnlyCalls({15000});
  EXPECT_TRUE(m_service.Adapters().empty());
  EXPECT_EQ(m_log.Texts(8), Texts{kNoMemory});
}

TEST_F(AdapterSnapshot, AMachineWithOnlyTheLoopbackHasNoAdapters) {
  AdapterList list;
  list.AddLoopback();
  m_adapters.Set(list);
  EXPECT_FALSE(m_service.BuildAdapterSnapshot());
  EXPECT_TRUE(m_service.Adapters().empty());
  EXPECT_EQ(m_log.Texts(), Texts{kSuccess});
}

TEST_F(AdapterSnapshot, LogsAsTheFirewallDoes) {
  EXPECT_TRUE(m_service.CalculateCurrentAdapterProps());
  const auto events = m_log.Events();
  ASSERT_EQ(events.size(), 4u);
  for (const LoggedEvent& event : events) ExpectFirewallEvent(event, 8, "FwClient/Service/QeLaLib/AdapterSnapshot.cpp");
}

TEST_F(AdapterSnapshot, TheReportListsEveryAdapterAndASeparator) {
  AdapterList list = OneAdapter();
  list.Add(L"Home").Index(6);
  m_adapters.Set(list);
  EXPECT_TRUE(m_service.CalculateCurrentAdapterProps());
  ASSERT_EQ(m_service.Adapters().size(), 2u);
  const std::wstring separator = L"//---------------------------------------------\n";
  EXPECT_EQ(m_log.Texts(8),
            (Texts{kSuccess, L"Adapters List :", L"Adapter properties:\n" + RenderAdapterProps(m_service.Adapters()[0]),
                   separator, L"Adapter properties:\n" + RenderAdapterProps(m_service.Adapters()[1]), separator}));
}

TEST_F(AdapterSnapshot, TheReportIsWrittenAfterAFailureToo) {
  m_adapters.FailAlways(ERROR_NO_DATA);
  EXPECT_FALSE(m_service.CalculateCurrentAdapterProps());
  EXPECT_EQ(m_log.Texts(8), Texts{L"Adapters List :"});
}

TEST_F(AdapterSnapshot, EverySnapshotReplacesTheLast) {
  EXPECT_TRUE(m_service.CalculateCurrentAdapterProps());
  AdapterList list;
  list.Add(L"Home").Index(6);
  m_adapters.Set(list);
  EXPECT_TRUE(m_service.CalculateCurrentAdapterProps());
  ASSERT_EQ(m_service.Adapters().size(), 1u);
  EXPECT_EQ(m_service.Adapters()[0].description, L"Home");
}

// Nothing leaves the snapshot: whichever allocation fails, there is a whole snapshot or none.
TEST(AdapterSnapshotMemory, RunningOutOfItLeavesAWholeSnapshotOrNone) {
  AdapterList list;
  for (int i = 0; i < 3; ++i)
    list.Add(L"An adapter with a description that no string holds inline")
        .Gateway("2001:db8:1:2:3:4:5:6")
        .DnsServer("10.0.0.3")
        .Mac({1, 2, 3, 4, 5, 6});
  const FakeAdapters adapters(ThisProgram(), list);
  const LogRecorder log;
  FailEveryAllocation(ThisProgram(), [](auto attempt) {
    Service service;
    bool result = false;
    attempt([&] { EXPECT_NO_THROW(result = service.CalculateCurrentAdapterProps()); });
    EXPECT_EQ(service.Adapters().size(), result ? 3u : 0u);
  });
}

}  // namespace

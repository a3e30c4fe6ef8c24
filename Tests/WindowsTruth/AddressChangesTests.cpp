// Requests for notice of changed addresses, and the table of addresses.
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "Tests/WindowsTruth/Wine.h"

namespace {

constexpr ULONG_PTR kStatusPending = 0x103;
constexpr DWORD kLimitMs = 10'000;

// One request, withdrawn at its end.
class AddressRequest {
 public:
  ~AddressRequest() {
    if (IsPending() && Withdraw()) ::WaitForSingleObject(m_event.get(), kLimitMs);
  }

  DWORD Make() {
    s_overlapped.hEvent = m_event.get();
    return ::NotifyAddrChange(&m_handle, &s_overlapped);
  }
  static bool Withdraw() { return ::CancelIPChangeNotify(&s_overlapped) != FALSE; }

  HANDLE Event() const { return m_event.get(); }
  static bool IsPending() { return static_cast<const volatile ULONG_PTR&>(s_overlapped.Internal) == kStatusPending; }
  bool IsSignalled(DWORD withinMs) const { return ::WaitForSingleObject(m_event.get(), withinMs) == WAIT_OBJECT_0; }

 private:
  // Not on the stack: where Windows differs from what is asserted here, it may still write to it.
  static inline OVERLAPPED s_overlapped{};

  WinsockGuard m_winsock;
  UniqueWsaEvent m_event{::WSACreateEvent()};
  HANDLE m_handle = nullptr;
};

TEST(WindowsTruth, ARequestForAddressChangesPendsAndIsMarkedSo) {
  AddressRequest request;
  EXPECT_EQ(request.Make(), DWORD{ERROR_IO_PENDING});
  EXPECT_TRUE(AddressRequest::IsPending());
}

TEST(WindowsTruth, ARequestForAddressChangesResetsItsEvent) {
  AddressRequest request;
  ASSERT_TRUE(::SetEvent(request.Event()));
  ASSERT_EQ(request.Make(), DWORD{ERROR_IO_PENDING});
  EXPECT_FALSE(request.IsSignalled(0));
}

// Refused (87) or taken: either way the library must find the first as it was, which it then leaves alone.
TEST(WindowsTruth, ASecondRequestLeavesTheFirstPending) {
  AddressRequest request;
  ASSERT_EQ(request.Make(), DWORD{ERROR_IO_PENDING});
  const DWORD second = request.Make();
  RecordProperty("result_of_the_second", std::to_string(second));
  EXPECT_TRUE(second == ERROR_INVALID_PARAMETER || second == ERROR_IO_PENDING) << second;
  EXPECT_TRUE(AddressRequest::IsPending());
  EXPECT_FALSE(request.IsSignalled(0));
}

TEST(WindowsTruth, AWithdrawnRequestIsOverAndAnotherCanBeMade) {
  AddressRequest request;
  ASSERT_EQ(request.Make(), DWORD{ERROR_IO_PENDING});
  ASSERT_TRUE(AddressRequest::Withdraw());
  EXPECT_TRUE(request.IsSignalled(kLimitMs));
  EXPECT_FALSE(AddressRequest::IsPending());
  EXPECT_EQ(request.Make(), DWORD{ERROR_IO_PENDING});
  EXPECT_TRUE(AddressRequest::IsPending());
}

struct Row {
  DWORD address;
  DWORD index;
  DWORD mask;
  auto operator<=>(const Row&) const = default;
};

std::vector<Row> AddressTable() {
  std::vector<std::byte> buffer(64 * 1024);
  auto bytes = static_cast<ULONG>(buffer.size());
  auto* const table = reinterpret_cast<MIB_IPADDRTABLE*>(buffer.data());
  std::vector<Row> rows;
  if (::GetIpAddrTable(table, &bytes, FALSE) != NO_ERROR) {
    ADD_FAILURE() << "there is no table";
    return rows;
  }
  for (DWORD i = 0; i < table->dwNumEntries; ++i)
    rows.push_back({table->table[i].dwAddr, table->table[i].dwIndex, table->table[i].dwMask});
  std::sort(rows.begin(), rows.end());
  return rows;
}

// A difference counts as a change of address, so a table that differs from itself would never let the thread rest.
TEST(WindowsTruth, TheAddressTableOfAMachineAtRestIsTheSameEachTime) {
  const std::vector<Row> first = AddressTable();
  EXPECT_FALSE(first.empty());
  for (int i = 0; i < 100; ++i) ASSERT_EQ(AddressTable(), first);
}

TEST(WindowsTruth, AnAddressTableThatDoesNotFitTellsItsSize) {
  ULONG bytes = 0;
  ASSERT_EQ(::GetIpAddrTable(nullptr, &bytes, FALSE), DWORD{ERROR_INSUFFICIENT_BUFFER});
  ASSERT_GE(bytes, sizeof(MIB_IPADDRROW));
  std::vector<std::byte> buffer(bytes);
  EXPECT_EQ(::GetIpAddrTable(reinterpret_cast<MIB_IPADDRTABLE*>(buffer.data()), &bytes, FALSE), DWORD{NO_ERROR});
}

// An address of the loopback interface that goes with the object; none lasts beyond a restart of the machine.
class FurtherAddress {
 public:
  FurtherAddress() {
    DWORD index = 0;
    m_result = ::GetBestInterface(kLoopback, &index);
    ULONG instance = 0;
    if (m_result == NO_ERROR) m_result = ::AddIPAddress(kAddress, kMask, index, &m_context, &instance);
  }
  ~FurtherAddress() { Remove(); }
  FurtherAddress(const FurtherAddress&) = delete;
  FurtherAddress& operator=(const FurtherAddress&) = delete;

  DWORD Result() const { return m_result; }
  void Remove() {
    if (m_result == NO_ERROR) ::DeleteIPAddress(m_context);
    m_result = ERROR_NOT_FOUND;
  }

 private:
  static constexpr IPAddr kLoopback = 0x0100007f;  // 127.0.0.1
  static constexpr IPAddr kAddress = 0x4d4d007f;   // 127.0.77.77
  static constexpr IPMask kMask = 0xffffffff;

  DWORD m_result = NO_ERROR;
  ULONG m_context = 0;
};

TEST(WindowsTruthElevated, AChangeOfAddressEndsTheRequestAndShowsInTheTable) {
  SKIP_UNDER_WINE("AddIPAddress does nothing");
  const std::vector<Row> before = AddressTable();
  AddressRequest request;
  ASSERT_EQ(request.Make(), DWORD{ERROR_IO_PENDING});
  FurtherAddress address;
  ASSERT_EQ(address.Result(), DWORD{NO_ERROR});
  EXPECT_TRUE(request.IsSignalled(kLimitMs));
  EXPECT_FALSE(AddressRequest::IsPending());
  EXPECT_NE(AddressTable(), before);

  ASSERT_EQ(request.Make(), DWORD{ERROR_IO_PENDING});
  address.Remove();
  EXPECT_TRUE(request.IsSignalled(kLimitMs));
  EXPECT_EQ(AddressTable(), before);
}

}  // namespace

// What most tests of the kit start from: an empty registry of the test's own, one adapter, addresses that change when
// the test says so, and no service yet.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qela.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "ScriptedWindows/ImportTable/ThreadWatch.h"
#include "ScriptedWindows/Windows/FakeAdapters.h"
#include "ScriptedWindows/Windows/FakeAddressChanges.h"
#include "ScriptedWindows/Windows/FakeAddressTable.h"
#include "ScriptedWindows/Windows/RedirectedMachineHive.h"
#include "Tests/Support/StoredSet.h"

using Ids = std::vector<std::wstring>;
using Bytes = std::vector<std::uint8_t>;

// The text that `get(buffer, length)` hands out, asked for as a host asks: the length first.
template <typename Get>
std::wstring TextOf(Get get) {
  std::uint32_t length = 0;
  EXPECT_EQ(get(nullptr, &length), QELA_STATUS_BUFFER_TOO_SMALL);
  std::wstring text(length, L'?');
  EXPECT_EQ(get(text.data(), &length), QELA_STATUS_OK);
  EXPECT_EQ(length, text.size());
  EXPECT_EQ(text.back(), L'\0');
  text.pop_back();
  return text;
}

template <typename Get>
Bytes BytesOf(Get get) {
  std::uint32_t length = 0;
  EXPECT_EQ(get(nullptr, &length), QELA_STATUS_BUFFER_TOO_SMALL);
  Bytes bytes(length);
  EXPECT_EQ(get(bytes.data(), &length), QELA_STATUS_OK);
  EXPECT_EQ(length, bytes.size());
  return bytes;
}

Ids IdsIn(qela_locations* locations);

// A host's callback, with itself as the context, and what it was told.
class ToldHost {
 public:
  static void QELA_CALL OnChange(qela_locations* current, void* context);
  // What that does once it has read the IDs.
  void Note(Ids ids, qela_locations* current);

  // Called inside the callback, after the call was noted.
  void OnCall(std::function<void(qela_locations*)> hook);
  // The next call that no test has taken yet, within 10 seconds.
  std::optional<Ids> Take();
  std::size_t Untaken();

 private:
  std::mutex m_mutex;
  std::condition_variable m_called;
  std::function<void(qela_locations*)> m_hook;
  std::deque<Ids> m_calls;
};

// Two threads meet: one is held where it calls Pass, the test sees it there and lets it go.
class Gate {
 public:
  ~Gate() { ::CloseHandle(m_reached), ::CloseHandle(m_open); }
  void Pass() {
    ::SetEvent(m_reached);
    ::WaitForSingleObject(m_open, 10'000);
  }
  bool WaitUntilReached(DWORD mostMs = 10'000) { return ::WaitForSingleObject(m_reached, mostMs) == WAIT_OBJECT_0; }
  void Open() { ::SetEvent(m_open); }

 private:
  HANDLE m_reached = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE m_open = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

class KitTest : public ::testing::Test {
 protected:
  static constexpr std::uint32_t kOfficeIndex = 5;
  static constexpr wchar_t kOfficeGateway[] = L"10.0.0.1";

  KitTest();
  ~KitTest() override;

  static HMODULE Kit() { return ::GetModuleHandleW(L"QeLaC.dll"); }
  static HMODULE Library() { return ::GetModuleHandleW(L"QeLaLib.dll"); }

  // A machine with one adapter, with these gateways.
  static AdapterList Network(std::initializer_list<const char*> gateways) {
    AdapterList list;
    FakeAdapter& adapter =
        list.Add(L"Adapter").Index(kOfficeIndex).Ip("10.0.0.7").Mac({0, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e});
    for (const char* gateway : gateways) adapter.Gateway(gateway);
    return list;
  }
  // The machine moves, and nobody is told.
  void Join(std::initializer_list<const char*> gateways) { m_adapters.Set(Network(gateways)); }
  // The machine moves and its addresses change, which the discovery thread is told.
  void Move(std::initializer_list<const char*> gateways) {
    Join(gateways);
    m_table.Change();  // shows it to a thread that only begins to listen, when the one that is told ends
    EXPECT_TRUE(Listens()) << "nobody listens for changes";
    m_changes.Fire();
  }
  // Within 10 seconds. The thread may still be on its way to its request.
  bool Listens() const;

  // Opens the test's service; the fixture closes it.
  qela_service* Open(qela_options options = QELA_OPTIONS_INIT);
  qela_service* Service() { return m_service != nullptr ? m_service : Open(); }
  void Forget() { m_service = nullptr; }  // the test has closed it

  void Start(ToldHost& host) { ASSERT_EQ(qela_start(Service(), &ToldHost::OnChange, &host), QELA_STATUS_OK); }
  static void ExpectTold(ToldHost& host, const Ids& ids) {
    const std::optional<Ids> told = host.Take();
    ASSERT_TRUE(told.has_value()) << "the host is not called";
    EXPECT_EQ(*told, ids);
  }

  // A location with one gateway, or none, not stored. The fixture releases it.
  qela_location* NewLocation(const wchar_t* id, const wchar_t* gateway = nullptr);
  void Add(const wchar_t* id, const wchar_t* gateway = nullptr) {
    EXPECT_EQ(qela_add_location(Service(), NewLocation(id, gateway)), QELA_STATUS_OK);
  }
  Ids StoredIds();
  Ids CurrentIds();

  // What somebody else stores: locations with one gateway each.
  struct Foreign {
    std::string id;
    std::string gateway;
  };
  static Bytes SetOf(const std::vector<Foreign>& locations);
  void StoreAsSomebodyElse(const std::vector<Foreign>& locations) { m_hive.Put(SetOf(locations)); }

  WithStoredSet<RedirectedMachineHive> m_hive;
  FakeAdapters m_adapters{Library(), Network({"10.0.0.1"})};
  FakeAddressChanges m_changes{Library()};
  FakeAddressTable m_table{Library()};
  ThreadWatch m_threads{Kit()};
  qela_service* m_service = nullptr;
  std::vector<qela_location*> m_locations;
};

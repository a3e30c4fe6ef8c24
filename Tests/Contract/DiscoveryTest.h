// What tests of discovery start from: networks to join, address changes to fire, and what the host was told.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <initializer_list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/ImportTable/HandleWatch.h"
#include "ScriptedWindows/ImportTable/ThreadWatch.h"
#include "ScriptedWindows/Windows/FakeAddressChanges.h"
#include "ScriptedWindows/Windows/FakeAddressTable.h"
#include "ScriptedWindows/Windows/WaitWatch.h"
#include "Tests/Contract/ServiceTest.h"

// The host's callback, which has no context, and what it was called with.
class HostCallback {
 public:
  struct Call {
    Ids ids;
    DWORD thread;
    std::shared_ptr<_IEnumQeLocations> locations;
  };

  // Two callbacks, told apart by who was called.
  static void First(std::shared_ptr<_IEnumQeLocations> locations) { Receive(0, std::move(locations)); }
  static void Second(std::shared_ptr<_IEnumQeLocations> locations) { Receive(1, std::move(locations)); }

  // Called inside the callback, after the call was noted.
  static void OnCall(std::function<void()> hook) {
    const std::lock_guard lock(Get().m_mutex);
    Get().m_hook = std::move(hook);
  }

  // The next call that no test has taken yet, within 10 seconds.
  static std::optional<Call> Take(int who = 0) {
    HostCallback& self = Get();
    std::unique_lock lock(self.m_mutex);
    std::deque<Call>& calls = self.m_calls[who];
    if (!self.m_called.wait_for(lock, std::chrono::seconds(10), [&] { return !calls.empty(); })) return std::nullopt;
    Call call = std::move(calls.front());
    calls.pop_front();
    return call;
  }
  static std::size_t Untaken(int who = 0) {
    const std::lock_guard lock(Get().m_mutex);
    return Get().m_calls[who].size();
  }
  static void Reset() {
    const std::lock_guard lock(Get().m_mutex);
    Get().m_hook = nullptr;
    for (std::deque<Call>& calls : Get().m_calls) calls.clear();
  }

 private:
  static HostCallback& Get() {
    static HostCallback callback;
    return callback;
  }
  static void Receive(int who, std::shared_ptr<_IEnumQeLocations> locations) {
    HostCallback& self = Get();
    Call call{{}, ::GetCurrentThreadId(), locations};
    for (std::uint64_t i = 0; i < locations->GetCount(); ++i) call.ids.push_back(locations->GetItem(i)->GetId());
    locations.reset();
    std::function<void()> hook;
    {
      const std::lock_guard lock(self.m_mutex);
      self.m_calls[who].push_back(std::move(call));
      hook = self.m_hook;
    }
    self.m_called.notify_all();
    if (hook) hook();
  }

  std::mutex m_mutex;
  std::condition_variable m_called;
  std::function<void()> m_hook;
  std::deque<Call> m_calls[2];
};

// Two threads meet: one is held where it calls Pass, the test sees it there and lets it go.
class Gate {
 public:
  ~Gate() { ::CloseHandle(m_reached), ::CloseHandle(m_open); }
  void Pass() {
    ::SetEvent(m_reached);
    ::WaitForSingleObject(m_open, 10'000);
  }
  bool WaitUntilReached() { return ::WaitForSingleObject(m_reached, 10'000) == WAIT_OBJECT_0; }
  void Open() { ::SetEvent(m_open); }

 private:
  HANDLE m_reached = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE m_open = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
};

class DiscoveryTest : public ServiceTest {
 protected:
  static constexpr wchar_t kRefresh[] = L"The location discovery thread received a refresh notification";
  static constexpr wchar_t kChange[] = L"The location discovery thread received an address change notification";
  static constexpr wchar_t kRaising[] = L"Raising a location changed event...";
  static constexpr wchar_t kSkipped[] = L"Skipped raising a location changed event...";
  static constexpr wchar_t kStopping[] = L"Location discovery thread stopping...";
  static constexpr wchar_t kCalculating[] = L"Calculating current locations...";
  static constexpr char kOffice[] = "10.0.0.1";
  static constexpr wchar_t kOfficeGateway[] = L"10.0.0.1";

  DiscoveryTest() {
    m_adapters.Set(Network({}));
    HostCallback::Reset();
  }
  ~DiscoveryTest() override {
    HostCallback::Reset();
    m_log.OnEvent(nullptr);
    m_table.OnCall(nullptr);
    m_waits.OnWait(nullptr);
    m_changes.OnRequest(nullptr);
    m_adapters.OnCall(nullptr);
    if (m_service != nullptr) EndDiscovery(*m_service);
    m_service.reset();
  }

  // A machine with one adapter, with these gateways.
  static AdapterList Network(std::initializer_list<const char*> gateways) {
    AdapterList list;
    FakeAdapter& adapter = list.Add(L"Adapter").Index(kOfficeIndex).Ip("10.9.9.9");
    for (const char* gateway : gateways) adapter.Gateway(gateway);
    return list;
  }
  void Join(std::initializer_list<const char*> gateways) { m_adapters.Set(Network(gateways)); }

  // The instance that saves only when told to, made at the first use.
  _IQeLaApiSmart& Service() {
    if (m_service == nullptr) m_service = m_library.SmartApi();
    return *m_service;
  }
  void Store(const wchar_t* id, const wchar_t* gateway) {
    EXPECT_EQ(Service().AddLocation(NewLocation(Service(), id, gateway)), LSR_OK);
  }

  // Each returns when the thread waits again.
  void StartDiscovery(QeLaLocationsChanged callback = &HostCallback::First) { StartDiscovery(Service(), callback); }
  void StartDiscovery(_IQeLaApiSmart& service, QeLaLocationsChanged callback = &HostCallback::First) {
    UntilTheThreadWaits([&] { EXPECT_TRUE(service.StartDiscovery(callback)); });
  }
  void FireAddressChange() {
    UntilTheThreadWaits([&] { m_changes.Fire(); });
  }
  void Save() {
    UntilTheThreadWaits([&] { EXPECT_TRUE(Service().Save()); });
  }

  // Returns when, after the act, the thread has begun another wait.
  template <typename Act>
  void UntilTheThreadWaits(Act act) {
    const std::size_t waits = m_waits.Count();
    act();
    EXPECT_TRUE(m_waits.WaitForCount(waits + 1)) << "the thread does not come to wait";
  }

  void ExpectCallbackWith(const Ids& ids, int who = 0) {
    const std::optional<HostCallback::Call> call = HostCallback::Take(who);
    ASSERT_TRUE(call.has_value()) << "the host is not called";
    EXPECT_EQ(call->ids, ids);
  }
  void ExpectNoCallback() {
    EXPECT_EQ(HostCallback::Untaken(0), 0u);
    EXPECT_EQ(HostCallback::Untaken(1), 0u);
  }

  void EndDiscovery(_IQeLaApiSmart& service) {
    if (service.StopDiscovery() || m_threads.Count() == 0 || m_threads.HasEnded()) return;
    service.StartDiscovery(&HostCallback::First);  // a thread without a callback refuses to stop
    service.StopDiscovery();
  }

  // The log without what calculations write.
  std::vector<std::wstring> DiscoveryLines() const {
    std::vector<std::wstring> lines;
    for (const LoggedEvent& event : m_log.Events())
      if (event.file == "FwClient/Service/QeLaLib/QeLaLibDiscovery.cpp") lines.push_back(event.text);
    return lines;
  }

  FakeAddressChanges m_changes{Module()};
  FakeAddressTable m_table{Module()};
  WaitWatch m_waits{Module()};
  HandleWatch m_ledger{Module()};
  ThreadWatch m_threads{Module()};
  std::shared_ptr<_IQeLaApiSmart> m_service;
};

using Lines = std::vector<std::wstring>;

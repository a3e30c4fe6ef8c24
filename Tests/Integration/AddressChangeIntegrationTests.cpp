// Address changes on a real network that come while the library does not listen: run by AddressChangesTests.sh, in a
// network of its own with the adapter wifi0.
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Support/LogRecorder.h"
#include "Tests/Support/ServiceLibrary.h"
#include "Tests/Support/StoredSet.h"

namespace {

constexpr int kTimes = 200;

// Runs a command of the system around Wine and returns when an address has changed, which it must.
void ChangeAddresses(const std::wstring& command) {
  OVERLAPPED overlapped{};
  overlapped.hEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE handle = nullptr;
  ASSERT_EQ(::NotifyAddrChange(&handle, &overlapped), static_cast<DWORD>(ERROR_IO_PENDING));
  std::wstring line = L"sh -c \"" + command + L"\"";
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION process{};  // such a process has no handles
  ASSERT_TRUE(
      ::CreateProcessW(L"Z:\\bin\\sh", line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &process));
  EXPECT_EQ(::WaitForSingleObject(overlapped.hEvent, 20'000), WAIT_OBJECT_0) << "no address changes";
  ::CloseHandle(overlapped.hEvent);
}

// The route first: only addresses are told of.
void JoinTheOffice() {
  ChangeAddresses(L"ip route replace default via 10.20.0.1 dev wifi0 onlink && ip address add 10.20.0.15/24 dev wifi0");
}
void LeaveTheOffice() { ChangeAddresses(L"ip route del default dev wifi0 && ip address del 10.20.0.15/24 dev wifi0"); }

// An address that no location asks for comes or goes.
void ChangeSomethingElse(bool add) {
  ChangeAddresses(std::wstring(L"ip address ") + (add ? L"add" : L"del") + L" 127.0.3.1/8 dev lo");
}

class Host {
 public:
  static void Callback(std::shared_ptr<_IEnumQeLocations> locations) {
    Host& self = Get();
    std::function<void(std::uint64_t)> hook;
    {
      const std::lock_guard lock(self.m_mutex);
      hook = self.m_hook;
    }
    if (hook) hook(locations->GetCount());
    {
      const std::lock_guard lock(self.m_mutex);
      self.m_calls.push_back(locations->GetCount());
    }
    self.m_called.notify_all();
  }
  // Called inside the callback with the number of current locations.
  static void OnCall(std::function<void(std::uint64_t)> hook) {
    const std::lock_guard lock(Get().m_mutex);
    Get().m_hook = std::move(hook);
  }
  // The number of current locations that the host is told next.
  static std::optional<std::uint64_t> Take() {
    Host& self = Get();
    std::unique_lock lock(self.m_mutex);
    if (!self.m_called.wait_for(lock, std::chrono::seconds(20), [&] { return !self.m_calls.empty(); }))
      return std::nullopt;
    const std::uint64_t count = self.m_calls.front();
    self.m_calls.pop_front();
    return count;
  }

 private:
  static Host& Get() {
    static Host host;
    return host;
  }
  std::mutex m_mutex;
  std::condition_variable m_called;
  std::function<void(std::uint64_t)> m_hook;
  std::deque<std::uint64_t> m_calls;
};

// One location, the office by its gateway, and one whose criterion is asked of the registry, so that a test can hold
// the calculation where a probe would. Everything else is the system's.
class ChangeWhileNobodyListens : public ::testing::Test {
 protected:
  ChangeWhileNobodyListens() {
    const auto store = [this](LOCATION_CRITERIA_TYPE kind, const wchar_t* value) {
      const std::shared_ptr<_IQeLocation> location = m_service->CreateLocation();
      EXPECT_EQ(location->AddCriteria(&kind, value), LCR_OK);
      EXPECT_EQ(m_service->AddLocation(location), LSR_OK);
    };
    store(LCT_DEFAULT_GATEWAY, L"10.20.0.1");
    store(LCT_REGISTRY_KEY, L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Site\\");
    EXPECT_TRUE(m_service->Save());
  }
  ~ChangeWhileNobodyListens() override {
    Host::OnCall(nullptr);
    m_registry.OnCall(nullptr);
    m_service->StopDiscovery();
    if (m_atTheOffice) LeaveTheOffice();
  }

  void Move() {
    if (std::exchange(m_atTheOffice, !m_atTheOffice))
      LeaveTheOffice();
    else
      JoinTheOffice();
  }

  ServiceLibrary m_library;
  StoredRegistry m_registry{m_library.Module()};
  LogRecorder m_log;
  std::shared_ptr<_IQeLaApiSmart> m_service = m_library.SmartApi();
  bool m_atTheOffice = false;
};

TEST_F(ChangeWhileNobodyListens, DuringASlowProbeIsReportedWithoutAFurtherOne) {
  ASSERT_TRUE(m_service->StartDiscovery(&Host::Callback));
  for (int i = 0; i < kTimes; ++i) {
    SCOPED_TRACE(i);
    m_registry.OnCall([this](const ScriptedRegistry::Call& call) {
      if (call.function != "RegOpenKeyExW") return;
      m_registry.OnCall(nullptr);
      Move();
    });
    ChangeSomethingElse(i % 2 == 0);
    ASSERT_EQ(Host::Take(), i % 2 == 0 ? 1u : 0u);
    m_log.Clear();
  }
}

TEST_F(ChangeWhileNobodyListens, DuringTheCallbackIsReportedWithoutAFurtherOne) {
  int moves = 0;
  Host::OnCall([&](std::uint64_t) {
    if (++moves < kTimes) Move();
  });
  ASSERT_TRUE(m_service->StartDiscovery(&Host::Callback));
  Move();
  for (int i = 0; i < kTimes; ++i) {
    SCOPED_TRACE(i);
    ASSERT_EQ(Host::Take(), i % 2 == 0 ? 1u : 0u);
    m_log.Clear();
  }
}

TEST_F(ChangeWhileNobodyListens, BetweenLoadAndStartIsReportedWithoutAFurtherOne) {
  for (int i = 0; i < kTimes; ++i) {
    SCOPED_TRACE(i);
    EXPECT_TRUE(m_service->Load());
    Move();
    ASSERT_TRUE(m_service->StartDiscovery(&Host::Callback));
    ASSERT_EQ(Host::Take(), i % 2 == 0 ? 1u : 0u);
    EXPECT_TRUE(m_service->StopDiscovery());
    m_log.Clear();
  }
}

}  // namespace

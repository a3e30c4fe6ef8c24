// The discovery thread, which tells the host when its location has changed.
//
// Noticing (AddressChangeListener), deciding (CalculateCurrentLocations, RaiseLocationChanged) and calling the host are
// kept apart, so that each is tested without the others.
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <mutex>
#include <tuple>
#include <utility>

#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "FwClient/Service/QeLaLib/LaLog.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"

namespace {

constexpr DWORD kStopWaitMs = 1000;

// The IDs of the last raised event, one list for all instances: two that find the same locations report them once.
// It has a lock of its own, since two instances have two service locks; it is always the inner one.
struct LastRaised {
  std::mutex lock;
  std::vector<std::wstring> ids;
};

LastRaised& LastRaisedLocationIds() {
  static LastRaised lastRaised;
  return lastRaised;
}

// Requests for address-change notifications, on one event.
class AddressChangeListener {
 public:
  AddressChangeListener() noexcept : m_event(::WSACreateEvent()) { m_overlapped.hEvent = m_event.get(); }

  // Every pass of the thread arms anew, so several requests may be pending on the one OVERLAPPED. All are withdrawn and
  // waited for, until the system says that there is none: a later change must not be written into freed memory.
  ~AddressChangeListener() {
    DWORD bytes = 0;
    while (m_armed-- > 0 && ::CancelIPChangeNotify(&m_overlapped))
      ::GetOverlappedResult(m_handle, &m_overlapped, &bytes, TRUE);
  }
  AddressChangeListener(const AddressChangeListener&) = delete;
  AddressChangeListener& operator=(const AddressChangeListener&) = delete;

  HANDLE Event() const noexcept { return m_event.get(); }

  // Requests the next notification, which takes back one that was signalled and not seen. False when the system
  // refuses, or when there is no event: waiting on it would fail for ever.
  bool Arm() noexcept {
    if (!m_event) return false;
    const DWORD result = ::NotifyAddrChange(&m_handle, &m_overlapped);
    const int error = ::WSAGetLastError();
    if (result != NO_ERROR && result != ERROR_IO_PENDING && error != WSA_IO_PENDING) return false;
    ++m_armed;
    return true;
  }

  bool IsSignalled() const noexcept { return ::WaitForSingleObject(m_event.get(), 0) == WAIT_OBJECT_0; }

 private:
  UniqueWsaEvent m_event;
  OVERLAPPED m_overlapped{};
  HANDLE m_handle = nullptr;
  int m_armed = 0;
};

// Nothing may leave the thread: it would end the process. Want of memory, or a callback that throws, costs one pass.
template <typename Pass>
void Guarded(Pass pass) noexcept {
  try {
    pass();
  } catch (...) {
  }
}

}  // namespace

// One run of the thread, shared by the service and the thread, since either may be gone first.
struct CQeLaLib::DiscoveryRun {
  enum State : int { Running, Ended, Inherited };

  CQeLaLib* service = nullptr;
  HMODULE module = nullptr;  // a reference: the thread's code must not be unloaded under it
  HANDLE stopEvent = nullptr;
  HANDLE refreshEvent = nullptr;
  std::atomic<bool> serviceIsGoing{false};
  // Who frees the service: whoever of its destroyer (which sets Inherited) and the thread (Ended) comes second.
  std::atomic<int> state{Running};
};

bool CQeLaLib::StartDiscovery(QeLaLocationsChanged callback) {
  m_locationChangedCallback = callback;
  // Set before the thread exists: a thread that ends at once clears it, and must not find it set again afterwards.
  if (m_discoveryRunning.exchange(true)) return true;

  const auto start = [this] {
    // All memory comes first: what is opened below has no owner that an exception would find.
    auto run = std::make_shared<DiscoveryRun>();
    auto argument = std::make_unique<std::shared_ptr<DiscoveryRun>>(run);
    run->service = this;
    run->stopEvent = m_stopEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (m_stopEvent == nullptr) return false;
    run->refreshEvent = m_refreshEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (m_refreshEvent == nullptr) return false;
    if (!::GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS,
                              reinterpret_cast<const wchar_t*>(&CQeLaLib::DiscoveryThread), &run->module))
      return false;
    m_run = run;
    m_discoveryThread = ::CreateThread(nullptr, 0, &CQeLaLib::DiscoveryThread, argument.get(), 0, nullptr);
    if (m_discoveryThread == nullptr) {
      m_run.reset();
      ::FreeLibrary(run->module);
      return false;
    }
    std::ignore = argument.release();  // the thread's now
    return true;
  };

  bool started = false;
  try {
    started = start();
  } catch (...) {
    m_discoveryRunning = false;
    throw;
  }
  if (!started) m_discoveryRunning = false;
  return started;
}

bool CQeLaLib::StopDiscovery() {
  if (m_locationChangedCallback == nullptr) return false;
  ::SetEvent(m_stopEvent);
  ::WaitForSingleObject(m_discoveryThread, kStopWaitMs);
  m_locationChangedCallback = nullptr;
  return true;
}

void CQeLaLib::Destroy(CQeLaLib* service) noexcept {
  // Copies, since the service may be gone as soon as the thread has been offered it.
  const std::shared_ptr<DiscoveryRun> run = service->m_run;
  HANDLE thread = service->m_discoveryThread;
  if (run != nullptr) run->serviceIsGoing = true;
  if (!service->StopDiscovery() && service->m_discoveryRunning) {
    // Stopped earlier but still busy then, or started without a callback. Nobody waits for it, but it shall end.
    ::SetEvent(service->m_stopEvent);
  }
  if (run != nullptr && run->state.exchange(DiscoveryRun::Inherited) == DiscoveryRun::Running) {
    ::CloseHandle(thread);
    return;
  }
  Delete(service);
}

DWORD WINAPI CQeLaLib::DiscoveryThread(void* argument) {
  HMODULE module = nullptr;
  {
    const std::unique_ptr<std::shared_ptr<DiscoveryRun>> owner(static_cast<std::shared_ptr<DiscoveryRun>*>(argument));
    DiscoveryRun& run = **owner;
    module = run.module;
    CQeLaLib* const service = run.service;
    service->RunDiscovery(run);
    service->m_discoveryRunning = false;
    if (run.state.exchange(DiscoveryRun::Ended) == DiscoveryRun::Inherited) {
      service->m_discoveryThread = nullptr;  // closed by whoever gave up waiting
      Delete(service);
    }
  }
  ::FreeLibraryAndExitThread(module, 0);
}

void CQeLaLib::RunDiscovery(const DiscoveryRun& run) noexcept {
  // The event's functions are Winsock's, and no one else in the process may have started it.
  const WinsockGuard winsock;
  AddressChangeListener changes;
  const HANDLE waits[] = {run.stopEvent, run.refreshEvent, changes.Event()};
  while (!run.serviceIsGoing && changes.Arm()) {
    const DWORD result = ::WaitForMultipleObjects(3, waits, FALSE, INFINITE);
    const DWORD error = ::GetLastError();
    if (result == WAIT_OBJECT_0) break;
    bool addressesChanged = result == WAIT_OBJECT_0 + 2;
    if (result == WAIT_OBJECT_0 + 1) {
      // No calculation: the save that asked for the refresh has just made one.
      LA_LOG(kLogInfo, L"The location discovery thread received a refresh notification");
      Guarded([this] { RaiseLocationChanged(); });
      // When both were signalled the refresh won, and arming again would take the change back unseen.
      addressesChanged = changes.IsSignalled();
    } else if (!addressesChanged) {
      LA_LOG(kLogInfo, L"Location discovery thread got wait result %ld, %ld...", static_cast<long>(result),
             static_cast<long>(error));
    }
    if (addressesChanged && !run.serviceIsGoing) {
      LA_LOG(kLogInfo, L"The location discovery thread received an address change notification");
      Guarded([this] {
        CalculateCurrentLocations();
        RaiseLocationChanged();
      });
    }
  }
  LA_LOG(kLogInfo, L"Location discovery thread stopping...");
}

void CQeLaLib::RaiseLocationChanged() {
  std::shared_ptr<_IEnumQeLocations> current;
  {
    const CriticalSectionGuard lock(*m_lock);
    if (m_locationChangedCallback == nullptr) return;
    LastRaised& lastRaised = LastRaisedLocationIds();
    const std::lock_guard inner(lastRaised.lock);
    if (lastRaised.ids == m_currentLocationIds) {
      LA_LOG(kLogInfo, L"Skipped raising a location changed event...");
      return;
    }
    LA_LOG(kLogInfo, L"Raising a location changed event...");
    // Recorded last: should memory run out, the event counts as not raised and the next pass tries again.
    std::vector<std::wstring> ids = m_currentLocationIds;
    current = GetCurrentLocations();
    lastRaised.ids = std::move(ids);
  }
  // Read again: the host may have stopped discovery or replaced its callback meanwhile.
  if (const QeLaLocationsChanged callback = m_locationChangedCallback; callback != nullptr) callback(current);
}

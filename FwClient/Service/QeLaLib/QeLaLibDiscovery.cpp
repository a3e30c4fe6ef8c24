// The discovery thread, which tells the host when its location has changed.
//
// Noticing (AddressChangeListener), deciding (CalculateCurrentLocations, RaiseLocationChanged) and calling the host are
// kept apart, so that each is tested without the others.
#include <winsock2.h>
#include <windows.h>
#include <iphlpapi.h>

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <utility>

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "FwClient/Service/QeLaLib/QeLaLib.h"

namespace {

constexpr DWORD kStopWaitMs = 1000;
// Between two tries of what memory did not suffice for: short for a machine that has just moved, long for one that
// runs out of memory.
constexpr DWORD kRetryMs = 500;
// After a wait that failed: it would fail again at once, some 70,000 times a second, each with a line in the log.
constexpr DWORD kFailedWaitPauseMs = 100;

constexpr ULONG_PTR kStatusPending = 0x103;

// The IDs of the last raised event, one list for all instances: two that find the same locations report them once.
// It has a lock of its own, since two instances have two service locks; it is always the innermost: nothing is logged
// or called while it is held, since a log sink may ask the other instance.
class LastRaisedLocationIds {
 public:
  // Makes the list this one, unless it is so already. The number of the claim, or 0 when there is nothing to raise.
  std::uint64_t Claim(const std::vector<std::wstring>& ids) {
    const SlimLockGuard lock(m_lock);
    if (m_ids == ids) return 0;
    std::vector<std::wstring> copy = ids;
    m_before = std::exchange(m_ids, std::move(copy));
    return ++m_claims;
  }

  // The event could not be raised after all: the list is as it was, unless a later one was claimed meanwhile.
  void GiveBack(std::uint64_t claim) noexcept {
    const SlimLockGuard lock(m_lock);
    if (claim == m_claims) m_ids.swap(m_before);
  }

  static LastRaisedLocationIds& Instance() {
    static LastRaisedLocationIds instance;
    return instance;
  }

 private:
  SRWLOCK m_lock = SRWLOCK_INIT;
  std::vector<std::wstring> m_ids;
  std::vector<std::wstring> m_before;
  std::uint64_t m_claims = 0;
};

// The request for address-change notifications: at most one, on one event.
class AddressChangeListener {
 public:
  AddressChangeListener() noexcept : m_event(::WSACreateEvent()) { m_overlapped.hEvent = m_event.get(); }

  // A request that still pends is withdrawn and waited for: a later change must not be written into freed memory.
  ~AddressChangeListener() {
    DWORD bytes = 0;
    if (m_requested && ::CancelIPChangeNotify(&m_overlapped))
      ::GetOverlappedResult(m_handle, &m_overlapped, &bytes, TRUE);
  }
  AddressChangeListener(const AddressChangeListener&) = delete;
  AddressChangeListener& operator=(const AddressChangeListener&) = delete;

  HANDLE Event() const noexcept { return m_event.get(); }

  enum class Armed { kRefused, kServesOn, kAnew };

  // Requests the next notification, which takes back one that was signalled and not seen. Not where a request still
  // pends: Windows may refuse a second one, and the one that there is serves on. That one look decides: a request that
  // is completed after it signals the event, which nobody takes back before the wait. Refused by the system, or where
  // there is no event: waiting on it would fail for ever.
  Armed Arm() noexcept {
    if (!m_event) return Armed::kRefused;
    if (m_requested && IsPending()) return Armed::kServesOn;
    const DWORD result = ::NotifyAddrChange(&m_handle, &m_overlapped);
    const int error = ::WSAGetLastError();
    if (result != NO_ERROR && result != ERROR_IO_PENDING && error != WSA_IO_PENDING) return Armed::kRefused;
    m_requested = true;
    m_wasSeenPending = IsPending();
    return Armed::kAnew;
  }

  // The wait has seen the event.
  void Take() noexcept { m_requested = false; }

  // Whether a change came that no wait has seen, because the thread was busy or another handle won; it is taken then.
  // A system that does not mark requests as pending is asked for the event instead.
  bool TakeUnseen() noexcept {
    if (!m_requested || IsPending()) return false;
    if (!m_wasSeenPending && ::WaitForSingleObject(m_event.get(), 0) != WAIT_OBJECT_0) return false;
    m_requested = false;
    return true;
  }

 private:
  // Written by the system at any time.
  bool IsPending() const noexcept {
    return static_cast<const volatile ULONG_PTR&>(m_overlapped.Internal) == kStatusPending;
  }

  UniqueWsaEvent m_event;
  OVERLAPPED m_overlapped{};
  HANDLE m_handle = nullptr;
  bool m_requested = false;  // and its end was not seen
  bool m_wasSeenPending = false;
};

UniqueKernelHandle Duplicate(HANDLE handle) noexcept {
  UniqueKernelHandle copy;
  if (!::DuplicateHandle(::GetCurrentProcess(), handle, ::GetCurrentProcess(), copy.put(), 0, FALSE,
                         DUPLICATE_SAME_ACCESS))
    copy.release();
  return copy;
}

bool IsSignalled(HANDLE handle) noexcept { return ::WaitForSingleObject(handle, 0) == WAIT_OBJECT_0; }

// A log that fails, for want of memory most likely, costs its line and nothing else: what leaves the thread ends the
// process.
template <typename Write>
void Logged(Write write) noexcept {
  try {
    write();
  } catch (...) {
  }
}

}  // namespace

// One run of the thread, shared by the service and the thread, since either may be gone first.
struct CQeLaLib::DiscoveryRun {
  enum State : int { kRunning, kEnded, kInherited };

  CQeLaLib* service = nullptr;
  HMODULE module = nullptr;  // a reference: the thread's code must not be unloaded under it
  // Handles of the thread's own, which it closes when it ends. The service's may be closed before, and their numbers
  // then belong to whatever is opened next.
  UniqueKernelHandle stopEvent;
  UniqueKernelHandle refreshEvent;
  std::atomic<bool> serviceIsGoing{false};
  // Who frees the service: whoever of its destroyer (which sets kInherited) and the thread (kEnded) comes second.
  std::atomic<int> state{kRunning};
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
    m_stopEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (m_stopEvent == nullptr) return false;
    m_refreshEvent = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (m_refreshEvent == nullptr) return false;
    run->stopEvent = Duplicate(m_stopEvent);
    run->refreshEvent = Duplicate(m_refreshEvent);
    if (!run->stopEvent || !run->refreshEvent) return false;
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
  // A copy, since the service may be gone as soon as the thread has been offered it.
  const std::shared_ptr<DiscoveryRun> run = service->m_run;
  if (run != nullptr) run->serviceIsGoing = true;
  if (!service->StopDiscovery() && service->m_discoveryRunning) {
    // Stopped earlier but still busy then, or started without a callback. Nobody waits for it, but it shall end.
    ::SetEvent(service->m_stopEvent);
  }
  // Taken from the service first, so that the thread, which may own it from then on, neither closes nor signals them.
  HANDLE refreshEvent = std::exchange(service->m_refreshEvent, nullptr);
  HANDLE stopEvent = std::exchange(service->m_stopEvent, nullptr);
  HANDLE thread = std::exchange(service->m_discoveryThread, nullptr);
  if (run != nullptr && run->state.exchange(DiscoveryRun::kInherited) == DiscoveryRun::kRunning) {
    for (HANDLE handle : {refreshEvent, stopEvent, thread})
      if (handle != nullptr) ::CloseHandle(handle);
    return;
  }
  service->m_refreshEvent = refreshEvent;
  service->m_stopEvent = stopEvent;
  service->m_discoveryThread = thread;
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
    run.stopEvent.reset();
    run.refreshEvent.reset();
    service->m_discoveryRunning = false;
    if (run.state.exchange(DiscoveryRun::kEnded) == DiscoveryRun::kInherited) Delete(service);
  }
  ::FreeLibraryAndExitThread(module, 0);
}

void CQeLaLib::RunDiscovery(const DiscoveryRun& run) noexcept {
  // The event's functions are Winsock's, and no one else in the process may have started it.
  const WinsockGuard winsock;
  AddressChangeListener changes;
  HANDLE stopEvent = run.stopEvent.get();
  const HANDLE waits[] = {stopEvent, run.refreshEvent.get(), changes.Event()};
  Task owed = Task::kNone;  // what a pass could not do for want of memory
  while (!run.serviceIsGoing) {
    Task task = Task::kNone;
    bool changed = changes.TakeUnseen();
    if (!changed) {
      const auto armed = changes.Arm();
      if (armed == AddressChangeListener::Armed::kRefused) break;
      // What happened between the last snapshot and this request, nobody was told of.
      changed = armed == AddressChangeListener::Armed::kAnew && m_addressTable.DiffersFromNow();
    }
    if (changed) {
      // No wait has looked at it: a machine whose addresses never rest must not keep the thread from ending.
      if (IsSignalled(stopEvent)) break;
    } else {
      const DWORD result = ::WaitForMultipleObjects(3, waits, FALSE, owed == Task::kNone ? INFINITE : kRetryMs);
      const DWORD error = ::GetLastError();
      if (result == WAIT_OBJECT_0) break;
      if (result == WAIT_OBJECT_0 + 1) {
        // No calculation: the save that asked for the refresh has just made one.
        Logged([] { FW_LOG(kLogInfo, L"The location discovery thread received a refresh notification"); });
        task = Task::kRaise;
      } else if (result == WAIT_OBJECT_0 + 2) {
        changes.Take();
        changed = true;
      } else if (result != WAIT_TIMEOUT || owed == Task::kNone) {
        Logged([&] {
          FW_LOG(kLogInfo, L"Location discovery thread got wait result %ld, %ld...", static_cast<long>(result),
                 static_cast<long>(error));
        });
        const DWORD paused = ::WaitForSingleObject(stopEvent, kFailedWaitPauseMs);
        if (paused == WAIT_OBJECT_0) break;
        if (paused != WAIT_TIMEOUT) ::Sleep(kFailedWaitPauseMs);
        continue;
      }
    }
    if (changed) {
      Logged([] { FW_LOG(kLogInfo, L"The location discovery thread received an address change notification"); });
      task = Task::kCalculateAndRaise;
    }
    task = std::max(task, owed);
    owed = Perform(task) ? Task::kNone : task;
  }
  Logged([] { FW_LOG(kLogInfo, L"Location discovery thread stopping..."); });
}

bool CQeLaLib::Perform(Task task) noexcept {
  try {
    const bool enoughMemory = task != Task::kCalculateAndRaise || CalculateCurrentLocations();
    RaiseLocationChanged();
    return enoughMemory;
  } catch (...) {
    // Nothing may leave the thread: it would end the process.
    return false;
  }
}

void CQeLaLib::RaiseLocationChanged() {
  std::shared_ptr<_IEnumQeLocations> current;
  {
    const CriticalSectionGuard lock(*m_lock);
    if (m_locationChangedCallback == nullptr) return;
    LastRaisedLocationIds& lastRaised = LastRaisedLocationIds::Instance();
    const std::uint64_t claim = lastRaised.Claim(m_currentLocationIds);
    if (claim == 0) {
      FW_LOG(kLogInfo, L"Skipped raising a location changed event...");
      return;
    }
    try {
      FW_LOG(kLogInfo, L"Raising a location changed event...");
      current = GetCurrentLocations();
    } catch (...) {
      lastRaised.GiveBack(claim);  // so that the next try raises it
      throw;
    }
  }
  // Read again: the host may have stopped discovery or replaced its callback meanwhile.
  const QeLaLocationsChanged callback = m_locationChangedCallback;
  if (callback == nullptr) return;
  try {
    callback(current);
  } catch (...) {
    // The host was told; what it makes of it is its own affair.
  }
}

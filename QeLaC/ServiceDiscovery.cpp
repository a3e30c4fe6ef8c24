// From a change to the host's callback.
//
// The library calls LocationsChanged on its own thread. That only wakes the worker, a thread of the service's, which
// waits for the quiet time, loads what somebody else has stored, and tells the host when the current locations are not
// those that it was told last.
#include <winsock2.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "FwClient/Common/Utilities/ScopeGuards.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "QeLaC/Handles.h"
#include "QeLaC/QuietTime.h"
#include "QeLaC/Service.h"

namespace {

// Where no event tells of a change (Worker::MustLook).
constexpr DWORD kLookMs = 1000;
// After a pass that memory did not suffice for.
constexpr DWORD kRetryMs = 500;
// After a wait that failed, which would fail again at once.
constexpr DWORD kFailedWaitPauseMs = 100;
// The library's own limit for its thread to end. A stop that took so long has left it behind.
constexpr ULONGLONG kLateStopMs = 900;
constexpr unsigned kLooksAfterLateStop = 10;

std::atomic<bool> g_stopWasLate = false;

}  // namespace

// One run of the worker, from start to stop. It is shared with the worker, which may still be in a calculation when the
// service is stopped and started again.
struct Service::Run {
  UniqueKernelHandle stop{::CreateEventW(nullptr, TRUE, FALSE, nullptr)};
  UniqueKernelHandle news{::CreateEventW(nullptr, FALSE, FALSE, nullptr)};

  SRWLOCK lock = SRWLOCK_INIT;
  std::optional<std::vector<std::wstring>> raised;  // the list that the library reported last

  // The run that the library's callback, which has no context, wakes.
  static std::shared_ptr<Run> Exchange(std::shared_ptr<Run> run) noexcept {
    const SlimLockGuard guard(s_lock);
    s_current.swap(run);
    return run;
  }
  static std::shared_ptr<Run> Current() noexcept {
    const SlimLockGuard guard(s_lock);
    return s_current;
  }

 private:
  static inline SRWLOCK s_lock = SRWLOCK_INIT;
  static inline std::shared_ptr<Run> s_current;
};

class Service::Worker {
 public:
  Worker(Service& service, Run& run) noexcept : m_service(service), m_run(run), m_quiet(service.m_quietMs) {
    if (g_stopWasLate.exchange(false)) m_looksLeft = kLooksAfterLateStop;
  }

  void Work() noexcept {
    ArmWatch();
    Pass();
    while (WaitForNews()) {
      ArmWatch();
      if (m_quiet.Remaining(::GetTickCount64()) == 0) {
        m_quiet.Forget();
        Pass();
      }
    }
  }

 private:
  void ArmWatch() noexcept {
    if (m_service.m_reload && !m_armed) m_armed = m_watch.Arm();
  }

  // Until something is to be done. False when the run ends.
  bool WaitForNews() noexcept {
    const HANDLE waits[] = {m_run.stop.get(), m_run.news.get(), m_watch.Event()};
    DWORD waitMs = INFINITE;
    if (const auto remaining = m_quiet.Remaining(::GetTickCount64()))
      waitMs = *remaining;
    else if (m_lackedMemory)
      waitMs = kRetryMs;
    else if (MustLook())
      waitMs = kLookMs;
    switch (::WaitForMultipleObjects(m_armed ? 3 : 2, waits, FALSE, waitMs)) {
      case WAIT_OBJECT_0:
        return false;
      case WAIT_OBJECT_0 + 2:
        m_armed = false;  // the next change is asked for before the value is read
        [[fallthrough]];
      case WAIT_OBJECT_0 + 1:
        m_quiet.Note(::GetTickCount64());
        return true;
      case WAIT_TIMEOUT:
        if (!m_quiet.Remaining(::GetTickCount64())) {
          KeepDiscoveryRunning();
          Pass();
        }
        return true;
      default:
        break;
    }
    const DWORD paused = ::WaitForSingleObject(m_run.stop.get(), kFailedWaitPauseMs);
    if (paused == WAIT_OBJECT_0) return false;
    if (paused != WAIT_TIMEOUT) ::Sleep(kFailedWaitPauseMs);
    return true;
  }

  // The library reports a list only when it differs from the one it reported last, and a load reports nothing. While
  // the host was told another list than that one, the library would not report the way back to it; and a registry that
  // cannot be watched reports nothing at all, nor does one that can be read again.
  bool MustLook() noexcept {
    if (m_looksLeft > 0 || m_unread || (m_service.m_reload && !m_armed)) return true;
    const SlimLockGuard lock(m_run.lock);
    return m_run.raised != m_toldIds;
  }

  // A library's thread that was told to end and had not when it was started again, is taken for the new one and ends
  // all the same. Starting is free of effects while a thread runs, so it is repeated until the old one must have ended:
  // the first pass has had the lock by then, so it is in no calculation.
  void KeepDiscoveryRunning() noexcept {
    if (m_looksLeft == 0) return;
    try {
      m_service.Api().StartDiscovery(&Service::LocationsChanged);
      --m_looksLeft;
    } catch (...) {
    }
  }

  void Pass() noexcept {
    try {
      m_lackedMemory = false;
      TellIfChanged();
    } catch (const std::bad_alloc&) {
      m_lackedMemory = true;
    } catch (...) {
      // The host was told; what its callback makes of it is its own affair.
    }
  }

  void TellIfChanged() {
    std::shared_ptr<_IEnumQeLocations> current;
    {
      const ServiceLockGuard lock(m_service.Lock(), m_service.Lock().EnterUnless(m_run.stop.get()));
      if (!lock.Entered()) return;
      m_unread = !m_service.ReloadIfChangedByOthers();
      current = m_service.Api().GetCurrentLocations();
    }
    std::vector<std::wstring> ids = IdsOf(*current);
    if (ids == m_toldIds && m_service.m_change.Generation() == m_toldGeneration) return;
    // One call at a time: that of a run before may still be on its way, if it stopped and started the service.
    while (!m_service.m_change.WaitForEarlier(kFailedWaitPauseMs))
      if (::WaitForSingleObject(m_run.stop.get(), 0) == WAIT_OBJECT_0) return;
    m_service.m_change.Run([&](const auto& target) {
      const LocationsForOneCall locations(std::move(current));
      m_toldIds = std::move(ids);
      m_toldGeneration = target.generation;
      target.function(locations.handle, target.context);
    });
  }

  struct LocationsForOneCall {
    explicit LocationsForOneCall(std::shared_ptr<_IEnumQeLocations> locations)
        : handle(AddHandle<qela_locations>(std::move(locations))) {}
    ~LocationsForOneCall() { RemoveHandle(handle); }
    LocationsForOneCall(const LocationsForOneCall&) = delete;
    LocationsForOneCall& operator=(const LocationsForOneCall&) = delete;

    qela_locations* handle;
  };

  Service& m_service;
  Run& m_run;
  StoredValueWatch m_watch;
  bool m_armed = false;
  QuietTime m_quiet;
  bool m_lackedMemory = false;
  bool m_unread = false;  // the stored value
  unsigned m_looksLeft = 0;
  std::optional<std::vector<std::wstring>> m_toldIds;
  std::uint64_t m_toldGeneration = 0;
};

namespace {

struct ThreadArgument {
  std::shared_ptr<void> service;
  std::shared_ptr<void> run;
};

}  // namespace

DWORD WINAPI Service::WorkerThread(void* argument) {
  const std::unique_ptr<ThreadArgument> owner(static_cast<ThreadArgument*>(argument));
  Worker(*static_cast<Service*>(owner->service.get()), *static_cast<Run*>(owner->run.get())).Work();
  return 0;
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): the library's type of callback
void Service::LocationsChanged(std::shared_ptr<_IEnumQeLocations> current) {
  const std::shared_ptr<Run> run = Run::Current();
  if (run == nullptr) return;
  std::optional<std::vector<std::wstring>> ids;
  try {
    ids = IdsOf(*current);
  } catch (const std::bad_alloc&) {  // unknown, so that the worker looks by itself
  }
  {
    const SlimLockGuard lock(run->lock);
    run->raised = std::move(ids);
  }
  ::SetEvent(run->news.get());
}

void Service::TellWorker() noexcept {
  if (const std::shared_ptr<Run> run = Run::Current()) ::SetEvent(run->news.get());
}

qela_status Service::Start(qela_change_callback callback, void* context) {
  // After a stop that could not wait for its end, a callback may still run. One call at a time.
  if (!m_change.WaitForEarlier(m_callTimeoutMs)) return QELA_STATUS_BUSY;
  {
    const std::lock_guard lock(m_control);
    m_change.Set(callback, context);
    if (m_run == nullptr) {
      const qela_status status = StartRun();
      if (status != QELA_STATUS_OK) m_change.Set(nullptr, nullptr);
      return status;
    }
    ::SetEvent(m_run->news.get());
  }
  return m_change.WaitForEarlier(m_callTimeoutMs) ? QELA_STATUS_OK : QELA_STATUS_BUSY;
}

qela_status Service::StartRun() {
  const auto run = std::make_shared<Run>();
  auto argument = std::make_unique<ThreadArgument>(shared_from_this(), run);
  if (!run->stop || !run->news) return QELA_STATUS_SYSTEM_ERROR;
  Run::Exchange(run);
  bool started = false;
  try {
    started = Api().StartDiscovery(&LocationsChanged);
  } catch (...) {
    EndRun(run);
    throw;
  }
  const UniqueKernelHandle thread(started ? ::CreateThread(nullptr, 0, &WorkerThread, argument.get(), 0, nullptr)
                                          : nullptr);
  if (!thread) {
    EndRun(run);
    return QELA_STATUS_SYSTEM_ERROR;
  }
  std::ignore = argument.release();  // the thread's now
  m_run = run;
  return QELA_STATUS_OK;
}

void Service::EndRun(const std::shared_ptr<Run>& run) {
  ::SetEvent(run->stop.get());
  Run::Exchange(nullptr);
  const ULONGLONG start = ::GetTickCount64();
  Api().StopDiscovery();
  if (::GetTickCount64() - start >= kLateStopMs) g_stopWasLate = true;
}

qela_status Service::Stop() {
  bool wasRunning = false;
  {
    const std::lock_guard lock(m_control);
    wasRunning = m_run != nullptr;
    if (wasRunning) {
      m_change.Set(nullptr, nullptr);
      EndRun(std::exchange(m_run, nullptr));
    }
  }
  // A stop that answered BUSY may be repeated.
  if (!wasRunning && m_change.WaitForEarlier(0)) return QELA_STATUS_NOT_STARTED;
  return m_change.WaitForEarlier(m_callTimeoutMs) ? QELA_STATUS_OK : QELA_STATUS_BUSY;
}

#include <windows.h>

#include <algorithm>
#include <mutex>

#include "CommandError.h"
#include "Commands.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "Interrupt.h"
#include "Json.h"
#include "LocationText.h"
#include "Output.h"
#include "Service.h"
#include "Text.h"

namespace {

bool Contains(const Locations& locations, const std::wstring& id) {
  return std::any_of(locations.begin(), locations.end(), [&](const auto& location) { return location->GetId() == id; });
}

bool SameIds(const Locations& left, const Locations& right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](const auto& a, const auto& b) { return a->GetId() == b->GetId(); });
}

// Those of `locations` that `others` does not hold.
Locations Without(const Locations& locations, const Locations& others) {
  Locations result;
  std::copy_if(locations.begin(), locations.end(), std::back_inserter(result),
               [&](const auto& location) { return !Contains(others, location->GetId()); });
  return result;
}

// Prints what happens. The library's thread and the command's both use it; a thread that outlives StopDiscovery finds
// it ended. Where the service's lock is taken too, it is taken first.
class Watcher {
 public:
  void Begin(const Options& options, const Service& service, HANDLE stop) {
    m_json = options.json;
    m_stop = stop;
    m_service = &service;
  }

  // The callback may come while the start is still calculated; its line waits for the start's.
  std::unique_lock<std::mutex> Hold() { return std::unique_lock(m_mutex); }

  void PrintStart() {
    Locations current = ToVector(*m_service->Api().GetCurrentLocations());
    const std::vector<AdapterProps> adapters = m_service->Report().Adapters();
    if (m_json)
      Print(ToLine({{"event", "start"}, {"time", TimeNow()}, {"current", LocationReferences(current, adapters)}}));
    else
      Print(TimeNow() + "  start    current: " + Names(current, adapters) + "\n");
    m_current = std::move(current);
  }

  // The library called its host.
  void OnChange(const _IEnumQeLocations& locations) noexcept {
    Guarded([&] { PrintChange("change", ToVector(locations)); });
  }

  // The library did not, since it reported the same list last. At the beginning that is the empty list, so a machine
  // that leaves the location at which it started leaves it unreported; the watch shows it none the less.
  void OnSkipped() noexcept {
    Guarded([&] {
      Locations current = ToVector(*m_service->Api().GetCurrentLocations());
      if (!SameIds(current, m_current)) PrintChange("silent", std::move(current));
    });
  }

  // Throws what a change could not print.
  void End(const char* reason) {
    const std::lock_guard lock(m_mutex);
    m_service = nullptr;
    if (!m_error.empty()) throw CommandError(kFailed, m_error);
    Print(m_json ? ToLine({{"event", "end"}, {"time", TimeNow()}, {"reason", reason}})
                 : TimeNow() + "  end      " + reason + "\n");
  }

  void Abandon() {
    const std::lock_guard lock(m_mutex);
    m_service = nullptr;
  }

 private:
  template <typename Function>
  void Guarded(Function function) noexcept {
    const std::lock_guard lock(m_mutex);
    if (m_service == nullptr) return;
    try {
      function();
    } catch (const std::exception& error) {
      // Nobody reads any more, or there is no memory: the command ends with it.
      m_error = error.what();
      ::SetEvent(m_stop);
    }
  }

  static std::string Names(const Locations& locations, const std::vector<AdapterProps>& adapters) {
    std::string names;
    for (const auto& location : locations) names += (names.empty() ? "" : "; ") + LocationText(*location, adapters);
    return names.empty() ? "none" : names;
  }

  void PrintChange(const std::string& event, Locations current) {
    const std::vector<AdapterProps> adapters = m_service->Report().Adapters();
    const Locations entered = Without(current, m_current);
    const Locations left = Without(m_current, current);
    if (m_json) {
      Json gone = Json::array();
      for (const auto& location : left)
        gone.push_back({{"id", ToUtf8(location->GetId())}, {"name", ToUtf8(location->GetName())}});
      Print(ToLine({{"event", event},
                    {"time", TimeNow()},
                    {"entered", LocationReferences(entered, adapters)},
                    {"left", std::move(gone)},
                    {"current", LocationReferences(current, adapters)}}));
    } else {
      std::string text = TimeNow() + "  " + event + " ";
      for (const auto& location : entered) text += "  entered: " + LocationText(*location, adapters);
      for (const auto& location : left) text += "  left: " + Printable(location->GetName());
      Print(text + "  current: " + Names(current, adapters) + "\n");
    }
    m_current = std::move(current);
  }

  std::mutex m_mutex;
  bool m_json = false;
  HANDLE m_stop = nullptr;
  const Service* m_service = nullptr;  // null when nothing is to be printed
  Locations m_current;
  std::string m_error;
};

// Holds the service's lock.
class ServiceLock {
 public:
  explicit ServiceLock(_IQeLaApiSmart& api) : m_api(api) { m_api.Lock(); }
  ~ServiceLock() { m_api.Unlock(); }
  ServiceLock(const ServiceLock&) = delete;
  ServiceLock& operator=(const ServiceLock&) = delete;

 private:
  _IQeLaApiSmart& m_api;
};

// The library's callback carries no context.
Watcher g_watcher;

}  // namespace

ExitCode Watch(const Options& options) {
  const UniqueKernelHandle failed(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!failed)
    throw CommandError(kFailed, "Windows has no event to give (error " + std::to_string(::GetLastError()) + ")");
  Service service([] { g_watcher.OnSkipped(); });
  g_watcher.Begin(options, service, failed.get());
  try {
    {
      const ServiceLock serviceLock(service.Api());
      const auto lock = g_watcher.Hold();
      // NOLINTNEXTLINE(performance-unnecessary-value-param): the callback's type
      const auto onChange = [](std::shared_ptr<_IEnumQeLocations> current) { g_watcher.OnChange(*current); };
      if (!service.Api().StartDiscovery(onChange))
        throw CommandError(kFailed, "the library could not start its discovery thread");
      // A change since the calculation of the start is called back: the thread compares the addresses with its own.
      g_watcher.PrintStart();
    }
    const HANDLE events[] = {Interrupt::Event(), failed.get()};
    const DWORD result =
        ::WaitForMultipleObjects(2, events, FALSE, options.seconds ? *options.seconds * 1000 : INFINITE);
    service.Api().StopDiscovery();
    g_watcher.End(result == WAIT_TIMEOUT ? "time" : "interrupted");
  } catch (...) {
    g_watcher.Abandon();
    service.Api().StopDiscovery();
    Interrupt::Finished();
    throw;
  }
  Interrupt::Finished();
  return kDone;
}

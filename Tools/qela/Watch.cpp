#include <winsock2.h>
// After winsock2.h, which is AdapterView.h's.
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <string_view>

#include "AdapterChanges.h"
#include "AdapterView.h"
#include "CommandError.h"
#include "Commands.h"
#include "FwClient/Common/Utilities/UniqueHandle.h"
#include "Interrupt.h"
#include "Json.h"
#include "LocationText.h"
#include "MissedChanges.h"
#include "Output.h"
#include "Service.h"
#include "Text.h"

namespace {

// The adapters are looked at in this rhythm. Windows tells of IPv4 addresses alone; a gateway, DNS server or suffix
// that changes without one, the library does not see.
constexpr ULONGLONG kLookMs = 5000;

constexpr std::wstring_view kAddressChangeEvent =
    L"The location discovery thread received an address change notification";
constexpr std::wstring_view kRefreshEvent = L"The location discovery thread received a refresh notification";

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

  // What the library logs, on the thread that logs it.
  void OnEvent(std::wstring_view text) noexcept {
    if (text == kAddressChangeEvent) {
      m_cause = "address change";
      m_isCalculating = true;
    } else if (text == kRefreshEvent) {
      m_cause = "refresh";
    }
  }

  // The callback may come while the start is still calculated; its line waits for the start's.
  std::unique_lock<std::mutex> Hold() { return std::unique_lock(m_mutex); }

  void PrintStart() {
    Locations current = ToVector(*m_service->Api().GetCurrentLocations());
    std::vector<AdapterProps> adapters = m_service->Report().Adapters();
    if (m_json)
      Print(ToLine({{"event", "start"}, {"time", TimeNow()}, {"current", LocationReferences(current, adapters)}}));
    else
      Print(TimeNow() + "  start    current: " + Names(current, adapters) + "\n");
    m_current = std::move(current);
    m_adapters = std::move(adapters);
  }

  // The library called its host.
  void OnChange(const _IEnumQeLocations& locations) noexcept {
    m_isCalculating = false;
    Guarded([&] { PrintChange("change", ToVector(locations)); });
  }

  // The library did not, since it reported the same list last. At the beginning that is the empty list, so a machine
  // that leaves the location at which it started leaves it unreported; the watch shows it none the less.
  void OnSkipped() noexcept {
    m_isCalculating = false;
    Guarded([&] {
      Locations current = ToVector(*m_service->Api().GetCurrentLocations());
      if (!SameIds(current, m_current)) PrintChange("silent", std::move(current));
    });
  }

  // Compares the adapters with those of the last calculation and asks nothing else: no probe.
  void Look() {
    // While the library calculates, it has its picture already or takes it; and what this logs stays out of its lines.
    if (m_isCalculating || m_service->Report().Unreadable() != 0) {
      m_missed.PassOver();
      return;
    }
    const SharedAdapters now = TakeAdapters();
    const std::lock_guard lock(m_mutex);
    const std::vector<AdapterChange> changes = m_missed.Look(m_service->Report().Adapters(), *now);
    if (changes.empty()) return;
    Print(m_json ? ToLine({{"event", "missed"}, {"time", TimeNow()}, {"adapters", ToJson(changes)}})
                 : TimeNow() + "  missed   " + InWords(changes) + "\n");
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

  static std::string InWords(const std::vector<AdapterChange>& changes) {
    std::string words;
    for (const AdapterChange& change : changes) words += (words.empty() ? "" : "; ") + ::InWords(change);
    return words;
  }

  void PrintChange(const std::string& event, Locations current) {
    std::vector<AdapterProps> adapters = m_service->Report().Adapters();
    const std::vector<AdapterChange> changes = ChangesBetween(m_adapters, adapters);
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
                    {"current", LocationReferences(current, adapters)},
                    {"cause", m_cause.load()},
                    {"changes", ToJson(changes)}}));
    } else {
      std::string text = TimeNow() + "  " + event + " ";
      for (const auto& location : entered) text += "  entered: " + LocationText(*location, adapters);
      for (const auto& location : left) text += "  left: " + Printable(location->GetName());
      Print(text + "  current: " + Names(current, adapters) + "  cause: " + m_cause.load() +
            (changes.empty() ? "" : ": " + InWords(changes)) + "\n");
    }
    m_current = std::move(current);
    m_adapters = std::move(adapters);
  }

  std::mutex m_mutex;
  bool m_json = false;
  HANDLE m_stop = nullptr;
  const Service* m_service = nullptr;  // null when nothing is to be printed
  Locations m_current;
  std::vector<AdapterProps> m_adapters;  // of the last line that told the current locations
  MissedChanges m_missed;                // the command's thread alone
  std::string m_error;
  std::atomic<const char*> m_cause{"start"};
  std::atomic<bool> m_isCalculating{false};
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

// Until one of the events is signalled or the time is over, with a look every few seconds; the result of the wait.
DWORD WaitAndLook(const HANDLE (&events)[2], std::optional<std::uint32_t> seconds) {
  const ULONGLONG begun = ::GetTickCount64();
  const ULONGLONG end = seconds ? begun + *seconds * 1000ULL : ~0ULL;
  for (ULONGLONG look = begun + kLookMs;; look = ::GetTickCount64() + kLookMs) {
    const ULONGLONG now = ::GetTickCount64();
    const ULONGLONG until = std::min(look, end);
    const DWORD result = ::WaitForMultipleObjects(2, events, FALSE, until > now ? static_cast<DWORD>(until - now) : 0);
    if (result != WAIT_TIMEOUT || until == end) return result;
    g_watcher.Look();
  }
}

}  // namespace

ExitCode Watch(const Options& options) {
  const UniqueKernelHandle failed(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!failed)
    throw CommandError(kFailed, "Windows has no event to give (error " + std::to_string(::GetLastError()) + ")");
  Service service([] { g_watcher.OnSkipped(); }, [](std::wstring_view text) { g_watcher.OnEvent(text); });
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
    const DWORD result = WaitAndLook(events, options.seconds);
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

// The machine's real adapters and addresses. Scripts/bench.sh makes them: wifi0, lan0 and virtual0.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <iphlpapi.h>

#include <format>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Bench/Job.h"
#include "Bench/MeasuredService.h"
#include "FwClient/Common/Utilities/ScopeGuards.h"

namespace {

constexpr std::size_t kAdapters = 3;
constexpr DWORD kDeadlineMs = 20'000;

// The question that every snapshot asks.
ULONG AskForAdapters() {
  ULONG bytes = 15000;
  void* const buffer = ::HeapAlloc(::GetProcessHeap(), 0, bytes);
  const ULONG result = ::GetAdaptersAddresses(
      AF_UNSPEC, GAA_FLAG_INCLUDE_PREFIX | GAA_FLAG_INCLUDE_WINS_INFO | GAA_FLAG_INCLUDE_GATEWAYS, nullptr,
      static_cast<IP_ADAPTER_ADDRESSES*>(buffer), &bytes);
  ::HeapFree(::GetProcessHeap(), 0, buffer);
  return result;
}

// What each snapshot asks before, so that it knows later whether the addresses have changed.
void AskForAddressTable() {
  alignas(MIB_IPADDRTABLE) unsigned char table[1024];
  ULONG bytes = sizeof table;
  ::GetIpAddrTable(reinterpret_cast<MIB_IPADDRTABLE*>(table), &bytes, FALSE);
}

template <typename Floor>
void CalculateReally(Run& run, Floor floor) {
  MeasuredService service(UsualLocations(10));
  const std::size_t adapters = service.Api().GetMacAddresses().size();
  if (adapters != kAdapters) return run.Fail(std::format("there are {} adapters", adapters));
  run.Compare([&] { service.Calculate(); }, floor);
}

// A process of the system around Wine that changes addresses as soon as it is told to.
class AddressChanger {
 public:
  AddressChanger() {
    const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
    int length = sizeof address;
    if (::bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 && ::listen(listener, 1) == 0 &&
        ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length) == 0 &&
        Start(std::format(L"bash -c \"exec ip -force -batch - </dev/tcp/127.0.0.1/{}\"", ::ntohs(address.sin_port))))
      m_socket = ::accept(listener, nullptr, nullptr);
    ::closesocket(listener);
    const BOOL atOnce = TRUE;
    ::setsockopt(m_socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&atOnce), sizeof atOnce);
  }
  ~AddressChanger() { ::closesocket(m_socket); }
  AddressChanger(const AddressChanger&) = delete;
  AddressChanger& operator=(const AddressChanger&) = delete;

  bool IsUsable() const { return m_socket != INVALID_SOCKET; }

  // The machine comes to the branch office, or leaves it. The address comes last: Windows tells of nothing else.
  void Move() {
    m_isThere = !m_isThere;
    const std::string_view commands = m_isThere ? "route add default via 10.40.0.1 dev wifi0 onlink metric 4000\n"
                                                  "address add 10.40.0.15/24 dev wifi0\n"
                                                : "route del default via 10.40.0.1 dev wifi0 metric 4000\n"
                                                  "address del 10.40.0.15/24 dev wifi0\n";
    ::send(m_socket, commands.data(), static_cast<int>(commands.size()), 0);
  }

 private:
  static bool Start(std::wstring commandLine) {
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process{};  // such a process has no handles
    return ::CreateProcessW(L"Z:\\bin\\bash", commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                            &startup, &process) != FALSE;
  }

  const WinsockGuard m_winsock;
  SOCKET m_socket = INVALID_SOCKET;
  bool m_isThere = false;
};

// The discovery thread of a service, from one start to one stop.
class Discovery {
 public:
  explicit Discovery(MeasuredService& service)
      : m_service(service), m_patch(service.Module(), "WaitForMultipleObjects", Wait) {
    if (s_waits == nullptr) s_waits = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    if (s_called == nullptr) s_called = ::CreateEventW(nullptr, FALSE, FALSE, nullptr);
    s_watch = nullptr;
  }

  // From the change to the callback; negative when there was none.
  double Take(AddressChanger& changer) {
    m_service.Calculate();  // what has changed since the last one is known
    ::ResetEvent(s_waits);
    ::ResetEvent(s_called);
    double took = -1;
    if (m_service.Api().StartDiscovery(Callback) && ::WaitForSingleObject(s_waits, kDeadlineMs) == WAIT_OBJECT_0) {
      const Stopwatch watch;
      s_watch = &watch;
      changer.Move();
      if (::WaitForSingleObject(s_called, kDeadlineMs) == WAIT_OBJECT_0) took = s_took;
      s_watch = nullptr;
    }
    m_service.Api().StopDiscovery();
    return took;
  }

 private:
  static DWORD WINAPI Wait(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
    if (count == 3) ::SetEvent(s_waits);
    return ::WaitForMultipleObjects(count, handles, all, milliseconds);
  }
  static void Callback(std::shared_ptr<_IEnumQeLocations>) {
    if (const Stopwatch* const watch = s_watch; watch != nullptr) {
      s_took = watch->Nanoseconds();
      ::SetEvent(s_called);
    }
  }

  static inline HANDLE s_waits = nullptr;
  static inline HANDLE s_called = nullptr;
  static inline const Stopwatch* volatile s_watch = nullptr;
  static inline volatile double s_took = 0;

  MeasuredService& m_service;
  ImportPatch m_patch;
};

// From the change to the new adapters, without a library.
double TakeRaw(AddressChanger& changer) {
  OVERLAPPED overlapped{};
  overlapped.hEvent = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
  HANDLE handle = nullptr;
  double took = -1;
  if (::NotifyAddrChange(&handle, &overlapped) == ERROR_IO_PENDING) {
    const Stopwatch watch;
    changer.Move();
    if (::WaitForSingleObject(overlapped.hEvent, kDeadlineMs) == WAIT_OBJECT_0) {
      AskForAdapters();
      took = watch.Nanoseconds();
    }
  }
  ::CloseHandle(overlapped.hEvent);
  return took;
}

// In turns of two moves, so that the machine is away again after each, and the service sees it come and go in turns.
void ChangeAddress(Run& run) {
  PlainSet set = UsualLocations(10);
  set[5].texts = {};
  set[5].texts[LCT_DEFAULT_GATEWAY] = {L"10.40.0.1"};
  MeasuredService service(set);
  AddressChanger changer;
  if (!changer.IsUsable()) return run.Fail("nothing changes addresses here");
  Discovery discovery(service);
  bool allSeen = true;
  const auto seen = [&](double took) {
    allSeen = allSeen && took >= 0;
    return took;
  };
  run.CompareTimes([&] { return allSeen ? seen(discovery.Take(changer)) : 0; },
                   [&] { return allSeen ? seen(TakeRaw(changer)) : 0; });
  if (!allSeen) run.Fail("a change of address was not seen");
}

}  // namespace

void AddNetworkJobs(Jobs& jobs) {
  jobs.push_back({.name = "calculation 10 x 3, real adapters, whole",
                  .goal = {.factor = 1.05},
                  .measure = [](Run& run) { CalculateReally(run, [] { AskForAdapters(); }); }});
  jobs.push_back({.name = "calculation 10 x 3, real adapters, against both questions",
                  .goal = {.factor = 1.05},
                  .measure = [](Run& run) {
                    CalculateReally(run, [] {
                      AskForAddressTable();
                      AskForAdapters();
                    });
                  }});
  jobs.push_back({.name = "change of address to callback, real",
                  .goal = {.factor = 1.1, .constant = 300'000},
                  .measure = ChangeAddress});
}

#include "FwClient/Service/QeLaLib/AdapterSnapshot.h"

#include <algorithm>
#include <cstddef>
#include <new>
#include <string_view>
#include <utility>

#include "FwClient/Common/Utilities/AsciiCase.h"
#include "FwClient/Common/Utilities/FwLog.h"

namespace {

constexpr ULONG kFirstBufferBytes = 15000;  // holds the answer of a usual machine, so that one call is enough
constexpr int kMaxTries = 5;
constexpr ULONG kQueryFlags = GAA_FLAG_INCLUDE_PREFIX | GAA_FLAG_INCLUDE_WINS_INFO | GAA_FLAG_INCLUDE_GATEWAYS;

// The system's answer, in memory of the process heap.
class AdapterBuffer {
 public:
  AdapterBuffer() noexcept = default;
  ~AdapterBuffer() { Free(); }
  AdapterBuffer(const AdapterBuffer&) = delete;
  AdapterBuffer& operator=(const AdapterBuffer&) = delete;

  bool Allocate(ULONG bytes) noexcept {
    Free();
    m_memory = ::HeapAlloc(::GetProcessHeap(), 0, bytes);
    return m_memory != nullptr;
  }
  IP_ADAPTER_ADDRESSES* get() const noexcept { return static_cast<IP_ADAPTER_ADDRESSES*>(m_memory); }
  // Whether the last Allocate failed.
  bool LacksMemory() const noexcept { return m_memory == nullptr; }

 private:
  void Free() noexcept {
    if (m_memory != nullptr) ::HeapFree(::GetProcessHeap(), 0, std::exchange(m_memory, nullptr));
  }

  void* m_memory = nullptr;
};

// Asks the system. False when there is no answer to read; the buffer may be empty even after true (no memory).
bool QueryAdapters(AdapterBuffer& buffer) {
  ULONG bytes = kFirstBufferBytes;
  for (int tries = 0; tries < kMaxTries; ++tries) {
    if (!buffer.Allocate(bytes)) {
      FW_LOG(kLogInfo, L"Memory allocation failed for IP_ADAPTER_ADDRESSES struct");
      // At the first try this passes for an answer without adapters, success line included.
      return tries == 0;
    }
    const ULONG result = ::GetAdaptersAddresses(AF_UNSPEC, kQueryFlags, nullptr, buffer.get(), &bytes);
    if (result != ERROR_BUFFER_OVERFLOW) return result == ERROR_SUCCESS;
  }
  return false;
}

template <typename Entry>
std::size_t CountOf(const Entry* first) {
  std::size_t count = 0;
  for (; first != nullptr; first = first->Next) ++count;
  return count;
}

template <typename Entry>
void AppendAddresses(const Entry* first, std::vector<std::wstring>& texts) {
  texts.reserve(CountOf(first));
  for (; first != nullptr; first = first->Next) {
    std::wstring text = SocketAddressToText(first->Address);
    if (!text.empty()) texts.push_back(std::move(text));
  }
}

AdapterMediaType MediaTypeOf(IFTYPE type, std::wstring_view description) {
  constexpr std::wstring_view kVirtual = L"virtual";
  if (type == IF_TYPE_IEEE80211) return Wireless;
  if (type != IF_TYPE_ETHERNET_CSMACD) return Other;
  const auto found = std::search(description.begin(), description.end(), kVirtual.begin(), kVirtual.end(),
                                 [](wchar_t character, wchar_t wanted) { return ToAsciiLower(character) == wanted; });
  return found != description.end() ? Virtual : Wired;
}

// "00-1A-2B-3C-4D-5E"
std::wstring PhysicalAddressToText(const BYTE* bytes, ULONG count) {
  constexpr std::wstring_view kDigits = L"0123456789ABCDEF";
  std::wstring text;
  text.reserve(std::size_t{3} * count);
  for (ULONG i = 0; i < count; ++i) {
    if (i != 0) text += L'-';
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0xf];
  }
  return text;
}

std::wstring TextOrEmpty(const wchar_t* text) { return text != nullptr ? text : L""; }

void AppendProps(const IP_ADAPTER_ADDRESSES& entry, std::vector<AdapterProps>& adapters) {
  AdapterProps& adapter = adapters.emplace_back();
  AppendAddresses(entry.FirstGatewayAddress, adapter.gateways);
  adapter.dhcpEnabled = (entry.Flags & IP_ADAPTER_DHCP_ENABLED) != 0;
  if (adapter.dhcpEnabled) {
    // The DHCPv6 server hangs on the same flag: the system may report stale servers when DHCP is off.
    adapter.dhcpServer = SocketAddressToText(entry.Dhcpv4Server);
    adapter.dhcpV6Server = SocketAddressToText(entry.Dhcpv6Server);
  }
  AppendAddresses(entry.FirstDnsServerAddress, adapter.dnsServers);
  adapter.ifIndex = entry.IfIndex;  // 0 on an adapter without IPv4
  adapter.description = TextOrEmpty(entry.Description);
  adapter.mediaType = MediaTypeOf(entry.IfType, adapter.description);
  if (entry.PhysicalAddressLength != 0)
    adapter.macAddresses.push_back(PhysicalAddressToText(entry.PhysicalAddress, entry.PhysicalAddressLength));
  adapter.dnsSuffix = TextOrEmpty(entry.DnsSuffix);
  if (const auto* primary = entry.FirstWinsServerAddress; primary != nullptr) {
    adapter.winsPrimary = SocketAddressToText(primary->Address);
    if (primary->Next != nullptr) adapter.winsSecondary = SocketAddressToText(primary->Next->Address);
  }
  AppendAddresses(entry.FirstUnicastAddress, adapter.ipAddresses);
}

}  // namespace

std::wstring SocketAddressToText(const SOCKET_ADDRESS& address) {
  if (address.lpSockaddr == nullptr) return {};
  const void* bytes = nullptr;
  char narrow[65] = {};
  const int family = address.lpSockaddr->sa_family;
  if (family == AF_INET)
    bytes = &reinterpret_cast<const sockaddr_in*>(address.lpSockaddr)->sin_addr;
  else if (family == AF_INET6)
    bytes = &reinterpret_cast<const sockaddr_in6*>(address.lpSockaddr)->sin6_addr;
  if (bytes == nullptr || ::inet_ntop(family, bytes, narrow, sizeof narrow) == nullptr) return {};
  const std::string_view text = narrow;
  return {text.begin(), text.end()};
}

void AppendAdapters(const IP_ADAPTER_ADDRESSES* first, std::vector<AdapterProps>& adapters) {
  adapters.reserve(adapters.size() + CountOf(first));
  for (; first != nullptr; first = first->Next)
    if (first->OperStatus == IfOperStatusUp && first->IfType != IF_TYPE_SOFTWARE_LOOPBACK)
      AppendProps(*first, adapters);
}

SharedAdapters NoAdapters() noexcept {
  static const std::vector<AdapterProps> none;
  return {SharedAdapters(), &none};  // the pointer owns nothing
}

AdapterSnapshotResult TakeAdapterSnapshot(SharedAdapters& snapshot) {
  snapshot = NoAdapters();
  AdapterBuffer buffer;
  const bool answered = QueryAdapters(buffer);
  const auto failed = buffer.LacksMemory() ? AdapterSnapshotResult::kNoMemory : AdapterSnapshotResult::kNoAdapters;
  if (!answered) return failed;
  FW_LOG(kLogInfo, L"GetAdaptersAddresses succeeds, the return value is : %lu", static_cast<unsigned long>(NO_ERROR));
  try {
    auto adapters = std::make_shared<std::vector<AdapterProps>>();
    AppendAdapters(buffer.get(), *adapters);
    if (adapters->empty()) return failed;
    snapshot = std::move(adapters);
    return AdapterSnapshotResult::kTaken;
  } catch (const std::bad_alloc&) {
    return AdapterSnapshotResult::kNoMemory;  // some of the adapters would be a wrong picture: better none
  }
}

void LogAdapters(const std::vector<AdapterProps>& adapters) {
  FW_LOG(kLogInfo, L"Adapters List :");
  try {
    std::wstring report;
    for (const AdapterProps& adapter : adapters) {
      report.clear();
      AppendAdapterProps(report, adapter);
      FW_LOG(kLogInfo, L"Adapter properties:\n%s", report.c_str());
      FW_LOG(kLogInfo, L"//---------------------------------------------\n");
    }
  } catch (const std::bad_alloc&) {
    // The report is for reading only: the snapshot stands.
  }
}

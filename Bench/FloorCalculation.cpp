#include "Bench/FloorCalculation.h"

#include <cstring>
#include <cwchar>

namespace {

constexpr ULONG kBufferBytes = 15000;
constexpr ULONG kFlags = GAA_FLAG_INCLUDE_PREFIX | GAA_FLAG_INCLUDE_WINS_INFO | GAA_FLAG_INCLUDE_GATEWAYS;
constexpr wchar_t kKey[] = L"SOFTWARE\\Corvane\\Tessel\\Firewall\\LA";

// A log event's memory: the logging library fills it.
struct alignas(void*) EventMemory {
  unsigned char bytes[sizeof(LogUtils::LogEvent)];
};

template <typename... Arguments>
void Log(int line, const wchar_t* format, Arguments... arguments) {
  EventMemory event;
  logCalls.construct(&event, __FILE__, line, 8, "FirewallBL", logCalls.manager(), 2, 0);
  logCalls.wide(&event, "FIREWALL", format, arguments...);
}

template <typename... Arguments>
void LogNarrow(int line, const char* format, Arguments... arguments) {
  EventMemory event;
  logCalls.construct(&event, __FILE__, line, 8, "FirewallBL", logCalls.manager(), 2, 0);
  logCalls.narrow(&event, "FIREWALL", format, arguments...);
}

wchar_t Lower(wchar_t c) { return c >= L'A' && c <= L'Z' ? static_cast<wchar_t>(c + (L'a' - L'A')) : c; }

bool Same(const wchar_t* left, std::size_t leftLength, const wchar_t* right, std::size_t rightLength) {
  return leftLength == rightLength && std::wmemcmp(left, right, leftLength) == 0;
}

}  // namespace

FloorCalculation::FloorCalculation(const PlainSet& set, std::size_t adapters) : m_texts(set), m_adapters(adapters) {
  ::InitializeCriticalSection(&m_lock);
  std::size_t suffixes = 0;
  for (const PlainLocation& location : m_texts) suffixes += location.texts[LCT_DNS_SUFFIX].size();
  m_lowerSuffixes.reserve(suffixes);  // their texts are pointed to
  for (const PlainLocation& plain : m_texts) {
    Location& location = m_locations.emplace_back();
    location.name = plain.name.c_str();
    location.id = plain.id.c_str();
    location.idLength = static_cast<std::uint32_t>(plain.id.size());
    location.enabled = plain.enabled;
    location.zeltReachable = plain.zeltReachable;
    location.firstKind = static_cast<std::uint32_t>(m_kinds.size());
    for (std::size_t kind = 0; kind < kTextKinds; ++kind) {
      if (plain.texts[kind].empty()) continue;
      m_kinds.push_back({static_cast<LOCATION_CRITERIA_TYPE>(kind), static_cast<std::uint32_t>(m_values.size()),
                         static_cast<std::uint32_t>(plain.texts[kind].size())});
      for (const std::wstring& text : plain.texts[kind]) {
        m_values.push_back({text.c_str(), static_cast<std::uint32_t>(text.size()), 0});
        if (kind != LCT_DNS_SUFFIX) continue;
        std::wstring& lower = m_lowerSuffixes.emplace_back(text);
        for (wchar_t& c : lower) c = Lower(c);
        m_values.back().labels = static_cast<std::uint32_t>(m_labels.size());
        Split(lower.c_str(), m_labels.emplace_back());
      }
    }
    location.kinds = static_cast<std::uint32_t>(m_kinds.size()) - location.firstKind;
  }
  m_currentIds.resize(set.size());
  m_indexes.resize(set.size() * adapters);
  m_report.reserve(2000);
}

FloorCalculation::~FloorCalculation() {
  ::DeleteCriticalSection(&m_lock);
  ::TlsFree(m_slot);
}

void FloorCalculation::Text::Assign(const wchar_t* text) {
  length = static_cast<std::uint32_t>(std::wcslen(text));
  std::wmemcpy(chars, text, length + 1);
}

void FloorCalculation::Text::Assign(const SOCKET_ADDRESS& address) {
  Clear();
  if (address.lpSockaddr == nullptr) return;
  const int family = address.lpSockaddr->sa_family;
  const void* const bytes =
      family == AF_INET
          ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(address.lpSockaddr)->sin_addr)
          : static_cast<const void*>(&reinterpret_cast<const sockaddr_in6*>(address.lpSockaddr)->sin6_addr);
  char narrow[65] = {};
  windowsCalls.inetNtop(family, bytes, narrow, sizeof narrow);
  for (; narrow[length] != '\0'; ++length) chars[length] = static_cast<unsigned char>(narrow[length]);
  chars[length] = L'\0';
}

template <typename Entry>
void FloorCalculation::List::Assign(const Entry* first) {
  count = 0;
  for (; first != nullptr; first = first->Next) entries[count++].Assign(first->Address);
}

void FloorCalculation::Split(const wchar_t* text, Labels& labels) {
  labels.count = 0;
  for (;;) {
    const wchar_t* end = text;
    std::int32_t star = -1;
    for (; *end != L'.' && *end != L'\0'; ++end)
      if (*end == L'*') star = static_cast<std::int32_t>(end - text);
    labels.labels[labels.count++] = {text, static_cast<std::uint32_t>(end - text), star};
    if (*end == L'\0') return;
    text = end + 1;
  }
}

void FloorCalculation::Load() {
  ::EnterCriticalSection(&m_lock);
  ::TlsGetValue(m_slot);
  HKEY key = nullptr;
  windowsCalls.regOpenKeyExW(HKEY_LOCAL_MACHINE, kKey, 0, KEY_READ, &key);
  Calculate();
  ::LeaveCriticalSection(&m_lock);
}

void FloorCalculation::Calculate() {
  ::EnterCriticalSection(&m_lock);
  ::TlsGetValue(m_slot);
  windowsCalls.coInitializeEx(nullptr, COINIT_MULTITHREADED);
  Log(__LINE__, L"Calculating current locations...");
  m_current = 0;
  const bool taken = TakeSnapshot();
  ReportAdapters();
  if (taken) {
    std::uint32_t* indexes = m_indexes.data();
    for (Location& location : m_locations) {
      if (location.enabled && IsCurrent(location, indexes)) {
        std::wmemcpy(m_currentIds[m_current].data(), location.id, location.idLength + 1);
        Log(__LINE__, L"Adding current location ID %s", m_currentIds[m_current].data());
        ++m_current;
      }
      indexes += m_adapters.size();
    }
  } else {
    Log(__LINE__, L"CalculateCurrentAdapterProps failed.");
  }
  windowsCalls.coUninitialize();
  ::LeaveCriticalSection(&m_lock);
}

bool FloorCalculation::TakeSnapshot() {
  alignas(MIB_IPADDRTABLE) unsigned char table[1024];
  ULONG tableBytes = sizeof table;
  windowsCalls.getIpAddrTable(reinterpret_cast<MIB_IPADDRTABLE*>(table), &tableBytes, FALSE);

  m_adapterCount = 0;
  auto* const buffer = static_cast<IP_ADAPTER_ADDRESSES*>(::HeapAlloc(::GetProcessHeap(), 0, kBufferBytes));
  ULONG bytes = kBufferBytes;
  if (windowsCalls.getAdaptersAddresses(AF_UNSPEC, kFlags, nullptr, buffer, &bytes) == ERROR_SUCCESS) {
    Log(__LINE__, L"GetAdaptersAddresses succeeds, the return value is : %lu", 0UL);
    for (const IP_ADAPTER_ADDRESSES* entry = buffer; entry != nullptr; entry = entry->Next) {
      if (entry->OperStatus != IfOperStatusUp || entry->IfType == IF_TYPE_SOFTWARE_LOOPBACK) continue;
      Adapter& adapter = m_adapters[m_adapterCount++];
      adapter.gateways.Assign(entry->FirstGatewayAddress);
      adapter.dhcpEnabled = (entry->Flags & IP_ADAPTER_DHCP_ENABLED) != 0;
      adapter.dhcp.Clear();
      adapter.dhcpV6.Clear();
      if (adapter.dhcpEnabled) {
        adapter.dhcp.Assign(entry->Dhcpv4Server);
        adapter.dhcpV6.Assign(entry->Dhcpv6Server);
      }
      adapter.dnsServers.Assign(entry->FirstDnsServerAddress);
      adapter.index = entry->IfIndex;
      adapter.description.Assign(entry->Description);
      adapter.suffix.Assign(entry->DnsSuffix);
      adapter.primaryWins.Clear();
      adapter.secondaryWins.Clear();
      if (const auto* wins = entry->FirstWinsServerAddress; wins != nullptr) {
        adapter.primaryWins.Assign(wins->Address);
        if (wins->Next != nullptr) adapter.secondaryWins.Assign(wins->Next->Address);
      }
      adapter.addresses.Assign(entry->FirstUnicastAddress);
      adapter.lowerSuffix.length = adapter.suffix.length;
      for (std::uint32_t i = 0; i <= adapter.suffix.length; ++i)
        adapter.lowerSuffix.chars[i] = Lower(adapter.suffix.chars[i]);
      Split(adapter.lowerSuffix.chars, adapter.suffixLabels);
    }
  }
  ::HeapFree(::GetProcessHeap(), 0, buffer);
  return m_adapterCount != 0;
}

void FloorCalculation::ReportAdapters() {
  Log(__LINE__, L"Adapters List :");
  const auto text = [this](const wchar_t* label, const Text& value) {
    m_report.append(label).append(value.chars, value.length);
  };
  const auto list = [this](const wchar_t* label, const List& values) {
    m_report.append(label).append(L"\n\t\tCount (").append(std::to_wstring(values.count)).append(L")");
    for (std::uint32_t i = 0; i < values.count; ++i)
      m_report.append(L"\n\t\t\t").append(values.entries[i].chars, values.entries[i].length);
  };
  for (std::size_t i = 0; i < m_adapterCount; ++i) {
    const Adapter& adapter = m_adapters[i];
    m_report.clear();
    m_report.append(L"\n\tInterface Index:").append(std::to_wstring(adapter.index));
    text(L"\n\tDescription :", adapter.description);
    list(L"\n\tDefault Gateways:", adapter.gateways);
    m_report.append(L"\n\tDHCP Enabled status:").append(adapter.dhcpEnabled ? L"1" : L"0");
    text(L"\n\tDHCP Server:", adapter.dhcp);
    text(L"\n\tDHCPV6 Server:", adapter.dhcpV6);
    list(L"\n\tIP Addresses:", adapter.addresses);
    text(L"\n\tDNS Domain:", adapter.suffix);
    list(L"\n\tDNS Servers:", adapter.dnsServers);
    text(L"\n\tWINS Primary Server:", adapter.primaryWins);
    text(L"\n\tWINS Secondary Server:", adapter.secondaryWins);
    Log(__LINE__, L"Adapter properties:\n%s", m_report.c_str());
    Log(__LINE__, L"//---------------------------------------------\n");
  }
}

bool FloorCalculation::IsCurrent(Location& location, std::uint32_t* indexes) {
  Log(__LINE__, L"IsCurrentLocation checking location %s", location.name);
  Log(__LINE__, L"IsCurrentLocation bZeltReachabilityCriteria %d", static_cast<int>(location.zeltReachable));
  std::uint32_t matches = 0;
  if (location.kinds == 0) {
    Log(__LINE__, L"IsCurrentLocation criteria count is %d", static_cast<int>(location.zeltReachable));
    for (std::size_t i = 0; i < m_adapterCount; ++i) indexes[matches++] = m_adapters[i].index;
  } else {
    for (std::size_t i = 0; i < m_adapterCount; ++i) {
      const Adapter& adapter = m_adapters[i];
      Log(__LINE__,
          L"Matching all the location criterias with the properties of adapter with index %d and description %s.",
          adapter.index, adapter.description.chars);
      bool all = true;
      for (std::uint32_t k = 0; k < location.kinds && all; ++k) all = Matches(adapter, m_kinds[location.firstKind + k]);
      if (all) {
        Log(__LINE__,
            L"All the criteria's given in location matches adapter index %d with description %s. Hence this adapter "
            L"will be matching.",
            adapter.index, adapter.description.chars);
        indexes[matches++] = adapter.index;
      } else {
        Log(__LINE__,
            L"Not all the criteria's given in the location matches the adapter with index %d and description %s. "
            L"Hence this adapter will be non-matching.",
            adapter.index, adapter.description.chars);
      }
    }
    if (matches == 0)
      Log(__LINE__,
          L"None of the available network adapter properties matches all the criteria's given in the location");
  }
  const bool isCurrent = matches != 0;
  if (isCurrent) location.indexCount = matches;
  LogNarrow(__LINE__, "IsCurrentLocation returning matched criterias %d for location %S...",
            static_cast<int>(isCurrent), location.name);
  return isCurrent;
}

bool FloorCalculation::Matches(const Adapter& adapter, const Kind& kind) {
  const Value* const value = Find(adapter, kind);
  if (value == nullptr) return false;
  const auto log = [&](int line, const wchar_t* format, const wchar_t* text) {
    Log(line, format, text, adapter.index, adapter.description.chars);
  };
  switch (kind.kind) {
    case LCT_DNS_SUFFIX:
      log(__LINE__, L"Location: DNS suffix : %s matched for adapter with index %d and description %s.", value->chars);
      break;
    case LCT_DEFAULT_GATEWAY:
      log(__LINE__, L"Location: Default gateway : %s matched for adapter with index %d and description %s.",
          value->chars);
      break;
    case LCT_DHCP_SERVER:
      log(__LINE__, L"Location: DHCP server : %s matched for adapter with index %d and description %s.",
          adapter.dhcp.chars);
      break;
    case LCT_DNS_SERVER:
      log(__LINE__, L"Location: DNS server : %s matched for adapter with index %d and description %s.", value->chars);
      break;
    case LCT_PRIMARY_WINS:
      log(__LINE__, L"Location: Primary WINS : %s matched for adapter with index %d and description %s.",
          adapter.primaryWins.chars);
      break;
    default:
      log(__LINE__, L"Location: Secondary WINS : %s matched for adapter with index %d and description %s.",
          adapter.primaryWins.chars);
      break;
  }
  return true;
}

const FloorCalculation::Value* FloorCalculation::Find(const Adapter& adapter, const Kind& kind) const {
  const auto find = [&](auto holds) -> const Value* {
    for (std::uint32_t i = kind.first; i < kind.first + kind.count; ++i)
      if (holds(m_values[i])) return &m_values[i];
    return nullptr;
  };
  switch (kind.kind) {
    case LCT_DNS_SUFFIX:
      return find([&](const Value& value) { return LabelsAgree(m_labels[value.labels], adapter.suffixLabels); });
    case LCT_DEFAULT_GATEWAY:
      return FindIn(kind, adapter.gateways);
    case LCT_DHCP_SERVER:
      return find([&](const Value& value) { return Equal(value, adapter.dhcp) || Equal(value, adapter.dhcpV6); });
    case LCT_DNS_SERVER:
      return FindIn(kind, adapter.dnsServers);
    case LCT_PRIMARY_WINS:
      return find([&](const Value& value) { return Equal(value, adapter.primaryWins); });
    default:
      return find([&](const Value& value) { return Equal(value, adapter.secondaryWins); });
  }
}

const FloorCalculation::Value* FloorCalculation::FindIn(const Kind& kind, const List& list) const {
  for (std::uint32_t i = kind.first; i < kind.first + kind.count; ++i)
    for (std::uint32_t k = 0; k < list.count; ++k)
      if (Equal(m_values[i], list.entries[k])) return &m_values[i];
  return nullptr;
}

bool FloorCalculation::Equal(const Value& value, const Text& text) {
  return Same(value.chars, value.length, text.chars, text.length);
}

bool FloorCalculation::LabelsAgree(const Labels& criterion, const Labels& suffix) {
  const std::uint32_t common = criterion.count < suffix.count ? criterion.count : suffix.count;
  for (std::uint32_t i = 1; i <= common; ++i) {
    const Label& wanted = criterion.labels[criterion.count - i];
    const Label& found = suffix.labels[suffix.count - i];
    if (wanted.star < 0) {
      if (!Same(wanted.chars, wanted.length, found.chars, found.length)) return false;
      continue;
    }
    const auto before = static_cast<std::uint32_t>(wanted.star);
    const std::uint32_t after = wanted.length - before - 1;
    if (found.length < before + after || std::wmemcmp(wanted.chars, found.chars, before) != 0 ||
        std::wmemcmp(wanted.chars + before + 1, found.chars + found.length - after, after) != 0)
      return false;
  }
  return true;
}

std::vector<std::wstring> FloorCalculation::CurrentIds() const {
  std::vector<std::wstring> ids;
  for (std::size_t i = 0; i < m_current; ++i) ids.emplace_back(m_currentIds[i].data());
  return ids;
}

std::vector<std::uint32_t> FloorCalculation::Indexes(std::size_t location) const {
  const std::uint32_t* const first = &m_indexes[location * m_adapters.size()];
  return {first, first + m_locations[location].indexCount};
}

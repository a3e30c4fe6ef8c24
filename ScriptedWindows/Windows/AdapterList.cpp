#include "ScriptedWindows/Windows/AdapterList.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "ScriptedWindows/Complaint.h"

namespace {

constexpr char kAdapterName[] = "{00000000-0000-0000-0000-000000000000}";

template <typename T>
std::vector<std::byte> BytesOf(const T& value) {
  std::vector<std::byte> bytes(sizeof value);
  std::memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}

// Hands out places behind each other. Without memory it only counts: addresses are then as if memory began at null,
// and nothing is written.
class Arena {
 public:
  explicit Arena(std::byte* base) : m_base(base) {}

  template <typename T>
  T* Reserve(std::size_t count) {
    m_used = (m_used + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) * alignof(std::max_align_t);
    const std::size_t start = m_used;
    m_used += count * sizeof(T);
    return reinterpret_cast<T*>(reinterpret_cast<std::uintptr_t>(m_base) + start);
  }

  template <typename T>
  void Write(T* place, const T* values, std::size_t count = 1) {
    if (m_base != nullptr && count != 0) std::memcpy(place, values, count * sizeof(T));
  }

  template <typename T>
  T* Put(const T* values, std::size_t count = 1) {
    T* const place = Reserve<T>(count);
    Write(place, values, count);
    return place;
  }

  wchar_t* Put(const std::optional<std::wstring>& text) {
    return text.has_value() ? Put(text->c_str(), text->size() + 1) : nullptr;
  }

  SOCKET_ADDRESS Put(const FakeAddress& address) {
    const auto& bytes = address.Bytes();
    if (bytes.empty()) return {nullptr, 0};
    return {reinterpret_cast<SOCKADDR*>(Put(bytes.data(), bytes.size())), static_cast<INT>(bytes.size())};
  }

  // A linked list, made from its end.
  template <typename Node>
  Node* PutList(const std::vector<FakeAddress>& addresses) {
    Node* next = nullptr;
    for (auto address = addresses.rbegin(); address != addresses.rend(); ++address) {
      Node node{};
      node.Length = sizeof node;
      node.Next = next;
      node.Address = Put(*address);
      next = Put(&node);
    }
    return next;
  }

  std::size_t Used() const { return m_used; }

 private:
  std::byte* m_base;
  std::size_t m_used = 0;
};

}  // namespace

FakeAddress::FakeAddress(const char* text) {
  sockaddr_in v4{};
  sockaddr_in6 v6{};
  if (::inet_pton(AF_INET, text, &v4.sin_addr) == 1) {
    v4.sin_family = AF_INET;
    m_bytes = BytesOf(v4);
  } else if (::inet_pton(AF_INET6, text, &v6.sin6_addr) == 1) {
    v6.sin6_family = AF_INET6;
    m_bytes = BytesOf(v6);
  } else {
    Complain(std::string("no address: ") + text);
  }
}

FakeAddress FakeAddress::OfFamily(short family) {
  sockaddr_in6 address{};
  address.sin6_family = family;
  FakeAddress fake;
  fake.m_bytes = BytesOf(address);
  return fake;
}

FakeAddress FakeAddress::Null() { return {}; }

FakeAdapter& FakeAdapter::Index(ULONG value) {
  m_index = value;
  return *this;
}

FakeAdapter& FakeAdapter::Ipv6Index(ULONG value) {
  m_ipv6Index = value;
  return *this;
}

FakeAdapter& FakeAdapter::Type(ULONG value) {
  m_type = value;
  return *this;
}

FakeAdapter& FakeAdapter::Status(IF_OPER_STATUS value) {
  m_status = value;
  return *this;
}

FakeAdapter& FakeAdapter::Down() { return Status(IfOperStatusDown); }

FakeAdapter& FakeAdapter::Flags(ULONG value) {
  m_flags = value;
  return *this;
}

FakeAdapter& FakeAdapter::Description(const wchar_t* text) {
  m_description = text != nullptr ? std::optional<std::wstring>(text) : std::nullopt;
  return *this;
}

FakeAdapter& FakeAdapter::DnsSuffix(const wchar_t* text) {
  m_dnsSuffix = text != nullptr ? std::optional<std::wstring>(text) : std::nullopt;
  return *this;
}

FakeAdapter& FakeAdapter::Mac(std::vector<BYTE> bytes) {
  Require(bytes.size() <= std::size_t{MAX_ADAPTER_ADDRESS_LENGTH}, "a physical address is too long");
  m_mac = std::move(bytes);
  return *this;
}

FakeAdapter& FakeAdapter::Ip(FakeAddress address) {
  m_ips.push_back(std::move(address));
  return *this;
}

FakeAdapter& FakeAdapter::Gateway(FakeAddress address) {
  m_gateways.push_back(std::move(address));
  return *this;
}

FakeAdapter& FakeAdapter::DnsServer(FakeAddress address) {
  m_dnsServers.push_back(std::move(address));
  return *this;
}

FakeAdapter& FakeAdapter::Wins(FakeAddress address) {
  m_wins.push_back(std::move(address));
  return *this;
}

FakeAdapter& FakeAdapter::Dhcp(FakeAddress server) {
  m_flags |= IP_ADAPTER_DHCP_ENABLED;
  m_dhcp = std::move(server);
  return *this;
}

FakeAdapter& FakeAdapter::DhcpV6(FakeAddress server) {
  m_flags |= IP_ADAPTER_DHCP_ENABLED;
  m_dhcpV6 = std::move(server);
  return *this;
}

FakeAdapter& FakeAdapter::StaleDhcpServers(FakeAddress server, FakeAddress serverV6) {
  m_flags &= ~static_cast<ULONG>(IP_ADAPTER_DHCP_ENABLED);
  m_dhcp = std::move(server);
  m_dhcpV6 = std::move(serverV6);
  return *this;
}

FakeAdapter& AdapterList::Add(const wchar_t* description) {
  ULONG index = 0;
  for (const FakeAdapter& adapter : m_adapters) index = std::max(index, adapter.m_index);
  return m_adapters.emplace_back().Description(description).Index(index + 1).DnsSuffix(L"");
}

FakeAdapter& AdapterList::AddLoopback() {
  return Add(L"Software Loopback Interface 1").Type(IF_TYPE_SOFTWARE_LOOPBACK).Ip("127.0.0.1").Ip("::1");
}

std::size_t AdapterList::Write(std::byte* base) const {
  Arena arena(base);
  auto* entry = arena.Reserve<IP_ADAPTER_ADDRESSES>(m_adapters.size());
  for (const FakeAdapter& adapter : m_adapters) {
    IP_ADAPTER_ADDRESSES value{};
    value.Length = sizeof value;
    value.IfIndex = adapter.m_index;
    value.Next = &adapter != &m_adapters.back() ? entry + 1 : nullptr;
    value.AdapterName = arena.Put(kAdapterName, sizeof kAdapterName);
    value.FirstUnicastAddress = arena.PutList<IP_ADAPTER_UNICAST_ADDRESS>(adapter.m_ips);
    value.FirstDnsServerAddress = arena.PutList<IP_ADAPTER_DNS_SERVER_ADDRESS>(adapter.m_dnsServers);
    value.DnsSuffix = arena.Put(adapter.m_dnsSuffix);
    value.Description = arena.Put(adapter.m_description);
    value.FriendlyName = arena.Put(adapter.m_description);
    value.PhysicalAddressLength = static_cast<ULONG>(adapter.m_mac.size());
    std::copy(adapter.m_mac.begin(), adapter.m_mac.end(), std::begin(value.PhysicalAddress));
    value.Flags = adapter.m_flags;
    value.Mtu = 1500;
    value.IfType = adapter.m_type;
    value.OperStatus = adapter.m_status;
    value.Ipv6IfIndex = adapter.m_ipv6Index;
    value.FirstWinsServerAddress = arena.PutList<IP_ADAPTER_WINS_SERVER_ADDRESS>(adapter.m_wins);
    value.FirstGatewayAddress = arena.PutList<IP_ADAPTER_GATEWAY_ADDRESS>(adapter.m_gateways);
    value.Dhcpv4Server = arena.Put(adapter.m_dhcp);
    value.Dhcpv6Server = arena.Put(adapter.m_dhcpV6);
    arena.Write(entry, &value);
    ++entry;
  }
  return arena.Used();
}

ULONG AdapterList::CopyTo(void* buffer, ULONG& bytes) const {
  if (Empty()) return ERROR_NO_DATA;
  const auto needed = static_cast<ULONG>(Write(nullptr));
  if (buffer == nullptr || bytes < needed) {
    bytes = needed;
    return ERROR_BUFFER_OVERFLOW;
  }
  Write(static_cast<std::byte*>(buffer));
  return ERROR_SUCCESS;
}

AdapterList::Block AdapterList::Build() const {
  Block block;
  if (Empty()) return block;
  block.m_bytes = std::make_unique<std::byte[]>(Write(nullptr));
  Write(block.m_bytes.get());
  return block;
}

const IP_ADAPTER_ADDRESSES* AdapterList::Block::First() const {
  return reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(m_bytes.get());
}

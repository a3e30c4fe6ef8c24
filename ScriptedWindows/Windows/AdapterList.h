// Adapter lists of every shape, as GetAdaptersAddresses answers them.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <iphlpapi.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// One socket address as it stands in an adapter entry.
class FakeAddress {
 public:
  // IPv4 or IPv6 text; complains of any other text.
  FakeAddress(const char* text);  // NOLINT(google-explicit-constructor): texts read best in a list

  // An address of a family that nobody can spell.
  static FakeAddress OfFamily(short family);

  // A null pointer where the address should be.
  static FakeAddress Null();

  const std::vector<std::byte>& Bytes() const { return m_bytes; }

 private:
  FakeAddress() = default;

  std::vector<std::byte> m_bytes;  // a sockaddr_in or sockaddr_in6; empty: null
};

// One adapter entry, which is an Ethernet adapter that is up, with nothing else set. Each setter returns the entry, so
// that a test reads as a description: list.Add(L"Office").Index(5).Gateway("10.0.0.1").DnsSuffix(L"corp.example").
class FakeAdapter {
 public:
  FakeAdapter& Index(ULONG value);
  FakeAdapter& Ipv6Index(ULONG value);
  FakeAdapter& Type(ULONG value);             // IF_TYPE_...
  FakeAdapter& Status(IF_OPER_STATUS value);  // IfOperStatusUp when not set
  FakeAdapter& Down();
  FakeAdapter& Flags(ULONG value);                // replaces all flags
  FakeAdapter& Description(const wchar_t* text);  // null: no text
  FakeAdapter& DnsSuffix(const wchar_t* text);    // null: no text
  FakeAdapter& Mac(std::vector<BYTE> bytes);      // at most 8
  // Each adds one to a list, in order.
  FakeAdapter& Ip(FakeAddress address);
  FakeAdapter& Gateway(FakeAddress address);
  FakeAdapter& DnsServer(FakeAddress address);
  FakeAdapter& Wins(FakeAddress address);
  // Sets the DHCP flag as well; servers without it are stale (StaleDhcpServers).
  FakeAdapter& Dhcp(FakeAddress server);
  FakeAdapter& DhcpV6(FakeAddress server);
  FakeAdapter& StaleDhcpServers(FakeAddress server, FakeAddress serverV6);

 private:
  friend class AdapterList;

  ULONG m_index = 0;
  ULONG m_ipv6Index = 0;
  ULONG m_type = IF_TYPE_ETHERNET_CSMACD;
  IF_OPER_STATUS m_status = IfOperStatusUp;
  ULONG m_flags = 0;
  std::optional<std::wstring> m_description;
  std::optional<std::wstring> m_dnsSuffix;
  std::vector<BYTE> m_mac;
  std::vector<FakeAddress> m_ips;
  std::vector<FakeAddress> m_gateways;
  std::vector<FakeAddress> m_dnsServers;
  std::vector<FakeAddress> m_wins;
  FakeAddress m_dhcp = FakeAddress::Null();
  FakeAddress m_dhcpV6 = FakeAddress::Null();
};

// A list of adapters. A value: copies are independent.
class AdapterList {
 public:
  // Adds an adapter with this description and the next free index, from 1 on. The reference stays valid.
  FakeAdapter& Add(const wchar_t* description);

  // The loopback adapter that every machine has.
  FakeAdapter& AddLoopback();

  bool Empty() const { return m_adapters.empty(); }

  // What GetAdaptersAddresses does with its buffer: ERROR_NO_DATA for an empty list; ERROR_BUFFER_OVERFLOW with the
  // needed size in `bytes` when it is too small or there is no buffer; else the whole list, whose first entry lies at
  // the start and whose pointers all lead into the buffer.
  ULONG CopyTo(void* buffer, ULONG& bytes) const;

  // The list in memory of its own; the first entry, or null for an empty list.
  class Block {
   public:
    const IP_ADAPTER_ADDRESSES* First() const;

   private:
    friend class AdapterList;
    std::unique_ptr<std::byte[]> m_bytes;
  };
  Block Build() const;

 private:
  std::size_t Write(std::byte* base) const;

  std::deque<FakeAdapter> m_adapters;
};

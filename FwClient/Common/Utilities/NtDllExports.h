// The address parsers of ntdll.dll, which no import library offers.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

// Finds the parsers when it is made. A parser that is missing is logged and stays null; nothing else fails.
class NtDllExports {
 public:
  using Ipv4StringToAddress = LONG NTAPI(PCWSTR text, BOOLEAN strict, PCWSTR* terminator, IN_ADDR* address);
  using Ipv6StringToAddress = LONG NTAPI(PCWSTR text, PCWSTR* terminator, IN6_ADDR* address);

  NtDllExports() noexcept;
  ~NtDllExports();
  NtDllExports(const NtDllExports&) = delete;
  NtDllExports& operator=(const NtDllExports&) = delete;

  // The one of this module. It is made while the module loads, or before, by the first static object that asks for it;
  // it goes when the module does. Read-only, so any thread may use it.
  static const NtDllExports& Instance() noexcept;

  Ipv4StringToAddress* RtlIpv4StringToAddressW() const noexcept { return m_ipv4StringToAddress; }
  Ipv6StringToAddress* RtlIpv6StringToAddressW() const noexcept { return m_ipv6StringToAddress; }

 private:
  HMODULE m_module = nullptr;
  bool m_loadedHere = false;  // m_module is a reference of our own
  Ipv4StringToAddress* m_ipv4StringToAddress = nullptr;
  Ipv6StringToAddress* m_ipv6StringToAddress = nullptr;
};

// Addresses against a range.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <deque>
#include <string>
#include <vector>

#include "Bench/Job.h"
#include "Bench/MeasuredService.h"
#include "FwClient/Service/QeLaLib/Include/QeLaApi.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"

namespace {

constexpr std::size_t kAddresses = 16;

// What was called, in order, by whichever side.
std::string g_calls;

INT WSAAPI GetInfo(const wchar_t* name, const wchar_t* service, const ADDRINFOW* hints, ADDRINFOW** result) {
  if (g_calls.size() < g_calls.capacity()) g_calls += 'i';
  return ::GetAddrInfoW(name, service, hints, result);
}

INT WSAAPI Parse(wchar_t* text, INT family, WSAPROTOCOL_INFOW* protocol, SOCKADDR* address, INT* length) {
  if (g_calls.size() < g_calls.capacity()) g_calls += 'p';
  return ::WSAStringToAddressW(text, family, protocol, address, length);
}

decltype(&::GetAddrInfoW) volatile getInfo = GetInfo;
decltype(&::WSAStringToAddressW) volatile parse = Parse;

int FamilyOf(const std::wstring& text) {
  ADDRINFOW* first = nullptr;
  const INT result = getInfo(text.c_str(), nullptr, nullptr, &first);
  ::WSAGetLastError();
  if (result != 0) return AF_UNSPEC;
  const int family = first->ai_family;
  ::FreeAddrInfoW(first);
  return family;
}

template <typename SocketAddress, typename Address>
int Compare(int family, Address SocketAddress::* member, const std::wstring& left, const std::wstring& right) {
  SocketAddress first{};
  SocketAddress second{};
  INT length = sizeof first;
  parse(const_cast<wchar_t*>(left.c_str()), family, nullptr, reinterpret_cast<SOCKADDR*>(&first), &length);
  length = sizeof second;
  parse(const_cast<wchar_t*>(right.c_str()), family, nullptr, reinterpret_cast<SOCKADDR*>(&second), &length);
  return std::memcmp(&(first.*member), &(second.*member), sizeof(Address));
}

// The calls that the rule of ranges names, in its order.
bool IsInRange(const std::wstring& address, const std::wstring& low, const std::wstring& high) {
  if (FamilyOf(address) == AF_INET && FamilyOf(low) == AF_INET)
    return Compare(AF_INET, &sockaddr_in::sin_addr, address, low) >= 0 &&
           Compare(AF_INET, &sockaddr_in::sin_addr, address, high) <= 0;
  if (FamilyOf(address) == AF_INET6 && FamilyOf(low) == AF_INET6)
    return Compare(AF_INET6, &sockaddr_in6::sin6_addr, address, low) >= 0 &&
           Compare(AF_INET6, &sockaddr_in6::sin6_addr, address, high) <= 0;
  return false;
}

// Addresses above the range, so that both of its ends are looked at.
void Match(Run& run, const std::wstring& start, const std::wstring& low, const std::wstring& high) {
  std::vector<std::wstring> addresses;
  for (std::size_t i = 1; i <= kAddresses; ++i) addresses.push_back(start + std::to_wstring(i));
  const MeasuredService service(Adapters(1), {});
  const ImportPatch info(service.Module(), "GetAddrInfoW", GetInfo);
  const ImportPatch parsing(service.Module(), "WSAStringToAddressW", Parse);

  const auto own = [&] {
    const std::uint32_t kind = FIAT_RANGE_IP;
    return service.Api().MatchAddressSpecification(addresses, &kind, low, high);
  };
  const auto floor = [&] {
    WSADATA data{};
    ::WSAStartup(MAKEWORD(2, 2), &data);
    bool found = false;
    for (const std::wstring& address : addresses)
      if (IsInRange(address, low, high)) found = true;
    ::WSACleanup();
    return found;
  };
  const auto callsOf = [](auto side) {
    g_calls.reserve(kAddresses * 16);
    g_calls.clear();
    side();
    return std::string(g_calls);
  };
  if (callsOf(own) != callsOf(floor) || own() != floor()) return run.Fail("the library asks Windows something else");
  run.Compare(own, floor, kAddresses);
}

}  // namespace

void AddAddressJobs(Jobs& jobs) {
  jobs.push_back({.name = "address match, per IPv4 address", .goal = {.factor = 1.05}, .measure = [](Run& run) {
                    Match(run, L"10.30.0.", L"10.20.0.1", L"10.20.255.254");
                  }});
  jobs.push_back({.name = "address match, per IPv6 address", .goal = {.factor = 1.05}, .measure = [](Run& run) {
                    Match(run, L"fd00:78::", L"fd00:77::1", L"fd00:77::ffff");
                  }});
}

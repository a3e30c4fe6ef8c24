#include "Bench/PlainLocation.h"

#include <format>

namespace {

std::wstring Number(std::size_t number) { return std::to_wstring(number); }

// Nobody's address, another one for every number.
std::wstring StrangeAddress(std::size_t number) {
  return L"10." + Number(100 + number / 65536) + L"." + Number(number / 256 % 256) + L"." + Number(number % 256);
}

PlainLocation Named(std::size_t number) {
  PlainLocation location;
  location.id = std::format(L"{:08x}-1c2d-4e3f-8a9b-0123456789ab", number);
  location.name = L"Location " + Number(number);
  return location;
}

}  // namespace

AdapterList Adapters(std::size_t count) {
  AdapterList list;
  for (std::size_t i = 1; i <= count; ++i) {
    const auto address = [&](int host) { return std::format("10.{}.{}.{}", i / 100, i % 100, host); };
    list.Add((L"Ethernet Controller " + Number(i)).c_str())
        .DnsSuffix((L"lan" + Number(i) + L".corp.example").c_str())
        .Gateway(address(1).c_str())
        .Gateway("10.0.99.1")
        .DnsServer(address(53).c_str())
        .DnsServer("10.0.99.53")
        .Dhcp("10.0.99.67")
        .Wins("10.0.99.41")
        .Wins("10.0.99.42")
        .Ip(address(7).c_str())
        .Ip(std::format("fe80::{:x}", i).c_str())
        .Mac({0, 1, 2, 3, 4, 5});
  }
  return list;
}

PlainSet LocationsOf(Shape shape, std::size_t count) {
  PlainSet set;
  for (std::size_t i = 0; i < count; ++i) {
    PlainLocation& location = set.emplace_back(Named(i));
    auto& texts = location.texts;
    switch (shape) {
      case Shape::kGatewayMiss:
        texts[LCT_DEFAULT_GATEWAY] = {StrangeAddress(i)};
        break;
      case Shape::kSuffixLiteral:
        texts[LCT_DNS_SUFFIX] = {L"site" + Number(i) + L".corp.example"};
        break;
      case Shape::kSuffixWildcard:
        texts[LCT_DNS_SUFFIX] = {L"site" + Number(i) + L"-*.corp.example"};
        break;
      case Shape::kDhcp:
        texts[LCT_DHCP_SERVER] = {StrangeAddress(i)};
        break;
      case Shape::kFiveKinds:
        texts[LCT_DNS_SUFFIX] = {L"corp.example"};
        texts[LCT_DEFAULT_GATEWAY] = {L"10.0.99.1"};
        texts[LCT_DHCP_SERVER] = {L"10.0.99.67"};
        texts[LCT_DNS_SERVER] = {L"10.0.99.53"};
        texts[LCT_PRIMARY_WINS] = {StrangeAddress(i)};
        break;
      case Shape::kTwoOfThreeKinds:
        texts[LCT_DNS_SUFFIX] = {L"site" + Number(i) + L".corp.example", L"corp.example"};
        texts[LCT_DEFAULT_GATEWAY] = {StrangeAddress(i), L"10.0.99.1"};
        texts[LCT_DNS_SERVER] = {StrangeAddress(i), StrangeAddress(i + 1)};
        break;
      case Shape::kOneInTenCurrent:
        texts[LCT_DEFAULT_GATEWAY] = {i % 10 == 0 ? L"10.0.3.1" : StrangeAddress(i)};
        break;
      case Shape::kAllCurrent:
        texts[LCT_DEFAULT_GATEWAY] = {L"10.0." + Number(1 + i % 9) + L".1"};
        break;
      case Shape::kNoCriteria:
        break;
    }
  }
  return set;
}

PlainSet UsualLocations(std::size_t count) {
  PlainSet set;
  for (std::size_t i = 0; i < count; ++i) {
    PlainLocation& location = set.emplace_back(Named(i));
    // Not every name is ASCII.
    location.name = (i % 10 == 0 ? L"B\u00fcro " : L"Branch Office ") + Number(i);
    if (i % 4 == 0) location.note = L"Second floor, moved in spring";
    location.texts[LCT_DNS_SUFFIX] = {L"site" + Number(i) + L".branches.corp.example"};
    location.texts[LCT_DEFAULT_GATEWAY] = {StrangeAddress(i)};
    if (i % 2 == 0) location.texts[LCT_DNS_SERVER] = {StrangeAddress(i + 7)};
    location.adapterIndexes = {static_cast<std::uint32_t>(2 + i % 20)};
    if (i % 3 == 0) location.adapterIndexes.push_back(300);
  }
  return set;
}

#include "FwClient/Service/QeLaLib/AdapterProps.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

namespace {

static_assert(std::is_nothrow_move_constructible_v<AdapterProps>, "a growing vector must move its records");

AdapterProps FullAdapter() {
  return {12,
          Wireless,
          L"Wi-Fi 6",
          {L"10.0.0.1", L"fe80::1"},
          true,
          L"10.0.0.2",
          L"fe80::2",
          {L"10.0.0.5"},
          {L"00-1A-2B-3C-4D-5E"},
          L"corp.example",
          {L"10.0.0.3", L"10.0.0.4"},
          L"10.0.0.6",
          L"10.0.0.7"};
}

TEST(AdapterProps, StartsWithZerosAndEmptyTexts) {
  const AdapterProps adapter;
  EXPECT_EQ(adapter.ifIndex, 0u);
  EXPECT_EQ(adapter.mediaType, 0u);
  EXPECT_FALSE(adapter.dhcpEnabled);
  for (const std::wstring* text : {&adapter.description, &adapter.dhcpServer, &adapter.dhcpV6Server, &adapter.dnsSuffix,
                                   &adapter.winsPrimary, &adapter.winsSecondary})
    EXPECT_TRUE(text->empty());
  for (const auto* list : {&adapter.gateways, &adapter.ipAddresses, &adapter.macAddresses, &adapter.dnsServers})
    EXPECT_TRUE(list->empty());
}

TEST(AdapterProps, MovedFromKeepsItsNumbersAndHasNoTexts) {
  AdapterProps adapter = FullAdapter();
  const AdapterProps moved = std::move(adapter);
  EXPECT_EQ(moved.dnsServers.size(), 2u);
  // NOLINTBEGIN(bugprone-use-after-move): what is left behind is the subject
  EXPECT_EQ(adapter.ifIndex, 12u);
  EXPECT_EQ(adapter.mediaType, Wireless);
  EXPECT_TRUE(adapter.dhcpEnabled);
  EXPECT_TRUE(adapter.description.empty());
  EXPECT_TRUE(adapter.gateways.empty());
  EXPECT_TRUE(adapter.winsSecondary.empty());
  // NOLINTEND(bugprone-use-after-move)
}

TEST(AdapterProps, MediaTypesAreBitsAndOtherHasAllOfThem) {
  EXPECT_EQ(Wired, 1u);
  EXPECT_EQ(Wireless, 2u);
  EXPECT_EQ(Virtual, 4u);
  EXPECT_EQ(Other, 7u);
}

TEST(AdapterProps, RendersEveryFieldButMediaTypeAndPhysicalAddress) {
  EXPECT_EQ(RenderAdapterProps(FullAdapter()),
            L"\n\tInterface Index:12"
            L"\n\tDescription :Wi-Fi 6"
            L"\n\tDefault Gateways:\n\t\tCount (2)\n\t\t\t10.0.0.1\n\t\t\tfe80::1"
            L"\n\tDHCP Enabled status:1"
            L"\n\tDHCP Server:10.0.0.2"
            L"\n\tDHCPV6 Server:fe80::2"
            L"\n\tIP Addresses:\n\t\tCount (1)\n\t\t\t10.0.0.5"
            L"\n\tDNS Domain:corp.example"
            L"\n\tDNS Servers:\n\t\tCount (2)\n\t\t\t10.0.0.3\n\t\t\t10.0.0.4"
            L"\n\tWINS Primary Server:10.0.0.6"
            L"\n\tWINS Secondary Server:10.0.0.7");
}

TEST(AdapterProps, RendersAnEmptyAdapterAsLabelsAndCounts) {
  EXPECT_EQ(RenderAdapterProps({}),
            L"\n\tInterface Index:0"
            L"\n\tDescription :"
            L"\n\tDefault Gateways:\n\t\tCount (0)"
            L"\n\tDHCP Enabled status:0"
            L"\n\tDHCP Server:"
            L"\n\tDHCPV6 Server:"
            L"\n\tIP Addresses:\n\t\tCount (0)"
            L"\n\tDNS Domain:"
            L"\n\tDNS Servers:\n\t\tCount (0)"
            L"\n\tWINS Primary Server:"
            L"\n\tWINS Secondary Server:");
}

TEST(AdapterProps, RendersTheLargestIndexWithoutSign) {
  AdapterProps adapter;
  adapter.ifIndex = 0xffffffff;
  EXPECT_TRUE(RenderAdapterProps(adapter).starts_with(L"\n\tInterface Index:4294967295\n\tDescription :"));
}

TEST(AdapterProps, RendersAListAsItsCountAndOneLineAnEntry) {
  EXPECT_EQ(RenderTextList({}), L"\n\t\tCount (0)");
  EXPECT_EQ(RenderTextList({L"one", L"", L"three"}), L"\n\t\tCount (3)\n\t\t\tone\n\t\t\t\n\t\t\tthree");
}

}  // namespace

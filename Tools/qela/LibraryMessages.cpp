#include "LibraryMessages.h"

#include <algorithm>
#include <array>
#include <string>

namespace {

constexpr auto kFormats = std::to_array<std::string_view>({
    "//---------------------------------------------\n",
    "Adapter properties:\n%s",
    "Adapters List :",
    "Adding current location ID %s",
    "All the criteria's given in location matches adapter index %d with description %s. Hence this adapter will be "
    "matching.",
    "CalculateCurrentAdapterProps failed.",
    "Calculating current locations...",
    "Cert Error Code:%ld",
    "CheckZeltReachability RegOpenKey KEY_WOW64_32KEY failed with %ld",
    "CheckZeltReachability RegOpenKey failed with %ld",
    "CheckZeltReachability RegQueryValueEx KEY_WOW64_32KEY failed with %ld",
    "CheckZeltReachability RegQueryValueEx failed with %ld  (this is expected on x64 systems)",
    "CheckZeltReachability RegQueryValueEx failed with %ld (this is expected on x64 systems)",
    "CheckZeltReachability failed",
    "CheckZeltReachability failed for %s",
    "CheckZeltReachability found ZeltServerList value %s",
    "CheckZeltReachability found ZeltServerList value %s at the alternate KEY_WOW64_32KEY location",
    "CheckZeltReachability succeeded",
    "CheckZeltReachability succeeded for %s",
    "Checking only for existence of the registry key and not the registry value/data.",
    "FIAT_RANGE_IP or FIAT_ANY_IP_V4 or FIAT_ANY_IP_V6 WSAStartup failed with error %d with last error %d",
    "FIAT_SUBNET WSAStartup failed with error %d with last error %d",
    "Get client certificate chain",
    "Get client certificate issuer",
    "GetAdaptersAddresses succeeds, the return value is : %lu",
    "IsCurrentLocation bZeltReachabilityCriteria %d",
    "IsCurrentLocation checking location %s",
    "IsCurrentLocation criteria count is %d",
    "IsCurrentLocation returning matched criterias %d for location %S...",
    "IsDomainReachable was able to match domain %s",
    "IsDomainReachable was unable to match domain %s",
    "IsZELTReachable calling DnsQuery on %s",
    "Issuer id of required certifcate :%s",
    "Location discovery thread got wait result %ld, %ld...",
    "Location discovery thread stopping...",
    "Location: DHCP server : %s matched for adapter with index %d and description %s.",
    "Location: DNS server : %s matched for adapter with index %d and description %s.",
    "Location: DNS suffix : %s matched for adapter with index %d and description %s.",
    "Location: Default gateway : %s matched for adapter with index %d and description %s.",
    "Location: Domain reachable test passed for adapter with index %d and description %s.",
    "Location: Primary WINS : %s matched for adapter with index %d and description %s.",
    "Location: Registry key matched for adapter with index %d and description %s.",
    "Location: Secondary WINS : %s matched for adapter with index %d and description %s.",
    "Matching all the location criterias with the properties of adapter with index %d and description %s.",
    "Memory allocation failed for IP_ADAPTER_ADDRESSES struct",
    "None of the available network adapter properties matches all the criteria's given in the location",
    "Not able to get issuer list",
    "Not able to locate client certificate %ld",
    "Not able to open current user store",
    "Not all the criteria's given in the location matches the adapter with index %d and description %s. Hence this "
    "adapter will be non-matching.",
    "NtDllExports - can't obtain a handle to RtlIpv4StringToAddressW",
    "NtDllExports - can't obtain a handle to RtlIpv6StringToAddressW",
    "NtDllExports - can't obtain a handle to ntdll",
    "QeLaLib failed to init COM, hr 0x%x",
    "QeLaUtils::IpCompareIPv4 - WSAStringToAddress failed with error %d with last error %d",
    "QeLaUtils::IpCompareIPv4 - addr1 RtlIpv4StringToAddress failed with error %d",
    "QeLaUtils::IpCompareIPv4 - addr2 RtlIpv4StringToAddress failed with error %d",
    "QeLaUtils::IpCompareIPv6 - WSAStringToAddress failed with error %d with last error %d",
    "QeLaUtils::IpCompareIPv6 - addr2 RtlIpv6StringToAddress failed with error %d",
    "QeLaUtils::IsIPV4orIPV6 - GetAddrInfo failed with error %d with last error %d",
    "Raising a location changed event...",
    "Reverted back successfully",
    "Searching cert in current user store",
    "Send Request failed for %s errorCode %ld",
    "Set the client cert on request handle and resend the request",
    "Skipped raising a location changed event...",
    "The Adapter %s has Media Type as %d.",
    "The location discovery thread received a refresh notification",
    "The location discovery thread received an address change notification",
    "The registry key %s specified for the location does not exist in KEY_WOW64_64KEY.",
    "The registry key %s specified for the location does not exist.",
    "The registry value %s does NOT match the specified location awareness group value of %s.",
    "The registry value %s matches the specified location awareness group value of %s.",
    "Unable to find the DWORD value in the registry for %s.",
    "Unable to find the string value in the registry for %s.",
    "WinHttp Send Request status code for %s %ld",
    "ZELT reachability DnsQuery succeeded",
    "ZELT reachability failed with DNS_STATUS %ld",
});
static_assert(std::ranges::is_sorted(kFormats));

constexpr auto kMessages = [] {
  std::array<LibraryMessage, kFormats.size()> messages{};
  std::ranges::transform(kFormats, messages.begin(), [](std::string_view format) {
    const std::size_t beginning = std::min(format.find_first_of("%\n/", 2), format.size());
    return LibraryMessage{format, beginning, beginning == format.size()};
  });
  return messages;
}();
constexpr std::size_t kLeastBeginning = 6;
constexpr std::size_t kMostBeginning = std::ranges::max(kMessages, {}, &LibraryMessage::beginning).beginning;
static_assert(std::ranges::all_of(kMessages, [](const auto& message) { return message.beginning >= kLeastBeginning; }));

// Where the messages with this first letter begin in the table; they end where the next one's begin.
constexpr auto kFirst = [] {
  std::array<unsigned char, 257> first{};
  for (std::size_t letter = 0, at = 0; letter < first.size(); ++letter) {
    while (at < kMessages.size() && static_cast<unsigned char>(kMessages[at].format.front()) < letter) ++at;
    first[letter] = static_cast<unsigned char>(at);
  }
  return first;
}();
static_assert(kMessages.size() < 256);

// Whether a message may begin with these two letters.
constexpr std::size_t PairSlot(char first, char second) {
  return (static_cast<unsigned char>(first) * 8U + static_cast<unsigned char>(second)) % 256U;
}
constexpr auto kPairs = [] {
  std::array<bool, 256> pairs{};
  for (const std::string_view format : kFormats) pairs[PairSlot(format[0], format[1])] = true;
  return pairs;
}();

}  // namespace

std::span<const LibraryMessage> LibraryMessages() { return kMessages; }

const LibraryMessage* LibraryMessageAt(std::string_view text) {
  if (text.size() < kLeastBeginning || !kPairs[PairSlot(text[0], text[1])]) return nullptr;
  const auto letter = static_cast<unsigned char>(text.front());
  const LibraryMessage* found = nullptr;
  for (std::size_t i = kFirst[letter]; i < kFirst[letter + 1U]; ++i) {
    const LibraryMessage& message = kMessages[i];
    const std::size_t last = message.beginning - 1;
    if (last >= text.size() || text[last] != message.format[last] || text[1] != message.format[1]) continue;
    // A longer line of dashes is somebody else's.
    if (message.format[last] == '-' && last + 1 < text.size() && text[last + 1] == '-') continue;
    if ((found == nullptr || found->beginning < message.beginning) &&
        text.starts_with(message.format.substr(0, message.beginning)))
      found = &message;
  }
  return found;
}

std::size_t FixedBeginningOfMessage(std::wstring_view text) {
  std::string start;
  for (const wchar_t unit : text.substr(0, kMostBeginning)) {
    if (unit >= 0x80) break;
    start += static_cast<char>(unit);
  }
  const LibraryMessage* const message = LibraryMessageAt(start);
  return message == nullptr ? 0 : message->beginning;
}

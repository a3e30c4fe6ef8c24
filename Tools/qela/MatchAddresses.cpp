#include <winsock2.h>
// After winsock2.h, which it needs.
#include <ws2tcpip.h>

#include <algorithm>

#include "AdapterView.h"
#include "Commands.h"
#include "FwClient/Service/QeLaLib/AddressSpecification.h"
#include "Json.h"
#include "Output.h"
#include "Text.h"

namespace {

bool IsAddress(const std::wstring& text) {
  in6_addr bytes{};  // large enough for both families
  return ::InetPtonW(AF_INET, text.c_str(), &bytes) == 1 ||
         ::InetPtonW(AF_INET6, text.substr(0, text.find(L'%')).c_str(), &bytes) == 1;
}

// The question goes to the library as it was typed, since its answer to odd texts is what one may want to see. But who
// mistyped an address shall not take the answer for one about the address that was meant.
void NoteUnusual(const std::wstring& text, const char* reading) {
  PrintDiagnostic("qela: note: \"" + Printable(text) + "\" " + reading + "\n");
}

void NoteUnusualAddress(const std::wstring& text) {
  if (!IsAddress(text))
    NoteUnusual(text,
                "is not a full numeric address; the library reads as much of it as it can, or resolves it as a name");
}

void NoteUnusualTexts(const Options& options) {
  for (const std::wstring& address : options.addresses)
    if (options.addressKind != FIAT_SINGLE_IP) NoteUnusualAddress(address);
  if (options.addressKind == FIAT_RANGE_IP) {
    NoteUnusualAddress(options.first);
    NoteUnusualAddress(options.second);
  }
  if (options.addressKind != FIAT_SUBNET) return;
  const std::size_t slash = options.first.find(L'/');
  const std::wstring prefix = slash == std::wstring::npos ? L"" : options.first.substr(slash + 1);
  if (!IsAddress(options.first.substr(0, slash)))
    NoteUnusual(options.first, "has no numeric address; the library matches nothing with it");
  else if (slash == std::wstring::npos)
    NoteUnusual(options.first, "has no prefix; the library takes the number that the address begins with");
  else if (prefix.empty() || prefix.find_first_not_of(L"0123456789") != std::wstring::npos)
    NoteUnusual(options.first, "has a prefix that is not a number; the library takes the digits that it begins with");
  else if (options.first.find(L':') == std::wstring::npos && prefix.find_first_not_of(L'0') == std::wstring::npos)
    NoteUnusual(options.first, "is a single address to the library, which takes the IPv4 prefix 0 as 32");
}

}  // namespace

ExitCode MatchAddresses(const Options& options) {
  NoteUnusualTexts(options);
  const std::uint32_t kind = options.addressKind;
  const auto isAnyMatched = [&](const std::vector<std::wstring>& addresses) {
    return MatchAddressSpecification(addresses, &kind, options.first, options.second);
  };
  bool match = false;
  if (options.ownAddresses) {
    const SharedAdapters adapters = TakeAdapters();
    match = std::any_of(adapters->begin(), adapters->end(),
                        [&](const AdapterProps& adapter) { return isAnyMatched(adapter.ipAddresses); });
  } else {
    match = isAnyMatched(options.addresses);
  }
  Print(MatchText(match, options.json));
  return match ? kDone : kNo;
}

// Redacted text: of what is known to be secret nothing is left, however it is written and whatever stands around it,
// and redacting it once more finds nothing new.
#include <algorithm>
#include <cwctype>
#include <string>
#include <string_view>

#include "Tests/Fuzz/FuzzText.h"
#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/Redaction.h"

namespace {

LocationSet Set() {
  CQeLocation office = CQeLocation::ToBeRead();
  office.SetId(L"1f0c7f31-0000-4000-8000-00000000abcd");
  office.SetName(L"Bergb\u00fcro");
  office.SetNote(L"Zugspitze, Raum 7");
  const std::pair<LOCATION_CRITERIA_TYPE, const wchar_t*> criteria[] = {
      {LCT_DNS_SUFFIX, L"*.zugspitze.example"},
      {LCT_DEFAULT_GATEWAY, L"203.0.113.77"},
      {LCT_REGISTRY_KEY, L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Watzmann\\Zugspitze=Watzmann"},
      {LCT_DOMAIN_REACHABLE, L"vpn.zugspitze.example"}};
  for (const auto& [kind, text] : criteria) office.AddCriteria(&kind, text);
  return {office};
}

MachineSnapshot Machine() {
  MachineSnapshot machine;
  machine.machine = L"PC-Zugspitze";
  AdapterProps adapter;
  adapter.ifIndex = 2;
  adapter.description = L"Watzmann Gigabit";
  adapter.gateways = {L"203.0.113.77"};
  adapter.macAddresses = {L"0A-1B-2C-3D-4E-5F"};
  adapter.dnsSuffix = L"eu.zugspitze.example";
  machine.adapters = {adapter};
  return machine;
}

// What they are known by, in lower case.
constexpr std::wstring_view kSecrets[] = {L"zugspitze",    L"watzmann",          L"bergb\u00fcro", L"hhuber",
                                          L"203.0.113.77", L"0a-1b-2c-3d-4e-5f", L"1f0c7f31-0000"};
// The secrets in the forms that logs have them, and what may stand around them. Numbers do not stand beside others,
// with which they would be one.
constexpr std::wstring_view kParts[] = {L"zugspitze",
                                        L"ZUGSPITZE",
                                        L"Watzmann",
                                        L"bergb\u00fcro",
                                        L"BERGB\u00dcRO",
                                        L"Bergb\\u00fcro",
                                        L"hhuber",
                                        L"PC-Zugspitze\\hhuber",
                                        L"hhuber@zugspitze.example",
                                        L"https://vpn.zugspitze.example/watzmann",
                                        L" 203.0.113.77,",
                                        L" 0a-1b-2c-3d-4e-5f ",
                                        L"0A1B2C3D4E5F",
                                        L"{1F0C7F31-0000-4000-8000-00000000ABCD}",
                                        L"C:\\Users\\hhuber\\watzmann",
                                        L"C:\\\\Users\\\\hhuber",
                                        L"HKLM\\SOFTWARE\\Watzmann\\Zugspitze",
                                        L"eu.zugspitze.example",
                                        L" ",
                                        L"\n",
                                        L"\r\n",
                                        L"\\n",
                                        L"\\t",
                                        L"\\u",
                                        L"\\",
                                        L"\"",
                                        L"'",
                                        L":",
                                        L"::",
                                        L".",
                                        L"@",
                                        L"://",
                                        L"-",
                                        L"=",
                                        L"|",
                                        L"%",
                                        L"(",
                                        L"...",
                                        L"S-1-5-21-1",
                                        L"10.0.0.1",
                                        L"fe80::1",
                                        L"location ",
                                        L"and description ",
                                        L"value of ",
                                        L"with index 2",
                                        L"IsCurrentLocation checking location ",
                                        L"The registry key ",
                                        L" specified for the location does not exist.",
                                        L"LOCATION-1",
                                        L"PATH-1",
                                        L"Adapter properties:\n",
                                        L"\tDNS Domain:",
                                        L"IsDomainReachable was able to match domain "};

// Letters that differ in case alone are the same.
std::wstring Lower(std::wstring_view text) {
  std::wstring lower;
  for (const wchar_t unit : text) lower += static_cast<wchar_t>(unit == 0xdc ? 0xfc : std::towlower(unit));
  return lower;
}

void RequireNothingSecret(std::wstring_view text, const char* where) {
  const std::wstring lower = Lower(text);
  for (const std::wstring_view secret : kSecrets)
    if (lower.find(secret) != std::wstring::npos)
      FuzzFail(std::string(where) + " still tells \"" + ToUtf8(secret) + "\": " + ToUtf8(text));
}

void Run(FuzzInput input) {
  FuzzChoices choices(input);
  const bool isFull = choices.Flip();
  std::wstring text;
  while (!choices.Empty()) {
    if (choices.Below(8) != 0)
      text += choices.Pick(kParts);
    else
      text += FuzzText(choices.Bytes(choices.Below(8)));
  }
  using Level = Redaction::Level;
  static const LocationSet kSet = Set();
  static const MachineSnapshot kMachine = Machine();
  Redaction redaction(isFull ? Level::kFull : Level::kNames, kSet, kMachine,
                      {L"PC-Zugspitze", L"hhuber", L"ZUGSPITZE", L"corp.zugspitze.example", L"S-1-5-21-1-2-3-1001"});
  const std::wstring redacted = redaction.FreeText(text);
  RequireNothingSecret(redacted, "the text");
  // Placeholders that stand beside what is left can look like something else, and get other ones; nothing comes back.
  RequireNothingSecret(redaction.FreeText(redacted), "the text, redacted twice,");
  std::uint32_t kind = 0;
  for (const Redaction::Count& count : redaction.Counts())
    kind = kind * 7 + static_cast<std::uint32_t>(std::min<std::size_t>(count.values, 4));
  FuzzKind(kind);
}

const FuzzTarget g_target("redaction", Run);

}  // namespace

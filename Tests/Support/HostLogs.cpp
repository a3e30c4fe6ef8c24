#include "Tests/Support/HostLogs.h"

#include <cstddef>
#include <format>
#include <iterator>

namespace {

std::wstring JsonText(const std::wstring& text) {
  std::wstring json = Replaced(Replaced(Escaped(text), L"\"", L"\\\""), L"/", L"\\/");
  return Replaced(json, L"\u00fc", L"\\u00fc");
}

std::wstring Clock(int number, const wchar_t* form = L"2025-11-21{}02:44:{:02}.{:03}", const wchar_t* letter = L"T") {
  const int seconds = number / 1000;
  const int milliseconds = number % 1000;
  return std::vformat(form, std::make_wformat_args(letter, seconds, milliseconds));
}

// Other components' lines, some of which look like ours.
constexpr const wchar_t* kOthers[] = {L"Update: checking",
                                      L"\tDescription of nothing",
                                      L"",
                                      L"//----",
                                      L"//-------------------------------------------------------------",
                                      L"Calculating",
                                      L"Count (7)",
                                      L"Count",
                                      L"Firewall: Location changed 7"};

}  // namespace

std::wstring Replaced(std::wstring text, std::wstring_view what, std::wstring_view by) {
  for (std::size_t at = text.find(what); at != std::wstring::npos; at = text.find(what, at + by.size()))
    text.replace(at, what.size(), by);
  return text;
}

std::wstring Escaped(std::wstring text) {
  text = Replaced(text, L"\\", L"\\\\");
  text = Replaced(text, L"\n", L"\\n");
  text = Replaced(text, L"\r", L"\\r");
  return Replaced(text, L"\t", L"\\t");
}

const std::vector<HostFormat>& HostFormats() {
  static const std::vector<HostFormat> hosts = {
      {"our own",
       [](const std::wstring& text, int number) {
         return Clock(number) + L"+01:00\t8\tFirewallBL\tFIREWALL\tFwClient/Service/QeLaLib/QeLaLib.cpp:" +
                std::to_wstring(number) + L"\t" + Escaped(text);
       }},
      {"the text alone", [](const std::wstring& text, int) { return text; }},
      {"the text alone, escaped", [](const std::wstring& text, int) { return Escaped(text); }},
      {"a prefix",
       [](const std::wstring& text, int number) {
         return Clock(number, L"{}21.11.2025 02:44:{:02},{:03}", L"") + L" [4711] INFO  FirewallBL - " + text;
       }},
      {"a prefix of each line",
       [](const std::wstring& text, int number) {
         const std::wstring prefix =
             Clock(number, L"2025/11/21{}02:44:{:02}.{:03}", L" ") + L"|INFO|Count|DHCP Server| ";
         std::wstring trimmed = text;
         if (trimmed.ends_with(L'\n')) trimmed.pop_back();
         return prefix + Replaced(trimmed, L"\n", L"\n" + prefix);
       }},
      {"a prefix of each line, and others between",
       [](const std::wstring& text, int number) {
         const std::wstring prefix = Clock(number, L"2025-11-21{}02:44:{:02}.{:03}", L" ") + L" fw ";
         const std::wstring other = Clock(number, L"2025-11-21{}02:44:{:02}.{:03}", L" ") + L" up " +
                                    kOthers[static_cast<std::size_t>(number) % std::size(kOthers)];
         std::wstring trimmed = text;
         if (trimmed.ends_with(L'\n')) trimmed.pop_back();
         return other + L"\n" + prefix + Replaced(trimmed, L"\n", L"\n" + other + L"\n" + prefix);
       }},
      {"a prefix and something behind",
       [](const std::wstring& text, int number) {
         return Clock(number) + L"Z " + Escaped(text) + L" (FirewallBL) [\"x\"]";
       }},
      {"something behind each line",
       [](const std::wstring& text, int number) {
         std::wstring trimmed = text;
         if (trimmed.ends_with(L'\n')) trimmed.pop_back();
         return Clock(number) + L" " + Replaced(trimmed, L"\n", L" <FirewallBL>\n") + L" <FirewallBL>";
       }},
      {"quotes around the lines of a text",
       [](const std::wstring& text, int number) {
         return Clock(number, L"\"{}11/21/2025 2:44:{:02}.{:03} AM\"", L"") + L",\"INFO\",\"" + text + L"\"";
       }},
      {"JSON",
       [](const std::wstring& text, int number) {
         return L"{\"time\":\"" + Clock(number) + L"\",\"msg\":\"" + JsonText(text) + L"\",\"line\":" +
                std::to_wstring(number) + L"}";
       }},
      {"JSON with the time behind and a line break in the text",
       [](const std::wstring& text, int number) {
         return L"{\"severity\": 8, \"text\": \"" + JsonText(text + L"\r\n") + L"\", \"at\": \"" + Clock(number) +
                L"\", \"thread\": " + std::to_wstring(number % 7) + L"}";
       }},
      {"JSON around our own",
       [](const std::wstring& text, int number) {
         return Clock(number) + L"Z stdout F {\"log\":\"8\\tFirewallBL\\t" + JsonText(Escaped(text)) + L"\\n\",\"n\":" +
                std::to_wstring(number) + L"}";
       }},
      {"names and values",
       [](const std::wstring& text, int number) {
         return L"time=\"" + Clock(number) + L"\" level=info msg=\"" + Replaced(Escaped(text), L"\"", L"\\\"") + L"\"";
       }},
      {"printed quotes",
       [](const std::wstring& text, int number) {
         return L"{ \"at\": \"" + Clock(number) + L"\", \"text\": \"" + text + L"\" }";
       }},
      {"blanks for tabs",
       [](const std::wstring& text, int number) {
         return Clock(number, L"2025-11-21{}02:44:{:02}.{:03}", L" ") + L" " + Replaced(text, L"\t", L"    ");
       }},
  };
  return hosts;
}

std::wstring LogOf(const HostFormat& host, const std::vector<std::wstring>& texts, const std::wstring& lineEnd) {
  std::wstring log;
  int number = 0;
  for (const std::wstring& text : texts) log += host.write(text, ++number) + L"\n";
  return lineEnd == L"\n" ? log : Replaced(log, L"\n", lineEnd);
}

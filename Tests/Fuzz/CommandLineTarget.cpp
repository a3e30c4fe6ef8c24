// Command lines: every one is understood or refused with a message, and nothing is run for that.
#include <string>
#include <string_view>
#include <vector>

#include "Tests/Fuzz/FuzzText.h"
#include "Tests/Fuzz/FuzzTools.h"
#include "Tools/qela/CommandLine.h"

namespace {

constexpr const wchar_t* kWords[] = {L"adapters",
                                     L"macs",
                                     L"media",
                                     L"match",
                                     L"locations",
                                     L"location",
                                     L"show",
                                     L"add",
                                     L"set",
                                     L"rename",
                                     L"move",
                                     L"remove",
                                     L"enable",
                                     L"disable",
                                     L"export",
                                     L"apply",
                                     L"diff",
                                     L"validate",
                                     L"restore",
                                     L"current",
                                     L"watch",
                                     L"explain",
                                     L"timeline",
                                     L"check",
                                     L"report",
                                     L"snapshot",
                                     L"test",
                                     L"lint",
                                     L"complete",
                                     L"help",
                                     L"--help",
                                     L"-h",
                                     L"--version",
                                     L"--json",
                                     L"--verbose",
                                     L"--",
                                     L"-",
                                     L"--name",
                                     L"--id",
                                     L"1f0c7f31-0000-4000-8000-00000000abcd",
                                     L"--note",
                                     L"--enabled",
                                     L"--force",
                                     L"--gateway",
                                     L"--gateway=",
                                     L"--dns-suffix",
                                     L"*.example",
                                     L"--dns-server=10.0.0.1",
                                     L"--dhcp-server",
                                     L"--primary-wins",
                                     L"--secondary-wins",
                                     L"--registry=HKEY_USERS\\a\\b",
                                     L"--https-host",
                                     L"--management-server",
                                     L"--no-management-server",
                                     L"--add-gateway",
                                     L"--remove-gateway",
                                     L"--clear-gateway",
                                     L"--from-adapter",
                                     L"--first",
                                     L"--last",
                                     L"--before",
                                     L"--after",
                                     L"--format",
                                     L"reg",
                                     L"json",
                                     L"--dry-run",
                                     L"--delete-missing",
                                     L"--set",
                                     L"--log",
                                     L"--from-log",
                                     L"--at",
                                     L"--machine",
                                     L"--machines",
                                     L"--html",
                                     L"--all",
                                     L"--no-probes",
                                     L"--redact",
                                     L"names",
                                     L"none",
                                     L"--expect",
                                     L"--junit",
                                     L"--label",
                                     L"--probes",
                                     L"--for",
                                     L"10",
                                     L"-1",
                                     L"4294967296",
                                     L"--is",
                                     L"wired",
                                     L"--index",
                                     L"--strict",
                                     L"--adapters",
                                     L"--brief",
                                     L"--current",
                                     L"--disabled",
                                     L"--address",
                                     L"--exact",
                                     L"--range",
                                     L"--subnet",
                                     L"10.0.0.1",
                                     L"::1",
                                     L"Office",
                                     L"a=b",
                                     L"",
                                     L" ",
                                     L"/home",
                                     L"\\\"",
                                     L"\xd800",
                                     L"\u00fc"};

std::vector<std::wstring> Arguments(FuzzChoices& choices) {
  std::vector<std::wstring> arguments;
  for (std::size_t count = choices.Below(8); count != 0; --count) {
    if (choices.Below(4) != 0) {
      arguments.emplace_back(choices.Pick(kWords));
    } else {
      const std::wstring text = FuzzText(choices.Bytes(choices.Below(12)));
      arguments.push_back(text.substr(0, text.find(L'\0')));
    }
    // An option and its value in one.
    if (choices.Below(8) == 1) arguments.back() += std::wstring(L"=") + choices.Pick(kWords);
  }
  return arguments;
}

void Run(FuzzInput input) {
  FuzzChoices choices(input);
  const std::vector<std::wstring> arguments = Arguments(choices);
  const FuzzSilence silence;
  try {
    const std::optional<Options> options = ParseCommandLine(arguments);
    if (options && options->run == nullptr) FuzzFail("a command line without a command was understood");
    FuzzKind(options ? 1 : 2);
  } catch (const CommandError& error) {
    if (error.Code() != kWrongUsage || std::string_view(error.what()).empty()) FuzzFail("a refusal without a reason");
    if (ToUtf8(ToWide(error.what())) != error.what()) FuzzFail("the message is not UTF-8");
    FuzzKind(0);
  }
}

const FuzzTarget g_target("command-line", Run);

}  // namespace

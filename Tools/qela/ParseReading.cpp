// The commands that show and ask.
#include <algorithm>

#include "CommandParser.h"
#include "Commands.h"
#include "Text.h"

namespace {

void AddMatch(CommandParser& parser) {
  Options& options = parser.Result();
  CLI::App* match = parser.Add(parser.Root(), "match",
                               "Tell whether any of the addresses is the one, or lies in the subnet or range, that is "
                               "given. Exit code 0 for a match, 5 for none.",
                               MatchAddresses);
  CLI::App* whose = match->add_option_group("Addresses")->require_option(1);
  CommandParser::AddTexts(whose, "--address", options.addresses, "An IPv4 or IPv6 address; may be given several times",
                          "ADDRESS");
  whose->add_flag("--adapters", options.ownAddresses, "The addresses of this machine's adapters");
  CLI::App* asked = match->add_option_group("Address specification")->require_option(1);
  const auto addKind = [&](const char* name, FirewallAddressType kind, const char* description) {
    return asked->add_option_function<std::vector<std::string>>(
        name,
        [&options, kind](const std::vector<std::string>& texts) {
          options.addressKind = kind;
          options.first = ToWide(texts.front());
          if (texts.size() > 1) options.second = ToWide(texts.back());
        },
        description);
  };
  addKind("--exact", FIAT_SINGLE_IP, "This address, in exactly this spelling")->expected(1)->type_name("ADDRESS");
  addKind("--subnet", FIAT_SUBNET, "A subnet, such as 192.168.1.0/24 or 2001:db8::/32")
      ->expected(1)
      ->type_name("ADDRESS/PREFIX");
  addKind("--range", FIAT_RANGE_IP, "From LOW to HIGH, both included")->expected(2)->type_name("LOW HIGH");
  CommandParser::SetExamples(match,
                             "  qela match --address 192.168.1.7 --subnet 192.168.1.0/24\n"
                             "  qela match --adapters --range 10.20.0.1 10.20.0.99\n");
}

void AddMedia(CommandParser& parser) {
  Options& options = parser.Result();
  CLI::App* command =
      parser.Add(parser.Root(), "media", "Show the media type of each adapter, or ask for one", ShowMedia);
  CLI::Option* asked =
      command
          ->add_option_function<std::string>(
              "--is",
              [&options](const std::string& name) {
                options.mediaMask |= static_cast<std::uint8_t>(name == "wired"      ? Wired
                                                               : name == "wireless" ? Wireless
                                                                                    : Virtual);
              },
              "Tell whether an adapter is of this type; may be given several times. An adapter of type \"other\" "
              "agrees with each")
          ->type_name("wired|wireless|virtual")
          ->check(CLI::IsMember({"wired", "wireless", "virtual"}))
          ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
          ->trigger_on_parse();
  command
      ->add_option("--index", options.indexes, "Ask about the adapter with this index only; may be given several times")
      ->type_name("INDEX")
      ->allow_extra_args(false)
      ->needs(asked);
  CommandParser::SetExamples(command,
                             "  qela media\n"
                             "  qela media --is wireless --index 2\n");
}

}  // namespace

void AddReadingCommands(CommandParser& parser) {
  Options& options = parser.Result();
  CLI::App& root = parser.Root();
  CommandParser::SetExamples(
      parser.Add(root, "adapters", "Show the network adapters as the library sees them", ShowAdapters),
      "  qela adapters\n"
      "  qela adapters --json\n");
  CLI::App* locations = parser.Add(root, "locations", "List the stored locations", ShowLocations);
  locations->add_flag("--brief", options.brief, "One line each: the name, and whether it is disabled");
  CommandParser::AddText(locations, "--name", options.nameFilter,
                         "Only those with a name of this form; \"*\" stands for any text, \"?\" for one letter",
                         "GLOB");
  locations->add_flag("--disabled", options.onlyDisabled, "Only those that are disabled");
  locations->add_flag("--current", options.onlyCurrent,
                      "Only those that are current. This asks the library, which waits for its probes");
  CommandParser::SetExamples(locations,
                             "  qela locations --brief\n"
                             "  qela locations --name \"Branch *\" --json\n");
  CommandParser::SetExamples(parser.Add(root, "current",
                                        "Show the locations that are current now and the adapters that matched. This "
                                        "asks the library, which waits for its probes",
                                        ShowCurrent),
                             "  qela current\n"
                             "  qela current --verbose\n");
  CLI::App* watch = parser.Add(
      root, "watch",
      "Show each change of the current locations as it happens, and what the library was not told of, until Ctrl-C",
      Watch);
  watch->add_option("--for", options.seconds, "End after this time")
      ->type_name("SECONDS")
      ->check(CLI::Range(std::uint32_t{0}, std::uint32_t{1'000'000}));
  CommandParser::SetExamples(watch, "  qela watch\n  qela watch --for 60 --json\n");
  AddMatch(parser);
  CommandParser::SetExamples(parser.Add(root, "macs", "Show the physical addresses of the network adapters", ShowMacs),
                             "  qela macs\n");
  AddMedia(parser);
}

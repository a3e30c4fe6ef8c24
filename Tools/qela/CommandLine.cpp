#include "CommandLine.h"

#include <windows.h>

#include <QeLaVersion.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "CommandError.h"
#include "CriterionValue.h"
#include "Media.h"
#include "Output.h"
#include "Text.h"

namespace {

constexpr const char* kFooter =
    "Exit codes: 0 done; 1 the operation failed; 2 wrong command line; 3 no such location, or not exactly one;\n"
    "4 a location set is stored but cannot be read; 5 no match (match, media --is). Messages go to standard error.";

// A lone surrogate has no UTF-8 form; passed on as U+FFFD it would name another location.
std::string RequireUtf8(const std::wstring& argument) {
  const std::string utf8 = ToUtf8(argument);
  if (ToWide(utf8) != argument) throw CommandError(kWrongUsage, "an argument is not valid Unicode: " + utf8);
  return utf8;
}

CLI::App* AddCommand(CLI::App& parent, Options& options, const std::string& name, const std::string& description) {
  CLI::App* command = parent.add_subcommand(name, description);
  command->add_flag("--json", options.json, "Write JSON instead of text");
  command->add_flag("--verbose", options.verbose, "Show the library's log on standard error");
  command->footer(kFooter);
  return command;
}

// A criterion option of `location add`; it may be given several times.
struct CriterionOption {
  const char* name;
  const char* placeholder;
  const char* description;
  LOCATION_CRITERIA_TYPE kind;
};

constexpr CriterionOption kCriterionOptions[] = {
    {"--dns-suffix", "SUFFIX", "The adapter's DNS suffix; a label may hold \"*\", as in *.corp.example",
     LCT_DNS_SUFFIX},
    {"--gateway", "ADDRESS", "A default gateway", LCT_DEFAULT_GATEWAY},
    {"--dhcp-server", "ADDRESS", "The DHCP server", LCT_DHCP_SERVER},
    {"--dns-server", "ADDRESS", "A DNS server", LCT_DNS_SERVER},
    {"--primary-wins", "ADDRESS", "The primary WINS server", LCT_PRIMARY_WINS},
    {"--secondary-wins", "ADDRESS", "The secondary WINS server", LCT_SECONDARY_WINS},
    {"--registry", "TEXT",
     "A key or value on this machine: HIVE\\Key\\ (the key exists) or HIVE\\Key\\Value=Data; HIVE is "
     "HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT, HKEY_CURRENT_USER or HKEY_USERS",
     LCT_REGISTRY_KEY},
    {"--https-host", "HOST", "A host that answers over HTTPS on port 443", LCT_DOMAIN_REACHABLE},
};

}  // namespace

std::optional<Options> ParseCommandLine(const std::vector<std::wstring>& arguments) {
  Options options;
  std::string location;
  std::string note;
  bool managementServer = false;
  std::vector<std::string> addresses;
  std::string exact;
  std::string subnet;
  std::vector<std::string> range;
  std::vector<std::string> media;

  CLI::App app("qela - the firewall's location awareness on the console", "qela");
  app.allow_windows_style_options(false);  // "/home" is a name
  app.footer(kFooter);
  app.set_version_flag("--version", "qela " QELA_VERSION_TEXT);
  app.require_subcommand(1);
  const auto choose = [&](CLI::App* command, Command chosen) {
    command->callback([&options, chosen] { options.command = chosen; });
    return command;
  };

  choose(AddCommand(app, options, "adapters", "Show the network adapters as the library sees them"),
         Command::kAdapters);
  choose(AddCommand(app, options, "locations", "List the stored locations"), Command::kLocations);
  choose(AddCommand(app, options, "current", "Show the locations that are current now and the adapters that matched"),
         Command::kCurrent);
  CLI::App* watch =
      choose(AddCommand(app, options, "watch", "Show each change of the current locations as it happens, until Ctrl-C"),
             Command::kWatch);
  watch->add_option("--for", options.seconds, "End after this time")
      ->type_name("SECONDS")
      ->check(CLI::Range(std::uint32_t{0}, std::uint32_t{1'000'000}));

  CLI::App* match = choose(AddCommand(app, options, "match",
                                      "Tell whether any of the addresses is the one, or lies in the subnet or range, "
                                      "that is given. Exit code 0 for a match, 5 for none."),
                           Command::kMatch);
  CLI::App* whose = match->add_option_group("Addresses")->require_option(1);
  whose->add_option("--address", addresses, "An IPv4 or IPv6 address; may be given several times")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  whose->add_flag("--adapters", options.ownAddresses, "The addresses of this machine's adapters");
  CLI::App* specification = match->add_option_group("Address specification")->require_option(1);
  const CLI::Option* isExact = specification->add_option("--exact", exact, "This address, in exactly this spelling");
  const CLI::Option* isSubnet =
      specification->add_option("--subnet", subnet, "A subnet, such as 192.168.1.0/24 or 2001:db8::/32");
  const CLI::Option* isRange =
      specification->add_option("--range", range, "From LOW to HIGH, both included")->expected(2);
  specification->get_option("--exact")->type_name("ADDRESS");
  specification->get_option("--subnet")->type_name("ADDRESS/PREFIX");
  specification->get_option("--range")->type_name("LOW HIGH");

  choose(AddCommand(app, options, "macs", "Show the physical addresses of the network adapters"), Command::kMacs);

  CLI::App* mediaCommand =
      choose(AddCommand(app, options, "media", "Show the media type of each adapter, or ask for one"), Command::kMedia);
  CLI::Option* asked = mediaCommand
                           ->add_option("--is", media,
                                        "Tell whether an adapter is of this type; may be given several times. An "
                                        "adapter of type \"other\" agrees with each")
                           ->type_name("wired|wireless|virtual")
                           ->allow_extra_args(false)
                           ->check(CLI::IsMember({"wired", "wireless", "virtual"}));
  mediaCommand
      ->add_option("--index", options.indexes, "Ask about the adapter with this index only; may be given several times")
      ->type_name("INDEX")
      ->allow_extra_args(false)
      ->needs(asked);

  CLI::App* group = app.add_subcommand("location", "Add, remove, enable or disable a stored location");
  group->require_subcommand(1);
  group->footer("A running service keeps its own copy: it must load again to see a change.\n\n" + std::string(kFooter));

  CLI::App* add =
      choose(AddCommand(*group, options, "add",
                        "Store a new location. It is current where one adapter meets a value of every kind "
                        "of criterion given; without criteria it is current everywhere.\n"
                        "Options of criteria may be given several times; values of one kind are alternatives."),
             Command::kAddLocation);
  add->add_option("NAME", location, "The location's name")->type_name("")->required();
  // Called once an option with its one value: a list of values would take the name that follows it.
  for (const CriterionOption& option : kCriterionOptions)
    add->add_option_function<std::string>(
           option.name,
           [&options, &option](const std::string& value) {
             options.criteria.push_back({option.kind, CheckCriterionValue(option.kind, option.name, ToWide(value))});
           },
           option.description)
        ->type_name(option.placeholder)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
        ->trigger_on_parse();
  add->add_flag("--management-server", managementServer, "The management server can be resolved in DNS");
  add->add_option("--note", note, "Free text that is kept with the location")->type_name("TEXT");
  add->add_flag("--disabled", options.disabled, "Store it, but let it never be current until it is enabled");
  add->add_flag("--force", options.force, "Add it although a location of this name is stored already");

  const struct {
    const char* name;
    const char* description;
    Command command;
  } changes[] = {
      {"remove", "Remove a stored location", Command::kRemoveLocation},
      {"enable", "Let a location take part again", Command::kEnableLocation},
      {"disable", "Keep a location, but let it never be current", Command::kDisableLocation},
  };
  for (const auto& change : changes)
    choose(AddCommand(*group, options, change.name, change.description), change.command)
        ->add_option("NAME-OR-ID", location, "The location's ID or its exact name")
        ->type_name("")
        ->required();

  std::vector<std::string> reversed;  // as the parser wants them
  bool optionsEnded = false;
  for (const std::wstring& argument : arguments) {
    reversed.push_back(RequireUtf8(argument));
    // The parser takes "--gateway=" for an option without a value and would use up the next argument.
    std::string& text = reversed.back();
    if (text == "--") optionsEnded = true;
    if (!optionsEnded && text.starts_with("--") && text.find('=') == text.size() - 1) {
      text.pop_back();
      reversed.emplace_back();
    }
  }
  std::reverse(reversed.begin(), reversed.end());
  try {
    app.parse(reversed);
  } catch (const CLI::ParseError& error) {
    // The parser notices first that a command is missing and would not name the word that stands in its place.
    const std::vector<std::string> unknown = app.remaining(true);
    if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && !unknown.empty())
      throw CommandError(kWrongUsage,
                         "unknown command: " + unknown.front() + "\nRun with --help for more information.");
    std::ostringstream output;
    std::ostringstream message;
    if (app.exit(error, output, message) == 0) {
      Print(output.str());
      return std::nullopt;
    }
    std::string text = message.str();
    while (text.ends_with('\n')) text.pop_back();
    throw CommandError(kWrongUsage, text);
  }

  options.location = ToWide(location);
  options.note = ToWide(note);
  for (const std::string& address : addresses) options.addresses.push_back(ToWide(address));
  if (isExact->count() != 0) {
    options.addressKind = FIAT_SINGLE_IP;
    options.first = ToWide(exact);
  } else if (isSubnet->count() != 0) {
    options.addressKind = FIAT_SUBNET;
    options.first = ToWide(subnet);
  } else if (isRange->count() != 0) {
    options.addressKind = FIAT_RANGE_IP;
    options.first = ToWide(range[0]);
    options.second = ToWide(range[1]);
  }
  for (const std::string& name : media)
    options.mediaMask |= static_cast<std::uint8_t>(name == "wired" ? Wired : name == "wireless" ? Wireless : Virtual);
  // Only the location's own commands ask for a name.
  if (group->parsed() && options.location.empty())
    throw CommandError(kWrongUsage, "the location's name must not be empty");
  if (managementServer) options.criteria.push_back({LCT_ZELT_REACHABLE, L""});
  return options;
}

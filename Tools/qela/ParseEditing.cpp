// The commands that change one stored location.
#include <algorithm>

#include "CommandParser.h"
#include "Commands.h"
#include "CriterionKinds.h"
#include "CriterionValue.h"
#include "Text.h"

namespace {

using Change = CriterionEdit::Change;

// An option that makes one change of the criteria for each value that it is given.
template <Change kChange>
void AddCriterionOption(CLI::App* command, LocationEdit& edit, const std::string& name, const CriterionKind& kind,
                        const std::string& description) {
  command
      ->add_option_function<std::string>(
          name,
          [&edit, &kind](const std::string& text) {
            const std::wstring value = ToWide(text);
            // What is removed may be anything that was ever stored.
            edit.criteria.push_back({kChange, kind.kind,
                                     kChange == Change::kRemove
                                         ? value
                                         : CheckCriterionValue(kind.kind, std::string("--") + kind.option, value)});
          },
          description)
      ->type_name(kind.placeholder)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->trigger_on_parse();
}

std::wstring CheckId(const std::string& text) {
  constexpr const char* kForm = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
  const std::string_view form = kForm;
  const auto agrees = [](char letter, char place) {
    return place == '-' ? letter == '-' : std::isxdigit(static_cast<unsigned char>(letter)) != 0;
  };
  if (text.size() != form.size() || !std::equal(text.begin(), text.end(), form.begin(), agrees))
    throw CommandError(kWrongUsage, "--id: \"" + text + "\" is not a UUID of the form " + kForm);
  return ToWide(text);
}

std::wstring RequireName(const std::string& text) {
  if (text.empty()) throw CommandError(kWrongUsage, "the location's name must not be empty");
  return ToWide(text);
}

void AddNameOrId(CommandParser& parser, CLI::App* command) {
  Options& options = parser.Result();
  command
      ->add_option_function<std::string>(
          "NAME-OR-ID", [&options](const std::string& text) { options.location = RequireName(text); },
          "The location's ID or its exact name")
      ->type_name("")
      ->required();
}

void AddAdd(CommandParser& parser, CLI::App& group) {
  Options& options = parser.Result();
  LocationEdit& edit = options.edit;
  CLI::App* add = parser.Add(group, "add",
                             "Store a new location. It is current where one adapter meets a value of every kind "
                             "of criterion given; without criteria it is current everywhere.\n"
                             "Options of criteria may be given several times; values of one kind are alternatives.",
                             AddLocation);
  add->add_option_function<std::string>(
         "NAME", [&options](const std::string& text) { options.location = RequireName(text); }, "The location's name")
      ->type_name("")
      ->required();
  for (const CriterionKind& kind : kCriterionKinds)
    AddCriterionOption<Change::kAdd>(add, edit, std::string("--") + kind.option, kind, kind.description);
  add->add_flag_callback(
      "--management-server", [&edit] { edit.managementServer = true; }, "The management server can be resolved in DNS");
  add->add_option_function<std::uint32_t>(
         "--from-adapter", [&edit](std::uint32_t index) { edit.fromAdapter = index; },
         "Criteria of all that the adapter with this index shows now; they are shown before they are stored")
      ->type_name("INDEX");
  CommandParser::AddText(add, "--note", edit.note, "Free text that is kept with the location", "TEXT");
  add->add_option_function<std::string>(
         "--id", [&edit](const std::string& text) { edit.id = CheckId(text); },
         "The location's ID, so that a script makes the same location on every machine, and may run again")
      ->type_name("UUID");
  add->add_flag_callback(
      "--disabled", [&edit] { edit.enabled = false; }, "Store it, but let it never be current until it is enabled");
  add->add_flag("--force", edit.force, "Add it although a location of this name is stored already");
  CommandParser::SetExamples(add,
                             "  qela location add Office --gateway 10.20.0.1 --dns-suffix corp.example\n"
                             "  qela location add Branch --gateway 10.30.0.1 --gateway 10.31.0.1 --disabled\n"
                             "  qela location add Here --from-adapter 2\n");
}

void AddSet(CommandParser& parser, CLI::App& group) {
  LocationEdit& edit = parser.Result().edit;
  CLI::App* set = parser.Add(group, "set",
                             "Change a stored location in place. What is not named stays; so do its ID and its place.",
                             SetLocation);
  AddNameOrId(parser, set);
  set->add_option_function<std::string>(
         "--name", [&edit](const std::string& text) { edit.name = RequireName(text); }, "Another name")
      ->type_name("TEXT");
  CommandParser::AddText(set, "--note", edit.note, "Another note; an empty text for none", "TEXT");
  set->add_flag_callback("--enabled", [&edit] { edit.enabled = true; }, "Let it take part");
  set->add_flag_callback(
         "--disabled", [&edit] { edit.enabled = false; }, "Let it never be current")
      ->excludes("--enabled");
  for (const CriterionKind& kind : kCriterionKinds) {
    const std::string option = kind.option;
    const std::string title = kind.title;
    AddCriterionOption<Change::kReplace>(set, edit, "--" + option, kind,
                                         "In place of every " + title + "; given again, one more");
    AddCriterionOption<Change::kAdd>(set, edit, "--add-" + option, kind, "One more " + title);
    AddCriterionOption<Change::kRemove>(set, edit, "--remove-" + option, kind, "Without this " + title);
    set->add_flag_callback(
        "--clear-" + option, [&edit, &kind] { edit.criteria.push_back({Change::kClear, kind.kind, {}}); },
        "Without any " + title);
  }
  set->add_flag_callback(
      "--management-server", [&edit] { edit.managementServer = true; },
      "The management server must be resolved in DNS");
  set->add_flag_callback(
         "--no-management-server", [&edit] { edit.managementServer = false; }, "It need not")
      ->excludes("--management-server");
  set->add_flag("--force", edit.force, "Take the name although another location has it");
  CommandParser::SetExamples(set,
                             "  qela location set Office --gateway 10.20.0.1 --gateway 10.20.0.2\n"
                             "  qela location set Office --add-dns-suffix lab.example --note \"since March\"\n"
                             "  qela location set Office --clear-https-host\n");
}

void AddMove(CommandParser& parser, CLI::App& group) {
  LocationEdit& edit = parser.Result().edit;
  CLI::App* move = parser.Add(group, "move", "Give a stored location another place in the order", MoveLocation);
  AddNameOrId(parser, move);
  CLI::App* where = move->add_option_group("Place")->require_option(1);
  using Place = LocationEdit::Place;
  where->add_flag_callback("--first", [&edit] { edit.place = Place::kFirst; }, "Before all others");
  where->add_flag_callback("--last", [&edit] { edit.place = Place::kLast; }, "Behind all others");
  const auto addBeside = [&](const char* name, Place place, const char* description) {
    where
        ->add_option_function<std::string>(
            name,
            [&edit, place](const std::string& text) {
              edit.place = place;
              edit.neighbour = ToWide(text);
            },
            description)
        ->type_name("NAME-OR-ID");
  };
  addBeside("--before", Place::kBefore, "Before this location");
  addBeside("--after", Place::kAfter, "Behind this location");
  CommandParser::SetExamples(move,
                             "  qela location move Office --first\n"
                             "  qela location move \"Branch 2\" --after \"Branch 1\"\n");
}

}  // namespace

void AddEditingCommands(CommandParser& parser) {
  CLI::App& group = *parser.AddGroup("location", "Show, add, change, order or remove a stored location");
  LocationEdit& edit = parser.Result().edit;
  // Commands that take a location and nothing else.
  const auto add = [&](const std::string& name, const std::string& description, ExitCode (*run)(const Options&)) {
    CLI::App* command = parser.Add(group, name, description, run);
    AddNameOrId(parser, command);
    CommandParser::SetExamples(command, "  qela location " + name + " Office\n");
    return command;
  };
  add("show", "Show one stored location", ShowLocation);
  AddAdd(parser, group);
  AddSet(parser, group);
  CLI::App* rename = add("rename", "Give a stored location another name", RenameLocation);
  rename
      ->add_option_function<std::string>(
          "NEW-NAME", [&edit](const std::string& text) { edit.name = RequireName(text); }, "The new name")
      ->type_name("")
      ->required();
  rename->add_flag("--force", edit.force, "Take the name although another location has it");
  CommandParser::SetExamples(rename, "  qela location rename Office \"Head office\"\n");
  AddMove(parser, group);
  add("remove", "Remove a stored location", RemoveLocation);
  add("enable", "Let a location take part again", EnableLocation);
  add("disable", "Keep a location, but let it never be current", DisableLocation);
}

#include "CommandLine.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include "Closest.h"
#include "CommandParser.h"
#include "Output.h"
#include "Text.h"
#include "Version.h"

namespace {

constexpr const char* kFooter =
    "Exit codes:\n"
    "  0    done\n"
    "  1    the operation failed\n"
    "  2    wrong command line\n"
    "  3    no such location, or not exactly one; or its name or ID is taken\n"
    "  4    a location set is stored but cannot be read\n"
    "  5    no match (match, media --is); not current (explain)\n"
    "  6    differences (diff, --dry-run)\n"
    "  130  ended by Ctrl-C\n"
    "Messages go to standard error.";

// A lone surrogate has no UTF-8 form; passed on as U+FFFD it would name another location.
std::string RequireUtf8(const std::wstring& argument) {
  const std::string utf8 = ToUtf8(argument);
  if (ToWide(utf8) != argument) throw CommandError(kWrongUsage, "an argument is not valid Unicode: " + utf8);
  return utf8;
}

// " Did you mean ...?" for a word that is close to one of the known ones.
std::string Suggestion(const std::string& word, const std::vector<std::string>& known) {
  const auto closest = Closest(word, known);
  return closest ? " Did you mean \"" + *closest + "\"?" : "";
}

// The command whose words were understood, down to the last.
const CLI::App& Innermost(const CLI::App& app) {
  const std::vector<CLI::App*> parsed = app.get_subcommands();
  return parsed.empty() ? app : Innermost(*parsed.front());
}

// The parser notices first that a command is missing, or an argument too many, and would not say what is close to it.
std::string ExplainUnknown(const CLI::App& app) {
  const std::vector<std::string> unknown = app.remaining(true);
  if (unknown.empty()) return {};
  const CLI::App& at = Innermost(app);
  const std::string& word = unknown.front();
  std::vector<std::string> known;
  const bool isOption = word.starts_with("-");
  if (isOption) {
    for (const CLI::Option* option : at.get_options())
      for (const std::string& name : option->get_lnames()) known.push_back("--" + name);
  } else {
    for (const CLI::App* command : at.get_subcommands([](const CLI::App*) { return true; }))
      known.push_back(command->get_name());
    if (known.empty()) return {};
  }
  return std::string(isOption ? "unknown option: " : "unknown command: ") + word + "." + Suggestion(word, known);
}

}  // namespace

CommandParser::CommandParser() : m_app("qela - the firewall's location awareness on the console", "qela") {
  m_app.allow_windows_style_options(false);  // "/home" is a name
  m_app.footer(kFooter);
  m_app.set_version_flag("--version", &VersionText, "Show the versions of this program and of the library beside it");
  m_app.require_subcommand(1);
}

CLI::App* CommandParser::Add(CLI::App& parent, const std::string& name, const std::string& description,
                             ExitCode (*run)(const Options& options)) {
  CLI::App* command = parent.add_subcommand(name, description);
  command->add_flag("--json", m_options.json, "Write JSON instead of text");
  command->add_flag("--verbose", m_options.verbose, "Show the library's log on standard error");
  command->footer(kFooter);
  command->callback([this, run] { m_options.run = run; });
  return command;
}

CLI::App* CommandParser::AddGroup(const std::string& name, const std::string& description) {
  CLI::App* group = m_app.add_subcommand(name, description);
  group->require_subcommand(1);
  group->footer(kFooter);
  return group;
}

void CommandParser::SetExamples(CLI::App* command, const std::string& examples) {
  command->footer(std::string(kFooter) + "\n\nExamples:\n" + examples);
}

// Called once an option with its one value: a list of values would take the word that follows it.
CLI::Option* CommandParser::AddText(CLI::App* command, const std::string& name, std::wstring& target,
                                    const std::string& description, const std::string& placeholder) {
  return command
      ->add_option_function<std::string>(
          name, [&target](const std::string& value) { target = ToWide(value); }, description)
      ->type_name(placeholder);
}

CLI::Option* CommandParser::AddText(CLI::App* command, const std::string& name, std::optional<std::wstring>& target,
                                    const std::string& description, const std::string& placeholder) {
  return command
      ->add_option_function<std::string>(
          name, [&target](const std::string& value) { target = ToWide(value); }, description)
      ->type_name(placeholder);
}

CLI::Option* CommandParser::AddFile(CLI::App* command, const std::string& name, std::wstring& target,
                                    const std::string& description, const std::string& placeholder) {
  return AddText(command, name, target, description, placeholder)->check([](const std::string& value) {
    return value.empty() ? "the file must have a name" : std::string();
  });
}

CLI::Option* CommandParser::AddTexts(CLI::App* command, const std::string& name, std::vector<std::wstring>& target,
                                     const std::string& description, const std::string& placeholder) {
  return command
      ->add_option_function<std::string>(
          name, [&target](const std::string& value) { target.push_back(ToWide(value)); }, description)
      ->type_name(placeholder)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast)
      ->trigger_on_parse();
}

bool CommandParser::Parse(const std::vector<std::wstring>& arguments) {
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
  // "qela help location add" is "qela location add --help".
  if (!reversed.empty() && reversed.front() == "help") {
    reversed.erase(reversed.begin());
    reversed.emplace_back("--help");
  }
  std::reverse(reversed.begin(), reversed.end());
  try {
    m_app.parse(reversed);
    return true;
  } catch (const CLI::ParseError& error) {
    std::ostringstream output;
    std::ostringstream message;
    if (m_app.exit(error, output, message) == 0) {
      Print(Wrapped(output.str(), OutputWidth()));
      return false;
    }
    const bool isUnknown = dynamic_cast<const CLI::RequiredError*>(&error) != nullptr ||
                           dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr;
    std::string text = isUnknown ? ExplainUnknown(m_app) : std::string();
    if (text.empty())
      text = message.str();
    else
      text += "\nRun with --help for more information.";
    while (text.ends_with('\n')) text.pop_back();
    throw CommandError(kWrongUsage, text);
  }
}

void AddCommands(CommandParser& parser) {
  AddReadingCommands(parser);
  AddEditingCommands(parser);
  AddRollOutCommands(parser);
  AddMachineCommands(parser);
  AddLintCommand(parser);
  AddSupportCommands(parser);
  AddCompletion(parser);
}

std::optional<Options> ParseCommandLine(const std::vector<std::wstring>& arguments) {
  CommandParser parser;
  AddCommands(parser);
  if (!parser.Parse(arguments)) return std::nullopt;
  return std::move(parser.Result());
}

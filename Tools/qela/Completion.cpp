#include "Completion.h"

#include <algorithm>
#include <cstddef>

#include "CommandParser.h"
#include "Commands.h"
#include "Output.h"
#include "StoredSet.h"
#include "Text.h"

namespace {

// Of an option or a positional that takes a location.
constexpr const char* kNameOrId = "NAME-OR-ID";

// The options and positionals of a command; those of its option groups, which are nameless commands, included.
std::vector<const CLI::Option*> OptionsOf(const CLI::App& app) {
  std::vector<const CLI::Option*> options = app.get_options();
  for (const CLI::App* group : app.get_subcommands([](const CLI::App* each) { return each->get_name().empty(); }))
    for (const CLI::Option* option : OptionsOf(*group)) options.push_back(option);
  return options;
}

const CLI::Option* FindOption(const CLI::App& app, const std::string& word) {
  for (const CLI::Option* option : OptionsOf(app))
    if (option->check_name(word)) return option;
  return nullptr;
}

// Such as those of "wired|wireless|virtual".
std::vector<std::string> ValuesOf(const CLI::Option& option) {
  const std::string placeholder = option.get_type_name().substr(0, option.get_type_name().find(':'));
  return placeholder.find('|') == std::string::npos ? std::vector<std::string>() : CLI::detail::split(placeholder, '|');
}

const CLI::App* FindCommand(const CLI::App& app, const std::string& word) {
  const auto found = app.get_subcommands([&](const CLI::App* each) { return each->get_name() == word; });
  return found.empty() ? nullptr : found.front();
}

std::vector<std::string> CommandsOf(const CLI::App& app) {
  std::vector<std::string> commands;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    if (!command->get_name().empty() && !command->get_group().empty()) commands.push_back(command->get_name());
  return commands;
}

}  // namespace

std::vector<std::string> Completions(const CLI::App& root, std::vector<std::string> words,
                                     const std::function<std::vector<std::string>()>& names) {
  if (words.empty()) words.emplace_back();
  std::string begun = words.back();
  words.pop_back();
  // Shells give a word that is begun as it stands there; some pass an empty one only in quotes.
  std::erase_if(begun, [](char letter) { return letter == '"' || letter == '\''; });
  if (!words.empty() && words.front() == "help") words.erase(words.begin());

  const CLI::App* app = &root;
  const CLI::Option* awaiting = nullptr;  // a value
  std::size_t positionals = 0;
  for (const std::string& word : words) {
    if (awaiting != nullptr) {
      awaiting = nullptr;
    } else if (word.starts_with("-")) {
      const CLI::Option* option = FindOption(*app, word);
      if (option != nullptr && option->get_items_expected_max() > 0) awaiting = option;
    } else if (const CLI::App* command = FindCommand(*app, word); command != nullptr) {
      app = command;
    } else {
      ++positionals;
    }
  }

  std::vector<std::string> candidates;
  if (awaiting != nullptr) {
    candidates = awaiting->get_type_name() == kNameOrId ? names() : ValuesOf(*awaiting);
  } else if (begun.starts_with("-")) {
    for (const CLI::Option* option : OptionsOf(*app))
      for (const std::string& name : option->get_lnames()) candidates.push_back("--" + name);
    // Groups have the option for help again.
    std::sort(candidates.begin(), candidates.end());
    candidates.erase(std::unique(candidates.begin(), candidates.end()), candidates.end());
  } else {
    candidates = CommandsOf(*app);
    std::vector<const CLI::Option*> all = OptionsOf(*app);
    std::erase_if(all, [](const CLI::Option* option) { return !option->get_positional(); });
    if (positionals < all.size() && all[positionals]->get_name() == kNameOrId) candidates = names();
  }
  std::erase_if(candidates, [&](const std::string& candidate) { return !candidate.starts_with(begun); });
  return candidates;
}

void AddCompletion(CommandParser& parser) {
  Options& options = parser.Result();
  CLI::App* command = parser.Root().add_subcommand("complete", "For shells: what the last of the words can become");
  command->group("");  // not in the help
  command->add_option("WORDS", options.words);
  command->callback([&options] { options.run = Complete; });
}

ExitCode Complete(const Options& options) {
  CommandParser parser;
  AddCommands(parser);
  const auto names = [] {
    std::vector<std::string> texts;
    try {
      for (const CQeLocation& location : ReadLocations()) texts.push_back(ToUtf8(location.Name()));
    } catch (const CommandError&) {  // nobody has asked for it
    }
    return texts;
  };
  std::string text;
  for (const std::string& candidate : Completions(parser.Root(), options.words, names))
    if (candidate.find_first_of("\r\n") == std::string::npos) text += candidate + "\n";
  Print(text);
  return kDone;
}

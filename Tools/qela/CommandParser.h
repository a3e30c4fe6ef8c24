// What the files share that define commands and their options: Parse*.cpp.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "Options.h"

class CommandParser {
 public:
  CommandParser();

  CLI::App& Root() { return m_app; }
  Options& Result() { return m_options; }

  // A command with the options that all have.
  CLI::App* Add(CLI::App& parent, const std::string& name, const std::string& description,
                ExitCode (*run)(const Options& options));
  // A word that is followed by a command.
  CLI::App* AddGroup(const std::string& name, const std::string& description);

  // The end of every help page; a line each.
  static void SetExamples(CLI::App* command, const std::string& examples);

  // Options whose value is a text.
  static CLI::Option* AddText(CLI::App* command, const std::string& name, std::wstring& target,
                              const std::string& description, const std::string& placeholder = "");
  static CLI::Option* AddText(CLI::App* command, const std::string& name, std::optional<std::wstring>& target,
                              const std::string& description, const std::string& placeholder = "");
  // Not empty: that of a variable which a script has not set would leave something out without a word.
  static CLI::Option* AddFile(CLI::App* command, const std::string& name, std::wstring& target,
                              const std::string& description, const std::string& placeholder);
  // May be given several times; each time it takes one value.
  static CLI::Option* AddTexts(CLI::App* command, const std::string& name, std::vector<std::wstring>& target,
                               const std::string& description, const std::string& placeholder);

  // See ParseCommandLine.
  bool Parse(const std::vector<std::wstring>& arguments);

 private:
  CLI::App m_app;
  Options m_options;
};

void AddReadingCommands(CommandParser& parser);
void AddEditingCommands(CommandParser& parser);
void AddRollOutCommands(CommandParser& parser);
void AddMachineCommands(CommandParser& parser);
void AddLintCommand(CommandParser& parser);
void AddSupportCommands(CommandParser& parser);
void AddCompletion(CommandParser& parser);
void AddCommands(CommandParser& parser);  // all of them

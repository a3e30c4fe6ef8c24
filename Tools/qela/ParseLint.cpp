// The command that judges a set.
#include "CommandParser.h"
#include "Commands.h"

void AddLintCommand(CommandParser& parser) {
  LintOptions& lint = parser.Result().lint;
  CLI::App* command = parser.Add(parser.Root(), "lint",
                                 "Tell what in a location set never holds, holds too often, proves little or takes "
                                 "long. Asks nothing of the network. Exit code 1 when an error is found.",
                                 LintSet);
  CommandParser::AddText(command, "FILE", lint.file, "A set as export writes it; without FILE the stored set");
  command->add_flag("--strict", lint.strict, "Exit code 1 when a warning is found, too");
  command
      ->add_option_function<std::uint32_t>(
          "--adapters", [&lint](std::uint32_t count) { lint.adapters = count; },
          "Reckon what probes cost with so many adapters; otherwise with those of this machine")
      ->type_name("NUMBER")
      ->check(CLI::Range(std::uint32_t{1}, std::uint32_t{1000}));
  CommandParser::SetExamples(command, "  qela lint\n  qela lint set.json --strict --adapters 3\n");
}

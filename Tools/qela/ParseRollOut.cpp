// The commands for whole sets in files.
#include "CommandParser.h"
#include "Commands.h"

namespace {

CLI::App* AddWithFile(CommandParser& parser, const std::string& name, const std::string& description,
                      ExitCode (*run)(const Options& options)) {
  CLI::App* command = parser.Add(parser.Root(), name, description, run);
  CommandParser::AddText(command, "FILE", parser.Result().rollOut.file,
                         "A set as export writes it, JSON or .reg; - is standard input")
      ->required();
  return command;
}

}  // namespace

void AddRollOutCommands(CommandParser& parser) {
  RollOut& rollOut = parser.Result().rollOut;
  CLI::App* command = parser.Add(parser.Root(), "export",
                                 "Write the stored set to a file, or to standard output: for apply on other machines, "
                                 "or as .reg text for group policy and reg import",
                                 ExportSet);
  rollOut.file = L"-";
  CommandParser::AddText(command, "FILE", rollOut.file, "The file; without it, or for -, standard output");
  command
      ->add_option_function<std::string>(
          "--format",
          [&rollOut](const std::string& name) {
            rollOut.format = name == "reg" ? RollOut::Format::kReg : RollOut::Format::kJson;
          },
          "Without it, a file whose name ends in .reg is .reg text and all else JSON")
      ->type_name("json|reg")
      ->check(CLI::IsMember({"json", "reg"}).description(""));
  CommandParser::SetExamples(command,
                             "  qela export locations.json\n"
                             "  qela export --format reg locations.reg\n");

  command =
      AddWithFile(parser, "apply",
                  "Make the stored set as the file says. Locations are the same where their IDs are. Those of the "
                  "file come first, in its order; stored ones that it does not have stay, behind them. Applied "
                  "again, it changes nothing.",
                  ApplySet);
  command->add_flag("--dry-run", rollOut.dryRun,
                    "Only show what would be changed; exit code 6 when anything would, 0 when nothing");
  command->add_flag("--delete-missing", rollOut.deleteMissing,
                    "Remove the stored locations that the file does not have");
  CommandParser::SetExamples(command,
                             "  qela apply locations.json --dry-run\n"
                             "  qela apply locations.json --delete-missing\n");

  CommandParser::SetExamples(
      AddWithFile(parser, "diff",
                  "Show how a file differs from the stored set. Exit code 0 when nothing does, 6 otherwise", DiffSet),
      "  qela diff locations.json\n");
  CommandParser::SetExamples(
      AddWithFile(parser, "validate",
                  "Tell whether a file holds a set that can be applied, and otherwise where and why not", ValidateSet),
      "  qela validate locations.json\n");
  CommandParser::SetExamples(parser.Add(parser.Root(), "restore",
                                        "Bring back the set that was stored before qela changed it last. Done again, "
                                        "it brings back the newer one",
                                        RestoreSet),
                             "  qela restore\n");
}

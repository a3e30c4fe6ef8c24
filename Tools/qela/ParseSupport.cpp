// The commands for support: why a location is not current, here or in a log, and what to send along.
#include "CommandParser.h"
#include "Commands.h"
#include "Text.h"

namespace {

CLI::Option* AddLogs(CLI::App* command, SupportOptions& support) {
  return CommandParser::AddTexts(command, "--from-log", support.logs,
                                 "A log that a host of the library's has written. Files that rotation has put aside "
                                 "(FILE.1, FILE.2, ...) are read with it; may be given several times, the oldest first",
                                 "FILE");
}

void AddExplain(CommandParser& parser) {
  SupportOptions& support = parser.Result().support;
  CLI::App* explain = parser.Add(parser.Root(), "explain",
                                 "Tell why a location is current or not: what it asks for, what each adapter shows, "
                                 "and what would have to change. Exit code 0 when it is current, 5 when it is not.",
                                 ExplainLocations);
  CLI::Option* name = CommandParser::AddText(explain, "NAME-OR-ID", support.location, "The location", "");
  explain->add_flag("--all", support.all, "Every location")->excludes(name);
  CLI::Option* noProbes =
      explain->add_flag("--no-probes", support.noProbes,
                        "Ask no registry key, web host and management server; what depends on them is unknown");
  CLI::Option* logs = AddLogs(explain, support)->excludes(noProbes);
  CommandParser::AddFile(explain, "--at", support.at,
                         "The last calculation that began by this time of the log's clock, such as "
                         "\"2025-11-21 14:30\"; otherwise the last in the log",
                         "TIME")
      ->needs(logs);
  CommandParser::AddFile(explain, "--machine", support.machine,
                         "A recorded machine: what snapshot or report has written", "FILE")
      ->excludes(logs)
      ->excludes(noProbes);
  CommandParser::AddFile(
      explain, "--set", support.set,
      "The locations that the machine had, as export writes them; otherwise the stored ones, and with --from-log "
      "none: then only what the log proves is told",
      "FILE");
  CommandParser::SetExamples(explain,
                             "  qela explain Office\n"
                             "  qela explain --all --no-probes\n"
                             "  qela explain Office --from-log service.log --at \"2025-11-21 14:30\" --set set.json");
}

void AddTimeline(CommandParser& parser) {
  SupportOptions& support = parser.Result().support;
  CLI::App* timeline = parser.Add(parser.Root(), "timeline",
                                  "Tell from a log which locations were current from when to when, what changed in the "
                                  "adapters, and which calculations took long",
                                  ShowTimeline);
  AddLogs(timeline, support)->required();
  CommandParser::AddFile(timeline, "--html", support.html, "Write one page with a picture", "FILE");
  CommandParser::SetExamples(timeline,
                             "  qela timeline --from-log service.log\n"
                             "  qela timeline --from-log service.log --html timeline.html");
}

void AddCheck(CommandParser& parser) {
  CommandParser::SetExamples(
      parser.Add(parser.Root(), "check",
                 "Look at what location awareness stands on here: the set, the program's files, the account, the "
                 "adapters. Exit code 1 when an error is found.",
                 CheckMachine),
      "  qela check\n  qela check --json");
}

void AddReport(CommandParser& parser) {
  SupportOptions& support = parser.Result().support;
  CLI::App* report = parser.Add(parser.Root(), "report",
                                "Write one page for a support case: what check finds, explain of all locations, the "
                                "machine's snapshot and the end of the log, with names and addresses replaced",
                                WriteReport);
  CommandParser::AddFile(report, "FILE", support.file, "The page to write", "")->required();
  CommandParser::AddTexts(report, "--log", support.logs, "A log whose end goes into the report", "FILE");
  report->add_flag("--no-probes", support.noProbes, "Ask no registry key, web host and management server");
  report
      ->add_option_function<std::string>(
          "--redact",
          [&support](const std::string& level) {
            using Redaction = SupportOptions::Redaction;
            support.redaction = level == "none"    ? Redaction::kNone
                                : level == "names" ? Redaction::kNames
                                                   : Redaction::kFull;
          },
          "What is replaced: all that could tell the site (full, unless told otherwise), names but not private "
          "addresses (names), or nothing (none)")
      ->type_name("full|names|none")
      ->check(CLI::IsMember({"full", "names", "none"}));
  CommandParser::SetExamples(report,
                             "  qela report case.html\n  qela report case.html --redact names --log service.log");
}

}  // namespace

void AddSupportCommands(CommandParser& parser) {
  AddExplain(parser);
  AddTimeline(parser);
  AddCheck(parser);
  AddReport(parser);
}

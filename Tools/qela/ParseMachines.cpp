// The commands about recorded machines.
#include "CommandParser.h"
#include "Commands.h"
#include "Text.h"

void AddMachineCommands(CommandParser& parser) {
  MachineOptions& machines = parser.Result().machines;

  CLI::App* record =
      parser.Add(parser.Root(), "snapshot",
                 "Record this machine, so that location sets can be tested on it elsewhere: its adapters "
                 "as the library sees them, and on demand what the probes answer",
                 RecordMachine);
  CommandParser::AddFile(record, "FILE", machines.file, "Where to; standard output without it", "");
  CommandParser::AddText(record, "--label", machines.label,
                         "What the machine is called in results; without it, as the file is", "TEXT");
  CLI::Option* probes = record->add_flag("--probes", machines.probes,
                                         "Ask for everything that the locations name: registry keys, web hosts, the "
                                         "management server. Each host that is silent takes about 20 seconds");
  CommandParser::AddFile(record, "--set", machines.set, "The locations whose probes are asked; without it, the stored",
                         "FILE")
      ->needs(probes);
  CommandParser::SetExamples(record,
                             "  qela snapshot office-pc.json\n"
                             "  qela snapshot office-pc.json --probes --set new-locations.json");

  CLI::App* test =
      parser.Add(parser.Root(), "test",
                 "Tell which locations of a set would be current on recorded machines. Exit code 1 when an "
                 "expectation fails or a snapshot cannot be read",
                 TestMachines);
  CommandParser::AddFile(test, "--set", machines.set, "The locations: JSON, or .reg text", "FILE")->required();
  test->add_option_function<std::vector<std::string>>(
          "--machines",
          [&machines](const std::vector<std::string>& paths) {
            for (const std::string& path : paths) machines.machines.push_back(ToWide(path));
          },
          "The machines: files that snapshot has written, folders (their *.json, by name), or patterns such as "
          "office-*.json")
      ->type_name("SNAPSHOT")
      ->required();
  CommandParser::AddFile(test, "--expect", machines.expect,
                         "What is expected: CSV with the header \"machine,locations\"; names or IDs of locations are "
                         "separated by \";\"",
                         "FILE.csv");
  CommandParser::AddFile(test, "--junit", machines.junit, "Write the results for a build server", "FILE");
  CommandParser::SetExamples(test,
                             "  qela test --set new-locations.json --machines machines\n"
                             "  qela test --set new-locations.json --machines machines --expect expected.csv --junit "
                             "result.xml");
}

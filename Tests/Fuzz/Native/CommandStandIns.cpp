// The commands but one, for the parser of the command line, which only tells which one is to be run.
#include "Commands.h"
#include "StoredSet.h"
#include "Version.h"

ExitCode ShowAdapters(const Options&) { return kDone; }
ExitCode ShowMacs(const Options&) { return kDone; }
ExitCode ShowMedia(const Options&) { return kDone; }
ExitCode MatchAddresses(const Options&) { return kDone; }
ExitCode ShowLocations(const Options&) { return kDone; }
ExitCode ShowLocation(const Options&) { return kDone; }
ExitCode LintSet(const Options&) { return kDone; }
ExitCode RecordMachine(const Options&) { return kDone; }
ExitCode TestMachines(const Options&) { return kDone; }
ExitCode AddLocation(const Options&) { return kDone; }
ExitCode SetLocation(const Options&) { return kDone; }
ExitCode RenameLocation(const Options&) { return kDone; }
ExitCode MoveLocation(const Options&) { return kDone; }
ExitCode RemoveLocation(const Options&) { return kDone; }
ExitCode EnableLocation(const Options&) { return kDone; }
ExitCode DisableLocation(const Options&) { return kDone; }
ExitCode ExportSet(const Options&) { return kDone; }
ExitCode ApplySet(const Options&) { return kDone; }
ExitCode DiffSet(const Options&) { return kDone; }
ExitCode ValidateSet(const Options&) { return kDone; }
ExitCode RestoreSet(const Options&) { return kDone; }
ExitCode ShowCurrent(const Options&) { return kDone; }
ExitCode Watch(const Options&) { return kDone; }
ExitCode ExplainLocations(const Options&) { return kDone; }
ExitCode CheckMachine(const Options&) { return kDone; }
ExitCode WriteReport(const Options&) { return kDone; }

// For names to complete, which nobody asks for.
StoredValue ReadStoredValue() { return {}; }
LocationSet LocationsIn(const StoredValue&) { return {}; }

std::string VersionText() { return "0"; }

// The commands. Each prints its result, answers with the process's exit code, and throws CommandError when it fails.
#pragma once

#include "CommandError.h"
#include "Options.h"

// Of the machine and the stored set, without a service and without a probe.
ExitCode ShowAdapters(const Options& options);
ExitCode ShowMacs(const Options& options);
ExitCode ShowMedia(const Options& options);       // with a question: kDone for yes, kNo for no
ExitCode MatchAddresses(const Options& options);  // kDone for yes, kNo for no
ExitCode ShowLocations(const Options& options);
ExitCode ShowLocation(const Options& options);

ExitCode LintSet(const Options& options);  // kFailed when the set has errors

// Of recorded machines. RecordMachine calls probes where it is told to.
ExitCode RecordMachine(const Options& options);
ExitCode TestMachines(const Options& options);  // kFailed where a machine is not as expected

// Edits of the stored set.
ExitCode AddLocation(const Options& options);
ExitCode SetLocation(const Options& options);
ExitCode RenameLocation(const Options& options);
ExitCode MoveLocation(const Options& options);
ExitCode RemoveLocation(const Options& options);
ExitCode EnableLocation(const Options& options);
ExitCode DisableLocation(const Options& options);

// Whole sets, from and to files.
ExitCode ExportSet(const Options& options);
ExitCode ApplySet(const Options& options);  // --dry-run: kDifferences when something would be changed
ExitCode DiffSet(const Options& options);   // kDone when the sets are the same, kDifferences otherwise
ExitCode ValidateSet(const Options& options);
ExitCode RestoreSet(const Options& options);

// What the library itself decides: these make its service, which calculates, with probes.
ExitCode ShowCurrent(const Options& options);
ExitCode Watch(const Options& options);

// For support. They make the service where they explain this machine with probes.
ExitCode ExplainLocations(const Options& options);  // kDone when all that were asked for are current, kNo otherwise
ExitCode ShowTimeline(const Options& options);
ExitCode CheckMachine(const Options& options);  // kFailed when a check found an error
ExitCode WriteReport(const Options& options);

// For the shells' completion files.
ExitCode Complete(const Options& options);

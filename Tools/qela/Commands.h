// The commands. Each prints its result and throws CommandError when it fails.
#pragma once

#include "CommandError.h"
#include "Options.h"

void ShowAdapters(const Options& options);
void ShowLocations(const Options& options);
void ShowCurrent(const Options& options);
void AddLocation(const Options& options);
void RemoveLocation(const Options& options);
void EnableLocation(const Options& options);  // or disable, as the command says
void Watch(const Options& options);
void ShowMacs(const Options& options);

// These answer a question: kDone for yes, kNo for no.
ExitCode MatchAddresses(const Options& options);
ExitCode ShowMedia(const Options& options);  // without a question: kDone

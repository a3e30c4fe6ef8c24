#pragma once

#include "LocationSet.h"
#include "MachineSnapshot.h"

// Asks the registry, the web hosts and the management server, once each, for all that the set names. What is asked is
// told on a terminal: a host that is silent takes its time.
void AskProbes(MachineSnapshot& machine, const LocationSet& set);

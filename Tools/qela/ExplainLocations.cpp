#include "CommandError.h"
#include "Commands.h"

ExitCode ExplainLocations(const Options& /*options*/) { throw CommandError(kFailed, "not there yet"); }

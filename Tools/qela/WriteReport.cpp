#include "CommandError.h"
#include "Commands.h"

ExitCode WriteReport(const Options& /*options*/) { throw CommandError(kFailed, "not there yet"); }

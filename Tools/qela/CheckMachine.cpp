#include "CommandError.h"
#include "Commands.h"

ExitCode CheckMachine(const Options& /*options*/) { throw CommandError(kFailed, "not there yet"); }

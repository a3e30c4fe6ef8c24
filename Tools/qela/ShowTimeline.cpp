#include "CommandError.h"
#include "Commands.h"

ExitCode ShowTimeline(const Options& /*options*/) { throw CommandError(kFailed, "not there yet"); }

// The library's one way to log.
#pragma once

#include "FwClient/Common/Utilities/FwLog.h"

// LA_LOG(kLogInfo, L"format %s", ...), as FW_LOG.
#define LA_LOG(severity, ...) FW_LOG(severity, __VA_ARGS__)

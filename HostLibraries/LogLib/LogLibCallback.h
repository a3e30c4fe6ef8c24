// The log for hosts in C, who reach this function through QeLaC.dll. A host's own library of this name need not have
// it.
#pragma once

#include <LogLib.h>
#include <qela.h>

extern "C" {

// As qela_set_log_callback of qela.h. QELA_STATUS_OUT_OF_MEMORY when there is no memory for the log.
LOGLIB_API qela_status QELA_CALL LogLibSetCallback(qela_log_callback callback, void* context, qela_log_level level);
}

// Proxy credentials for hosts in C, who reach this function through QeLaC.dll. A host's own library of this name need
// not have it.
#pragma once

#include <BLFramework.h>
#include <qela.h>

extern "C" {

// As qela_set_credentials_callback of qela.h.
BLFRAMEWORK_API qela_status QELA_CALL BLFrameworkSetCredentialsCallback(qela_credentials_callback callback,
                                                                        void* context);
}

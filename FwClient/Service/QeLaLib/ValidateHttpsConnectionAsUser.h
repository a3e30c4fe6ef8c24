// Whether a host answers over HTTPS through the interactive user's own proxy.
#pragma once

#include <string>

#include "FwClient/Service/QeLaLib/ProxyContext.h"

// Asks for `host` over HTTPS with the interactive user's proxy settings: the configuration script first, then the proxy
// list. Fills `context` with the proxy credentials of the host product. The user is impersonated only while the
// settings are read. False for every failure, also when the thread cannot become itself again;
// throws only std::bad_alloc.
bool ValidateHttpsConnectionAsUser(ProxyContext& context, const std::wstring& host);

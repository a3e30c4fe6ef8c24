// The proxy user name and password that the host product keeps for the machine.
#pragma once

#include <string>

#include "FwClient/Service/QeLaLib/ProxyContext.h"

// Asks the host product's framework for the credentials. Always true: a framework that has none, or that fails, leaves
// the context as it was, and the proxy's own answer then decides. They are the machine's, so the host does not matter.
// Nothing is logged, and the framework's answer is wiped before it is given back. Throws std::bad_alloc.
bool GetProxyCredentials(ProxyContext& context, const std::wstring& host);

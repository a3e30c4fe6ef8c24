#include "FwClient/Service/QeLaLib/ProxyCredentials.h"

bool GetProxyCredentials(ProxyContext&, const std::wstring&) { return true; }

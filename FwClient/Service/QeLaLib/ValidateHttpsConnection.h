// Whether a host answers over HTTPS, asked directly or through a proxy.
#pragma once

#include <string>

#include "FwClient/Service/QeLaLib/ProxyContext.h"

// All of these send one GET for the root of `host` (a bare name or address) to port 443, on the calling thread, and may
// take minutes, in the worst case hours. True when the server answered with 200, or with 401: a server that asks who we
// are is there. Failures are logged and answered with false; only std::bad_alloc is thrown. A thread that is left with
// the identity of the interactive user asks nothing more: false. Credentials are for a proxy that asks for them; they
// are neither kept nor logged.

// Through `proxyServer`, or with the system's default proxy settings when that text is empty.
bool ValidateHttpsConnection(const std::wstring& host, const std::wstring& proxyServer, const std::wstring& proxyUser,
                             const std::wstring& proxyPassword);

// Through the proxy that auto-discovery finds (DHCP, DNS) or that the script at `configUrl` names; the URL may be
// empty.
bool ValidateHttpsConnectionAutoProxy(const ProxyContext& context, const std::wstring& host,
                                      const std::wstring& configUrl, const std::wstring& proxyUser,
                                      const std::wstring& proxyPassword);

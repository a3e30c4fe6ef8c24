// The user who is logged on at the console: the access token, and the user's own way out through a proxy.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

#include "FwClient/Service/QeLaLib/ProxyCredentials.h"

// Hands out the access token of the process that runs the user's shell. 0 for success, and the caller closes the token;
// otherwise 0x80004005 (E_FAIL) and a null token. Throws only std::bad_alloc.
HRESULT GetInteractiveUserToken(HANDLE* token);

// True on a 64-bit system.
bool IsWow64SystemDirectoryPresent();

// Asks for `host` over HTTPS with the interactive user's proxy settings: the configuration script first, then the proxy
// list. Fills `context` with the proxy credentials of the host product. The user is impersonated only while the
// settings are read. False for every failure, also when the thread cannot become itself again;
// throws only std::bad_alloc.
bool ValidateHttpsConnectionAsUser(ProxyContext& context, const std::wstring& host);

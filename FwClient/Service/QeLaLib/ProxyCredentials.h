// The proxy user name and password that the host product keeps for the machine.
#pragma once

#include <string>

#include "FwClient/Common/Utilities/SecretText.h"

// What a proxy that asks who we are is told. Empty texts: there is nothing to tell.
//
// Both texts are wiped from memory with the context. So that they stay the only copies, a context cannot be copied or
// moved (short texts would stay behind in the string that was moved from): hand it on by reference, and change the
// texts with AssignSecret.
struct ProxyContext {
  std::wstring userName;
  std::wstring password;

  ProxyContext() noexcept = default;
  ~ProxyContext() {
    WipeSecret(userName);
    WipeSecret(password);
  }
  ProxyContext(const ProxyContext&) = delete;
  ProxyContext& operator=(const ProxyContext&) = delete;
};

// Asks the host product's framework for the credentials. Always true: a framework that has none, or that fails, leaves
// the context as it was, and the proxy's own answer then decides. They are the machine's, so the host does not matter.
// Nothing is logged, and the framework's answer is wiped before it is given back. Throws std::bad_alloc.
bool GetProxyCredentials(ProxyContext& context, const std::wstring& host);

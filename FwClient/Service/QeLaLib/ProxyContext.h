// The user name and password for a proxy that asks who we are.
#pragma once

#include <string>

#include "FwClient/Common/Utilities/SecretText.h"

// Empty texts: there is nothing to tell.
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

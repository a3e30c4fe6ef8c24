// Private: owners of what an HTTPS request takes from WinHTTP and from the certificate functions.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <wincrypt.h>
#include <winhttp.h>

#include "FwClient/Common/Utilities/UniqueHandle.h"

struct WinHttpTraits {
  using Handle = HINTERNET;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::WinHttpCloseHandle(handle); }
};
using UniqueWinHttp = UniqueHandle<WinHttpTraits>;

struct CertStoreTraits {
  using Handle = HCERTSTORE;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::CertCloseStore(handle, 0); }
};
using UniqueCertStore = UniqueHandle<CertStoreTraits>;

struct CertChainTraits {
  using Handle = PCCERT_CHAIN_CONTEXT;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::CertFreeCertificateChain(handle); }
};
using UniqueCertChain = UniqueHandle<CertChainTraits>;

struct CertContextTraits {
  using Handle = PCCERT_CONTEXT;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::CertFreeCertificateContext(handle); }
};
using UniqueCertContext = UniqueHandle<CertContextTraits>;

// Memory that WinHTTP allocated for its caller: issuer lists and proxy texts.
struct GlobalMemoryTraits {
  using Handle = HGLOBAL;
  static Handle Invalid() noexcept { return nullptr; }
  static void Close(Handle handle) noexcept { ::GlobalFree(handle); }
};
using UniqueGlobalMemory = UniqueHandle<GlobalMemoryTraits>;

#include "ScriptedWindows/Windows/FakeCertificates.h"

// schannel.h does not include what it needs.
#include <subauth.h>

#include <schannel.h>

#include <algorithm>
#include <cwchar>
#include <format>

FakeCertificates::FakeCertificates(WindowsScript& script) : m_script(script) {
  const HMODULE module = script.Module();
  m_patches.emplace_back(module, "CertOpenStore", &FakeCertificates::OpenStore);
  m_patches.emplace_back(module, "CertCloseStore", &FakeCertificates::CloseStore);
  m_patches.emplace_back(module, "CertFindChainInStore", &FakeCertificates::FindChain);
  m_patches.emplace_back(module, "CertFreeCertificateChain", &FakeCertificates::FreeChain);
  m_patches.emplace_back(module, "CertDuplicateCertificateContext", &FakeCertificates::DuplicateCertificate);
  m_patches.emplace_back(module, "CertFreeCertificateContext", &FakeCertificates::FreeCertificate);
  m_patches.emplace_back(module, "CertNameToStrW", &FakeCertificates::NameToText);
  m_patches.emplace_back(module, "WinHttpQueryOption", &FakeCertificates::QueryOption);
}

HCERTSTORE WINAPI FakeCertificates::OpenStore(LPCSTR provider, DWORD encoding, HCRYPTPROV_LEGACY cryptography,
                                              DWORD flags, const void* name) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current().m_script;
  Require(provider == CERT_STORE_PROV_SYSTEM_W);
  Require(encoding == 0u);
  Require(cryptography == 0u);
  if (!script.Enter("CertOpenStore", std::format("{}, {}", WindowsScript::Hex(flags),
                                                 WindowsScript::Text(static_cast<const wchar_t*>(name)))))
    return nullptr;
  return script.Open("store", "CertCloseStore");
}

BOOL WINAPI FakeCertificates::CloseStore(HCERTSTORE store, DWORD flags) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current().m_script;
  script.Note("CertCloseStore", std::format("{}, {}", script.Name(store), flags));
  script.Closed("CertCloseStore", store);
  return TRUE;
}

PCCERT_CHAIN_CONTEXT WINAPI FakeCertificates::FindChain(HCERTSTORE store, DWORD encoding, DWORD flags, DWORD type,
                                                        const void* parameters, PCCERT_CHAIN_CONTEXT previous) {
  const HeapWatch::Pause pause;
  FakeCertificates& self = Current();
  WindowsScript& script = self.m_script;
  const auto& by = *static_cast<const CERT_CHAIN_FIND_BY_ISSUER_PARA*>(parameters);
  Require(by.cbSize == 56u);
  Require(by.pszUsageIdentifier == nullptr);
  Require(by.dwKeySpec == 0u);
  Require(by.dwAcquirePrivateKeyFlags == 0u);
  Require(by.cIssuer == self.issuers);
  Require(by.rgIssuer == (self.issuers == 0 ? nullptr : &self.m_issuer));
  Require(by.pfnFindCallback == nullptr);
  script.Name(self.m_list);  // still to be open
  const bool enters =
      script.Enter("CertFindChainInStore", std::format("{}, {}, {}, {}, after {}", script.Name(store), encoding,
                                                       WindowsScript::Hex(flags), type, script.Name(previous)));
  // Found or not, the search frees the chain that it continues from.
  const auto from = std::ranges::find(self.m_chains, previous, [](const Chain& chain) { return &chain.context; });
  if (previous != nullptr) script.Closed("CertFreeCertificateChain", previous);
  if (!enters) return nullptr;
  // As documented for searches that go on from an earlier find: it must be of the store that is searched.
  if (from != self.m_chains.end() && from->store != store) {
    ::SetLastError(static_cast<DWORD>(E_INVALIDARG));
    return nullptr;
  }
  if (self.m_chains.size() == self.matching) {
    ::SetLastError(static_cast<DWORD>(CRYPT_E_NOT_FOUND));
    return nullptr;
  }
  Chain& chain = self.m_chains.emplace_back();
  chain.store = store;
  chain.element.pCertContext = &chain.certificate;
  chain.elements[0] = &chain.element;
  chain.simple.cElement = 1;
  chain.simple.rgpElement = chain.elements;
  chain.simples[0] = &chain.simple;
  chain.context.cChain = 1;
  chain.context.rgpChain = chain.simples;
  script.OpenAt("chain", "CertFreeCertificateChain", &chain.context);
  return &chain.context;
}

void WINAPI FakeCertificates::FreeChain(PCCERT_CHAIN_CONTEXT chain) {
  const HeapWatch::Pause pause;
  Current().m_script.Close("CertFreeCertificateChain", chain);
}

PCCERT_CONTEXT WINAPI FakeCertificates::DuplicateCertificate(PCCERT_CONTEXT certificate) {
  const HeapWatch::Pause pause;
  FakeCertificates& self = Current();
  Require(certificate == &self.m_chains.back().certificate, "the first element of the first simple chain is taken");
  self.m_script.Note("CertDuplicateCertificateContext");
  self.m_script.OpenAt("certificate", "CertFreeCertificateContext", &self.m_duplicates.emplace_back());
  return &self.m_duplicates.back();
}

BOOL WINAPI FakeCertificates::FreeCertificate(PCCERT_CONTEXT certificate) {
  const HeapWatch::Pause pause;
  Current().m_script.Close("CertFreeCertificateContext", certificate);
  return TRUE;
}

DWORD WINAPI FakeCertificates::NameToText(DWORD encoding, PCERT_NAME_BLOB name, DWORD type, LPWSTR text, DWORD size) {
  const HeapWatch::Pause pause;
  FakeCertificates& self = Current();
  Require(name == &self.m_issuer);
  if (!self.m_script.Enter("CertNameToStrW", std::format("{}, {}, {}", encoding, type, size))) return 1;
  // As the real one: the text is cut to fit and always terminated.
  const std::wstring fitting = self.issuerName.substr(0, size - 1);
  std::wmemcpy(text, fitting.c_str(), fitting.size() + 1);
  return static_cast<DWORD>(fitting.size() + 1);
}

BOOL WINAPI FakeCertificates::QueryOption(HINTERNET request, DWORD option, LPVOID value, LPDWORD size) {
  const HeapWatch::Pause pause;
  FakeCertificates& self = Current();
  Require(*size == 8u);
  const bool enters =
      self.m_script.Enter("WinHttpQueryOption", std::format("{}, {}", self.m_script.Name(request), option));
  if (!enters) return FALSE;
  if (!self.listsIssuers) return TRUE;
  self.m_list = self.m_script.GlobalMemory("issuers", sizeof(SecPkgContext_IssuerListInfoEx));
  auto* const list = static_cast<SecPkgContext_IssuerListInfoEx*>(self.m_list);
  list->cIssuers = self.issuers;
  // Reading the first of no issuers would crash.
  list->aIssuers = self.issuers == 0 ? nullptr : &self.m_issuer;
  *static_cast<void**>(value) = self.m_list;
  return TRUE;
}

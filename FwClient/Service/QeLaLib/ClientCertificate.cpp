#include "FwClient/Service/QeLaLib/ClientCertificate.h"

// schannel.h does not include what it needs.
#include <subauth.h>

#include <schannel.h>

#include "FwClient/Common/Utilities/FwLog.h"

namespace {

const SecPkgContext_IssuerListInfoEx& IssuerList(HGLOBAL memory) {
  return *static_cast<const SecPkgContext_IssuerListInfoEx*>(memory);
}

// The first issuer's name for the log; empty when the server admits any issuer and so names none.
void LogFirstIssuer(const SecPkgContext_IssuerListInfoEx& issuers) {
  constexpr DWORD kNameLength = 500;
  wchar_t name[kNameLength] = L"";
  if (issuers.cIssuers != 0)
    ::CertNameToStrW(X509_ASN_ENCODING, issuers.aIssuers, CERT_X500_NAME_STR, name, kNameLength);
  FW_LOG(kLogInfo, L"Issuer id of required certifcate :%s", name);
}

}  // namespace

bool ClientCertificate::SelectNext(HINTERNET request) {
  // One store for all calls: a search cannot go on from a chain that another store held, even if it is the same user's.
  if (!m_store) m_store.reset(::CertOpenStore(CERT_STORE_PROV_SYSTEM_W, 0, 0, CERT_SYSTEM_STORE_CURRENT_USER, L"My"));
  if (!m_store) FW_LOG(kLogInfo, L"Not able to open current user store");

  if (!QueryIssuers(request)) {
    FW_LOG(kLogInfo, L"Not able to get issuer list");
    return false;
  }
  if (!m_store) return false;
  FW_LOG(kLogInfo, L"Searching cert in current user store");
  if (!FindNextChain()) return false;

  m_certificate.reset();
  m_certificate.reset(::CertDuplicateCertificateContext(m_chain.get()->rgpChain[0]->rgpElement[0]->pCertContext));
  m_issuers.reset();
  ::WinHttpSetOption(request, WINHTTP_OPTION_CLIENT_CERT_CONTEXT, const_cast<CERT_CONTEXT*>(m_certificate.get()),
                     sizeof(CERT_CONTEXT));
  FW_LOG(kLogInfo, L"Set the client cert on request handle and resend the request");
  return true;
}

// Takes the list of issuers that the server admits.
bool ClientCertificate::QueryIssuers(HINTERNET request) {
  FW_LOG(kLogInfo, L"Get client certificate issuer");
  DWORD size = sizeof(HGLOBAL);
  if (!::WinHttpQueryOption(request, WINHTTP_OPTION_CLIENT_CERT_ISSUER_LIST, static_cast<void*>(m_issuers.put()),
                            &size))
    return false;
  // TRUE without a list is what a server that lists no issuer may lead to.
  if (!m_issuers) return false;
  LogFirstIssuer(IssuerList(m_issuers.get()));
  return true;
}

bool ClientCertificate::FindNextChain() {
  FW_LOG(kLogInfo, L"Get client certificate chain");
  const SecPkgContext_IssuerListInfoEx& issuers = IssuerList(m_issuers.get());
  CERT_CHAIN_FIND_BY_ISSUER_PARA parameters{};
  static_assert(sizeof parameters == 56, "the form without its optional last fields");
  parameters.cbSize = sizeof parameters;
  parameters.cIssuer = issuers.cIssuers;
  parameters.rgIssuer = issuers.aIssuers;
  // The search frees the chain that it continues from, whatever it finds.
  m_chain.reset(
      ::CertFindChainInStore(m_store.get(), X509_ASN_ENCODING,
                             CERT_CHAIN_FIND_BY_ISSUER_CACHE_ONLY_FLAG | CERT_CHAIN_FIND_BY_ISSUER_CACHE_ONLY_URL_FLAG,
                             CERT_CHAIN_FIND_BY_ISSUER, &parameters, m_chain.release()));
  if (!m_chain) FW_LOG(kLogInfo, L"Not able to locate client certificate %ld", ::GetLastError());
  return static_cast<bool>(m_chain);
}

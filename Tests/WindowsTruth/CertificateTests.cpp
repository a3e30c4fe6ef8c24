// The search for client certificates, which goes on from what it found before.
#include <winsock2.h>
#include <windows.h>
#include <wincrypt.h>

#include <gtest/gtest.h>

#include <string>

#include "ScriptedWindows/UniqueName.h"
#include "Tests/WindowsTruth/Wine.h"

namespace {

// A certificate with a key of the test's own, which is removed at the end.
class OwnCertificate {
 public:
  OwnCertificate() {
    if (!::CryptAcquireContextW(&m_provider, m_container.c_str(), MS_ENH_RSA_AES_PROV_W, PROV_RSA_AES,
                                CRYPT_NEWKEYSET | CRYPT_SILENT))
      return;
    // The key that a certificate is made for unless it is told another.
    HCRYPTKEY key = 0;
    if (::CryptGenKey(m_provider, AT_SIGNATURE, 2048U << 16, &key)) ::CryptDestroyKey(key);
    BYTE name[256] = {};
    DWORD size = sizeof name;
    if (!::CertStrToNameW(X509_ASN_ENCODING, (L"CN=" + m_container).c_str(), CERT_X500_NAME_STR, nullptr, name, &size,
                          nullptr))
      return;
    CERT_NAME_BLOB subject{size, name};
    m_certificate =
        ::CertCreateSelfSignCertificate(m_provider, &subject, 0, nullptr, nullptr, nullptr, nullptr, nullptr);
  }
  ~OwnCertificate() {
    if (m_certificate != nullptr) ::CertFreeCertificateContext(m_certificate);
    if (m_provider != 0) ::CryptReleaseContext(m_provider, 0);
    HCRYPTPROV none = 0;
    ::CryptAcquireContextW(&none, m_container.c_str(), MS_ENH_RSA_AES_PROV_W, PROV_RSA_AES,
                           CRYPT_DELETEKEYSET | CRYPT_SILENT);
  }
  OwnCertificate(const OwnCertificate&) = delete;
  OwnCertificate& operator=(const OwnCertificate&) = delete;

  PCCERT_CONTEXT Get() const { return m_certificate; }

 private:
  std::wstring m_container = L"QeLaLibTests-" + UniqueName();
  HCRYPTPROV m_provider = 0;
  PCCERT_CONTEXT m_certificate = nullptr;
};

// As the library asks. Takes the chain that it goes on from.
PCCERT_CHAIN_CONTEXT FindNext(HCERTSTORE store, CERT_NAME_BLOB* issuers, DWORD count, PCCERT_CHAIN_CONTEXT previous) {
  CERT_CHAIN_FIND_BY_ISSUER_PARA parameters{};
  parameters.cbSize = sizeof parameters;
  parameters.cIssuer = count;
  parameters.rgIssuer = issuers;
  return ::CertFindChainInStore(
      store, X509_ASN_ENCODING,
      CERT_CHAIN_FIND_BY_ISSUER_CACHE_ONLY_FLAG | CERT_CHAIN_FIND_BY_ISSUER_CACHE_ONLY_URL_FLAG,
      CERT_CHAIN_FIND_BY_ISSUER, &parameters, previous);
}

std::wstring SubjectOf(PCCERT_CHAIN_CONTEXT chain) {
  wchar_t name[256] = L"";
  ::CertGetNameStringW(chain->rgpChain[0]->rgpElement[0]->pCertContext, CERT_NAME_SIMPLE_DISPLAY_TYPE, 0, nullptr, name,
                       256);
  return name;
}

// Two certificates in a store of the test's own.
class TwoCertificates {
 public:
  TwoCertificates() {
    for (int i = 0; i < 2; ++i) {
      const PCCERT_CONTEXT certificate = m_certificates[i].Get();
      if (certificate == nullptr) continue;
      m_issuers[i] = certificate->pCertInfo->Issuer;
      ::CertAddCertificateContextToStore(m_store, certificate, CERT_STORE_ADD_ALWAYS, nullptr);
      ++m_count;
    }
  }
  ~TwoCertificates() { ::CertCloseStore(m_store, 0); }
  TwoCertificates(const TwoCertificates&) = delete;
  TwoCertificates& operator=(const TwoCertificates&) = delete;

  // Each of both once, and then none.
  void ExpectToFindBoth(CERT_NAME_BLOB* issuers, DWORD count) {
    ASSERT_EQ(m_count, 2) << "the certificates could not be made";
    PCCERT_CHAIN_CONTEXT chain = FindNext(m_store, issuers, count, nullptr);
    ASSERT_NE(chain, nullptr) << ::GetLastError();
    const std::wstring first = SubjectOf(chain);
    chain = FindNext(m_store, issuers, count, chain);
    ASSERT_NE(chain, nullptr) << ::GetLastError();
    EXPECT_NE(SubjectOf(chain), first);
    chain = FindNext(m_store, issuers, count, chain);
    EXPECT_EQ(chain, nullptr);
  }
  CERT_NAME_BLOB* Issuers() { return m_issuers; }

 private:
  OwnCertificate m_certificates[2];
  CERT_NAME_BLOB m_issuers[2] = {};
  int m_count = 0;
  HCERTSTORE m_store = ::CertOpenStore(CERT_STORE_PROV_MEMORY, 0, 0, 0, nullptr);
};

constexpr char kWine[] = "CertFindChainInStore finds nothing";

TEST(WindowsTruth, ASearchForCertificatesGoesOnBehindTheChainThatItIsGivenAndEnds) {
  SKIP_UNDER_WINE(kWine);
  TwoCertificates().ExpectToFindBoth(nullptr, 0);
}

TEST(WindowsTruth, ASearchForCertificatesOfSomeIssuersGoesOnInTheSameWay) {
  SKIP_UNDER_WINE(kWine);
  TwoCertificates certificates;
  certificates.ExpectToFindBoth(certificates.Issuers(), 2);
}

}  // namespace

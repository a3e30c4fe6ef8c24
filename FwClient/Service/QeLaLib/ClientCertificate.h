// Private: the client certificate that a server asks for.
#pragma once

#include "FwClient/Service/QeLaLib/HttpsHandles.h"

// Walks through the certificates of the user's "My" store that the server's list of issuers admits, one with each
// call. The store is opened by the first call that can, and searched on by the later ones. Holds what the walk needs
// until the end of the attempt; all of it is then released in the order issuer list, certificate, chain, store.
class ClientCertificate {
 public:
  // Puts the next matching certificate on the request. The thread impersonates the user, whose store is searched.
  // Returns whether there was one; without one the request is as it was.
  bool SelectNext(HINTERNET request);

 private:
  bool QueryIssuers(HINTERNET request);
  bool FindNextChain();

  UniqueCertStore m_store;
  UniqueCertChain m_chain;
  UniqueCertContext m_certificate;
  UniqueGlobalMemory m_issuers;
};

// Private: one GET of a host's root over HTTPS.
#pragma once

#include <memory>
#include <string>

#include "FwClient/Service/QeLaLib/HttpsCompletion.h"
#include "FwClient/Service/QeLaLib/HttpsHandles.h"

enum class HttpsMode { kBlocking, kAsynchronous };

// Owns the session, the connection and the request. Every operation blocks until its outcome is known, in an
// asynchronous session too. Not copyable, not shared between threads.
class HttpsRequest {
 public:
  HttpsRequest() noexcept = default;
  // Closes the request, the connection and the session, in this order. Of an asynchronous request the last report is
  // awaited (10 s at most), so that a host may unload the library afterwards.
  ~HttpsRequest();
  HttpsRequest(const HttpsRequest&) = delete;
  HttpsRequest& operator=(const HttpsRequest&) = delete;

  // Opens all three handles for `host`, port 443. `proxyServer` is null unless the access type names a proxy.
  bool Open(const std::wstring& host, DWORD accessType, const wchar_t* proxyServer, HttpsMode mode);

  // Registers the status callback and sets the time limits. False: the request cannot be used.
  bool Prepare();

  // False with the error when sending failed.
  bool Send(DWORD& error);
  bool Receive();

  HINTERNET Session() const noexcept { return m_session.get(); }
  HINTERNET Handle() const noexcept { return m_request.get(); }

 private:
  bool RegisterForCompletions();

  std::shared_ptr<HttpsCompletion> m_completion;  // only in an asynchronous session
  UniqueWinHttp m_session;
  UniqueWinHttp m_connection;
  UniqueWinHttp m_request;
  bool m_awaitClosing = false;
};

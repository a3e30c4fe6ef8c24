#include "FwClient/Service/QeLaLib/HttpsRequest.h"

#include "FwClient/Common/Utilities/FwLog.h"
#include "FwClient/Service/QeLaLib/HttpsLimits.h"

namespace {

// The first 32-bit word of the status information says what is wrong with the server's certificate. A null pointer is
// logged as 0: that the connection failed on the certificate is worth the line by itself.
void LogSecureFailure(const void* information) {
  const DWORD flags = information == nullptr ? 0 : *static_cast<const DWORD*>(information);
  FW_LOG(kLogInfo, L"Cert Error Code:%ld", flags);
}

// Runs on a thread of the system, or on the calling thread inside a WinHTTP call.
void CALLBACK OnStatus(HINTERNET, DWORD_PTR context, DWORD status, void* information, DWORD) {
  HttpsCompletion* const completion = HttpsCompletion::FromContext(context);
  switch (status) {
    case WINHTTP_CALLBACK_STATUS_SECURE_FAILURE:
      LogSecureFailure(information);
      break;
    case WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE:
    case WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE:
      if (completion != nullptr) completion->Succeeded();
      break;
    case WINHTTP_CALLBACK_STATUS_REQUEST_ERROR:
      if (completion != nullptr)
        completion->Failed(information == nullptr ? 0 : static_cast<const WINHTTP_ASYNC_RESULT*>(information)->dwError);
      break;
    case WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING:
      if (completion != nullptr) completion->Closed();
      break;
    default:
      break;
  }
}

}  // namespace

HttpsRequest::~HttpsRequest() {
  m_request.reset();
  if (m_awaitClosing) m_completion->WaitUntilClosed();
}

bool HttpsRequest::Open(const std::wstring& host, DWORD accessType, const wchar_t* proxyServer, HttpsMode mode) {
  const bool asynchronous = mode == HttpsMode::kAsynchronous;
  if (asynchronous) {
    m_completion = HttpsCompletion::Create();
    if (!m_completion) return false;
  }
  m_session.reset(::WinHttpOpen(L"WinHTTPS request", accessType, proxyServer, WINHTTP_NO_PROXY_BYPASS,
                                asynchronous ? WINHTTP_FLAG_ASYNC : 0));
  if (!m_session) return false;
  m_connection.reset(::WinHttpConnect(m_session.get(), host.c_str(), INTERNET_DEFAULT_HTTPS_PORT, 0));
  if (!m_connection) return false;
  m_request.reset(::WinHttpOpenRequest(m_connection.get(), L"GET", nullptr, nullptr, WINHTTP_NO_REFERER,
                                       WINHTTP_DEFAULT_ACCEPT_TYPES,
                                       WINHTTP_FLAG_SECURE | WINHTTP_FLAG_BYPASS_PROXY_CACHE));
  return static_cast<bool>(m_request);
}

bool HttpsRequest::Prepare() {
  if (m_completion) {
    if (!RegisterForCompletions()) return false;
  } else {
    // Only a log line depends on it, so a failure changes nothing.
    ::WinHttpSetStatusCallback(m_request.get(), OnStatus, WINHTTP_CALLBACK_FLAG_SECURE_FAILURE, 0);
  }
  return ::WinHttpSetTimeouts(m_request.get(), HttpsLimits::kResolveMs, HttpsLimits::kConnectMs, HttpsLimits::kSendMs,
                              HttpsLimits::kReceiveMs) != FALSE;
}

// An asynchronous request without its reports could only wait in vain, so each failure is final.
bool HttpsRequest::RegisterForCompletions() {
  constexpr DWORD kReports =
      WINHTTP_CALLBACK_FLAG_SECURE_FAILURE | WINHTTP_CALLBACK_FLAG_ALL_COMPLETIONS | WINHTTP_CALLBACK_FLAG_HANDLES;
  if (::WinHttpSetStatusCallback(m_request.get(), OnStatus, kReports, 0) == WINHTTP_INVALID_STATUS_CALLBACK)
    return false;
  // As an option of the handle the value also comes with the last report of a request that was never sent.
  DWORD_PTR context = HttpsCompletion::Arm(m_completion);
  m_awaitClosing = ::WinHttpSetOption(m_request.get(), WINHTTP_OPTION_CONTEXT_VALUE, &context, sizeof context) != FALSE;
  if (!m_awaitClosing) m_completion->Disarm();
  return m_awaitClosing;
}

bool HttpsRequest::Send(DWORD& error) {
  if (m_completion) m_completion->Begin();
  if (!::WinHttpSendRequest(m_request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0)) {
    error = ::GetLastError();
    return false;
  }
  error = m_completion ? m_completion->Wait() : DWORD{ERROR_SUCCESS};
  return error == ERROR_SUCCESS;
}

bool HttpsRequest::Receive() {
  if (m_completion) m_completion->Begin();
  if (!::WinHttpReceiveResponse(m_request.get(), nullptr)) return false;
  return !m_completion || m_completion->Wait() == ERROR_SUCCESS;
}

#include "FwClient/Service/QeLaLib/HttpsCompletion.h"

#include <winhttp.h>

#include <utility>

#include "FwClient/Service/QeLaLib/HttpsLimits.h"

std::shared_ptr<HttpsCompletion> HttpsCompletion::Create() {
  std::shared_ptr<HttpsCompletion> completion(new HttpsCompletion);
  completion->m_reported.reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  completion->m_closed.reset(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!completion->m_reported || !completion->m_closed) return nullptr;
  return completion;
}

DWORD_PTR HttpsCompletion::Arm(const std::shared_ptr<HttpsCompletion>& completion) noexcept {
  completion->m_self = completion;
  return reinterpret_cast<DWORD_PTR>(completion.get());
}

HttpsCompletion* HttpsCompletion::FromContext(DWORD_PTR context) noexcept {
  return reinterpret_cast<HttpsCompletion*>(context);
}

void HttpsCompletion::Begin() noexcept { ::ResetEvent(m_reported.get()); }

DWORD HttpsCompletion::Wait() noexcept {
  if (::WaitForSingleObject(m_reported.get(), HttpsLimits::kReportMs) != WAIT_OBJECT_0) return ERROR_WINHTTP_TIMEOUT;
  return m_error.load();
}

void HttpsCompletion::WaitUntilClosed() noexcept { ::WaitForSingleObject(m_closed.get(), HttpsLimits::kCloseMs); }

void HttpsCompletion::Failed(DWORD error) noexcept {
  // A failure without a code must not read as success.
  Report(error == ERROR_SUCCESS ? DWORD{ERROR_WINHTTP_INTERNAL_ERROR} : error);
}

void HttpsCompletion::Closed() noexcept {
  const std::shared_ptr<HttpsCompletion> self = std::move(m_self);
  ::SetEvent(m_closed.get());
}

void HttpsCompletion::Report(DWORD error) noexcept {
  m_error.store(error);
  ::SetEvent(m_reported.get());
}

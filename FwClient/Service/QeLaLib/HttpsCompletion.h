// Private: waiting for what an asynchronous WinHTTP request reports through its status callback.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <memory>

#include "FwClient/Common/Utilities/UniqueHandle.h"

// One thread uses a request and waits; the system's threads (or the same thread, inside a call) report. The object is
// owned by both sides: after an abandoned request a report may still come, so it lives until the system has said that
// the request's handle is closed, however long the waiting side has been gone.
class HttpsCompletion {
 public:
  // Null when Windows could not make the events.
  static std::shared_ptr<HttpsCompletion> Create();

  // The value that the system hands to the callback, as an option of the request. From here on the object waits for
  // Closed, unless Disarm says that the system never got the value.
  static DWORD_PTR Arm(const std::shared_ptr<HttpsCompletion>& completion) noexcept;
  void Disarm() noexcept { m_self.reset(); }
  // The object behind the value; null for a request without one.
  static HttpsCompletion* FromContext(DWORD_PTR context) noexcept;

  // Waiting side. Begin stands before a call, since the report may come before the call returns; Wait stands after a
  // call that returned TRUE and answers with the error that the system reported, 0 for success, or a time-out error
  // when no report came within HttpsLimits::kReportMs.
  void Begin() noexcept;
  DWORD Wait() noexcept;
  void WaitUntilClosed() noexcept;

  // Reporting side.
  void Succeeded() noexcept { Report(ERROR_SUCCESS); }
  void Failed(DWORD error) noexcept;
  // The last report: the object may be gone when this returns.
  void Closed() noexcept;

 private:
  HttpsCompletion() noexcept = default;
  void Report(DWORD error) noexcept;

  UniqueKernelHandle m_reported;
  UniqueKernelHandle m_closed;
  std::atomic<DWORD> m_error = ERROR_SUCCESS;
  std::shared_ptr<HttpsCompletion> m_self;  // the system's share
};

#include "ScriptedWindows/Windows/FakeAddressChanges.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <utility>

namespace {

HANDLE const kHandle = reinterpret_cast<HANDLE>(std::uintptr_t{0xADD0});

constexpr ULONG_PTR kStatusPending = 0x103;
constexpr ULONG_PTR kStatusCancelled = 0xC0000120;

}  // namespace

FakeAddressChanges::FakeAddressChanges(HMODULE module)
    : m_notify(module, "NotifyAddrChange", &Notify),
      m_cancel(module, "CancelIPChangeNotify", &Cancel),
      m_getResult(module, "GetOverlappedResult", &GetResult),
      m_closeEvent(module, "WSACloseEvent", &CloseEvent) {}

FakeAddressChanges::~FakeAddressChanges() { Require(m_pending.empty(), "requests are still pending"); }

std::vector<FakeAddressChanges::Request> FakeAddressChanges::Complete() {
  std::vector<Request> completed = std::exchange(m_pending, {});
  for (const Request& request : completed) {
    request.overlapped->InternalHigh = 0;
    static_cast<volatile ULONG_PTR&>(request.overlapped->Internal) = 0;
  }
  return completed;
}

// In the order of the system: first the result, then the event.
void FakeAddressChanges::Fire() {
  const std::lock_guard lock(m_mutex);
  for (const Request& request : Complete()) ::SetEvent(request.overlapped->hEvent);
}

void FakeAddressChanges::CompleteWithoutSignal() {
  const std::lock_guard lock(m_mutex);
  Complete();
}

void FakeAddressChanges::LeaveUnmarked() {
  const std::lock_guard lock(m_mutex);
  m_unmarked = true;
}

void FakeAddressChanges::Script(std::vector<Answer> answers) {
  const std::lock_guard lock(m_mutex);
  m_script.assign(answers.begin(), answers.end());
}

void FakeAddressChanges::OnRequest(std::function<void()> hook) {
  const std::lock_guard lock(m_mutex);
  m_hook = std::move(hook);
}

std::size_t FakeAddressChanges::Requests() const {
  const std::lock_guard lock(m_mutex);
  return m_requests;
}

std::size_t FakeAddressChanges::Pending() const {
  const std::lock_guard lock(m_mutex);
  return m_pending.size();
}

std::size_t FakeAddressChanges::MostPending() const {
  const std::lock_guard lock(m_mutex);
  return m_mostPending;
}

std::size_t FakeAddressChanges::Withdrawals() const {
  const std::lock_guard lock(m_mutex);
  return m_withdrawals;
}

bool FakeAddressChanges::WaitForRequests(std::size_t count) const {
  std::unique_lock lock(m_mutex);
  return m_requested.wait_for(lock, std::chrono::seconds(10), [&] { return m_requests >= count; });
}

std::size_t FakeAddressChanges::PendingOn(const OVERLAPPED* overlapped, bool withdrawn) const {
  return static_cast<std::size_t>(std::count_if(m_pending.begin(), m_pending.end(), [&](const Request& request) {
    return request.overlapped == overlapped && request.withdrawn == withdrawn;
  }));
}

DWORD WINAPI FakeAddressChanges::Notify(HANDLE* handle, OVERLAPPED* overlapped) {
  FakeAddressChanges& self = Current();
  std::function<void()> hook;
  {
    const std::lock_guard lock(self.m_mutex);
    hook = self.m_hook;
  }
  if (hook) hook();

  const std::lock_guard lock(self.m_mutex);
  Require(overlapped->hEvent != nullptr);
  Require(overlapped->Offset == 0u);
  Require(overlapped->OffsetHigh == 0u);
  if (*handle == nullptr) {
    Require(overlapped->Internal == 0u);
    Require(overlapped->InternalHigh == 0u);
  } else {
    Require(*handle == kHandle, "a handle that nobody gave out");
  }
  Answer answer{ERROR_IO_PENDING, ERROR_IO_PENDING, true};
  if (!self.m_unmarked && self.PendingOn(overlapped, false) != 0)
    answer = {ERROR_INVALID_PARAMETER, ERROR_INVALID_PARAMETER, false};
  if (!self.m_script.empty()) {
    answer = self.m_script.front();
    self.m_script.pop_front();
  }
  if (answer.pends) {
    *handle = kHandle;
    ::ResetEvent(overlapped->hEvent);
    if (!self.m_unmarked) overlapped->Internal = kStatusPending;
    self.m_pending.push_back({overlapped, false});
    self.m_mostPending = std::max(self.m_mostPending, self.PendingOn(overlapped, false));
  }
  ++self.m_requests;
  self.m_requested.notify_all();
  ::SetLastError(answer.lastError);
  return answer.result;
}

BOOL WINAPI FakeAddressChanges::Cancel(OVERLAPPED* overlapped) {
  FakeAddressChanges& self = Current();
  const std::lock_guard lock(self.m_mutex);
  bool found = false;
  for (Request& request : self.m_pending) {
    if (request.overlapped != overlapped || request.withdrawn) continue;
    request.withdrawn = found = true;
  }
  if (!found) {
    ::SetLastError(ERROR_NOT_FOUND);
    return FALSE;
  }
  ++self.m_withdrawals;
  return TRUE;
}

BOOL WINAPI FakeAddressChanges::GetResult(HANDLE handle, OVERLAPPED* overlapped, DWORD*, BOOL wait) {
  FakeAddressChanges& self = Current();
  const std::lock_guard lock(self.m_mutex);
  Require(handle == kHandle);
  Require(wait, "a withdrawal takes its time");
  if (self.PendingOn(overlapped, true) == 0) {
    Require(self.PendingOn(overlapped, false) == 0u, "a wait for a request that nobody completes");
    return TRUE;
  }
  std::erase_if(self.m_pending,
                [&](const Request& request) { return request.overlapped == overlapped && request.withdrawn; });
  if (self.PendingOn(overlapped, false) == 0) overlapped->Internal = kStatusCancelled;
  ::SetEvent(overlapped->hEvent);
  ::SetLastError(ERROR_OPERATION_ABORTED);
  return FALSE;
}

BOOL WINAPI FakeAddressChanges::CloseEvent(WSAEVENT event) {
  FakeAddressChanges& self = Current();
  {
    const std::lock_guard lock(self.m_mutex);
    for (const Request& request : self.m_pending)
      Require(request.overlapped->hEvent != event, "requests pend on an event that is closed");
  }
  return self.m_closeEvent.Original<BOOL WINAPI(WSAEVENT)>()(event);
}

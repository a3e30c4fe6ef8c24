// Address-change notifications that a test fires, in place of the system's.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/ImportTable/OnlyOne.h"

// While it lives, NotifyAddrChange, CancelIPChangeNotify and GetOverlappedResult of the module answer as Windows
// documents it: a request resets the event and stays pending on its OVERLAPPED until a change completes it or it is
// withdrawn; a withdrawal takes effect only when it has been waited for; a second request on an OVERLAPPED whose first
// one pends is refused as an invalid parameter.
//
// Complains when the protocol is broken: other arguments than the documented ones, a first OVERLAPPED that is not
// zero, an event that is closed while requests pend on it (a later change would be written into memory that is used for
// something else by then), or a wait that would never end. The event's manual reset is relied on.
class FakeAddressChanges : public OnlyOne<FakeAddressChanges> {
 public:
  struct Answer {
    DWORD result;
    DWORD lastError;
    bool pends;  // a request was made nevertheless
  };

  explicit FakeAddressChanges(HMODULE module);
  ~FakeAddressChanges();

  // An address changes: every pending request is completed.
  void Fire();
  // The first half of it: the requests are completed, their events not yet signalled.
  void CompleteWithoutSignal();

  // From now on requests do not show as pending on their OVERLAPPED, and several may pend on one.
  void LeaveUnmarked();

  // The next requests are answered so, one each.
  void Script(std::vector<Answer> answers);

  // Called at the start of each request, on the thread that makes it, without any lock of this object's.
  void OnRequest(std::function<void()> hook);

  // How many requests were ever made, also those that were refused; how many pend, and ever did at a time.
  std::size_t Requests() const;
  std::size_t Pending() const;
  std::size_t MostPending() const;

  // Successful withdrawals.
  std::size_t Withdrawals() const;

  // Waits until that many requests have been made in all. False when it takes over 10 seconds.
  bool WaitForRequests(std::size_t count) const;

 private:
  struct Request {
    OVERLAPPED* overlapped;
    bool withdrawn;
  };
  std::size_t PendingOn(const OVERLAPPED* overlapped, bool withdrawn) const;
  std::vector<Request> Complete();

  static DWORD WINAPI Notify(HANDLE* handle, OVERLAPPED* overlapped);
  static BOOL WINAPI Cancel(OVERLAPPED* overlapped);
  static BOOL WINAPI GetResult(HANDLE handle, OVERLAPPED* overlapped, DWORD* bytes, BOOL wait);
  static BOOL WINAPI CloseEvent(WSAEVENT event);

  mutable std::mutex m_mutex;
  mutable std::condition_variable m_requested;
  std::deque<Answer> m_script;
  std::function<void()> m_hook;
  bool m_unmarked = false;
  std::size_t m_requests = 0;
  std::size_t m_mostPending = 0;
  std::size_t m_withdrawals = 0;
  std::vector<Request> m_pending;
  ImportPatch m_notify;
  ImportPatch m_cancel;
  ImportPatch m_getResult;
  ImportPatch m_closeEvent;
};

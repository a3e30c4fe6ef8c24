// WinHTTP as a test scripts it: what the server, the proxy and auto-discovery answer.
#pragma once

#include "ScriptedWindows/Windows/WindowsScript.h"
// After windows.h.
#include <winhttp.h>

#include <functional>
#include <optional>
#include <thread>

// What comes of one WinHttpSendRequest.
struct HttpsAnswer {
  DWORD sendError = 0;
  DWORD receiveError = 0;
  // Null: the status cannot be queried.
  std::optional<DWORD> status = std::nullopt;
  // What WinHttpQueryAuthSchemes tells. Null: it fails.
  std::optional<DWORD> schemes = std::nullopt;
  // Called before the answer with the request's status callback.
  std::function<void(WINHTTP_STATUS_CALLBACK callback, HINTERNET request)> before = nullptr;

  static HttpsAnswer Status(DWORD status) { return {.status = status}; }
  static HttpsAnswer SendFails(DWORD error) { return {.sendError = error}; }
  static HttpsAnswer ReceiveFails(DWORD error) { return {.receiveError = error}; }
  static HttpsAnswer ProxyAsks(std::optional<DWORD> schemes) { return {.status = 407, .schemes = schemes}; }
};

// How the reports of an asynchronous request come.
enum class Reports {
  kInsideTheCall,  // on the calling thread, before the call returns
  kFromAnotherThread,
  kNever,  // neither a completion nor the closing of the handle
};

class FakeHttps : public OnlyOne<FakeHttps> {
 public:
  explicit FakeHttps(WindowsScript& script);
  ~FakeHttps();

  // One answer a send; the last is repeated. Without any, every request gets status 200.
  std::deque<HttpsAnswer> answers;
  Reports reports = Reports::kInsideTheCall;
  // Errors of the next calls of WinHttpGetProxyForUrl; after them it succeeds with these texts.
  std::deque<DWORD> discoveryErrors;
  std::wstring discoveredProxy = L"proxy.test:8888";
  std::wstring discoveredBypass = L"<local>";
  // Whether the sending thread acts as the user; asked at every send.
  std::function<bool()> impersonating = [] { return false; };

  // Makes the reports that kNever held back, ERROR_WINHTTP_OPERATION_CANCELLED first.
  void ReportLate();
  // A report that nobody asked for, with the context that the request was given.
  void Report(DWORD status, void* information);

 private:
  static HINTERNET WINAPI Open(LPCWSTR, DWORD, LPCWSTR, LPCWSTR, DWORD);
  static HINTERNET WINAPI Connect(HINTERNET, LPCWSTR, INTERNET_PORT, DWORD);
  static HINTERNET WINAPI OpenRequest(HINTERNET, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR, LPCWSTR*, DWORD);
  static WINHTTP_STATUS_CALLBACK WINAPI SetStatusCallback(HINTERNET, WINHTTP_STATUS_CALLBACK, DWORD, DWORD_PTR);
  static BOOL WINAPI SetTimeouts(HINTERNET, int, int, int, int);
  static BOOL WINAPI SetOption(HINTERNET, DWORD, LPVOID, DWORD);
  static BOOL WINAPI SetCredentials(HINTERNET, DWORD, DWORD, LPCWSTR, LPCWSTR, LPVOID);
  static BOOL WINAPI SendRequest(HINTERNET, LPCWSTR, DWORD, LPVOID, DWORD, DWORD, DWORD_PTR);
  static BOOL WINAPI ReceiveResponse(HINTERNET, LPVOID);
  static BOOL WINAPI QueryHeaders(HINTERNET, DWORD, LPCWSTR, LPVOID, LPDWORD, LPDWORD);
  static BOOL WINAPI QueryAuthSchemes(HINTERNET, LPDWORD, LPDWORD, LPDWORD);
  static BOOL WINAPI GetProxyForUrl(HINTERNET, LPCWSTR, WINHTTP_AUTOPROXY_OPTIONS*, WINHTTP_PROXY_INFO*);
  static BOOL WINAPI CloseHandle(HINTERNET);

  // The outcome of a call that failed with `error` (0: succeeded), in the way of the request's session.
  BOOL Finish(DWORD error, DWORD completion);
  void ReportSoon(DWORD status, DWORD error);

  WindowsScript& m_script;
  bool m_asynchronous = false;
  HINTERNET m_request = nullptr;
  WINHTTP_STATUS_CALLBACK m_callback = nullptr;
  DWORD m_reportFlags = 0;
  DWORD_PTR m_context = 0;
  HttpsAnswer m_answer;
  std::deque<std::thread> m_threads;
  std::deque<ImportPatch> m_patches;
};

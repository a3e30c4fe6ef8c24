#include "ScriptedWindows/Windows/FakeHttps.h"

#include <format>

namespace {

std::string Text(const wchar_t* text) { return WindowsScript::Text(text); }

}  // namespace

FakeHttps::FakeHttps(WindowsScript& script) : m_script(script) {
  const HMODULE module = script.Module();
  m_patches.emplace_back(module, "WinHttpOpen", &FakeHttps::Open);
  m_patches.emplace_back(module, "WinHttpConnect", &FakeHttps::Connect);
  m_patches.emplace_back(module, "WinHttpOpenRequest", &FakeHttps::OpenRequest);
  m_patches.emplace_back(module, "WinHttpSetStatusCallback", &FakeHttps::SetStatusCallback);
  m_patches.emplace_back(module, "WinHttpSetTimeouts", &FakeHttps::SetTimeouts);
  m_patches.emplace_back(module, "WinHttpSetOption", &FakeHttps::SetOption);
  m_patches.emplace_back(module, "WinHttpSetCredentials", &FakeHttps::SetCredentials);
  m_patches.emplace_back(module, "WinHttpSendRequest", &FakeHttps::SendRequest);
  m_patches.emplace_back(module, "WinHttpReceiveResponse", &FakeHttps::ReceiveResponse);
  m_patches.emplace_back(module, "WinHttpQueryHeaders", &FakeHttps::QueryHeaders);
  m_patches.emplace_back(module, "WinHttpQueryAuthSchemes", &FakeHttps::QueryAuthSchemes);
  m_patches.emplace_back(module, "WinHttpGetProxyForUrl", &FakeHttps::GetProxyForUrl);
  m_patches.emplace_back(module, "WinHttpCloseHandle", &FakeHttps::CloseHandle);
}

FakeHttps::~FakeHttps() {
  for (std::thread& thread : m_threads) thread.join();
}

HINTERNET WINAPI FakeHttps::Open(LPCWSTR agent, DWORD access, LPCWSTR proxy, LPCWSTR bypass, DWORD flags) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current().m_script;
  if (!script.Enter("WinHttpOpen", std::format("{}, {}, {}, {}, {}", Text(agent), access, Text(proxy), Text(bypass),
                                               WindowsScript::Hex(flags))))
    return nullptr;
  Current().m_asynchronous = (flags & WINHTTP_FLAG_ASYNC) != 0;
  return script.Open("session", "WinHttpCloseHandle");
}

HINTERNET WINAPI FakeHttps::Connect(HINTERNET session, LPCWSTR host, INTERNET_PORT port, DWORD) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current().m_script;
  if (!script.Enter("WinHttpConnect", std::format("{}, {}, {}", script.Name(session), Text(host), port)))
    return nullptr;
  return script.Open("connection", "WinHttpCloseHandle");
}

HINTERNET WINAPI FakeHttps::OpenRequest(HINTERNET connection, LPCWSTR verb, LPCWSTR object, LPCWSTR version,
                                        LPCWSTR referrer, LPCWSTR* types, DWORD flags) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current().m_script;
  Require(types == nullptr);
  if (!script.Enter("WinHttpOpenRequest",
                    std::format("{}, {}, {}, {}, {}, {}", script.Name(connection), Text(verb), Text(object),
                                Text(version), Text(referrer), WindowsScript::Hex(flags))))
    return nullptr;
  FakeHttps& self = Current();
  self.m_callback = nullptr;
  self.m_reportFlags = 0;
  self.m_context = 0;
  return self.m_request = script.Open("request", "WinHttpCloseHandle");
}

WINHTTP_STATUS_CALLBACK WINAPI FakeHttps::SetStatusCallback(HINTERNET request, WINHTTP_STATUS_CALLBACK callback,
                                                            DWORD flags, DWORD_PTR) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current().m_script;
  if (!script.Enter("WinHttpSetStatusCallback", std::format("{}, {}", script.Name(request), WindowsScript::Hex(flags))))
    return WINHTTP_INVALID_STATUS_CALLBACK;
  Current().m_callback = callback;
  Current().m_reportFlags = flags;
  return nullptr;
}

BOOL WINAPI FakeHttps::SetTimeouts(HINTERNET request, int resolve, int connect, int send, int receive) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current().m_script;
  return script.Enter("WinHttpSetTimeouts",
                      std::format("{}, {}, {}, {}, {}", script.Name(request), resolve, connect, send, receive));
}

BOOL WINAPI FakeHttps::SetOption(HINTERNET request, DWORD option, LPVOID value, DWORD size) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current().m_script;
  std::string text;
  switch (option) {
    case WINHTTP_OPTION_CONTEXT_VALUE:
      Require(*static_cast<DWORD_PTR*>(value) != 0u);
      text = "context";
      break;
    case WINHTTP_OPTION_PROXY: {
      const auto& info = *static_cast<const WINHTTP_PROXY_INFO*>(value);
      text = std::format("{} {} {}", info.dwAccessType, Text(info.lpszProxy), Text(info.lpszProxyBypass));
      break;
    }
    case WINHTTP_OPTION_CLIENT_CERT_CONTEXT:
      text = script.Name(value);
      break;
    case WINHTTP_OPTION_PROXY_USERNAME:
      // The length counts characters.
      text = WindowsScript::Text(std::wstring(static_cast<const wchar_t*>(value), size));
      break;
    default:
      Complain("an unexpected option was set: " + std::to_string(option));
  }
  if (!script.Enter("WinHttpSetOption", std::format("{}, {}, {}, {}", script.Name(request), option, text, size)))
    return FALSE;
  if (option == WINHTTP_OPTION_CONTEXT_VALUE) Current().m_context = *static_cast<DWORD_PTR*>(value);
  return TRUE;
}

BOOL WINAPI FakeHttps::SetCredentials(HINTERNET request, DWORD target, DWORD scheme, LPCWSTR user, LPCWSTR password,
                                      LPVOID parameters) {
  const HeapWatch::Pause pause;
  WindowsScript& script = Current().m_script;
  Require(parameters == nullptr);
  return script.Enter("WinHttpSetCredentials", std::format("{}, {}, {}, {}, {}", script.Name(request), target, scheme,
                                                           Text(user), Text(password)));
}

BOOL WINAPI FakeHttps::SendRequest(HINTERNET request, LPCWSTR headers, DWORD headersLength, LPVOID body,
                                   DWORD bodyLength, DWORD totalLength, DWORD_PTR context) {
  const HeapWatch::Pause pause;
  FakeHttps& self = Current();
  Require(headers == nullptr);
  Require(body == nullptr);
  Require(headersLength + bodyLength + totalLength + context == 0u);
  const bool enters = self.m_script.Enter("WinHttpSendRequest",
                                          self.m_script.Name(request) + (self.impersonating() ? ", as the user" : ""));
  if (!enters) return FALSE;
  self.m_answer = self.answers.empty() ? HttpsAnswer::Status(200) : self.answers.front();
  if (self.answers.size() > 1) self.answers.pop_front();
  if (self.m_answer.before) self.m_answer.before(self.m_callback, request);
  return self.Finish(self.m_answer.sendError, WINHTTP_CALLBACK_STATUS_SENDREQUEST_COMPLETE);
}

BOOL WINAPI FakeHttps::ReceiveResponse(HINTERNET request, LPVOID reserved) {
  const HeapWatch::Pause pause;
  FakeHttps& self = Current();
  Require(reserved == nullptr);
  if (!self.m_script.Enter("WinHttpReceiveResponse", self.m_script.Name(request))) return FALSE;
  return self.Finish(self.m_answer.receiveError, WINHTTP_CALLBACK_STATUS_HEADERS_AVAILABLE);
}

BOOL WINAPI FakeHttps::QueryHeaders(HINTERNET request, DWORD level, LPCWSTR name, LPVOID buffer, LPDWORD size,
                                    LPDWORD index) {
  const HeapWatch::Pause pause;
  FakeHttps& self = Current();
  Require(name == nullptr);
  Require(index == nullptr);
  Require(*size == sizeof(DWORD));
  Require(*static_cast<DWORD*>(buffer) == 0u, "a failed query must leave 0");
  const bool enters = self.m_script.Enter(
      "WinHttpQueryHeaders", std::format("{}, {}", self.m_script.Name(request), WindowsScript::Hex(level)));
  if (!enters || !self.m_answer.status) return FALSE;
  *static_cast<DWORD*>(buffer) = *self.m_answer.status;
  return TRUE;
}

BOOL WINAPI FakeHttps::QueryAuthSchemes(HINTERNET request, LPDWORD supported, LPDWORD first, LPDWORD target) {
  const HeapWatch::Pause pause;
  FakeHttps& self = Current();
  const bool enters = self.m_script.Enter("WinHttpQueryAuthSchemes", self.m_script.Name(request));
  if (!enters || !self.m_answer.schemes) return FALSE;
  *supported = *self.m_answer.schemes;
  *first = *supported & (~*supported + 1);
  *target = WINHTTP_AUTH_TARGET_PROXY;
  return TRUE;
}

BOOL WINAPI FakeHttps::GetProxyForUrl(HINTERNET session, LPCWSTR url, WINHTTP_AUTOPROXY_OPTIONS* options,
                                      WINHTTP_PROXY_INFO* info) {
  const HeapWatch::Pause pause;
  FakeHttps& self = Current();
  const bool enters =
      self.m_script.Enter("WinHttpGetProxyForUrl",
                          std::format("{}, {}, flags {}, detect {}, script {}, log on {}", self.m_script.Name(session),
                                      Text(url), options->dwFlags, options->dwAutoDetectFlags,
                                      Text(options->lpszAutoConfigUrl), options->fAutoLogonIfChallenged));
  if (!enters) return FALSE;
  if (!self.discoveryErrors.empty()) {
    ::SetLastError(self.discoveryErrors.front());
    self.discoveryErrors.pop_front();
    return FALSE;
  }
  info->dwAccessType = WINHTTP_ACCESS_TYPE_NAMED_PROXY;
  info->lpszProxy = self.m_script.GlobalText("proxy text", self.discoveredProxy);
  info->lpszProxyBypass = self.m_script.GlobalText("bypass text", self.discoveredBypass);
  return TRUE;
}

BOOL WINAPI FakeHttps::CloseHandle(HINTERNET handle) {
  const HeapWatch::Pause pause;
  FakeHttps& self = Current();
  self.m_script.Close("WinHttpCloseHandle", handle);
  if (handle == self.m_request) self.ReportSoon(WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING, 0);
  return TRUE;
}

BOOL FakeHttps::Finish(DWORD error, DWORD completion) {
  if (!m_asynchronous) {
    ::SetLastError(error);
    return error == ERROR_SUCCESS;
  }
  // Misleading on purpose: in an asynchronous session the error comes with the report.
  ::SetLastError(ERROR_INVALID_DATA);
  ReportSoon(error == ERROR_SUCCESS ? completion : DWORD{WINHTTP_CALLBACK_STATUS_REQUEST_ERROR}, error);
  return TRUE;
}

void FakeHttps::ReportSoon(DWORD status, DWORD error) {
  // As Windows does: only what was asked for, and the last report only to a request with a context.
  if (m_callback == nullptr || (m_reportFlags & status) == 0) return;
  if (status == WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING && m_context == 0) return;
  const auto report = [this, status, error] {
    WINHTTP_ASYNC_RESULT result{.dwResult = API_SEND_REQUEST, .dwError = error};
    Report(status, &result);
  };
  if (reports == Reports::kInsideTheCall) report();
  if (reports == Reports::kFromAnotherThread) m_threads.emplace_back(report);
}

void FakeHttps::Report(DWORD status, void* information) {
  m_callback(m_request, m_context, status, information, sizeof(WINHTTP_ASYNC_RESULT));
}

void FakeHttps::ReportLate() {
  WINHTTP_ASYNC_RESULT result{.dwResult = API_SEND_REQUEST, .dwError = ERROR_WINHTTP_OPERATION_CANCELLED};
  Report(WINHTTP_CALLBACK_STATUS_REQUEST_ERROR, &result);
  Report(WINHTTP_CALLBACK_STATUS_HANDLE_CLOSING, nullptr);
}

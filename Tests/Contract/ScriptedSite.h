// The world that probes ask: a registry key, the list of management servers, DNS and web hosts, as a scene has them.
#pragma once

#include <winsock2.h>
#include <windows.h>
#include <windns.h>
#include <winhttp.h>

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>

#include "FwClient/Common/Utilities/LenientUtf.h"
#include "ScriptedWindows/ImportTable/ImportPatch.h"
#include "ScriptedWindows/Windows/ScriptedRegistry.h"
#include "Tests/Support/StoredSet.h"

struct SiteAnswers {
  bool hasSite = true;     // the key SOFTWARE\Site, without a view being named
  bool hasSite64 = false;  // in the 64-bit view
  std::wstring servers = L"srv1.example|10.0.0.1|443;srv2.example|10.0.0.2|443";
  std::set<std::wstring> knownToDns;
  std::set<std::wstring> httpsHosts;          // answer with 200
  std::map<std::wstring, DWORD> httpsStatus;  // answer with this
  std::map<std::wstring, DWORD> httpsErrors;  // cannot be sent to, for this reason
};

// While it lives. One at a time. Has no interactive user, which it finds out without a process.
class ScriptedSite {
 public:
  static constexpr wchar_t kSiteKey[] = L"SOFTWARE\\Site";
  static constexpr wchar_t kAgentKey[] = L"SOFTWARE\\Quillon\\Mervo\\Shared Components\\Framework";

  ScriptedSite(HMODULE module, StoredRegistry& registry)
      : m_registry(registry),
        m_dns(module, "DnsQuery_W", &QueryDns),
        m_session(module, "WinHttpOpen", &OpenSession),
        m_connect(module, "WinHttpConnect", &Connect),
        m_request(module, "WinHttpOpenRequest", &OpenRequest),
        m_callback(module, "WinHttpSetStatusCallback", &SetCallback),
        m_timeouts(module, "WinHttpSetTimeouts", &SetTimeouts),
        m_send(module, "WinHttpSendRequest", &SendRequest),
        m_receive(module, "WinHttpReceiveResponse", &ReceiveResponse),
        m_headers(module, "WinHttpQueryHeaders", &QueryHeaders),
        m_closeInternet(module, "WinHttpCloseHandle", &CloseInternet),
        m_version(module, "GetVersionExW", &NoVersion),
        m_snapshot(module, "CreateToolhelp32Snapshot", &NoSnapshot) {}
  ~ScriptedSite() {
    s_answers = {};
    s_onQuestion = nullptr;
  }
  ScriptedSite(const ScriptedSite&) = delete;
  ScriptedSite& operator=(const ScriptedSite&) = delete;

  void Set(const SiteAnswers& answers) {
    s_answers = answers;
    m_registry.SetText(kAgentKey, L"ZeltServerList", answers.servers);
  }
  // To be called when the library opens a key: what is there depends on the view.
  void OnOpenKey(const ScriptedRegistry::Call& call) {
    if (call.name != kSiteKey) return;
    m_registry.RemoveKey(kSiteKey);
    if (!((call.access & KEY_WOW64_64KEY) != 0 ? s_answers.hasSite64 : s_answers.hasSite)) return;
    const DWORD level = 3;
    m_registry.SetText(kSiteKey, L"", L"default");
    m_registry.SetText(kSiteKey, L"Name", L"Office");
    m_registry.Set(kSiteKey, L"Level", REG_DWORD, &level, sizeof level);
  }
  // Is told each question to DNS and to a web host.
  void OnQuestion(std::function<void(const std::string& question)> onQuestion) { s_onQuestion = std::move(onQuestion); }

 private:
  static void Ask(const std::string& question) {
    if (s_onQuestion) s_onQuestion(question);
  }

  static DNS_STATUS WINAPI QueryDns(const wchar_t* name, WORD, DWORD, void*, PDNS_RECORD* records, void**) {
    Ask("dns " + LenientUtf::ToUtf8(name));
    *records = nullptr;
    return s_answers.knownToDns.contains(name) ? 0 : DNS_ERROR_RCODE_NAME_ERROR;
  }

  // A network on which a host either answers with 200 at once or cannot be connected to.
  static HINTERNET AnyHandle() { return reinterpret_cast<HINTERNET>(std::uintptr_t{0x1E00}); }
  static HINTERNET WINAPI OpenSession(const wchar_t*, DWORD accessType, const wchar_t*, const wchar_t*, DWORD) {
    return accessType == WINHTTP_ACCESS_TYPE_DEFAULT_PROXY ? AnyHandle() : nullptr;
  }
  static HINTERNET WINAPI Connect(HINTERNET, const wchar_t* host, INTERNET_PORT, DWORD) {
    Ask("https " + LenientUtf::ToUtf8(host));
    s_askedHost = host;
    return s_answers.httpsHosts.contains(host) || s_answers.httpsStatus.contains(host) ||
                   s_answers.httpsErrors.contains(host)
               ? AnyHandle()
               : nullptr;
  }
  static HINTERNET WINAPI OpenRequest(HINTERNET, const wchar_t*, const wchar_t*, const wchar_t*, const wchar_t*,
                                      const wchar_t**, DWORD) {
    return AnyHandle();
  }
  static WINHTTP_STATUS_CALLBACK WINAPI SetCallback(HINTERNET, WINHTTP_STATUS_CALLBACK, DWORD, DWORD_PTR) {
    return nullptr;
  }
  static BOOL WINAPI SetTimeouts(HINTERNET, int, int, int, int) { return TRUE; }
  static BOOL WINAPI SendRequest(HINTERNET, const wchar_t*, DWORD, void*, DWORD, DWORD, DWORD_PTR) {
    const auto error = s_answers.httpsErrors.find(s_askedHost);
    if (error == s_answers.httpsErrors.end()) return TRUE;
    ::SetLastError(error->second);
    return FALSE;
  }
  static BOOL WINAPI ReceiveResponse(HINTERNET, void*) { return TRUE; }
  static BOOL WINAPI QueryHeaders(HINTERNET, DWORD, const wchar_t*, void* status, DWORD*, DWORD*) {
    const auto scripted = s_answers.httpsStatus.find(s_askedHost);
    *static_cast<DWORD*>(status) = scripted == s_answers.httpsStatus.end() ? 200 : scripted->second;
    return TRUE;
  }
  static BOOL WINAPI CloseInternet(HINTERNET) { return TRUE; }
  // No interactive user, found out without a process.
  static BOOL WINAPI NoVersion(OSVERSIONINFOW*) { return FALSE; }
  static HANDLE WINAPI NoSnapshot(DWORD, DWORD) { return INVALID_HANDLE_VALUE; }

  static inline SiteAnswers s_answers;
  static inline std::wstring s_askedHost;  // that was connected to last
  static inline std::function<void(const std::string&)> s_onQuestion;

  StoredRegistry& m_registry;
  ImportPatch m_dns, m_session, m_connect, m_request, m_callback, m_timeouts, m_send, m_receive, m_headers,
      m_closeInternet, m_version, m_snapshot;
};

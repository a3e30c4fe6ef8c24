// Private: how long an HTTPS request may take. Milliseconds.
#pragma once

#include <winsock2.h>
#include <windows.h>

namespace HttpsLimits {

// What every request sets with WinHttpSetTimeouts.
inline constexpr int kResolveMs = 10000;
inline constexpr int kConnectMs = 10000;
inline constexpr int kSendMs = 10000;
inline constexpr int kReceiveMs = 10000;

// What WinHTTP adds by itself, as its documentation gives the defaults, which nothing here changes.
// WINHTTP_OPTION_CONNECT_RETRIES: so many addresses of a host are tried, each with the whole limit to connect.
inline constexpr DWORD kAddresses = 5;
// WINHTTP_OPTION_RECEIVE_RESPONSE_TIMEOUT: for all headers of an answer. It is looked at only when something arrives,
// so that the limit to receive may come on top.
inline constexpr DWORD kAllHeadersMs = 90000;
// WINHTTP_OPTION_MAX_HTTP_AUTOMATIC_REDIRECTS: each is a new host, and so a whole round again.
inline constexpr DWORD kRedirects = 10;

inline constexpr DWORD kAnswerMs = kAllHeadersMs + kReceiveMs;     // 100 s
inline constexpr DWORD kAddressesMs = kAddresses * kConnectMs;     // 50 s
inline constexpr DWORD kTunnelMs = kSendMs + kAnswerMs;            // 110 s: the proxy is asked to connect, and answers
inline constexpr DWORD kHandshakeMs = 2 * (kSendMs + kReceiveMs);  // 40 s: the two flights each way of TLS 1.2
inline constexpr DWORD kRoundMs =                                  // 320 s
    kResolveMs + kAddressesMs + kTunnelMs + kHandshakeMs + kSendMs + kAnswerMs;
inline constexpr DWORD kRequestMs = (1 + kRedirects) * kRoundMs;  // 3,520 s
static_assert(kRequestMs == 3'520'000, "Docs/timeouts.md gives this figure, and what follows from it");

// The longest wait for the report of one asynchronous call. Whatever WinHTTP reports when its own limits are over still
// comes in time, so that an attempt through a proxy never fails where a blocking one would go on. The limit is there
// for a report that is never made: it must not hold the service for ever.
inline constexpr DWORD kReserveMs = 60000;
inline constexpr DWORD kReportMs = kRequestMs + kReserveMs;  // 3,580 s
// The longest wait for the last report of a closed request.
inline constexpr DWORD kCloseMs = 10000;

}  // namespace HttpsLimits

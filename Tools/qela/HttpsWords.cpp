#include "HttpsWords.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>

namespace {

struct ErrorWords {
  std::uint32_t error;
  const char* meaning;
};
// The errors of a request that can be told in a few words.
constexpr ErrorWords kErrors[] = {
    {ERROR_WINHTTP_TIMEOUT, "no answer in time"},
    {ERROR_WINHTTP_NAME_NOT_RESOLVED, "DNS does not know the name"},
    {ERROR_WINHTTP_CANNOT_CONNECT, "no connection to port 443"},
    {ERROR_WINHTTP_CONNECTION_ERROR, "the connection was cut"},
    {ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED, "the host asks for a client certificate"},
    {ERROR_WINHTTP_INVALID_SERVER_RESPONSE, "the answer is not HTTP"},
    {ERROR_WINHTTP_SECURE_CHANNEL_ERROR, "TLS failed: the certificate does not pass, or no common protocol version"},
    {ERROR_WINHTTP_SECURE_FAILURE, "the certificate does not pass"},
    {ERROR_WINHTTP_SECURE_INVALID_CA, "the certificate does not chain to a root that is trusted here"},
    {ERROR_WINHTTP_SECURE_CERT_CN_INVALID, "the certificate is for another name"},
    {ERROR_WINHTTP_SECURE_CERT_DATE_INVALID, "the certificate is not valid at this time"},
    {ERROR_WINHTTP_AUTODETECTION_FAILED, "no proxy was found automatically"},
};
constexpr ErrorWords kCertificateFlags[] = {
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REV_FAILED, "its revocation could not be checked"},
    {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CERT, "it is not valid"},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_REVOKED, "it is revoked"},
    {WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA, "it does not chain to a root that is trusted here"},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID, "it is for another name"},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID, "it is not valid at this time"},
    {WINHTTP_CALLBACK_STATUS_FLAG_CERT_WRONG_USAGE, "it is for another use"},
    {WINHTTP_CALLBACK_STATUS_FLAG_SECURITY_CHANNEL_ERROR, "the TLS library failed"},
};

constexpr std::uint32_t kStatusUnauthorized = 401;
constexpr std::uint32_t kStatusProxyAuthentication = 407;

const ErrorWords* FindError(std::uint32_t error) {
  const auto* const found = std::find_if(std::begin(kErrors), std::end(kErrors),
                                         [&](const ErrorWords& known) { return known.error == error; });
  return found == std::end(kErrors) ? nullptr : found;
}

std::string InWords(const LoggedHostProbe::Request& request) {
  const std::string code = std::to_string(request.code);
  if (!request.wasSent) {
    const ErrorWords* const known = FindError(request.code);
    return "error " + code + (known == nullptr ? "" : std::string(" (") + known->meaning + ")");
  }
  if (request.code == HTTP_STATUS_OK) return "it answered with status 200";
  if (request.code == kStatusUnauthorized) return "it answered with status 401, which counts";
  if (request.code == kStatusProxyAuthentication) return "the proxy asks for a log-on (status 407)";
  return "it answered with status " + code + ", where only 200 and 401 count";
}

// Requests that are repeated with a certificate or a log-on are one attempt.
std::size_t Attempts(const std::vector<LoggedHostProbe::Request>& requests) {
  return static_cast<std::size_t>(
      std::count_if(requests.begin(), requests.end(), [](const LoggedHostProbe::Request& request) {
        return request.code != (request.wasSent ? kStatusProxyAuthentication : ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED);
      }));
}

}  // namespace

// Up to three attempts are made, which the log does not name; one that does not get as far as sending, or whose answer
// is cut, leaves no line. Only where all three have left theirs is it known which is which.
std::vector<std::string> InWords(const LoggedHostProbe& probe) {
  constexpr const char* kAttempts[] = {"directly: ", "by a proxy found automatically: ", "by the user's proxy: "};
  std::vector<std::string> words;
  const bool areAllThere =
      probe.requests.size() == std::size(kAttempts) && Attempts(probe.requests) == std::size(kAttempts);
  for (std::size_t i = 0; i < probe.requests.size(); ++i) {
    const std::string request = InWords(probe.requests[i]);
    // Where attempts cannot be told apart, as many as ended in the same way are one.
    std::size_t same = 1;
    while (!areAllThere && i + 1 < probe.requests.size() && InWords(probe.requests[i + 1]) == request) ++i, ++same;
    words.push_back((areAllThere ? kAttempts[i] : "") + request +
                    (same == 1 ? "" : ", " + std::to_string(same) + " times"));
  }
  for (const std::uint32_t flags : probe.certificateErrors) {
    std::string meanings;
    for (const auto& [flag, meaning] : kCertificateFlags)
      if ((flags & flag) != 0) meanings += (meanings.empty() ? "" : ", ") + std::string(meaning);
    words.push_back("its certificate was refused" + (meanings.empty() ? "" : ": " + meanings) + " (flags " +
                    std::to_string(flags) + ")");
  }
  if (probe.requests.empty() && !probe.answer)
    words.emplace_back("no request has left a line: none could be sent, or the answer was cut");
  return words;
}

std::string AdviceFor(const LoggedHostProbe::Request& request) {
  if (request.wasSent) return "the host must answer \"GET /\" with 200 or 401";
  switch (request.code) {
    case ERROR_WINHTTP_NAME_NOT_RESOLVED:
      return "DNS must know the name here";
    case ERROR_WINHTTP_TIMEOUT:
    case ERROR_WINHTTP_CANNOT_CONNECT:
      return "port 443 of the host must be reachable from here";
    case ERROR_WINHTTP_SECURE_CHANNEL_ERROR:
    case ERROR_WINHTTP_SECURE_FAILURE:
    case ERROR_WINHTTP_SECURE_INVALID_CA:
    case ERROR_WINHTTP_SECURE_CERT_CN_INVALID:
    case ERROR_WINHTTP_SECURE_CERT_DATE_INVALID:
      return "the host's certificate must be for its name, valid today, and chain to a root that the machine trusts";
    default:
      return {};
  }
}

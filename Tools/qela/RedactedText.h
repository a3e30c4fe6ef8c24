// Free text without what a redaction knows and what looks like a name or an address.
#pragma once

#include <winsock2.h>
// After winsock2.h, which it needs.
#include <ws2tcpip.h>

#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "Redaction.h"

// `known` are the texts in lower case that the redaction has met, and grows with what it meets.
std::wstring RedactedText(Redaction& redaction, const std::unordered_map<std::wstring, std::wstring>& known,
                          std::wstring_view text);

// What both of them recognise.
std::wstring InLowerCase(std::wstring_view text);  // unit by unit
std::optional<IN6_ADDR> ReadIpv6(const std::wstring& text);
bool IsHive(const std::wstring& text);  // in full or abbreviated

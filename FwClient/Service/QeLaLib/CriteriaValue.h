// Normal form of a criterion's text.
#pragma once

#include <string>

// Returns the form in which a text criterion is stored and looked up: an IPv4-mapped IPv6 address in full form
// ("0000:0000:0000:0000:0000:ffff:c0a8:0101", any letter case) becomes the dotted IPv4 address that it carries, so
// that both spellings of one server are one criterion. Every other text is returned as it is.
std::wstring NormalizeCriteriaValue(const std::wstring& value);

// Whether the text is its own normal form.
bool IsNormalCriteriaValue(const std::wstring& value);

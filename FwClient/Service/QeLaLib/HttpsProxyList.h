// The HTTPS entry of a user's proxy list.
#pragma once

#include <string>

// Returns the proxy server text for HTTPS from a list such as "http=p1:80;https=p2:443"; a list that names no "https"
// (compared exactly), or has no "=" behind that name, is a text for every scheme and comes back whole.
//
// What follows the HTTPS entry may come along: "http=p1:80;https=p2:443;ftp=p3:21" gives "p2:443;ftp=p3:21".
std::wstring GetHttpsProxyFromList(const std::wstring& list);

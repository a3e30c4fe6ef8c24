// The list of management servers, as the local management agent keeps it in the registry.
#pragma once

#include <string>
#include <vector>

// The host names of the list, in its order, duplicates kept. Entries end with ";", their fields with "|"; fields come
// in groups of three, the first of which is a host name (an empty one too). An empty entry has none.
std::vector<std::wstring> ParseZeltServerList(const std::wstring& text);

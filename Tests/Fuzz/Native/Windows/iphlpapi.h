#pragma once

#include <winsock2.h>

// NOLINTBEGIN(readability-identifier-naming): Windows' names
// Only declared.
struct IP_ADAPTER_ADDRESSES;
struct SOCKET_ADDRESS;
// NOLINTEND(readability-identifier-naming)

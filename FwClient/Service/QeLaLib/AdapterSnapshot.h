// Turns the system's adapter list into AdapterProps records. The functions are declared here for their tests; the
// service takes the snapshot itself (CQeLaLib::BuildAdapterSnapshot, in the source file of this name).
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <iphlpapi.h>

#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"

// Appends a record for every adapter of the list that is up and is not the loopback adapter, in list order.
void AppendAdapters(const IP_ADAPTER_ADDRESSES* first, std::vector<AdapterProps>& adapters);

// The text of an IPv4 or IPv6 address; empty for a null address and for any other family.
std::wstring SocketAddressToText(const SOCKET_ADDRESS& address);

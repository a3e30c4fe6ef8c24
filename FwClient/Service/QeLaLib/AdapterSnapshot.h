// The machine's network adapters as a value: a list of AdapterProps records.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <iphlpapi.h>

#include <memory>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"

// A snapshot that nobody changes: holding it is a copy of it.
using SharedAdapters = std::shared_ptr<const std::vector<AdapterProps>>;

// The snapshot of no adapter, which needs no memory.
SharedAdapters NoAdapters() noexcept;

enum class AdapterSnapshotResult {
  kTaken,
  kNoAdapters,  // the system refused, or has none that counts
  kNoMemory,    // another try may find more
};

// Asks the system for its adapters and turns them into records. The snapshot holds at least one after kTaken and none
// otherwise. Logs the system's success; throws nothing.
AdapterSnapshotResult TakeAdapterSnapshot(SharedAdapters& snapshot);

// Writes the properties of every adapter to the log.
void LogAdapters(const std::vector<AdapterProps>& adapters);

// The next two are declared for their tests.

// Appends a record for every adapter of the list that is up and is not the loopback adapter, in list order.
void AppendAdapters(const IP_ADAPTER_ADDRESSES* first, std::vector<AdapterProps>& adapters);

// The text of an IPv4 or IPv6 address; empty for a null address and for any other family.
std::wstring SocketAddressToText(const SOCKET_ADDRESS& address);

// What a host may ask about the adapters of the last calculation. The functions are declared here for their tests; the
// service's operations stand in the source file of this name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterProps.h"

// As _IQeLaApiSmart::IsAdapterMediaType. Logs each adapter that is looked at, listed or not.
bool IsAnyAdapterOfMediaType(const std::vector<AdapterProps>& adapters, std::uint8_t mask,
                             const std::vector<std::uint32_t>& ifIndexes);

// The physical addresses of all adapters, in order.
std::vector<std::wstring> CollectMacAddresses(const std::vector<AdapterProps>& adapters);

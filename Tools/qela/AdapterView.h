// The adapters as the library sees them, asked for without a service.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "FwClient/Service/QeLaLib/AdapterSnapshot.h"

// The adapters of this moment; none when the system has none that counts. Throws CommandError when it refuses for want
// of memory.
SharedAdapters TakeAdapters();

// "wired", "wireless", "virtual" or "other".
const char* MediaName(const AdapterProps& adapter);

// Empty when no adapter has the index.
std::wstring DescriptionOf(const std::vector<AdapterProps>& adapters, std::uint32_t index);

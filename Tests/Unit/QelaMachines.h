// Locations, machines and failures, as the tests of recorded machines write them down.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "Tests/Support/CommandFailure.h"
#include "Tools/qela/LocationSet.h"
#include "Tools/qela/MachineSnapshot.h"

// Its ID is its name with "id-" in front.
inline CQeLocation Location(const std::wstring& name,
                            const std::map<LOCATION_CRITERIA_TYPE, std::vector<std::wstring>>& criteria = {}) {
  CQeLocation location = CQeLocation::ToBeRead();
  location.SetId(L"id-" + name);
  location.SetName(name);
  for (const auto& [kind, values] : criteria)
    for (const std::wstring& value : values) EXPECT_EQ(location.AddCriteria(&kind, value), LCR_OK);
  return location;
}

inline AdapterProps Adapter(std::uint32_t index, const std::wstring& description,
                            const std::vector<std::wstring>& gateways = {}, const std::wstring& dnsSuffix = {}) {
  AdapterProps adapter;
  adapter.ifIndex = index;
  adapter.mediaType = Wired;
  adapter.description = description;
  adapter.gateways = gateways;
  adapter.dnsSuffix = dnsSuffix;
  return adapter;
}

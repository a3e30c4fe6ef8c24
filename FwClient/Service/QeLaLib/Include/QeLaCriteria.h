// Criterion kinds and the read-only view of a location's criteria set.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "LaSerializer.h"

// What a criterion tests. Kinds 0 to 7 carry a text, kind 8 is a yes or no. Other values are invalid.
enum LOCATION_CRITERIA_TYPE : std::uint32_t {
  LCT_DNS_SUFFIX = 0,        // connection-specific DNS suffix of the adapter; labels may hold "*"
  LCT_DEFAULT_GATEWAY = 1,   // default gateway address
  LCT_DHCP_SERVER = 2,       // DHCP server address, IPv4 or IPv6
  LCT_DNS_SERVER = 3,        // DNS server address
  LCT_PRIMARY_WINS = 4,      // primary WINS server address
  LCT_SECONDARY_WINS = 5,    // secondary WINS server address
  LCT_REGISTRY_KEY = 6,      // HIVE\SubKey\ValueName or HIVE\SubKey\ValueName=Data
  LCT_DOMAIN_REACHABLE = 7,  // host that must answer over HTTPS
  LCT_ZELT_REACHABLE = 8,    // the management server must be known to DNS
};

// Results of _IQeLocation::AddCriteria and RemoveCriteria.
enum LocationCriteriaResult : std::uint32_t {
  LCR_OK = 0,
  LCR_INVALID_KIND = 1,     // kind above LCT_ZELT_REACHABLE
  LCR_ALREADY_PRESENT = 2,  // Add: the entry is there already
  LCR_NOT_FOUND = 3,        // Remove: there is no such entry
};

// A location's criteria as one list that can be walked by index: all DNS suffixes first, then gateways, DHCP
// servers, DNS servers, primary WINS, secondary WINS, registry keys and domains, each in the order in which they
// were added, and the management-server criterion last. Entries of one kind are alternatives; kinds must all hold.
struct _IEnumQeLocationCriterias : ILaSerializer {
  // Number of entries; the management-server criterion counts as one when it is set.
  virtual std::size_t GetCount() const = 0;

  // Writes the kind and text of the entry at `index` and returns true. The management-server entry leaves `value`
  // as it is. An index that is not below GetCount() returns false and writes nothing.
  virtual bool GetAt(std::size_t index, LOCATION_CRITERIA_TYPE& kind, std::wstring& value) const = 0;

  // LCT_ZELT_REACHABLE: writes whether it is set and returns true. Any other kind returns false, `value` untouched.
  virtual bool GetBoolCriteria(LOCATION_CRITERIA_TYPE kind, bool& value) const = 0;

  // Kinds 0 to 7: replaces `values` with a copy of that kind's entries and returns true. Any other kind returns
  // false, `values` untouched.
  virtual bool GetStringCriteria(LOCATION_CRITERIA_TYPE kind, std::vector<std::wstring>& values) const = 0;

 protected:
  ~_IEnumQeLocationCriterias() = default;
};

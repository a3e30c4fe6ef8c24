// The kinds of criteria whose values are texts, as every command names them.
#pragma once

#include <QeLaCriteria.h>

struct CriterionKind {
  LOCATION_CRITERIA_TYPE kind;
  const char* option;       // of the command line
  const char* member;       // of JSON
  const char* title;        // in sentences
  const char* placeholder;  // in help
  const char* description;
};

// In the order in which the library tests them.
inline constexpr CriterionKind kCriterionKinds[] = {
    {LCT_DNS_SUFFIX, "dns-suffix", "dnsSuffixes", "DNS suffix", "SUFFIX",
     "The adapter's DNS suffix; a label may hold \"*\", as in *.corp.example"},
    {LCT_DEFAULT_GATEWAY, "gateway", "gateways", "default gateway", "ADDRESS", "A default gateway"},
    {LCT_DHCP_SERVER, "dhcp-server", "dhcpServers", "DHCP server", "ADDRESS", "The DHCP server"},
    {LCT_DNS_SERVER, "dns-server", "dnsServers", "DNS server", "ADDRESS", "A DNS server"},
    {LCT_PRIMARY_WINS, "primary-wins", "primaryWins", "primary WINS server", "ADDRESS", "The primary WINS server"},
    {LCT_SECONDARY_WINS, "secondary-wins", "secondaryWins", "secondary WINS server", "ADDRESS",
     "The secondary WINS server"},
    {LCT_REGISTRY_KEY, "registry", "registry", "registry key or value", "TEXT",
     "A key or value on this machine: HIVE\\Key\\ (the key exists) or HIVE\\Key\\Value=Data; HIVE is "
     "HKEY_LOCAL_MACHINE, HKEY_CLASSES_ROOT, HKEY_CURRENT_USER or HKEY_USERS"},
    {LCT_DOMAIN_REACHABLE, "https-host", "httpsHosts", "web host", "HOST",
     "A host that answers over HTTPS on port 443"},
};

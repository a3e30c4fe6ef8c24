#!/bin/bash
# The library sees the machine's adapters as they are.
. "$(dirname "$0")/lab.sh"

set_dns_suffix lab.example
three_adapters

adapters=$(qela adapters --json)
of() { jq -c --arg name "$1" "[.adapters[] | select(.description == \$name)][0] | $2" <<<"$adapters"; }

it "lists the adapters that are up, and neither the loopback nor one that is down"
expect "$(jq -c '[.adapters[].description] | sort' <<<"$adapters")" '["virtual0","wifi0"]'

it "gives addresses of both families as inet_ntop spells them"
expect "$(of wifi0 '[.ipAddresses[] | select(startswith("fe80") | not)] | sort')" '["10.20.0.15","fd00:77::4"]'

it "gives gateways, suffix and DNS servers"
expect "$(of wifi0 '[.gateways, .dnsSuffix, .dnsServers]')" '[["10.20.0.1"],"lab.example",["127.0.0.1"]]'
expect "$(of virtual0 .gateways)" '[]'

it "stores nothing while it looks"
expect "$(qela locations --json | jq -c .locations)" '[]'

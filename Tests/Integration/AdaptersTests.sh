#!/bin/bash
# The library sees the machine's adapters as they are.
. "$(dirname "$0")/lab.sh"

set_dns_suffix lab.example
add_adapter wifi0
add_adapter virtual0
add_adapter unplugged0
ip link set wifi0 address 0a:1b:2c:3d:4e:5f
ip address add 10.77.0.1/24 dev unplugged0
ip link set virtual0 up
ip address add 172.16.5.4/16 dev virtual0
ip address add fd00:77::4/64 dev wifi0 nodad
join_network wifi0 10.20.0.15/24 10.20.0.1

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

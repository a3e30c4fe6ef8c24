#!/bin/bash
# A location needs the management server: real name server, real registry.
. "$(dirname "$0")/lab.sh"
. "$(dirname "$0")/management-server.sh"

known=(--address=/zelt-one.corp.test/10.9.9.1 --address=/zelt-two.corp.test/10.9.9.2)
start_name_server "${known[@]}" --cname=alias.corp.test,zelt-one.corp.test --host-record=only-ipv6.corp.test,fd00::9

it "is not current while no agent keeps a list"
probe
expect "$current" ""
logged "CheckZeltReachability RegOpenKey failed with 2"
expect "$(grep -c 'query\[' "$state/queries")" 0

it "is current when a name of the list is known to DNS"
set_server_list 'zelt-one.corp.test|10.9.9.1|443;zelt-two.corp.test|10.9.9.2|443'
probe
expect "$current" Managed
logged "CheckZeltReachability found ZeltServerList value zelt-one.corp.test|10.9.9.1|443;zelt-two.corp.test|10.9.9.2|443"
logged "CheckZeltReachability succeeded for zelt-one.corp.test"
expect "$(grep -c 'query\[A\] zelt-two' "$state/queries")" 0

it "asks the next server when one is not known"
set_server_list 'no-such-server.corp.test|10.9.9.1|443;zelt-two.corp.test|10.9.9.2|443'
probe
expect "$current" Managed
logged "ZELT reachability failed with DNS_STATUS 9003"
logged "CheckZeltReachability failed for no-such-server.corp.test"
logged "CheckZeltReachability succeeded for zelt-two.corp.test"

it "finds a server behind an alias"
set_server_list alias.corp.test
probe
expect "$current" Managed

it "is not current when DNS knows none of the names"
set_server_list 'no-such-server.corp.test|10.9.9.1|443;no-other-server.corp.test|10.9.9.2|443'
probe
expect "$current" ""
logged "CheckZeltReachability failed for no-other-server.corp.test"

it "is not current when the name has no IPv4 address"
set_server_list only-ipv6.corp.test
probe
expect "$current" ""
logged "CheckZeltReachability failed for only-ipv6.corp.test"

it "takes an empty list for no server"
set_server_list ''
probe
expect "$current" ""
logged "CheckZeltReachability found ZeltServerList value "

it "reads the list that a 32-bit agent keeps"
reg delete "$kAgentKey" /v ZeltServerList /f /reg:64 >/dev/null
set_server_list zelt-one.corp.test 32
probe
expect "$current" Managed
logged "CheckZeltReachability RegQueryValueEx failed with 2 (this is expected on x64 systems)"
logged "CheckZeltReachability found ZeltServerList value zelt-one.corp.test at the alternate KEY_WOW64_32KEY location"

it "is entered while the name server knows the server"
start_qela_watch
ip address add 10.20.0.16/24 dev wifi0
next_change Managed

it "is left when the name server no longer knows it, whatever it said before"
stop_name_server
start_name_server
ip address add 10.20.0.17/24 dev wifi0
next_change

it "is entered again when the server is known again"
stop_name_server
start_name_server "${known[@]}"
ip address add 10.20.0.18/24 dev wifi0
next_change Managed
end_watch

it "is not current when there is no name server"
stop_name_server
probe
expect "$current" ""
logged "ZELT reachability failed with DNS_STATUS 9002"

#!/bin/bash
# A name server that takes queries and never answers: the resolver's own time-outs end the wait.
. "$(dirname "$0")/lab.sh"
. "$(dirname "$0")/management-server.sh"

start_name_server --address=/zelt-one.corp.test/10.9.9.1
set_server_list zelt-one.corp.test

it "is current while the name server answers"
probe
expect "$current" Managed

it "is not current when the name server is silent"
kill -STOP "$(<"$state/dnsmasq.pid")"
probe
expect "$current" ""
logged "ZELT reachability failed with DNS_STATUS 9002"
logged "CheckZeltReachability failed for zelt-one.corp.test"

it "is current again as soon as it answers"
kill -CONT "$(<"$state/dnsmasq.pid")"
probe
expect "$current" Managed

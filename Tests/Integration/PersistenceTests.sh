#!/bin/bash
# Locations survive a restart of the machine.
. "$(dirname "$0")/lab.sh"

add_adapter wifi0
join_network wifi0 10.20.0.15/24 10.20.0.1
qela location add 'Büro 東京' --gateway 10.20.0.1 --dns-suffix lab.test --note 'first floor' >/dev/null
qela location add Home --gateway 192.168.77.1 --disabled >/dev/null
before=$(qela locations --json)

it "stores locations with every text"
expect "$(jq -c '[.locations[] | [.name, .note, .enabled]]' <<<"$before")" '[["Büro 東京","first floor",true],["Home","",false]]'

stop_machine
start_machine

it "finds them unchanged after a restart"
expect "$(qela locations --json)" "$before"

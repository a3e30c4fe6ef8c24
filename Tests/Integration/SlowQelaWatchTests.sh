#!/bin/bash
# qela watch where the network changes without anybody being told: it looks itself, every five seconds.
. "$(dirname "$0")/lab.sh"

# expect_event FILTER: the filter holds for the event that was read last.
expect_event() { jq -e "$1" <<<"$event" >/dev/null || failed "expected of the event: $1" "event: $event"; }

set_dns_suffix corp.example
add_adapter wifi0
index=$(ip -o link show wifi0 | cut -d: -f1)
qela location add Office --gateway 10.20.0.1 >"/dev/null" 2>&1

it "tells with a change what caused it and what it changed in the adapters"
coproc people { exec "$tests/../../Scripts/wine.sh" "$bin/qela.exe" watch; }
exec 4<&"${people[0]}"
IFS= read -r -t "$kEventDeadlineSeconds" started <&4
[[ $started = *'  start    current: none'* ]] || failed "$started"
start_qela_watch
join_network wifi0 10.20.0.15/24 10.20.0.1
next_change Office
expect_event '.cause == "address change" and (.changes | length) == 1 and .changes[0].what == "appeared" and .changes[0].description == "wifi0"'
expect_event '.changes[0].fields.gateways == {"before": [], "after": ["10.20.0.1"]}'

it "tells of a gateway that changes alone as missed, and not of the address that the library was told of"
ip route replace default via 10.20.0.2 dev wifi0 onlink metric "$index"
next_event
expect_event 'keys_unsorted == ["schema","event","time","adapters"] and .event == "missed"'
expect_event '.adapters | length == 1 and .[0].what == "changed" and .[0].description == "wifi0"'
expect_event '.adapters[0].fields == {"gateways": {"before": ["10.20.0.1"], "after": ["10.20.0.2"]}}'

it "tells it once, and with the next change what the library has learnt of it"
# The next look comes five seconds after the last one.
! IFS= read -r -t 7 event <&3 || failed "an event too many: $event"
ip address add 10.20.0.16/24 dev wifi0
next_change
expect_event '.cause == "address change" and [.left[].name] == ["Office"]'
expect_event '.changes[0].fields.gateways == {"before": ["10.20.0.1"], "after": ["10.20.0.2"]}'
expect_event '.changes[0].fields.ipAddresses.after | index("10.20.0.16") != null'
end_watch

it "has written it for people, too"
# until_line PATTERN
until_line() {
  local line
  # shellcheck disable=SC2053 # a pattern
  until [[ ${line:-} = $1 ]]; do IFS= read -r -t "$kEventDeadlineSeconds" line <&4 || failed "no line like $1"; done
}
until_line "*  change   entered: Office*  cause: address change: adapter $index (wifi0) appeared: *default gateway 10.20.0.1*"
until_line "*  missed   adapter $index (wifi0): default gateway 10.20.0.1 -> 10.20.0.2*"
until_line "*  change   left: Office  current: none  cause: address change: adapter $index (wifi0): *default gateway 10.20.0.1 -> 10.20.0.2*"
kill -INT "$people_PID"
until_line '*  end      interrupted*'

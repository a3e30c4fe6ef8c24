#!/bin/bash
# Real address changes reach the host as the right callbacks.
. "$(dirname "$0")/lab.sh"

set_dns_suffix eu-office.corp.example
add_adapter wifi0
add_adapter cable0
LOGLIB_FILE=$(mktemp -u)
export LOGLIB_FILE
qela location add Office --dns-suffix '*-office.corp.example' --gateway 10.20.0.1 >/dev/null
qela location add Home --gateway 192.168.77.1 >/dev/null
qela location add Elsewhere --dns-suffix other.example --gateway 10.20.0.1 >/dev/null
qela location add Closed --gateway 10.20.0.1 --disabled >/dev/null

# Waits until the library has logged the text, which must not have been logged before.
logged() {
  grep -qF "$1" <(exec timeout 20 tail -n +1 -F "$LOGLIB_FILE" 2>/dev/null) || failed "not logged: $1"
}

rm -f "$LOGLIB_FILE"
start_qela_watch
it "starts at no location"
expect "$(jq -c .current <<<"$event")" '[]'

it "raises one callback with the location that an address change makes current"
join_network wifi0 10.20.0.15/24 10.20.0.1
next_change Office
expect "$(jq -c '[.entered[].name, .left[].name]' <<<"$event")" '["Office"]'

it "names the adapter that matched"
expect "$(jq -c '[.current[0].adapters[].description]' <<<"$event")" '["wifi0"]'

it "raises none for a change that leaves the list as it was"
ip address add 10.20.0.16/24 dev wifi0
logged 'Skipped raising a location changed event...'

it "reports two current locations in stored order, whichever came first"
join_network cable0 192.168.77.30/24 192.168.77.1
next_change Office Home

it "reports what is left when an adapter goes down"
ip link set wifi0 down
ip address add 10.99.0.1/24 dev cable0 # a link that goes down signals nothing by itself
next_change Home
expect "$(jq -c '[.left[].name]' <<<"$event")" '["Office"]'

it "reports an empty list when no adapter is up, though the snapshot then fails"
ip link set cable0 down
ip address add 10.99.0.2/24 dev cable0
next_change

it "ends without a further callback"
end_watch

it "decides once for each address change that it has noticed"
expect "$(grep -cE 'Raising a location changed event|Skipped raising a location changed event' "$LOGLIB_FILE")" \
  "$(grep -cF 'received an address change notification' "$LOGLIB_FILE")"
rm -f "$LOGLIB_FILE"

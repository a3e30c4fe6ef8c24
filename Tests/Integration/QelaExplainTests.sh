#!/bin/bash
# qela explain on a real machine: what it shows of it, what the probes answer, and the same from the log of it.
. "$(dirname "$0")/lab.sh"

# explains CODE ARGUMENT...
explains() {
  answer qela explain "${@:2}"
  expect_code "$1"
}
shows() {
  local text
  for text in "$@"; do expect_out "$text"; done
}
hides() { [[ $out != *"$1"* ]] || not_answered "not expected: $1"; }

cd "$(mktemp -d)"
set_dns_suffix eu-office.corp.example
add_adapter wifi0
add_adapter wired0
join_network wifi0 10.20.0.15/24 10.20.0.1
ip link set wired0 up
ip address add 10.30.0.15/24 dev wired0
qela location add Home --gateway 10.20.0.1 >/dev/null 2>&1
qela location add Office --dns-suffix '*-office.corp.example' --gateway 10.0.0.1 --dns-server 10.0.0.53 --https-host never.test >/dev/null 2>&1
qela location add 'Branch "B"' --gateway 10.20.0.1 --registry 'HKEY_LOCAL_MACHINE\Software\Site\Name=Bonn' >/dev/null 2>&1
qela location add Off --gateway 10.20.0.1 --disabled >/dev/null 2>&1
reg add 'HKLM\Software\Site' /v Name /d Berlin /f >/dev/null

it "tells of a current location which adapter shows all that it asks for"
explains 0 Home
shows 'Home: current' 'adapter 2 (wifi0): matches' 'Home is current: adapter 2 (wifi0) shows all that it asks for.' \
  'adapter 3 (wired0): does not match'
shows 'Asked as ' 'A service may run as another account, with another HKEY_CURRENT_USER and another proxy'
hides Office

it "tells of another one where the library stops, what else would fail, and what would make it hold"
explains 5 Office
shows 'default gateway  10.0.0.1               10.20.0.1               FAIL' 'fail' 'not reached' \
  'Office is not current: adapter 2 (wifi0) comes nearest, and fails at the default gateway: it shows 10.20.0.1' \
  'Then the DNS server would fail as well.'

it "does what the sentence advises, and the location fails at the next kind"
qela location set Office --add-gateway 10.20.0.1 >/dev/null 2>&1
explains 5 Office
shows 'fails at the DNS server'
qela location set Office --add-dns-server 127.0.0.1 >/dev/null 2>&1
explains 5 Office
shows 'fails at the web host: never.test: error 12007 (DNS does not know the name)' ' s: error 12007'

it "shows the value that the registry holds"
explains 5 'Branch "B"'
shows 'the value Name is "Berlin"'

it "explains all without a name, and ends with 5 unless all are current"
explains 5
shows 'Home: current' 'Office: not current' 'Off is not current: it is disabled (qela location enable Off).'

it "asks nothing with --no-probes, and says what is unknown"
explains 5 Office --no-probes
shows 'Office: unknown' 'Whether Office is current depends on what was not asked: web host never.test.'
hides 'Asked as'
explains 0 Home --no-probes

it "explains the locations of a file as if they were stored"
qela export set.json >/dev/null
jq '.locations[1].criteria.httpsHosts = []' set.json >other.json
explains 5 Office --set set.json
shows 'web host never.test: no, 0.' ' s: error 12007 (DNS does not know the name)' 'Asked as '
explains 5 'Branch "B"' --set set.json
shows 'the value Name is "Berlin"'
explains 0 Office --set other.json
shows 'Office is current: adapter 2 (wifi0) shows all that it asks for.'

it "explains a recorded machine"
qela snapshot machine.json --label PC-7 >/dev/null
explains 5 Office --machine machine.json --set set.json
shows 'Machine PC-7, recorded 20' 'Office: unknown'

it "writes the same as JSON"
explains 5 Office --json
expect_json '.schema == 1 and .probes and (.account | length > 0) and (.locations | length == 1) and
  (.locations[0] | .verdict == "not current" and .failure == {"adapter": 2, "kind": "httpsHosts"} and
    (.adapters[0].kinds | map(.outcome) == ["held", "held", "held", "failed"]) and
    (.adapters[0].kinds[3].answers[0] | .answer == false and .milliseconds >= 0 and
      .details[0] == "error 12007 (DNS does not know the name)"))'

it "tells the same from the log of the calculation and the set"
live=$(qela explain Office --json | jq -c '.locations[0] | {verdict, failure, kinds: [.adapters[].kinds[] | {kind, outcome, asked, seen}]}') || true
LOGLIB_FILE=service.log qela current >/dev/null
explains 5 Office --from-log service.log --set set.json
shows 'The calculation of 20' ' (service.log, line 1)' 'Office was not current: adapter 2 (wifi0) comes nearest, and failed at the web host'
explains 5 Office --from-log service.log --set set.json --json
logged=$(jq -c '.locations[0] | {verdict, failure, kinds: [.adapters[].kinds[] | {kind, outcome, asked, seen}]}' <<<"$out")
[ "$live" = "$logged" ] || failed "$live" "$logged"

it "tells without the set only what the log proves"
explains 5 'Branch "B"' --from-log service.log
shows 'failed at the registry key or value: Name: the value Name is "Berlin", and another is asked for' \
  'Without the set (--set), only what the log proves is told'
hides Bonn
explains 0 Home --from-log service.log

it "finds the calculation of a time"
qela location set Home --gateway 10.99.0.1 >/dev/null 2>&1
LOGLIB_FILE=service.log qela current >/dev/null
explains 5 Home --from-log service.log
explains 1 Home --from-log service.log --at '1999-01-01 00:00'
expect_err 'no calculation'
second=$(grep -m2 'Calculating current' service.log | tail -1 | cut -f1)
explains 5 Home --from-log service.log --at "$second"
first=$(grep -m1 'Calculating current' service.log | cut -f1)
explains 0 Home --from-log service.log --at "$first"

it "says that the machine had another set, where the log cannot come from it"
explains 5 Home --from-log service.log --set other.json
shows 'the machine had others'

it "names what is wrong with what it is asked"
explains 2 Home --from-log service.log --at yesterday
expect_err 'is no time; write one such as'
explains 3 Nowhere --from-log service.log
explains 3 Nowhere
explains 1 Home --from-log missing.log
explains 2 Home --no-probes --from-log service.log
explains 2 Home --at 2025-01-01

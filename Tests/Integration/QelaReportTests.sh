#!/bin/bash
# qela check and report: on a machine with a network, with its probes.
. "$(dirname "$0")/lab.sh"

folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cd "$folder"

# verdicts OPTION...: of all locations, as explain tells them.
verdicts() { { qela explain --all --json "$@" || true; } | jq -c '[.locations[].verdict]'; }

three_adapters
set_dns_suffix corp.example

it "check finds nothing wrong with the program's files, and tells what the adapters look like"
answer qela check --json
expect_code 0
expect_json '(.checks | length) == 10 and .errors == 0'
expect_json '.checks[] | select(.name == "hostLibraries") | .result == "ok"'
expect_json '.checks[] | select(.name == "versions") | .result == "ok"'
expect_json '.checks[] | select(.name == "adapters") | .result == "ok" and .found == "2 adapters up"'

it "check fails where lint finds an error in the set"
qela location add Wrong --dns-suffix corp.example. >/dev/null 2>&1
answer qela check
expect_code 1
expect_out 'error  set: 1 location stored; lint finds 1 error (L102)'
qela location remove Wrong >/dev/null

it "a report explains every location as the library does, and again from the page"
reg add 'HKLM\SOFTWARE\QelaReport' /v Site /d Hamburg /f >/dev/null
qela location add Bergbuero --dns-suffix '*.example' --gateway 10.20.0.1 --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\QelaReport\Site=Hamburg' >/dev/null 2>&1
qela location add Kiel --gateway 10.20.0.1 --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\QelaReport\Site=Kiel' >/dev/null 2>&1
qela current --verbose >/dev/null 2>service.log
for level in full names none; do
  answer qela report case.html --log service.log --redact "$level"
  expect_code 0
  expect "$(verdicts --machine case.html)" '["current","not current"]'
done
expect "$(verdicts)" '["current","not current"]'

it "a redacted report tells nothing of the machine, and which values are the same"
answer qela report case.html --log service.log
expect_code 0
expect_out '2 location names'
for secret in bergbuero kiel hamburg wifi0 10.20.0. 0a-1b-2c corp.example labhost qelareport; do
  expect "$secret: $(grep -ci -- "$secret" case.html || true)" "$secret: 0"
done
answer qela explain LOCATION-2 --machine case.html
expect_code 5
expect_out 'HKEY_LOCAL_MACHINE\KEY-1\KEY-2\VALUE-1=DATA-2 did not hold'

it "a report tells what came of each request to a web host, and not to which"
qela location add Web --gateway 10.20.0.1 --https-host never.bergbuero.test >/dev/null 2>&1
answer qela report case.html
expect_code 0
grep -q 'web host HOST-1: no, [0-9.]* s: error 12007 (DNS does not know the name)' case.html || failed "$(grep 'web host' case.html)"
expect "$(grep -ci never case.html || true)" 0
qela location remove Web >/dev/null

it "a report is written where the set cannot be read, too"
reg add 'HKLM\SOFTWARE\Corvane\Tessel\Firewall\LA' /v la /t REG_BINARY /d 010203 /f >/dev/null
answer qela check; expect_code 1; expect_out 'error  set: a location set is stored but cannot be read'
answer qela report broken.html --no-probes; expect_code 0; expect_out '0 locations, 1 error'

it "what cannot be done is told"
answer qela report no/folder.html --no-probes; expect_code 1; expect_err 'cannot be written'
answer qela report service.log --log service.log; expect_code 1; expect_err 'this is the log itself'
answer qela report case.html --redact some; expect_code 2
head -c 3000 case.html >cut.html
printf '<script type="application/json" id="qela-machine">' >>cut.html
answer qela explain --all --machine cut.html; expect_code 1; expect_err 'it is no whole report'

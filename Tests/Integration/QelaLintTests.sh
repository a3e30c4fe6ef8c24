#!/bin/bash
# qela lint, and the notes of the commands that change locations, with a real registry and real adapters.
. "$(dirname "$0")/lab.sh"

kValueKey='HKLM\SOFTWARE\Corvane\Tessel\Firewall\LA'
rules() { jq -r '[.findings[].rule] | join(" ")' <<<"$out"; }

set_dns_suffix corp.example
add_adapter wifi0
join_network wifi0 10.20.0.15/24 10.20.0.1
folder=$(mktemp -d)

it "an empty set has no faults"
answer qela lint
expect_answer 0 "0 locations: 0 errors, 0 warnings, 0 notes" ""
answer qela lint --json --strict
expect_code 0
expect_json '. == {"schema": 1, "findings": [], "locations": 0, "errors": 0, "warnings": 0, "notes": 0}'

it "notes alone are no failure, not even with --strict"
answer qela location add Office --dns-suffix corp.example --gateway 10.20.0.1
expect_code 0
expect_err "qela: note L302: All that the location asks for"
answer qela lint --strict
expect_code 0
expect_out 'L302 All that the location asks for'
expect_out "1 location: 0 errors, 0 warnings, 1 note"

it "a warning fails with --strict only"
answer qela location add Anywhere --dns-suffix 'corp.*' --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\'
expect_code 0
expect_err 'qela: warning L203: --dns-suffix "corp.*": The end of the DNS suffix is open'
answer qela lint
expect_code 0
expect_out "2 locations: 0 errors, 1 warning, 1 note"
answer qela lint --strict
expect_code 1

it "an error fails, and says what to write instead"
answer qela location set Anywhere --dns-suffix corp.example.
expect_code 0
expect_err 'error L102: --dns-suffix "corp.example.": With a dot at its end'
answer qela lint
expect_code 1
expect "$err" ""
expect_out '"Anywhere" ('
expect_out '  error L102 --dns-suffix "corp.example.": With a dot at its end'
expect_out '    fix: write "corp.example"'
answer qela lint --json
expect_code 1
expect_json 'keys_unsorted == ["schema","findings","locations","errors","warnings","notes"] and .errors == 1'
expect_json '.findings[1] | keys_unsorted == ["rule","severity","location","criterion","sentence","fix"]'
expect_json '.findings[1] | .rule == "L102" and .severity == "error" and .location.name == "Anywhere" and
  (.location.id | length) == 36 and .criterion == {"kind": "dnsSuffixes", "value": "corp.example."} and .fix == "write \"corp.example\""'

it "costs are those of this machine's adapters, or of as many as are given"
answer qela location set Anywhere --dns-suffix corp.example --https-host portal.corp.example
answer qela lint --json
expect_json '.findings[-1] | .rule == "L401" and .cost == {"silentSeconds": 30, "worstSeconds": 433090}'
answer qela lint --json --adapters 4
expect_json '.findings[-1].cost == {"silentSeconds": 120, "worstSeconds": 1732360}'
answer qela lint --adapters 0; expect_code 2

it "an edit that changes no criteria says nothing of them"
answer qela location disable Anywhere
expect_code 0
[[ $err != *L401* ]] || not_answered "notes of criteria"

it "what never holds, by the rules, does not hold on the machine"
reg add 'HKLM\SOFTWARE\Vendor' /f >/dev/null
# never RULE OPTION VALUE GOOD: the location is current with the good value alone.
never() {
  answer qela location add Trial "$2" "$4"
  expect "$(names_of_current)" "Office Trial"
  answer qela location remove Trial
  answer qela location add Trial "$2" "$3"
  expect_err "error $1: "
  expect "$(names_of_current)" Office
  answer qela location remove Trial
}
never L102 --dns-suffix corp.example. corp.example
never L104 --dns-suffix '(corp*.example' '(corp)*.example'
never L108 --gateway ::ffff:10.20.0.1 10.20.0.1
never L111 --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor' 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\'
never L114 --registry 'HKEY_LOCAL_MACHINE\\SOFTWARE\\Vendor\\' 'HKEY_LOCAL_MACHINE\SOFTWARE\Vendor\'

it "a file is judged instead of the stored set, which stays as it is"
reg query "$kValueKey" /v la >"$folder/before"
cat >"$folder/set.json" <<'JSON'
{"schema": 1, "locations": [
  {"id": "a", "name": "One", "criteria": {"gateways": ["FE80::1"]}},
  {"id": "b", "name": "Two", "criteria": {"gateways": ["FE80::1"]}}]}
JSON
answer qela lint "$folder/set.json" --json
expect_code 1
expect "$(rules)" "L107 L301 L107 L301 L501"
answer qela lint "$folder/no-such-file.json"; expect_code 1; expect_err "no-such-file.json"
printf '{' >"$folder/broken.json"
answer qela lint "$folder/broken.json"; expect_code 1; expect_err "broken.json"
answer qela lint "$folder/set.json" more; expect_code 2
expect "$(reg query "$kValueKey" /v la)" "$(<"$folder/before")"

it "ten thousand locations take less than two seconds"
jq -n '{schema: 1, locations: [range(10000) | {id: "id\(.)", name: "Name \(.)", criteria: {
  dnsSuffixes: ["site-\(.)-*.corp.example"], gateways: ["10.\(. / 65536 | floor).\(. / 256 % 256 | floor).\(. % 256)"]}}]}' >"$folder/large.json"
start=$EPOCHREALTIME
answer qela lint "$folder/large.json"
took=$((${EPOCHREALTIME/./} - ${start/./}))
expect_code 0
expect_out "10000 locations: 0 errors, 0 warnings, 10000 notes"
[ "$took" -lt $((2000000 * ${SLOWER:-1})) ] || failed "took $took us"

it "apply tells of what it changes, and of that alone"
answer qela apply "$folder/set.json" --dry-run
expect_code 6
expect_err 'qela: error L107 "One" (a): --gateway "FE80::1": Addresses are compared as texts'
answer qela apply "$folder/set.json"
expect_code 0
expect_err 'qela: error L107 "Two" (b): --gateway "FE80::1"'
expect_err 'qela: warning L501 "Two" (b): Two locations have the same criteria, and are current together (the other is "One" (a)).'
[[ $err != *Office* ]] || not_answered "notes of a location that was not changed"
answer qela apply "$folder/set.json"
expect_answer 0 "The stored set is as in the file already." ""
answer qela apply "$folder/large.json"
expect_code 0
expect "$(grep -cE '^qela: (note|warning|error)' <<<"$err")" 21
expect_err 'qela: note: 9980 more; "qela lint" tells all'

it "a stored set that cannot be read is told"
reg add "$kValueKey" /v la /t REG_BINARY /d 01 /f >/dev/null
answer qela lint
expect_code 4
expect_err "cannot be read"

#!/bin/bash
# qela snapshot and test: one machine, recorded in three networks, and a set that is tried on all of them.
. "$(dirname "$0")/lab.sh"

folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cd "$folder"
mkdir machines

# is_of_form FILE: the schema in the documents describes it.
is_of_form() {
  jq -e --slurpfile schema "$tests/../../Docs/machine.schema.json" -f "$tests/json-schema.jq" "$1" >/dev/null ||
    failed "expected of the form that the schema describes: $1" "$(cat "$1")"
}
# record LABEL OPTION...: into machines/LABEL.json
record() {
  answer qela snapshot "machines/$1.json" "${@:2}"
  expect_code 0
  expect "$err" ""
}

cat >set.json <<'SET'
{"schema": 1, "locations": [
  {"id": "11111111-0000-0000-0000-000000000001", "name": "Office", "criteria": {"dnsSuffixes": ["corp.example"], "gateways": ["10.20.0.1"]}},
  {"id": "11111111-0000-0000-0000-000000000002", "name": "Home", "criteria": {"gateways": ["192.168.1.1", "192.168.2.1"]}},
  {"id": "11111111-0000-0000-0000-000000000003", "name": "Managed", "criteria": {"registry": ["HKEY_LOCAL_MACHINE\\SOFTWARE\\QelaMachines\\Site=A"], "httpsHosts": ["web.invalid"]}},
  {"id": "11111111-0000-0000-0000-000000000004", "name": "Off", "enabled": false}
]}
SET

add_adapter wifi0
set_dns_suffix corp.example
reg add 'HKLM\SOFTWARE\QelaMachines' /v Site /d A /f >/dev/null

it "a machine without a network has no adapters"
record unplugged
expect_out "Recorded 0 adapters and 0 answers of probes in machines/unplugged.json."
is_of_form machines/unplugged.json

it "a machine is recorded as the library sees it, and as the schema says"
join_network wifi0 10.20.0.15/24 10.20.0.1
record office --probes --set set.json
expect_out "Recorded 1 adapter and 2 answers of probes in machines/office.json."
is_of_form machines/office.json
answer qela adapters --json
expect "$(jq -cS .adapters machines/office.json)" "$(jq -cS .adapters <<<"$out")"
expect "$(jq -c .probes machines/office.json)" \
  '{"registry":[{"asked":"HKEY_LOCAL_MACHINE\\SOFTWARE\\QelaMachines\\Site=A","answer":true}],"httpsHosts":[{"asked":"web.invalid","answer":false}]}'
leave_network wifi0 10.20.0.15/24

set_dns_suffix home.example
join_network wifi0 192.168.2.7/24 192.168.2.1
record home --label 'The Büro'
is_of_form machines/home.json
leave_network wifi0 192.168.2.7/24

it "without a file the snapshot goes to standard output, and --json puts it on one line"
answer qela snapshot
expect_code 0
expect "$(jq -c .adapters <<<"$out")" "$(qela adapters --json | jq -c .adapters)"
answer qela snapshot --json
expect_json '.schema == 1 and (.recorded | test("^\\d{4}-\\d\\d-\\d\\dT"))'
answer qela snapshot machines/../again.json --json
expect_json '. == {"schema": 1, "file": "machines/../again.json", "adapters": 1, "answers": 0}'

it "the stored locations are asked about where no set is given"
qela location add Site --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\QelaMachines\' >/dev/null 2>&1
answer qela snapshot --probes --json
expect_json '.probes == {"registry": [{"asked": "HKEY_LOCAL_MACHINE\\SOFTWARE\\QelaMachines\\", "answer": true}]}'

it "a set is tried on all machines of a folder, and what depends on a missing answer is unknown"
answer qela test --set set.json --machines machines
expect_answer 0 "The Büro: Home; unknown: Managed (registry key or value HKEY_LOCAL_MACHINE\\SOFTWARE\\QelaMachines\\Site=A, web host web.invalid)
office: Office
unplugged: none" ""
answer qela test --set set.json --machines machines/unplugged.json 'machines/o*.json' --json
expect_json '[.machines[].machine] == ["unplugged", "office"] and .machines[1].file == "machines/office.json"'
expect_json '.machines[1].current == [{"id": "11111111-0000-0000-0000-000000000001", "name": "Office"}]'
expect_json '.tested == 2 and .different == 0 and .errors == 0 and .withoutSnapshot == []'

it "a set is tried as it would be stored, in the normal form of addresses"
jq '.locations[0].criteria.gateways = ["0000:0000:0000:0000:0000:ffff:0a14:0001"]' set.json >spelled.json
answer qela test --set spelled.json --machines machines/office.json
expect_answer 0 "office: Office" ""

it "what the library itself decides on the machine is what the test told"
leave_network wifi0 192.168.2.7/24 2>/dev/null || true
join_network wifi0 192.168.2.7/24 192.168.2.1
qela location add Home --gateway 192.168.1.1 --gateway 192.168.2.1 >/dev/null 2>&1
qela location add Office --dns-suffix corp.example --gateway 10.20.0.1 >/dev/null 2>&1
expect "$(names_of_current)" "Site Home"

it "machines that are as expected succeed"
printf 'machine,locations\r\noffice,Office\r\nunplugged,\r\n' >good.csv
answer qela test --set set.json --machines machines/office.json machines/unplugged.json --expect good.csv --junit good.xml
expect_code 0
expect_err "qela: 2 machines as expected, 0 not, 0 without a snapshot, 0 errors"
expect "$(grep -c '<testcase' good.xml) $(grep -o 'tests="2" failures="0" errors="0" skipped="0"' good.xml)" \
  '2 tests="2" failures="0" errors="0" skipped="0"'

it "machines that are not as expected are told with the kind that failed, what was asked and what was seen"
cat >bad.csv <<'CSV'
machine,locations
office,Office; Home
"The Büro",11111111-0000-0000-0000-000000000002
gone,Off
CSV
answer qela test --set set.json --machines machines --expect bad.csv --junit bad.xml
expect_code 1
index=$(ip -o link show wifi0 | cut -d: -f1)
expect "$out" "The Büro: Home; unknown: Managed (registry key or value HKEY_LOCAL_MACHINE\\SOFTWARE\\QelaMachines\\Site=A, web host web.invalid)
  Managed is unknown, but expected not to be current
    the snapshot has no answer for registry key or value HKEY_LOCAL_MACHINE\\SOFTWARE\\QelaMachines\\Site=A
    the snapshot has no answer for web host web.invalid
office: Office
  Home is not current, but expected to be
    adapter $index (wifi0): default gateway asked for 192.168.1.1 or 192.168.2.1, seen 10.20.0.1
unplugged: none
gone: no snapshot of it is given, but line 4 of bad.csv expects one"
expect_err "1 machine without a line in bad.csv: unplugged"
expect_err "0 machines as expected, 2 not, 1 without a snapshot, 0 errors"
expect "$(grep -o 'tests="4" failures="3" errors="0" skipped="1"' bad.xml)" 'tests="4" failures="3" errors="0" skipped="1"'
expect "$(grep -o '<failure message="Home is not current, but expected to be">' bad.xml)" '<failure message="Home is not current, but expected to be">'
answer qela test --set set.json --machines machines --expect bad.csv --json
expect_code 1
expect_json '.machines[1].differences == [{"id": "11111111-0000-0000-0000-000000000002", "name": "Home", "expected": "current", "found": "not current",
  "reasons": ["adapter \($index) (wifi0): default gateway asked for 192.168.1.1 or 192.168.2.1, seen 10.20.0.1"]}]' --arg index "$index"
expect_json '.withoutSnapshot == [{"machine": "gone", "line": 4}] and .different == 2'
expect_json '.machines[2] | has("differences") | not'

it "a snapshot that cannot be read is told in its turn, and the others are tested"
mkdir broken
cp machines/office.json broken/a.json
head -c 100 machines/office.json >broken/b.json
cp machines/office.json broken/c.json
jq '.adapters[0].gateways = "10.20.0.1"' machines/office.json >broken/d.json
answer qela test --set set.json --machines broken --junit broken.xml
expect_code 1
expect "$out" "a: Office
c: Office"
expect_err "qela: error: broken"
expect_err "at /adapters/0/gateways: the text \"10.20.0.1\" stands here; write an array"
expect "$(grep -o 'errors="2"' broken.xml)" 'errors="2"'

it "two snapshots of one machine cannot both be as expected"
jq '.machine = "office"' machines/office.json >broken/c.json
printf 'machine,locations\noffice,Office\n' >office.csv
answer qela test --set set.json --machines machines/office.json broken/c.json --expect office.csv
expect_code 1
expect_err 'broken/c.json: machines/office.json is a snapshot of "office", too'

it "what cannot be done is told, and exits as its kind"
answer qela test --set none.json --machines machines; expect_code 1; expect_err none.json
answer qela test --set set.json --machines 'none*.json'; expect_code 1; expect_err 'no file fits none*.json'
mkdir empty
answer qela test --set set.json --machines empty; expect_code 1; expect_err 'no file fits empty'
answer qela test --set set.json --machines none.json; expect_code 1; expect_err none.json
answer qela test --set set.json --machines machines --junit no/folder.xml; expect_code 1; expect_err 'cannot be written'
answer qela test --set set.json --machines machines --expect set.json; expect_code 1
expect_err 'set.json, line 1: '
answer qela test --machines machines; expect_code 2; expect_err --set
answer qela test --set set.json; expect_code 2; expect_err --machines
answer qela snapshot --set set.json; expect_code 2; expect_err --probes
for option in --set --expect --junit; do
  answer qela test --set set.json --machines machines "$option" ''; expect_code 2; expect_err "$option: the file must have a name"
done
before=$(cat machines/office.json)
answer qela snapshot no/folder.json; expect_code 1; expect_err 'cannot be written'
answer qela snapshot machines; expect_code 1; expect_err 'cannot be written'
expect "$(cat machines/office.json)" "$before"

it "thousands of machines are answered in the order of their names"
mkdir many
for number in $(seq -w 2000); do cp machines/office.json "many/pc$number.json"; done
answer qela test --set set.json --machines many
expect_code 0
expect "$(cut -d: -f1 <<<"$out" | sort -c && wc -l <<<"$out")" 2000

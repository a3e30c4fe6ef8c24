#!/bin/bash
# Whole sets from and to files, with the machine's own registry and its reg program.
. "$(dirname "$0")/lab.sh"

kValueKey='HKLM\SOFTWARE\Corvane\Tessel\Firewall\LA'
stored() { reg query "$kValueKey" /v la | tr -d '\r'; }
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cd "$folder"

qela location add 'Büro 日' --id 11111111-0000-0000-0000-000000000001 --gateway 10.20.0.1 --note 'a "note"' >/dev/null 2>&1
qela location add Lab --id 11111111-0000-0000-0000-000000000002 --dns-suffix '*.lab.example' --disabled >/dev/null 2>&1

it "export writes to a file, and the same to standard output"
answer qela export set.json; expect_answer 0 "Exported 2 locations to set.json." ""
answer qela export; expect_code 0; expect "$out" "$(<set.json)"
answer qela export set.json --json; expect_json '. == {"schema": 1, "action": "exported", "file": "set.json", "locations": 2}'
expect "$(jq -c '[.schema, .locations[].name]' set.json)" '[1,"Büro 日","Lab"]'
answer qela export set.reg; expect_code 0
qela export --format reg | cmp - set.reg || failed "the two differ"

it "what is listed can be applied, too"
qela locations --json >listed.json
answer qela diff listed.json; expect_answer 0 "The stored set and the file are the same." ""

it "an applied file leaves nothing to change"
before=$(stored)
for file in set.json set.reg; do
  answer qela validate $file; expect_answer 0 "$file holds a set of 2 locations that can be applied." ""
  answer qela validate $file --json; expect_json '. == {"schema": 1, "valid": true, "locations": 2}'
  answer qela apply $file --delete-missing; expect_answer 0 "The stored set is as in the file already." ""
  answer qela diff $file; expect_code 0
done
answer qela apply -; expect_code 1 # without input
expect_err "standard input: line 1, column 1"
qela apply - <set.json | grep -q "as in the file already" || failed "standard input is not read"
expect "$(stored)" "$before"

it "differences are shown by field, before anything is changed"
jq '.locations[0].name = "Office" | .locations[1].criteria.gateways = ["10.0.0.1"] | .locations += [{"id": "new", "name": "New"}]' set.json >next.json
answer qela apply next.json --dry-run
expect_code 6
expect "$out" 'would change "Office" (11111111-0000-0000-0000-000000000001)
  name: "Büro 日" -> "Office"
would change "Lab" (11111111-0000-0000-0000-000000000002)
  gateways: none -> "10.0.0.1"
would add "New" (new)
  no criteria: current everywhere while enabled
3 locations in all. Nothing was changed.'
answer qela diff next.json --json
expect_code 6
expect_json '.action == "compared" and [.differences[].difference] == ["changed", "changed", "added"]'
expect "$(stored)" "$before"

it "apply changes, and restore brings back and forth"
answer qela apply next.json
expect_code 0
expect_out 'changed "Office"'
expect_err "A running service takes this over"
answer qela locations --json; expect_json '[.locations[].name] == ["Office", "Lab", "New"]'
after=$(stored)
answer qela restore; expect_code 0; expect_out "Restored the former set."
expect "$(stored)" "$before"
answer qela restore --json; expect_json '.action == "restored"'
expect "$(stored)" "$after"

it "reg imports what export writes, and apply reads what reg exports"
reg import set.reg >/dev/null 2>&1
expect "$(stored)" "$before"
reg export "$kValueKey" exported.reg /y >/dev/null 2>&1
answer qela diff exported.reg; expect_answer 0 "The stored set and the file are the same." ""

it "a file that is no set is told with its place, and changes nothing"
sed 's/"enabled": true/"enabled": 1/' set.json >wrong.json
head -c 300 set.reg >cut.reg
head -c 100000000 /dev/zero | tr '\0' ' ' >large.json
for command in validate diff apply "apply --delete-missing" "apply --dry-run"; do
  # shellcheck disable=SC2086
  answer qela $command wrong.json
  expect_answer 1 "" "qela: error: wrong.json: at /locations/0/enabled: 1 stands here; write true or false"
  # shellcheck disable=SC2086
  answer qela $command cut.reg; expect_code 1; expect_err "cut.reg: line 4: "
  # shellcheck disable=SC2086
  answer qela $command large.json; expect_answer 1 "" "qela: error: large.json: it is larger than 67108864 bytes; give a smaller file"
  # shellcheck disable=SC2086
  answer qela $command no-such.json; expect_answer 1 "" "qela: error: no-such.json: it cannot be read: there is no such file or folder"
done
rm large.json
answer qela apply wrong.json --json
expect_code 1
expect "$(jq -r .error.code <<<"$err")" 1
expect "$(stored)" "$before"

it "a set of 10,000 locations goes through in less than two seconds a command"
jq -n '{schema: 1, locations: [range(10000) | {id: "site-\(.)", name: "Site \(.)", note: "a note", criteria: {dnsSuffixes: ["s\(.).corp.example"],
  gateways: ["10.\(. / 256 | floor).\(. % 256).1", "10.\(. / 256 | floor).\(. % 256).2"], httpsHosts: ["h\(.).example"]}}]}' >many.json
for command in "apply many.json --delete-missing" "apply many.json" "diff many.json" "export many.reg" "diff many.reg" "export many2.json" restore; do
  start=$(date +%s%N)
  # shellcheck disable=SC2086
  answer qela $command
  took=$((($(date +%s%N) - start) / 1000000))
  expect_code 0
  [ $took -lt $((2000 * ${SLOWER:-1})) ] || failed "qela $command took $took ms"
done
expect "$(stored)" "$before"

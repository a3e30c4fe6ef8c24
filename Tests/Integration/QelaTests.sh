#!/bin/bash
# qela's commands against the shipped library, with real adapters and registry.
#
# usage: lab.sh --own-network QelaTests.sh BIN_FOLDER     (from the checkout; the namespace and the registry are its own)
set -uo pipefail
bin=$1
scripts=$(dirname "$0")/../../Scripts
. "$scripts/lab-network.sh"
. "$scripts/watch-events.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
kValueKey='HKLM\SOFTWARE\Corvane\Tessel\Firewall\LA'

wine_run() { timeout 60 "$scripts/wine.sh" "$@" </dev/null; }

# it SENTENCE: what the following checks are about.
failures=0
checks=0
it() { sentence=$*; }
fail() {
  failures=$((failures + 1))
  printf 'FAILED: %s\n  %s\n  last command: qela %s -> %s\n  stdout: %s\n  stderr: %s\n' "$sentence" "$*" "$command" "$code" "$out" "$err"
}
check() { checks=$((checks + 1)); "$@" || fail "not so: $*"; }

# qela ARGUMENT...: fills $code, $out and $err.
qela() {
  command=$*
  wine_run "$bin/qela.exe" "$@" >"$work/out" 2>"$work/err"
  code=$?
  out=$(<"$work/out")
  err=$(<"$work/err")
}
exits() { [ "$code" -eq "$1" ]; }
says() { [[ $out == *"$1"* ]]; }
complains() { [[ $err == *"$1"* ]]; }
is_silent() { [ -z "$out" ]; }
has_no_errors() { [ -z "$err" ]; }
# json FILTER [JQ_OPTION...]: the output is one JSON line for which the filter holds.
json() {
  local filter=$1
  shift
  [ "$(wc -l <"$work/out")" -eq 1 ] && jq -e "$@" "$filter" "$work/out" >/dev/null
}
# The stored value as reg shows it; "absent" without one.
stored() {
  local text
  text=$(wine_run reg query "$kValueKey" /v la 2>/dev/null) || text=absent
  tr -d '\r' <<<"$text"
}
index_of() { ip -o link show "$1" | cut -d: -f1; }
same() { [ "$1" = "$2" ]; }
store() { wine_run reg add "$kValueKey" /v la "$@" /f >/dev/null; }
id_of() { jq -r --arg name "$1" '[.locations[] | select(.name == $name)][0].id' <<<"$(wine_run "$bin/qela.exe" locations --json)"; }

set_dns_suffix corp.example
add_adapter wifi0

it "reading commands work without a stored set and write nothing"
for reading in adapters locations current "watch --for 0"; do
  # shellcheck disable=SC2086
  qela $reading
  check exits 0
  check has_no_errors
done
check same "$(stored)" absent
qela locations; check says "No location is stored."
qela locations --json; check json '. == {"locations": []}'
qela current; check says "No location is current."
qela current --json; check json '. == {"current": []}'
qela adapters; check says "No network adapter is up."
qela adapters --json; check json '. == {"adapters": [], "macAddresses": []}'

join_network wifi0 10.20.0.15/24 10.20.0.1

it "adapters shows what the library saw, behind the options that take it"
qela adapters
check exits 0
check says ": wifi0 ("
check says "  --gateway         10.20.0.1"
check says "  --dns-suffix      corp.example"
check says "  --dns-server      127.0.0.1"
check says "  address           10.20.0.15"
qela adapters --json
check json '.adapters | length == 1'
check json '.adapters[0] | keys_unsorted == ["index","description","media","ipAddresses","gateways","dhcpEnabled","dhcpServer",
  "dhcpV6Server","dnsSuffix","dnsServers","winsPrimary","winsSecondary"]'
check json '.adapters[0] | .description == "wifi0" and .gateways == ["10.20.0.1"] and .dnsSuffix == "corp.example" and
  .dnsServers == ["127.0.0.1"] and .dhcpEnabled == false and .dhcpServer == "" and (.ipAddresses | index("10.20.0.15") != null)'
check json '.adapters[0].index == $index' --argjson index "$(index_of wifi0)"

it "add stores a location that is current where its criteria hold"
qela location add 'Büro 日' --gateway 10.20.0.1 --dns-suffix '*.example' --note 'a "note"'
check exits 0
check says 'Added "Büro 日"'
check complains "it must load again"
qela current
check says "Büro 日 [$(index_of wifi0) wifi0]"
check says "  --dns-suffix      *.example"
qela current --json
check json '.current | length == 1 and .[0].name == "Büro 日" and (.[0].id | length) == 36'
check json '.current[0].adapters == [{"index": $index, "description": "wifi0"}]' --argjson index "$(index_of wifi0)"
check json '.current[0].criteria | .dnsSuffixes == ["*.example"] and .gateways == ["10.20.0.1"] and .managementServer == false'
qela locations --json
check json '.locations | length == 1'
check json '.locations[0] | .name == "Büro 日" and .enabled and .current and .note == "a \"note\"" and
  .criteria == {"dnsSuffixes":["*.example"],"gateways":["10.20.0.1"],"dhcpServers":[],"dnsServers":[],"primaryWins":[],
    "secondaryWins":[],"registry":[],"httpsHosts":[],"managementServer":false}'

it "add tells ID and name in JSON, and keeps every kind of criterion"
qela location add Everything --dns-suffix a --gateway 10.0.0.1 --gateway 10.0.0.2 --dhcp-server 10.0.0.3 --dns-server FE80::4 \
  --primary-wins 10.0.0.5 --secondary-wins 10.0.0.6 --registry 'HKEY_LOCAL_MACHINE\SOFTWARE\' --https-host host.example \
  --management-server --disabled --json
check exits 0
check json '.name == "Everything" and .action == "added" and (.id | length) == 36'
qela locations --json
check json '.locations[1] | .enabled == false and .current == false and .note == "" and
  .criteria == {"dnsSuffixes":["a"],"gateways":["10.0.0.1","10.0.0.2"],"dhcpServers":["10.0.0.3"],"dnsServers":["fe80::4"],
    "primaryWins":["10.0.0.5"],"secondaryWins":["10.0.0.6"],"registry":["HKEY_LOCAL_MACHINE\\SOFTWARE\\"],
    "httpsHosts":["host.example"],"managementServer":true}'
qela locations
check says "Everything (disabled)"
check says "  --registry        HKEY_LOCAL_MACHINE\\SOFTWARE\\"
check says "  --management-server"

it "reading commands leave the stored set as it is"
before=$(stored)
for reading in adapters locations current "watch --for 0" "locations --json" "location --help"; do
  # shellcheck disable=SC2086
  qela $reading
  check exits 0
done
check same "$(stored)" "$before"

it "a name that is taken is refused unless forced"
qela location add Everything
check exits 3
check complains 'a location named "Everything" is stored already'
check same "$(stored)" "$before"
qela location add Everything --force --disabled
check exits 0
check complains "a location without criteria is current everywhere"

it "a name that fits several locations is answered with their IDs"
qela locations --json
ids=$(jq -r '.locations[] | select(.name == "Everything") | .id' "$work/out")
before=$(stored)
for change in remove enable disable; do
  qela location "$change" Everything
  check exits 3
  for id in $ids; do check complains "$id"; done
  check is_silent
done
check same "$(stored)" "$before"

it "an ID names one of them"
qela location remove "$(head -n 1 <<<"$ids")" --json
check exits 0
check json '.action == "removed" and .id == $id' --arg id "$(head -n 1 <<<"$ids")"
qela locations --json
check json '[.locations[].name] == ["Büro 日", "Everything"]'
check json '.locations[1].id == $id' --arg id "$(tail -n 1 <<<"$ids")"

it "a location that is not there is told"
before=$(stored)
for change in remove enable disable; do
  qela location "$change" 'büro 日'
  check exits 3
  check complains 'no location has the name or ID "büro 日"'
done
check same "$(stored)" "$before"

it "a disabled location is not current until it is enabled"
qela location disable 'Büro 日' --json
check exits 0
check json '.action == "disabled"'
qela current --json; check json '.current == []'
before=$(stored)
qela location disable 'Büro 日' --json
check exits 0
check json '.action == "unchanged"'
check same "$(stored)" "$before"
qela location enable 'Büro 日'
check says 'Enabled "Büro 日"'
qela current --json; check json '.current[0].name == "Büro 日"'

it "a value given twice is stored once"
qela location add Twice --gateway 10.0.0.1 --gateway 10.0.0.1
check exits 0
check complains '"10.0.0.1" is given twice'
qela locations --json; check json '.locations[2].criteria.gateways == ["10.0.0.1"]'
qela location remove Twice; check exits 0

it "wrong command lines exit with 2 and change nothing"
before=$(stored)
qela; check exits 2; check complains "--help"
qela bogus; check exits 2; check complains "unknown command: bogus"
qela location add; check exits 2
qela location add X --gateway ''; check exits 2; check complains "--gateway: the value must not be empty"
qela location add X --gateway 10.1; check exits 2
qela watch --for never; check exits 2
check same "$(stored)" "$before"

it "every command has a help that tells the exit codes"
for help in "" adapters locations current watch location "location add" "location remove" "location enable" "location disable"; do
  # shellcheck disable=SC2086
  qela $help --help
  check exits 0
  check says "Usage: qela"
  check says "4 a location set is stored but cannot be read"
  check has_no_errors
done

it "the library's log shows with --verbose only"
qela current --verbose; check complains "Calculating current locations..."
qela current; check has_no_errors

it "watch tells the start, each change at once, and the end"
start_watch "$scripts/wine.sh" "$bin/qela.exe" watch --json
json_event() { checks=$((checks + 1)); jq -e "$1" <<<"$event" >/dev/null || { command=watch; fail "event $event is not: $1"; }; }
json_event 'keys_unsorted == ["event","time","current"] and .event == "start"'
json_event '.time | test("^\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}[+-]\\d\\d:\\d\\d$")'
json_event '[.current[].name] == ["Büro 日"] and .current[0].adapters[0].description == "wifi0"'
# The host is not called: nothing was reported before, and no location is current now.
leave_network wifi0 10.20.0.15/24
check next_event
json_event '.event == "silent" and .entered == [] and [.left[].name] == ["Büro 日"] and .current == []'
join_network wifi0 10.20.0.15/24 10.20.0.1
check next_event
json_event 'keys_unsorted == ["event","time","entered","left","current"] and .event == "change"'
json_event '[.entered[].name] == ["Büro 日"] and .entered[0].adapters[0].description == "wifi0" and .left == []'
json_event '.current == .entered'
leave_network wifi0 10.20.0.15/24
check next_event
json_event '.event == "change" and .entered == [] and (.left[0] | keys_unsorted) == ["id","name"] and .current == []'
check end_watch
json_event '.event == "end" and .reason == "interrupted"'

it "watch writes for people, too, and ends by itself after --for"
join_network wifi0 10.20.0.15/24 10.20.0.1
qela watch --for 0
check exits 0
check says "start    current: Büro 日 ["
check says "end      time"
qela watch --for 0 --json
check same "$(jq -r .event "$work/out" | paste -sd ' ')" "start end"
check same "$(jq -r .reason "$work/out" | tail -n 1)" "time"

it "locations outlive a restart of the machine"
qela locations --json
before=$out
wineserver -k
wineserver -w
LD_PRELOAD=$LAB_SHIM wineserver -p </dev/null >/dev/null 2>&1
LD_PRELOAD=$LAB_SHIM wine wineboot </dev/null >/dev/null 2>&1
qela locations --json
check same "$out" "$before"
check json '[.locations[].name] == ["Büro 日", "Everything"]'

it "a stored set that cannot be read is refused by every command that needs it, and kept"
kept=$(id_of Everything)
# A MessagePack integer; a set cut off after its first location has begun; text.
for bad in '/t REG_BINARY /d 01' '/t REG_BINARY /d 919191969900' '/t REG_SZ /d text'; do
  # shellcheck disable=SC2086
  store $bad
  before=$(stored)
  for needing in locations current "watch --for 0" "location add New" "location add New --force" "location remove Everything" \
    "location enable $kept" "location disable $kept"; do
    # shellcheck disable=SC2086
    qela $needing
    check exits 4
    check complains "cannot be read"
    check is_silent
  done
  check same "$(stored)" "$before"
  qela adapters; check exits 0
done

it "an empty value holds nothing that could be lost"
store /t REG_BINARY
qela location add New --gateway 10.0.0.1
check exits 0
qela locations --json; check json '[.locations[].name] == ["New"]'

it "removing the last location stores an empty set"
qela location remove New; check exits 0
check same "$(stored | grep -oE '919190$')" 919190
qela locations; check exits 0; check says "No location is stored."

printf '%s checks, %s failed\n' "$checks" "$failures"
[ "$failures" -eq 0 ]
